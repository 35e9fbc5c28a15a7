// Lines whose fields are divided by colons, as apt's status pipe and nmcli's terse output have
// them.
//
// Called for each line of a child's output, on the thread that runs the child: a connection's for
// nmcli, the settings worker's or the automatic updates' for apt. A pure function on text, any
// bytes, in time linear in its length; the child runner bounds what comes here (4 MiB of output).

#ifndef TARNVALE_KIOSKD_DEVICE_STATUS_FIELDS_H_
#define TARNVALE_KIOSKD_DEVICE_STATUS_FIELDS_H_

#include <string>
#include <string_view>
#include <vector>

namespace Tarnvale::KioskService {

// The fields of one line; at least one. A backslash makes the next byte literal, a colon and
// another backslash above all, and stands for itself at the very end.
//
//   a:b     a, b
//   a\:b    one field, a:b
//   (none)  one empty field
[[nodiscard]] std::vector<std::string> SplitStatusFields(std::string_view text);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_STATUS_FIELDS_H_

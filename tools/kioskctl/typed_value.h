// Values that a person would rather not leave on a command line.

#ifndef TARNVALE_KIOSKD_TOOLS_KIOSKCTL_TYPED_VALUE_H_
#define TARNVALE_KIOSKD_TOOLS_KIOSKCTL_TYPED_VALUE_H_

#include <string>

namespace Tarnvale::KioskService::Kioskctl {

// Reads one line, without its line feed and at most 4,096 bytes, from the standard input. At a
// terminal asks for `name` first and shows nothing of what is typed. False when the input ends
// before a line feed, or the line is too long.
[[nodiscard]] bool ReadValueFromInput(const std::string& name, std::string& value);

}  // namespace Tarnvale::KioskService::Kioskctl

#endif  // TARNVALE_KIOSKD_TOOLS_KIOSKCTL_TYPED_VALUE_H_

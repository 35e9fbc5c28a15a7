// What nmcli prints about a device, as a record.
//
// Called by the slot applyNetwork on the output of `nmcli -t ... device show`, on a connection's
// thread. A pure function on text, so that its tests need no nmcli; any bytes, in time linear in
// their number, at most the 4 MiB that the child runner keeps.

#ifndef TARNVALE_KIOSKD_DEVICE_NMCLI_OUTPUT_H_
#define TARNVALE_KIOSKD_DEVICE_NMCLI_OUTPUT_H_

#include <string>
#include <string_view>

namespace Tarnvale::KioskService {

struct DeviceState {
  std::string type;          // GENERAL.TYPE: "ethernet", "wifi", "bridge" ...
  std::string state;         // GENERAL.STATE: a number and a word in brackets.
  std::string connectionId;  // GENERAL.CON-UUID; empty without an active profile.
};

// Reads terse output line by line, "NAME:VALUE" each. Lines of other names, and lines without a
// colon, are passed over; a field that does not come stays empty; of one that comes twice the last
// stands.
//
//   GENERAL.TYPE:ethernet       the type "ethernet"
//   GENERAL.STATE:a\:b:c        the state "a:b"
//   Error: no such device       nothing
[[nodiscard]] DeviceState ParseDeviceState(std::string_view output);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_NMCLI_OUTPUT_H_

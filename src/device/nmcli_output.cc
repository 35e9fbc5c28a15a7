#include "device/nmcli_output.h"

#include <vector>

#include "core/text.h"
#include "device/status_fields.h"

namespace Tarnvale::KioskService {
namespace {

void KeepField(const std::string& name, const std::string& value, DeviceState& device) {
  if (name == "GENERAL.TYPE") {
    device.type = value;
  } else if (name == "GENERAL.STATE") {
    device.state = value;
  } else if (name == "GENERAL.CON-UUID") {
    device.connectionId = value;
  }
}

}  // namespace

DeviceState ParseDeviceState(std::string_view output) {
  DeviceState device;
  for (const std::string& line : SplitLines(output)) {
    const std::vector<std::string> fields = SplitStatusFields(line);
    if (fields.size() >= 2) KeepField(fields[0], fields[1], device);
  }
  return device;
}

}  // namespace Tarnvale::KioskService

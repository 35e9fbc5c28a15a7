// What nmcli prints about a device.

#include "device/nmcli_output.h"

#include "target.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace Tarnvale::KioskService;
  const DeviceState state = ParseDeviceState(TextOf(data, size));
  for (const std::string& field : {state.type, state.state, state.connectionId})
    Expect(field.find('\n') == std::string::npos, "a field is a piece of one line");
  return 0;
}

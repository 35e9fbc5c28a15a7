// The request `net.set`.

#include "device/network.h"
#include "target.h"

namespace Tarnvale::KioskService {
namespace {

void CheckAccepted(const NetChange& change) {
  Expect(!change.adapter.empty() && change.adapter.size() <= 15, "the kernel takes the name");
  Expect(change.adapter.find('/') == std::string::npos, "the name is no path");
  Expect(change.dns.size() <= 4, "at most four name servers");
  if (change.dhcp) return;
  Expect(change.prefix >= 1 && change.prefix <= 32, "the prefix makes a netmask");
  Expect(change.ip != 0, "fixed addressing has an address");
  if (!change.hasGateway) return;
  Expect(((change.ip ^ change.gateway) & change.netmask) == 0, "the gateway is in the subnet");
}

}  // namespace
}  // namespace Tarnvale::KioskService

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace Tarnvale::KioskService;
  NetChange change;
  change.adapter = "untouched";
  std::string field;
  if (ParseNetChange(ValueOf(data, size), change, field)) {
    CheckAccepted(change);
  } else {
    Expect(!field.empty(), "a refusal names its member");
    Expect(change.adapter == "untouched", "a refusal leaves the record alone");
  }
  return 0;
}

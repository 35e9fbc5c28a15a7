// The files in which chrony and systemd-timesyncd name their servers. Each host is handed to a
// resolver and, as an argument, to a tool.

#include "device/ntp_config.h"

#include "target.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace Tarnvale::KioskService;
  const std::string text = TextOf(data, size);
  for (const std::vector<std::string>& hosts : {ChronyHosts(text), TimesyncdHosts(text)}) {
    for (const std::string& host : hosts) {
      Expect(ValidNtpHost(host), "only valid hosts are taken");
      Expect(!host.starts_with('-'), "no host reads as an option");
    }
  }
  return 0;
}

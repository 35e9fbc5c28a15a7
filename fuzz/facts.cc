// The texts in which the running system tells about itself: /proc/stat and /etc/os-release.

#include "device/facts.h"

#include "target.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace Tarnvale::KioskService;
  const std::string text = TextOf(data, size);
  (void)ParseBootTimeMs(text);  // any number is an answer; what counts is that none overflows
  Expect(ParseDisplayName(text).find('\n') == std::string::npos, "the name is a piece of one line");
  return 0;
}

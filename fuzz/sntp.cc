// The answer of a time server, which any sender may have made.

#include "device/sntp.h"

#include "core/units.h"
#include "target.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace Tarnvale::KioskService;
  constexpr std::int64_t kUntouched = -1;
  // An era of NTP has 2^32 seconds; no two of its moments lie further apart.
  constexpr std::int64_t kEraMs = (std::int64_t{1} << 32) * kSecondMs;
  const std::string packet = TextOf(data, size);
  for (const std::int64_t sentAtMs : {std::int64_t{0}, std::int64_t{1'800'000'000} * kSecondMs}) {
    std::int64_t offsetMs = kUntouched;
    if (ReadSntpAnswer(packet, sentAtMs, sentAtMs + kSecondMs, offsetMs)) {
      Expect(size == kSntpPacketBytes, "an answer is a whole packet");
      Expect(offsetMs > -kEraMs && offsetMs < kEraMs, "the offset lies within an era");
    } else {
      Expect(offsetMs == kUntouched, "a refusal leaves the offset alone");
    }
  }
  return 0;
}

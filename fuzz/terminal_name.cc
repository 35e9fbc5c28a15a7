// The terminal's display name, as the portal sends it.

#include <cctype>

#include "portal/terminal_name.h"
#include "target.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace Tarnvale::KioskService;
  constexpr std::size_t kMostBytes = 80 * 4;  // characters of four bytes
  const std::string name = CleanTerminalName(TextOf(data, size));
  Expect(name.size() <= kMostBytes && name.size() <= size, "a name does not grow");
  if (name.empty()) return 0;
  const auto last = static_cast<unsigned char>(name.back());
  Expect(std::isspace(last) == 0, "no white space at the end");
  return 0;
}

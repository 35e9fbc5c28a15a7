// What the package tools print: a simulated upgrade, the sizes of packages, the status pipe. One
// text is read as each of them.

#include "device/apt_output.h"

#include "core/text.h"
#include "target.h"

namespace Tarnvale::KioskService {
namespace {

void CheckPackages(const std::string& text) {
  std::vector<std::string> specs;
  std::vector<OsUpdate> updates = ParseSimulation(text, specs);
  Expect(specs.size() <= updates.size(), "at most one name with its version for each package");
  // They become arguments of apt-get.
  for (const std::string& spec : specs)
    Expect(SplitWords(spec).size() == 1 && spec.find('=') != std::string::npos, "NAME=VERSION");
  ReadSizes(text, updates);
}

void CheckProgress(const std::string& text) {
  std::atomic<int> progress = 0;
  for (const std::string& line : SplitLines(text)) {
    AptProgressLine(line, progress);
    Expect(progress >= 0 && progress <= 100, "the progress is a percentage");
  }
}

}  // namespace
}  // namespace Tarnvale::KioskService

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace Tarnvale::KioskService;
  CheckPackages(TextOf(data, size));
  CheckProgress(TextOf(data, size));
  return 0;
}

#include "device/apt_output.h"

#include <stdlib.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <map>

#include "core/text.h"
#include "device/status_fields.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::string_view kInstallMark = "Inst ";
constexpr std::string_view kPackageMark = "Package: ";
constexpr std::string_view kSizeMark = "Size: ";

constexpr std::string_view kDownloadMark = "dlstatus:";
constexpr std::string_view kInstallStatusMark = "pmstatus:";
constexpr int kDownloadBase = 0;
constexpr int kInstallBase = 50;
constexpr std::size_t kPercentField = 2;

// Plain beginnings of names: "systemd-timesyncd" counts as well.
constexpr std::string_view kRestartPrefixes[] = {
    "linux-image",    "linux-modules", "linux-firmware",   "linux-generic",
    "linux-headers",  "libc6",         "systemd",          "dbus",
    "linux-rockchip", "armbian-bsp",   "armbian-firmware", "u-boot"};

bool NeedsRestart(std::string_view name) {
  return std::any_of(std::begin(kRestartPrefixes), std::end(kRestartPrefixes),
                     [name](std::string_view prefix) { return name.starts_with(prefix); });
}

// Empty when there is none.
std::string FirstWord(std::string_view text) {
  const std::vector<std::string> words = SplitWords(text);
  return words.empty() ? std::string() : words.front();
}

std::string VersionOf(std::string_view line) {
  const std::size_t bracket = line.find('(');
  return bracket == std::string_view::npos ? std::string() : FirstWord(line.substr(bracket + 1));
}

// 0 for what is no number or a larger one.
std::uint64_t ParseSize(std::string_view text) {
  std::uint64_t size = 0;
  (void)std::from_chars(text.data(), text.data() + text.size(), size);  // leaves 0 when it fails
  return size;
}

using SizesByName = std::map<std::string, std::uint64_t, std::less<>>;

SizesByName ParseSizes(std::string_view output) {
  SizesByName sizes;
  std::string name;
  for (const std::string& line : SplitLines(output)) {
    if (line.starts_with(kPackageMark)) name = Trim(line.substr(kPackageMark.size()));
    if (!line.starts_with(kSizeMark)) continue;
    std::uint64_t& size = sizes[name];
    if (size == 0) size = ParseSize(std::string_view(line).substr(kSizeMark.size()));
  }
  return sizes;
}

// Half of a percentage, as an integer from 0 to 50. The comparison is written so that NaN, too,
// fails it: its conversion to an integer would be undefined.
int HalfOf(double percent) {
  if (!(percent > 0)) return 0;
  return static_cast<int>(std::min(percent, 100.0) * 0.5);
}

}  // namespace

std::vector<OsUpdate> ParseSimulation(std::string_view output, std::vector<std::string>& specs) {
  std::vector<OsUpdate> updates;
  for (const std::string& line : SplitLines(output)) {
    if (!line.starts_with(kInstallMark)) continue;
    const std::string name = FirstWord(std::string_view(line).substr(kInstallMark.size()));
    const std::string version = VersionOf(line);
    updates.push_back({.id = name,
                       .title = version.empty() ? name : Join({name, version}, " "),
                       .restartRequired = NeedsRestart(name)});
    if (!version.empty()) specs.push_back(Join({name, version}, "="));
  }
  return updates;
}

void ReadSizes(std::string_view output, std::vector<OsUpdate>& updates) {
  const SizesByName sizes = ParseSizes(output);
  for (OsUpdate& update : updates) {
    if (update.sizeBytes != 0) continue;
    const auto found = sizes.find(update.id);
    if (found != sizes.end()) update.sizeBytes = found->second;
  }
}

void AptProgressLine(const std::string& line, std::atomic<int>& progress) {
  const bool downloads = line.starts_with(kDownloadMark);
  if (!downloads && !line.starts_with(kInstallStatusMark)) return;
  const std::vector<std::string> fields = SplitStatusFields(line);
  if (fields.size() <= kPercentField) return;
  const double percent = ::strtod(fields[kPercentField].c_str(), nullptr);
  progress.store((downloads ? kDownloadBase : kInstallBase) + HalfOf(percent));
}

}  // namespace Tarnvale::KioskService

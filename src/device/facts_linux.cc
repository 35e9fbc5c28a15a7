#include "device/facts_linux.h"

#include <glob.h>
#include <unistd.h>

#include <algorithm>

#include "core/files.h"
#include "core/text.h"
#include "device/facts.h"

namespace Tarnvale::KioskService {
namespace {

// The "-" keeps the card directories themselves out and takes in the connectors of every card.
constexpr char kConnectorPattern[] = "/sys/class/drm/card*-*/status";
constexpr std::size_t kMaxHostNameBytes = 255;

bool IsConnected(const char* statusPath) {
  return Trim(ReadWholeFile(statusPath)) == "connected";
}

int CountConnected(const char* pattern) {
  glob_t matches = {};
  int count = 0;
  if (::glob(pattern, 0, nullptr, &matches) == 0) {
    count = static_cast<int>(
        std::count_if(matches.gl_pathv, matches.gl_pathv + matches.gl_pathc, IsConnected));
  }
  ::globfree(&matches);
  return count;
}

}  // namespace

long BootTime() {
  return ParseBootTimeMs(ReadWholeFile("/proc/stat"));
}

int ScreenCount() {
  return std::max(1, CountConnected(kConnectorPattern));
}

std::string OsVersion() {
  return ParseDisplayName(ReadWholeFile("/etc/os-release"));
}

std::string HostName() {
  char name[kMaxHostNameBytes + 1] = {};
  if (::gethostname(name, kMaxHostNameBytes) != 0) return {};
  return name;
}

}  // namespace Tarnvale::KioskService

// One pending package, and the result of one run of the package manager. Data and nothing else.

#ifndef TARNVALE_KIOSKD_DEVICE_OS_UPDATE_H_
#define TARNVALE_KIOSKD_DEVICE_OS_UPDATE_H_

#include <cstdint>
#include <string>

namespace Tarnvale::KioskService {

struct OsUpdate {
  std::string id;               // The package's name.
  std::string title;            // The name and the new version, or the name alone.
  std::uint64_t sizeBytes = 0;  // To download; 0 when unknown.
  bool restartRequired = false;
};

// What WuRun::result says.
enum WuResult : std::int32_t {
  kWuDone = 0,
  kWuNothingToDo = 1,
  kWuFailed = 2,
};

struct WuRun {
  std::int32_t result = kWuFailed;
  std::int32_t pending = 0;      // Packages still pending when the run ended.
  bool restartRequired = false;  // At the end of the run; false when the run failed before it knew.
  std::string error;             // Why the run failed; empty otherwise.
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_OS_UPDATE_H_

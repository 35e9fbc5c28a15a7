#include "kiosk/maintenance_linux.h"

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "core/descriptor.h"
#include "core/log.h"
#include "core/units.h"
#include "device/process_linux.h"

namespace Tarnvale::KioskService {
namespace {

constexpr mode_t kMarkerMode = 0644;
constexpr std::int32_t kStartTimeoutMs = 60 * kSecondMs;

void MakeMarker(const std::string& path) {
  const Descriptor marker(
      ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, kMarkerMode));
  if (!marker.IsOpen()) Log("<3>cannot create %s (%s)\n", path.c_str(), std::strerror(errno));
}

}  // namespace

void SetMaintenanceMarker(const std::string& runDir, bool allowKiosk, bool startKiosk) {
  const std::string path = runDir + "/kiosk-maintenance";
  if (!allowKiosk) {
    MakeMarker(path);
    return;
  }
  (void)::unlink(path.c_str());  // usually it is not there
  if (!startKiosk) return;
  // Not waited for, and not told: a kiosk that does not start stands in the unit's own journal.
  (void)Systemctl({"start", "--no-block", "tarnvale-kiosk.service"}, kStartTimeoutMs);
}

}  // namespace Tarnvale::KioskService

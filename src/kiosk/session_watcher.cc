#include "kiosk/session_watcher.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "core/service.h"
#include "core/stop.h"
#include "core/units.h"
#include "kiosk/account.h"
#include "kiosk/admin_sessions.h"
#include "kiosk/maintenance.h"
#include "kiosk/presence.h"
#include "kiosk/unlock.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::int64_t kLookIntervalMs = 2 * kSecondMs;

// The start-up thread's, and the watcher thread's from then on.
std::set<std::string> knownSessions;

std::set<std::string> IdsOf(const std::vector<SessionInfo>& sessions) {
  std::set<std::string> ids;
  for (const SessionInfo& session : sessions)
    ids.insert(session.id);
  return ids;
}

void HandleNewSession(const SessionInfo& session, std::optional<std::uint32_t> kioskUid) {
  if (InMaintenance() && IsAdministratorSession(session, kioskUid)) TrackAdminSession(session.id);
}

void HandleGoneSession(const std::string& id) {
  ForgetUnlockOf(id);
  ForgetPresenceOf(id);
  if (InMaintenance() && ForgetAdminSession(id)) EndMaintenance("the administrator signed out");
}

}  // namespace

void TakeSessionBaseline() {
  knownSessions = IdsOf(Platform().listSessions());
}

void SessionWatcherTick() {
  const std::optional<std::uint32_t> kioskUid = IntactKioskUid();
  const std::vector<SessionInfo> sessions = Platform().listSessions();
  const std::set<std::string> before = std::exchange(knownSessions, IdsOf(sessions));
  for (const SessionInfo& session : sessions) {
    if (!before.contains(session.id)) HandleNewSession(session, kioskUid);
  }
  for (const std::string& id : before) {
    if (!knownSessions.contains(id)) HandleGoneSession(id);
  }
}

void SessionWatcher() {
  while (SleepUnlessStopped(kLookIntervalMs))
    SessionWatcherTick();
}

}  // namespace Tarnvale::KioskService

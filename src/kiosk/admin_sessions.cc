#include "kiosk/admin_sessions.h"

#include <set>

#include "core/service.h"
#include "kiosk/account.h"

namespace Tarnvale::KioskService {
namespace {

std::set<std::string> adminSessions GUARDED_BY(adminSessionsLock);

}  // namespace

bool IsAdministratorSession(const SessionInfo& session, std::optional<std::uint32_t> kioskUid) {
  return !session.remote && !session.name.empty() && session.sessionClass == "user" &&
         session.uid != kioskUid;
}

void AdoptAdminSessions() {
  const std::optional<std::uint32_t> kioskUid = IntactKioskUid();
  const MutexLock lock(adminSessionsLock);
  for (const SessionInfo& session : Platform().listSessions()) {
    if (IsAdministratorSession(session, kioskUid)) adminSessions.insert(session.id);
  }
}

void TrackAdminSession(const std::string& id) {
  const MutexLock lock(adminSessionsLock);
  adminSessions.insert(id);
}

void ForgetAllAdminSessions() {
  const MutexLock lock(adminSessionsLock);
  adminSessions.clear();
}

bool ForgetAdminSession(const std::string& id) {
  const MutexLock lock(adminSessionsLock);
  return adminSessions.erase(id) > 0;
}

}  // namespace Tarnvale::KioskService

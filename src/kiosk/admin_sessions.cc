#include "kiosk/admin_sessions.h"

#include <set>

namespace Tarnvale::KioskService {
namespace {

std::set<std::string> adminSessions GUARDED_BY(adminSessionsLock);

}  // namespace

bool IsAdministratorSession(const SessionInfo& session, std::optional<std::uint32_t> kioskUid) {
  return !session.remote && !session.name.empty() && session.sessionClass == "user" &&
         session.uid != kioskUid;
}

void TrackAdminSession(const std::string& id) {
  const MutexLock lock(adminSessionsLock);
  adminSessions.insert(id);
}

bool ForgetAdminSession(const std::string& id) {
  const MutexLock lock(adminSessionsLock);
  return adminSessions.erase(id) > 0;
}

}  // namespace Tarnvale::KioskService

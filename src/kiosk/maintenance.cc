#include "kiosk/maintenance.h"

#include "control/reply.h"
#include "core/clock.h"
#include "core/log.h"
#include "core/service.h"
#include "core/state.h"
#include "kiosk/account.h"
#include "kiosk/admin_sessions.h"
#include "kiosk/exit_password.h"
#include "kiosk/unlock.h"
#include "portal/identity.h"

namespace Tarnvale::KioskService {
namespace {

// Empty when this terminal is a kiosk that can be left, otherwise the code for the peer.
std::string AcceptUnlock() {
  if (CurrentDeviceToken().empty()) return "not_enrolled";
  if (!IsProvisioned()) return "not_provisioned";
  Log("<6>maintenance: accepted with the terminal settings unlock\n");
  return {};
}

// Empty when the caller may enter, otherwise the code for the peer. Asks the portal only when there
// is no valid unlock, so that an administrator gets out with no network too.
std::string Authorise(const std::string& unlockToken, const std::string& password,
                      const std::string& session)
    EXCLUDES(lifecycleLock, powerLock, pairingLock, passwordLock, unlockLock, stateLock,
             signallingLock) {
  if (!unlockToken.empty()) {
    if (UnlockValid(unlockToken, session)) return AcceptUnlock();
    if (password.empty()) return "not_unlocked";
  }
  return CheckExitPassword(password);
}

void EndUnlock() EXCLUDES(unlockLock) {
  const MutexLock lock(unlockLock);
  WipeUnlock();
}

void EnterMaintenance() EXCLUDES(lifecycleLock, adminSessionsLock, stateLock, signallingLock) {
  // Not while an account is made or unmade: provisioning looks at the state and takes the marker
  // away.
  const MutexLock lock(lifecycleLock);
  StateSetInt(StateKey::kMaintenance, 1);
  StateSetInt(StateKey::kMaintenanceAt, WallNowMs());
  Platform().setMaintenanceMarker(false, false);
  ForgetAllAdminSessions();
  Log("<6>maintenance: the kiosk session is held off "
      "until the administrator signs out or the device restarts\n");
}

}  // namespace

bool InMaintenance() {
  return StateGetInt(StateKey::kMaintenance) == 1;
}

std::string Maintenance(const std::string& unlockToken, const std::string& password,
                        const std::string& session, std::function<void()>& after) {
  const std::string error = Authorise(unlockToken, password, session);
  if (!error.empty()) return ReplyError(error);
  EndUnlock();
  EnterMaintenance();
  after = [] { Platform().endKioskSessions(false); };
  return ReplyOk();
}

void EndMaintenance(const char* reason) {
  if (!InMaintenance()) return;
  StateClear(StateKey::kMaintenance);
  StateClear(StateKey::kMaintenanceAt);
  if (!CurrentDeviceToken().empty() && IsProvisioned()) Platform().setMaintenanceMarker(true, true);
  Log("<6>maintenance over (%s): kiosk sign-in restored\n", reason);
}

}  // namespace Tarnvale::KioskService

#include "kiosk/removal.h"

#include <cstdint>
#include <string>

#include "core/log.h"
#include "core/service.h"
#include "core/state.h"
#include "device/updates.h"
#include "kiosk/account.h"
#include "portal/branding_cache.h"
#include "portal/pairing.h"

namespace Tarnvale::KioskService {
namespace {

constexpr const char* kPowerKeys[] = {StateKey::kPowerPolicy, StateKey::kPowerSource,
                                      StateKey::kPowerLocal, StateKey::kPowerError};
constexpr const char* kUpdatesKeys[] = {StateKey::kUpdatesPolicy, StateKey::kUpdatesSource,
                                        StateKey::kOsUpdatesReport, StateKey::kOsUpdatesWindowDone};
// The token leads: without it the terminal is not enrolled, whatever else is still there.
constexpr const char* kIdentityKeys[] = {
    StateKey::kDeviceToken,  StateKey::kDeviceId,      StateKey::kProvisioned,
    StateKey::kMaintenance,  StateKey::kMaintenanceAt, StateKey::kLastError,
    StateKey::kUnknownSince, StateKey::kSignIn,        StateKey::kTerminalName};

template <std::size_t count>
void ClearKeys(const char* const (&keys)[count]) {
  for (const char* const key : keys)
    StateClear(key);
}

// What the setup tool leaves undone does not keep the rest: everything else still has to go.
void DisableKioskMode() {
  std::string detail;
  if (Platform().runSetupTool(false, &detail)) return;
  Log("<3>tarnvale-kiosk-setup disable failed: %s\n", detail.c_str());
}

// Under one lock, so that no policy is applied between the two.
void ForgetPower() {
  const MutexLock lock(powerLock);
  Platform().removePower();
  ClearKeys(kPowerKeys);
}

// Both the uid and the tool's mark must agree: an account that somebody else made under this name
// is never deleted.
bool IsRecordedAccount(std::uint32_t uid, const std::string& comment,
                       const std::string& recordedUid) {
  return UidText(uid) == recordedUid && IsSetupToolComment(comment);
}

// False when the deletion must be tried again. An account that is not ours does not keep a removal
// pending. Logs the outcome, but for a lookup that failed, which its slot logs.
bool RemoveKioskAccount(const std::string& recordedUid) REQUIRES(lifecycleLock) {
  std::uint32_t uid = 0;
  std::string comment;
  const int lookup = Platform().lookupKioskAccount(&uid, &comment);
  if (lookup == kAccountMissing) return true;
  if (lookup != kAccountFound) return false;
  if (!IsRecordedAccount(uid, comment, recordedUid)) {
    Log("<4>the local %s is not the account tarnvale-kiosk-setup made (%s); left alone\n",
        kKioskAccountName, recordedUid.c_str());
    return true;
  }
  Platform().endKioskSessions(true);
  if (!Platform().deleteKioskAccount()) {
    Log("<3>cannot delete %s\n", kKioskAccountName);
    return false;
  }
  Log("<6>deleted %s\n", kKioskAccountName);
  return true;
}

// A terminal that was never provisioned has no account to delete.
bool RemoveRecordedAccountLocked() REQUIRES(lifecycleLock) {
  const std::string recordedUid = StateGetString(StateKey::kAccountUid);
  return recordedUid.empty() || RemoveKioskAccount(recordedUid);
}

void ForgetAccount() {
  StateClear(StateKey::kAccountUid);
  StateClear(StateKey::kTeardownPending);
}

// The uid stays recorded: it is what makes the account ours at the next attempt.
void LeavePending() {
  StateSetInt(StateKey::kTeardownPending, 1);
  Log("<4>the kiosk account could not be removed yet; retrying at every start and check-in\n");
}

void TakeDown(const char* reason) {
  // Held from the first step to the last: nothing may be provisioned or cached in between.
  const MutexLock lock(lifecycleLock);
  Log("<4>removing kiosk mode: %s\n", reason);
  DisableKioskMode();
  RemoveBranding(true);
  ForgetPower();
  GiveBackUpdatesSchedule();
  ClearKeys(kUpdatesKeys);
  // The identity goes after the account, so that a removal cut short before is made once more.
  const bool accountIsGone = RemoveRecordedAccountLocked();
  ClearKeys(kIdentityKeys);
  if (accountIsGone) {
    ForgetAccount();
  } else {
    LeavePending();
  }
}

}  // namespace

void RemoveKioskMode(const char* reason) {
  TakeDown(reason);
  // Behind the lifecycle lock, because a `pair.check` may hold the pairing lock for 30 s.
  ClearPendingCode();
}

void FinishPendingRemoval() {
  if (StateGetInt(StateKey::kTeardownPending) != 1) return;
  const MutexLock lock(lifecycleLock);
  // A provisioning may have taken the account back meanwhile.
  if (StateGetInt(StateKey::kTeardownPending) != 1) return;
  if (!RemoveRecordedAccountLocked()) return;
  ForgetAccount();
  Log("<6>the pending removal of %s finished\n", kKioskAccountName);
}

}  // namespace Tarnvale::KioskService

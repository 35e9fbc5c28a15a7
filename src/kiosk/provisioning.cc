#include "kiosk/provisioning.h"

#include <sys/stat.h>

#include <cstdint>

#include "core/log.h"
#include "core/service.h"
#include "core/state.h"
#include "kiosk/account.h"
#include "kiosk/maintenance.h"

namespace Tarnvale::KioskService {
namespace {

struct Account {
  int lookup = kAccountMissing;  // An AccountLookup.
  std::uint32_t uid = 0;
  std::string comment;
};

Account LookUp() {
  Account account;
  account.lookup = Platform().lookupKioskAccount(&account.uid, &account.comment);
  return account;
}

bool IsExecutableFile(const std::string& path) {
  struct stat status = {};
  return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         (status.st_mode & S_IXUSR) != 0;
}

// With a recorded uid only that account is ours. With none, the setup tool's mark decides, so that
// a terminal that lost its state adopts the tool's account.
bool IsForeign(const Account& account, const std::string& recordedUid) {
  if (account.lookup != kAccountFound) return false;
  if (recordedUid.empty()) return !IsSetupToolComment(account.comment);
  return UidText(account.uid) != recordedUid;
}

std::string Fail(const char* code, const std::string& detail = {}) {
  Log("<3>provisioning failed: %s%s%s\n", code, detail.empty() ? "" : ": ", detail.c_str());
  StateSetString(StateKey::kLastError, code);
  return code;
}

void RecordAccount(const Account& account, const std::string& recordedUid) {
  const std::string uid = UidText(account.uid);
  if (uid == recordedUid) return;
  if (!recordedUid.empty()) Log("<4>the recorded kiosk account is gone; using the new one\n");
  StateSetString(StateKey::kAccountUid, uid);
  Log("<6>kiosk account %s (uid %s)\n", kKioskAccountName, uid.c_str());
}

}  // namespace

std::string ProvisionKiosk() {
  // Held across the setup tool: nothing else may make or unmake the account meanwhile.
  const MutexLock lock(lifecycleLock);
  StateClear(StateKey::kProvisioned);
  StateClear(StateKey::kTeardownPending);
  const std::string& client = ServiceConfig().client;
  if (!IsExecutableFile(client)) return Fail("no_client");

  const std::string recordedUid = StateGetString(StateKey::kAccountUid);
  const Account before = LookUp();
  if (before.lookup == kAccountLookupFailed) return Fail("account_lookup_failed");
  if (IsForeign(before, recordedUid)) return Fail("account_exists");

  std::string detail;
  if (!Platform().runSetupTool(true, &detail)) return Fail("setup_failed", detail);
  const Account after = LookUp();
  if (after.lookup != kAccountFound) return Fail("account_create_failed");

  RecordAccount(after, recordedUid);
  DropKioskAdminGroups();
  // A marker may be left of a maintenance that a removal ended.
  if (!InMaintenance()) Platform().setMaintenanceMarker(true, false);
  StateClear(StateKey::kLastError);
  StateSetInt(StateKey::kProvisioned, 1);
  Log("<6>provisioned: %s signs in at startup into %s --kiosk\n", kKioskAccountName,
      client.c_str());
  return {};
}

}  // namespace Tarnvale::KioskService

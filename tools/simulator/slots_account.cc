// The slots of the kiosk account: lookupKioskAccount, runSetupTool, dropAdminGroups,
// deleteKioskAccount.

#include <unistd.h>

#include <optional>

#include "core/log.h"
#include "kiosk/account.h"
#include "simulator/slots.h"
#include "simulator/terminal_store.h"

namespace Tarnvale::KioskService::Simulator {
namespace {

constexpr char kSetupToolComment[] = "Tarnvale kiosk";
// Above the ordinary users, below the system's own.
constexpr std::uint32_t kKioskUidForRoot = 60000;

// Without root everybody here has one uid, and so has the kiosk account.
std::uint32_t ChooseUid(const Options& options) {
  return options.kioskUid.value_or(::getuid() == 0 ? kKioskUidForRoot : ::getuid());
}

int LookUp(const std::string& user, unsigned int* uid, std::string* comment) {
  const std::optional<KioskAccount> account = GetTerminal().account;
  if (!account || account->name != user) return kAccountMissing;
  if (uid != nullptr) *uid = account->uid;
  if (comment != nullptr) *comment = kSetupToolComment;
  return kAccountFound;
}

bool Enable(const KioskAccount& account) {
  ChangeTerminal([&](Terminal& terminal) { EnableKiosk(terminal, account); });
  Log("<6>simulator: setup tool: %s exists and signs in at the next startup\n",
      account.name.c_str());
  return true;
}

bool Disable() {
  ChangeTerminal(DisableKiosk);
  Log("<6>simulator: setup tool: nobody signs in by themselves any more\n");
  return true;
}

bool Delete(const std::string& user) {
  bool deleted = false;
  ChangeTerminal([&](Terminal& terminal) { deleted = DeleteKioskAccount(terminal); });
  if (deleted) {
    Log("<6>simulator: userdel: there is no %s any more\n", user.c_str());
  } else {
    Log("<4>simulator: userdel: %s is signed in\n", user.c_str());
  }
  return deleted;
}

}  // namespace

void FillAccountSlots(Ops& ops, const Options& options) {
  const KioskAccount account = {.name = options.config.kioskUser, .uid = ChooseUid(options)};
  ops.lookupKioskAccount = [account](unsigned int* uid, std::string* comment) {
    return LookUp(account.name, uid, comment);
  };
  ops.runSetupTool = [account](bool enable, std::string* detail) {
    detail->clear();
    return enable ? Enable(account) : Disable();
  };
  // The simulated account is never in such a group; saying so at each check-in would hide the rest.
  ops.dropAdminGroups = [] {};
  ops.deleteKioskAccount = [user = account.name] { return Delete(user); };
}

}  // namespace Tarnvale::KioskService::Simulator

// The kiosk account: whether it is still the one that this terminal made, and the rights it must
// not hold.
//
// The state key AccountUid, the decimal uid as text, is what makes an account ours. An account
// whose comment begins with "Tarnvale" was made by the setup tool. No locks of its own; any thread.

#ifndef TARNVALE_KIOSKD_KIOSK_ACCOUNT_H_
#define TARNVALE_KIOSKD_KIOSK_ACCOUNT_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Tarnvale::KioskService {

// What the log and the kiosk user interface call the account, whatever its configured name is.
inline constexpr char kKioskAccountName[] = "tarnvale-kiosk";

// What the lookupKioskAccount slot answers.
enum AccountLookup : int {
  kAccountMissing = 0,
  kAccountFound = 1,
  kAccountLookupFailed = 2,
};

// Whether an account with this comment was made by the setup tool.
//
//   "Tarnvale kiosk"   true
//   "Tarnvale"         true
//   "Tarnval"          false
[[nodiscard]] bool IsSetupToolComment(std::string_view comment);

// The uid as the state keeps it and as accounts are compared.
[[nodiscard]] std::string UidText(std::uint32_t uid);

// True when the recorded account exists. Both results are optional, and are written only then: its
// uid, and whether the setup tool made it.
[[nodiscard]] bool KioskAccountIntact(std::uint32_t* uid, bool* ours);

// The uid of the intact account; none without one.
[[nodiscard]] std::optional<std::uint32_t> IntactKioskUid();

// Provisioning has completed and its account is intact.
[[nodiscard]] bool IsProvisioned();

// Takes the account out of the administrative groups, if the setup tool made it: an account of
// somebody else is never touched. Runs when provisioning, at every start and after every good
// check-in, so that a membership gained in any other way lasts no longer than one check-in.
void DropKioskAdminGroups();

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_KIOSK_ACCOUNT_H_

#include "kiosk/account.h"

#include "core/service.h"
#include "core/state.h"

namespace Tarnvale::KioskService {

bool IsSetupToolComment(std::string_view comment) {
  return comment.starts_with("Tarnvale");
}

std::string UidText(std::uint32_t uid) {
  return std::to_string(uid);
}

bool KioskAccountIntact(std::uint32_t* uid, bool* ours) {
  const std::string recorded = StateGetString(StateKey::kAccountUid);
  if (recorded.empty()) return false;
  std::uint32_t found = 0;
  std::string comment;
  if (Platform().lookupKioskAccount(&found, &comment) != kAccountFound) return false;
  if (UidText(found) != recorded) return false;
  if (uid != nullptr) *uid = found;
  if (ours != nullptr) *ours = IsSetupToolComment(comment);
  return true;
}

std::optional<std::uint32_t> IntactKioskUid() {
  std::uint32_t uid = 0;
  if (!KioskAccountIntact(&uid, nullptr)) return std::nullopt;
  return uid;
}

bool IsProvisioned() {
  return StateGetInt(StateKey::kProvisioned) == 1 && KioskAccountIntact(nullptr, nullptr);
}

void DropKioskAdminGroups() {
  bool ours = false;
  if (KioskAccountIntact(nullptr, &ours) && ours) Platform().dropAdminGroups();
}

}  // namespace Tarnvale::KioskService

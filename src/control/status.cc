#include "control/status.h"

#include "core/service.h"
#include "core/state.h"
#include "json/object.h"
#include "kiosk/account.h"
#include "kiosk/maintenance.h"
#include "portal/identity.h"
#include "portal/sign_in.h"

namespace Tarnvale::KioskService {

std::string HandleStatus(const Caller& caller) {
  const bool provisioned = IsProvisioned();
  const std::string lastError = StateGetString(StateKey::kLastError);
  Json reply = Json::Object();
  reply.Set("ok", true);
  reply.Set("enrolled", !CurrentDeviceToken().empty());
  reply.Set("provisioned", provisioned);
  reply.Set("kioskSession", provisioned && caller.kioskAccount && IsKioskSession(caller.session));
  reply.Set("maintenance", InMaintenance());
  reply.Set("account", kKioskAccountName);
  reply.Set("terminalName", StateGetString(StateKey::kTerminalName));
  reply.Set("signIn", ReadSignIn(ParseObjectOrEmpty(StateGetString(StateKey::kSignIn))));
  reply.Set("brandingDir", ServiceConfig().brandingDir);
  if (!lastError.empty()) reply.Set("error", lastError);
  return reply.Dump();
}

}  // namespace Tarnvale::KioskService

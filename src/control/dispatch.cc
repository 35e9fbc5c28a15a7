#include "control/dispatch.h"

#include <optional>

#include "control/reply.h"
#include "control/settings_gate.h"
#include "control/status.h"
#include "core/log.h"
#include "core/text.h"
#include "json/json.h"
#include "kiosk/maintenance.h"
#include "kiosk/presence.h"
#include "kiosk/unlock.h"
#include "portal/pairing.h"
#include "portal/restart.h"

namespace Tarnvale::KioskService {
namespace {

// What the kiosk session may say besides the settings commands.
bool IsKioskCommand(const std::string& name) {
  return name == "maintenance" || name == "unlock" || name == "session.report" ||
         IsSettingsCommand(name);
}

std::string HandleRestartNow(const Caller& caller, std::function<void()>& after) {
  if (!IsInteractiveUser(caller)) return ReplyError("not_permitted");
  if (!IsRestartPending()) return ReplyError("not_pending");
  after = [] { RestartIntoKiosk("Restart now"); };
  return ReplyOk();
}

std::string HandlePairing(const std::string& name, const Json& request, const Caller& caller) {
  if (!IsEnrollingUser(caller)) {
    Log("<4>%s refused: the caller is not an interactive user other than the kiosk account\n",
        name.c_str());
    return ReplyError("not_permitted");
  }
  return name == "pair.begin" ? PairBegin() : PairCheck(request);
}

// Secrets do not outlive the request that carried them.
std::string HandleUnlockRequest(const Json& request, const std::string& session) {
  std::string password = request.Get("password").AsString("");
  std::string reply = HandleUnlock(password, session);
  WipeText(password);
  return reply;
}

std::string HandleMaintenanceRequest(const Json& request, const std::string& session,
                                     std::function<void()>& after) {
  std::string unlockToken = request.Get("unlockToken").AsString("");
  std::string password = request.Get("password").AsString("");
  std::string reply = Maintenance(unlockToken, password, session, after);
  WipeText(unlockToken);
  WipeText(password);
  return reply;
}

std::string HandleKioskCommand(const std::string& name, const Json& request, const Caller& caller,
                               std::function<void()>& after) {
  if (!IsInKioskSession(caller)) {
    Log("<4>%s refused: the caller is not the kiosk account in its own session\n", name.c_str());
    return ReplyError("not_permitted");
  }
  if (name == "unlock") return HandleUnlockRequest(request, caller.session);
  if (name == "session.report") return HandleSessionReport(request, caller.session);
  if (name == "maintenance") return HandleMaintenanceRequest(request, caller.session, after);
  return HandleSettings(name, request, caller);
}

std::string Route(const Json& request, const Caller& caller, std::function<void()>& after) {
  const std::string name = request.Get("cmd").AsString("");
  if (name == "status") return HandleStatus(caller);
  if (name == "restart.now") return HandleRestartNow(caller, after);
  if (name == "pair.begin" || name == "pair.check") return HandlePairing(name, request, caller);
  // An unknown name is unknown to every peer: this comes before anything is asked about the caller.
  if (!IsKioskCommand(name)) return ReplyError("unknown_command");
  return HandleKioskCommand(name, request, caller, after);
}

}  // namespace

std::string Dispatch(const std::string& line, const Caller& caller, std::function<void()>& after) {
  std::optional<Json> request = Json::Parse(line);
  if (!request || !request->IsObject()) return ReplyError("bad_request");
  std::string reply = Route(*request, caller, after);
  WipeTexts(*request);  // a password or an unlock token may be among them
  return reply;
}

}  // namespace Tarnvale::KioskService

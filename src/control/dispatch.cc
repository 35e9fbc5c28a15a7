#include "control/dispatch.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "control/reply.h"
#include "control/status.h"
#include "core/log.h"
#include "json/json.h"
#include "kiosk/presence.h"
#include "portal/pairing.h"
#include "portal/restart.h"

namespace Tarnvale::KioskService {
namespace {

// What reads or changes how the terminal itself is set up.
constexpr std::string_view kSettingsCommands[] = {
    "net.set", "time.sync", "power.get", "power.set", "proxy.set", "os.updates", "os.install"};

bool IsSettingsCommand(const std::string& name) {
  return std::find(std::begin(kSettingsCommands), std::end(kSettingsCommands), name) !=
         std::end(kSettingsCommands);
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

// Nothing hands out an unlock yet, so no token opens the terminal's settings.
std::string HandleSettings(const std::string& name, const Caller& caller) {
  Log("<4>%s refused: terminal settings are not unlocked for session %s\n", name.c_str(),
      caller.session.c_str());
  return ReplyError("not_unlocked");
}

std::string HandleKioskCommand(const std::string& name, const Json& request, const Caller& caller) {
  if (!IsInKioskSession(caller)) {
    Log("<4>%s refused: the caller is not the kiosk account in its own session\n", name.c_str());
    return ReplyError("not_permitted");
  }
  if (name == "session.report") return HandleSessionReport(request, caller.session);
  return HandleSettings(name, caller);
}

}  // namespace

std::string Dispatch(const std::string& line, const Caller& caller, std::function<void()>& after) {
  const std::optional<Json> request = Json::Parse(line);
  if (!request || !request->IsObject()) return ReplyError("bad_request");
  const std::string name = request->Get("cmd").AsString("");
  if (name == "status") return HandleStatus(caller);
  if (name == "restart.now") return HandleRestartNow(caller, after);
  if (name == "pair.begin" || name == "pair.check") return HandlePairing(name, *request, caller);
  // An unknown name is unknown to every peer: this comes before anything is asked about the caller.
  if (name != "session.report" && !IsSettingsCommand(name)) return ReplyError("unknown_command");
  return HandleKioskCommand(name, *request, caller);
}

}  // namespace Tarnvale::KioskService

#include "control/settings_gate.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "control/reply.h"
#include "core/log.h"
#include "device/network.h"
#include "device/power.h"
#include "device/proxy.h"
#include "device/time_sync.h"
#include "device/updates.h"
#include "kiosk/unlock.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::string_view SettingsCommands[] = {
    "net.set", "time.sync", "power.get", "power.set", "proxy.set", "os.updates", "os.install"};

// A number does not turn into text here; any other kind than a string counts as no token.
bool IsUnlocked(const Json& unlockToken, const std::string& session) {
  if (!unlockToken.IsString()) return false;
  return UnlockValid(unlockToken.text, session);
}

}  // namespace

bool IsSettingsCommand(const std::string& name) {
  return std::find(std::begin(SettingsCommands), std::end(SettingsCommands), name) !=
         std::end(SettingsCommands);
}

std::string HandleSettings(const std::string& name, const Json& request, const Caller& caller) {
  if (IsUnlocked(request.Get("unlockToken"), caller.session)) {
    return DispatchSettings(name, request);
  }
  Log("<4>%s refused: terminal settings are not unlocked for session %s\n", name.c_str(),
      caller.session.c_str());
  return ReplyError("not_unlocked");
}

std::string DispatchSettings(const std::string& name, const Json& request) {
  if (name == "net.set") return HandleNetSet(request);
  if (name == "time.sync") return HandleTimeSync();
  if (name == "power.get") return HandlePowerGet();
  if (name == "power.set") return HandlePowerSet(request);
  if (name == "proxy.set") return HandleProxySet(request);
  if (name == "os.updates") return HandleOsUpdates(request);
  if (name == "os.install") return HandleOsInstall();
  return ReplyError("unknown_command");
}

}  // namespace Tarnvale::KioskService

#include "control/caller.h"

#include <sys/stat.h>

#include <algorithm>
#include <vector>

#include "core/service.h"
#include "core/state.h"
#include "kiosk/account.h"

namespace Tarnvale::KioskService {
namespace {

bool IsClientImage(std::int32_t pid, std::string& reason) {
  const std::string path = Platform().exePathOfPid(pid);
  const std::string& client = ServiceConfig().client;
  if (path.empty()) {
    reason = "caller image unknown";
    return false;
  }
  if (path != client) {
    reason = path + " is not " + client;
    return false;
  }
  if (!RootOwnedNotWritable(path)) {
    reason = path + " is writable by someone other than root";
    return false;
  }
  return true;
}

bool IsAllowedByHand(std::string& reason) {
  if (StateGetInt(StateKey::kDevAllowAnyCaller) == 1) return true;
  reason = "this service is not installed and DevAllowAnyCaller is not set";
  return false;
}

}  // namespace

bool RootOwnedNotWritable(const std::string& path) {
  struct stat status = {};
  if (path.empty() || ::stat(path.c_str(), &status) != 0) return false;
  return status.st_uid == 0 && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

bool IsInstalledPath(const std::string& path) {
  return RootOwnedNotWritable(path) && path.starts_with("/usr/");
}

bool CheckCallerImage(std::int32_t pid, std::uint32_t uid, std::string& reason) {
  if (pid <= 0) {
    reason = "caller process unknown";
    return false;
  }
  if (uid == 0) return true;
  return ServiceInstalled() ? IsClientImage(pid, reason) : IsAllowedByHand(reason);
}

void IdentifyCaller(std::int32_t pid, std::uint32_t uid, Caller& caller) {
  caller = {.root = uid == 0, .uid = uid, .pid = pid, .session = {}};
  SessionInfo info;
  if (Platform().sessionOfPid(pid, &info)) {
    caller.session = info.id;
    caller.interactive = !info.remote && info.sessionClass == "user";
  }
  if (!ServiceConfig().localSession) caller.interactive = true;
  const std::string recorded = StateGetString(StateKey::kAccountUid);
  caller.kioskAccount = !recorded.empty() && recorded == UidText(uid);
}

bool IsKioskSession(const std::string& sessionId) {
  if (sessionId.empty()) return false;
  std::uint32_t kioskUid = 0;
  if (!KioskAccountIntact(&kioskUid, nullptr)) return false;
  const std::vector<SessionInfo> sessions = Platform().listSessions();
  const auto found =
      std::find_if(sessions.begin(), sessions.end(),
                   [&](const SessionInfo& session) { return session.id == sessionId; });
  if (found == sessions.end() || found->uid != kioskUid) return false;
  return !found->remote || !ServiceConfig().localSession;
}

bool IsInteractiveUser(const Caller& caller) {
  return caller.interactive && !caller.kioskAccount;
}

bool IsEnrollingUser(const Caller& caller) {
  return caller.interactive && !caller.root && !caller.kioskAccount;
}

bool IsInKioskSession(const Caller& caller) {
  return caller.kioskAccount && !caller.session.empty() && IsKioskSession(caller.session);
}

}  // namespace Tarnvale::KioskService

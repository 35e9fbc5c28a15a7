#include "portal/pairing.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "control/reply.h"
#include "core/build_stamp.h"
#include "core/log.h"
#include "core/service.h"
#include "core/state.h"
#include "core/stop.h"
#include "core/text.h"
#include "json/object.h"
#include "kiosk/provisioning.h"
#include "portal/check_in.h"
#include "portal/identity.h"
#include "portal/request.h"
#include "portal/restart.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::size_t kCodeLength = 8;
constexpr std::int64_t kDefaultCodeSeconds = 900;

constexpr std::int32_t kHttpCreated = 201;
constexpr std::int32_t kHttpAccepted = 202;
constexpr std::int32_t kHttpNotFound = 404;
constexpr std::int32_t kHttpConflict = 409;
constexpr std::int32_t kHttpGone = 410;
constexpr std::int32_t kHttpServerError = 500;

// The code that the portal gave last; empty when no pairing is under way. Never written to disk: a
// restart of the service forgets it.
std::string pendingCode GUARDED_BY(pairingLock);

std::string DescribeTerminal() {
  Json terminal = Json::Object();
  terminal.Set("hostname", Platform().hostName());
  terminal.Set("platform", "Linux");
  terminal.Set("osVersion", Platform().osVersion());
  terminal.Set("appVersion", kBuildStamp);
  terminal.Set("screenCount", Platform().screenCount());
  return terminal.Dump();
}

bool IsAlphanumeric(const std::string& text) {
  return std::all_of(text.begin(), text.end(),
                     [](unsigned char byte) { return std::isalnum(byte) != 0; });
}

// The code goes into a URL, so only the form that the portal is meant to give may pass.
bool IsPendingCodeLocked(const std::string& code) REQUIRES(pairingLock) {
  return !pendingCode.empty() && code == pendingCode && code.size() == kCodeLength &&
         IsAlphanumeric(code);
}

std::string ReplyNotPaired(const char* error = nullptr) {
  Json reply = Json::Object();
  reply.Set("ok", true);
  reply.Set("paired", false);
  if (error != nullptr) reply.Set("error", error);
  return reply.Dump();
}

std::string ReplyPairedUnreachable() {
  Json reply = Json::Object();
  reply.Set("ok", true);
  reply.Set("paired", true);
  reply.Set("provisioned", false);
  reply.Set("error", "unreachable");
  return reply.Dump();
}

std::string ReplyRestarting() {
  Json reply = Json::Object();
  reply.Set("ok", true);
  reply.Set("paired", true);
  reply.Set("provisioned", true);
  reply.Set("restarting", true);
  reply.Set("restartInSeconds", kRestartDelayMs / kSecondMs);
  return reply.Dump();
}

// The code has come to its end.
std::string ReplyCodeOverLocked(const char* error) REQUIRES(pairingLock) {
  pendingCode.clear();
  return ReplyError(error);
}

// The token of the portal's answer; no other copy of it stays behind. Empty when there is none.
std::string TakeToken(Http& http) {
  Json body = ParseObjectOrEmpty(http.body);
  std::string token = StringMember(body, "deviceToken");
  WipeTexts(body);
  WipeText(http.body);
  return token;
}

// Asks the portal about the code. With a token in `token` the pairing goes on; otherwise the result
// is the reply to the caller.
std::string AskForTokenLocked(const std::string& code, std::string& token) REQUIRES(pairingLock) {
  Http http =
      PortalRequest("GET", "/api/kiosk/pair/" + code, "", "", kMaxPortalReplyBytes, kAcceptJson);
  if (!http.ok || http.status >= kHttpServerError) return ReplyNotPaired("unreachable");
  if (http.status == kHttpAccepted) return ReplyNotPaired();
  if (http.status == kHttpNotFound || http.status == kHttpGone) {
    return ReplyCodeOverLocked("expired");
  }
  if (http.status == kHttpConflict) return ReplyCodeOverLocked("claimed");
  if (http.status != kHttpOk) return ReplyError("server_error");
  pendingCode.clear();
  token = TakeToken(http);
  return token.empty() ? ReplyError("server_error") : std::string();
}

// Both keys reach the disk in one replacement of the file: a token is never seen without its
// machine.
void StoreIdentity(const std::string& token) {
  const std::string deviceId = MachineIdHash();
  const MutexLock lock(stateLock);
  StateDocument().Set(StateKey::kDeviceToken, token);
  StateDocument().Set(StateKey::kDeviceId, deviceId);
  StateSave();
}

// What follows the check-in with the new token: the reply to the caller.
std::string FinishEnrolment(const CheckInResult& result, const std::string& token)
    EXCLUDES(lifecycleLock, powerLock, pairingLock, stateLock, signallingLock) {
  if (ApplyDeviceStatus(result, token)) return ReplyError("revoked");
  if (result.outcome != CheckInOutcome::kEnrolled) return ReplyPairedUnreachable();
  const std::string failure = ProvisionKiosk();
  if (!failure.empty()) return ReplyError(failure);
  ScheduleRestart();
  return ReplyRestarting();
}

}  // namespace

std::string PairBegin() {
  if (!CurrentDeviceToken().empty()) return ReplyError("already_enrolled");
  const Http http = PortalRequest("POST", "/api/kiosk/pair", DescribeTerminal(), "",
                                  kMaxPortalReplyBytes, kAcceptJson);
  if (!http.ok) {
    Log("<4>pairing: AuthSystem unreachable (%s)\n", http.error.c_str());
    return ReplyError("unreachable");
  }
  if (http.status != kHttpOk && http.status != kHttpCreated) {
    Log("<4>pairing: HTTP %d\n", http.status);
    return ReplyError("server_error");
  }
  const Json body = ParseObjectOrEmpty(http.body);
  const std::string code = StringMember(body, "pairingCode");
  if (code.empty()) return ReplyError("server_error");
  {
    const MutexLock lock(pairingLock);
    pendingCode = code;
  }
  StateClear(StateKey::kLastError);
  Log("<6>pairing started\n");

  Json reply = Json::Object();
  reply.Set("ok", true);
  reply.Set("code", code);
  reply.Set("expiresInSeconds", body.Get("expiresInSeconds").AsInt(kDefaultCodeSeconds));
  return reply.Dump();
}

void ClearPendingCode() {
  const MutexLock lock(pairingLock);
  pendingCode.clear();
}

std::string PairCheck(const Json& request) {
  const std::string code = Trim(request.Get("code").AsString(""));
  // Held across the exchanges, so that two checks never run together.
  MutexLock lock(pairingLock);
  if (!IsPendingCodeLocked(code)) return ReplyError("unknown_code");
  std::string token;
  std::string answer = AskForTokenLocked(code, token);
  if (token.empty()) return answer;

  StoreIdentity(token);
  Log("<6>paired: device token held\n");
  WakeServiceLoop();
  const CheckInResult result = CheckIn(token);
  lock.Unlock();  // a removal clears the pending code under this lock
  std::string reply = FinishEnrolment(result, token);
  WipeText(token);  // the state alone keeps it
  return reply;
}

}  // namespace Tarnvale::KioskService

#include "portal/check_in.h"

#include "core/build_stamp.h"
#include "core/clock.h"
#include "core/log.h"
#include "core/state.h"
#include "core/text.h"
#include "core/units.h"
#include "device/power_policy_json.h"
#include "device/updates_policy_json.h"
#include "json/object.h"
#include "kiosk/removal.h"
#include "portal/identity.h"
#include "portal/request.h"
#include "portal/sign_in.h"
#include "portal/terminal_name.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::int32_t kHttpUnauthorized = 401;
// A portal that has lost its data for a while must not cost a fleet its kiosks.
constexpr std::int64_t kUnknownGraceMs = 24 * kHourMs;

Json LocalPowerOrNull() {
  PowerPolicy policy;
  return LoadPowerPolicy(StateKey::kPowerLocal, policy) ? PowerPolicyToJson(policy) : Json();
}

std::string MakeReport() {
  Json report = Json::Object();
  report.Set("appVersion", kBuildStamp);
  report.Set("powerLocal", LocalPowerOrNull());
  report.Set("powerError", TextOrNull(StateGetString(StateKey::kPowerError)));
  const std::optional<Json> updates = Json::Parse(StateGetString(StateKey::kOsUpdatesReport));
  if (updates && updates->IsObject()) report.Set("osUpdates", *updates);
  return report.Dump();
}

void JudgeUnauthorized(const std::string& body, CheckInResult& result) {
  const std::string status = ParseObjectOrEmpty(body).Get("status").AsString("");
  if (status.empty()) {
    result.error = "HTTP 401 without a device status";
    return;
  }
  result.error = "HTTP 401, status " + status;
  if (status == "revoked") result.outcome = CheckInOutcome::kRevoked;
  if (status == "unknown") result.outcome = CheckInOutcome::kUnknown;
}

// True when the reply says that the terminal is enrolled; otherwise the result tells why not.
bool JudgeReply(const Http& http, const Json& reply, CheckInResult& result) {
  if (!http.ok) {
    result.error = http.error;
  } else if (http.status == kHttpUnauthorized) {
    JudgeUnauthorized(http.body, result);
  } else if (http.status != kHttpOk) {
    result.error = "HTTP " + std::to_string(http.status);
  } else if (reply.Get("status").AsString("") != "enrolled") {
    result.error = "unexpected check-in reply";
  } else {
    result.outcome = CheckInOutcome::kEnrolled;
  }
  return result.outcome == CheckInOutcome::kEnrolled;
}

void ApplySignIn(const Json& reply) {
  const std::string text = ReadSignIn(reply.Get("signIn")).Dump();
  if (!StateUpdateString(StateKey::kSignIn, text)) return;
  Log("<6>kiosk sign-in methods now %s\n", text.c_str());
}

void ApplyName(const Json& reply) {
  const std::string name = CleanTerminalName(StringMember(reply, "name"));
  if (!StateUpdateString(StateKey::kTerminalName, name)) return;
  Log("<6>terminal name now \"%s\"\n", name.c_str());
}

// Who made a policy; any word but the three clears what was known.
std::string ReadSource(const Json& value) {
  const std::string source = value.AsString("");
  const bool known = source == "device" || source == "tenant" || source == "default";
  return known ? source : std::string();
}

void ApplyPower(const Json& reply) {
  PowerPolicy policy;
  if (!ReadPowerPolicy(reply.Get("power"), policy)) return;
  const std::string text = PowerPolicyToJson(policy).Dump();
  if (StateUpdateString(StateKey::kPowerPolicy, text)) {
    Log("<6>power: the portal's policy is now %s\n", text.c_str());
  }
  StateUpdateString(StateKey::kPowerSource, ReadSource(reply.Get("powerSource")));
}

void ApplyUpdates(const Json& reply) {
  UpdatesPolicy policy;
  if (!UpdatesPolicyFromJson(reply.Get("updates"), policy)) return;
  const std::string text = UpdatesPolicyToJson(policy).Dump();
  if (StateUpdateString(StateKey::kUpdatesPolicy, text)) {
    Log("<6>os updates: the portal's policy is now %s\n", text.c_str());
  }
  StateUpdateString(StateKey::kUpdatesSource, ReadSource(reply.Get("updatesSource")));
}

void ApplyReply(const Json& reply, CheckInResult& result) {
  StateClear(StateKey::kUnknownSince);
  ApplySignIn(reply);
  ApplyName(reply);
  ApplyPower(reply);
  ApplyUpdates(reply);
  result.exitPassword = reply.Get("exitPassword").AsString("");
  result.branding = reply.Get("branding");
  result.tenantId = StringMember(reply, "tenantId");
}

// A verdict that comes late must not touch the identity that was made in the meantime.
void RemoveIfInForce(const std::string& token, const char* reason) {
  if (CurrentDeviceToken() == token) RemoveKioskMode(reason);
}

bool HandleRevoked(const CheckInResult& result, const std::string& token) {
  Log("<4>check-in: the portal says this terminal was removed (%s)\n", result.error.c_str());
  RemoveIfInForce(token, "removed in the portal (401, status revoked)");
  return true;
}

bool HandleUnknown(const std::string& token) {
  const std::int64_t nowMs = WallNowMs();
  const std::int64_t sinceMs = StateGetInt(StateKey::kUnknownSince);
  // A time in the future comes from a clock that has been corrected backwards since.
  if (sinceMs == 0 || sinceMs > nowMs) {
    StateSetInt(StateKey::kUnknownSince, nowMs);
    Log("<4>check-in: AuthSystem does not recognise this terminal's token; "
        "kiosk mode stays unless that lasts 24 hours\n");
    return false;
  }
  // The side with the clock is subtracted from: the state file may hold any number.
  if (sinceMs > nowMs - kUnknownGraceMs) return false;
  Log("<4>check-in: the token has been unknown to AuthSystem for over 24 hours\n");
  RemoveIfInForce(token,
                  "the portal has not known this terminal for 24 hours (401, status unknown)");
  return true;
}

}  // namespace

CheckInResult::~CheckInResult() {
  WipeText(exitPassword);
}

CheckInResult CheckIn(const std::string& token) {
  Http http = PortalRequest("POST", "/api/kiosk/check-in", MakeReport(), token,
                            kMaxPortalReplyBytes, kAcceptJson);
  CheckInResult result;
  Json reply = ParseObjectOrEmpty(http.body);
  if (JudgeReply(http, reply, result)) ApplyReply(reply, result);
  WipeText(http.body);  // it may hold the exit password
  WipeTexts(reply);
  return result;
}

bool ApplyDeviceStatus(const CheckInResult& result, const std::string& token) {
  switch (result.outcome) {
    case CheckInOutcome::kRevoked:
      return HandleRevoked(result, token);
    case CheckInOutcome::kUnknown:
      return HandleUnknown(token);
    case CheckInOutcome::kEnrolled:
    case CheckInOutcome::kFailed:
      break;
  }
  return false;
}

}  // namespace Tarnvale::KioskService

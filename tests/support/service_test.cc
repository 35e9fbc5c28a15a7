#include "support/service_test.h"

#include <sys/stat.h>

#include "control/dispatch.h"
#include "core/service.h"
#include "core/state.h"
#include "core/text.h"
#include "portal/identity.h"

namespace Tarnvale::KioskService {
namespace {

// What is shorter stands in many a text by chance.
constexpr std::size_t kShortestSecret = 4;

}  // namespace

ServiceTest::ServiceTest() : ops(StrictOps()) {
  config.stateDir = dir.At("state");
  config.runDir = dir.At("run");
  config.socket = dir.At("kiosk.sock");
  config.brandingDir = dir.At("branding");
  config.etcDir = dir.At("etc");
  config.authBase = "https://portal.test";
  config.client = dir.At("client");
  config.setupTool = dir.At("setup-tool");
  config.machineIdPath = dir.At("machine-id");
  for (const std::string& made : {config.stateDir, config.runDir}) {
    EXPECT_EQ(::mkdir(made.c_str(), 0700), 0) << made;
  }
  WriteText(config.client, "", 0755);
  WriteText(config.machineIdPath, kTestMachineId);
  ops.http = [this](const std::string& method, const std::string& url, const std::string& body,
                    const std::string& token, unsigned long maxBytes, const std::string& accept) {
    return portal.Exchange({method, url, body, token, maxBytes, accept});
  };
  UseConfig();
  LoadState();
}

ServiceTest::~ServiceTest() {
  const std::string path = dir.At("state/state.json");
  const std::string state = Exists(path) ? ReadText(path) : "";
  const std::string logged = log.WholeText();
  for (const std::string& secret : secrets_) {
    EXPECT_EQ(logged.find(secret), std::string::npos) << secret << " was logged";
    EXPECT_EQ(state.find(secret), std::string::npos) << secret << " is in the state";
  }
}

void ServiceTest::UseConfig() {
  SetService(config, ForwardingOps(ops, calls));
}

void ServiceTest::LoadState() {
  StateLoad();
}

void ServiceTest::WriteState(const std::string& text) {
  WriteText(config.stateDir + "/state.json", text, 0600);
}

Json ServiceTest::StateFile() const {
  return Json::Parse(ReadText(config.stateDir + "/state.json")).value_or(Json("unreadable"));
}

void ServiceTest::Enrol() {
  StateSetString(StateKey::kDeviceToken, kTestToken);
  StateSetString(StateKey::kDeviceId, MachineIdHash());
}

void ServiceTest::Provision() {
  AccountIs(kTestKioskUid);
  StateSetString(StateKey::kAccountUid, std::to_string(kTestKioskUid));
  StateSetInt(StateKey::kProvisioned, 1);
}

void ServiceTest::AccountIs(unsigned uid, const std::string& comment) {
  ops.lookupKioskAccount = [uid, comment](unsigned* uidOut, std::string* commentOut) {
    if (uidOut != nullptr) *uidOut = uid;
    if (commentOut != nullptr) *commentOut = comment;
    return 1;
  };
}

void ServiceTest::AccountIsMissing() {
  ops.lookupKioskAccount = [](unsigned*, std::string*) { return 0; };
}

void ServiceTest::AccountLookupFails() {
  ops.lookupKioskAccount = [](unsigned*, std::string*) { return 2; };
}

void ServiceTest::SetupToolMakes(unsigned uid) {
  ops.runSetupTool = [this, uid](bool enable, std::string* detail) {
    EXPECT_TRUE(enable);
    detail->clear();
    AccountIs(uid);
    return true;
  };
  ops.setMaintenanceMarker = [](bool allowKiosk, bool startKiosk) {
    EXPECT_TRUE(allowKiosk);
    EXPECT_FALSE(startKiosk);
  };
}

void ServiceTest::RemovalWorks() {
  ops.runSetupTool = [](bool enable, std::string* detail) {
    EXPECT_FALSE(enable);
    detail->clear();
    return true;
  };
  ops.removePower = [] {};
  ops.restoreUpdatesSchedule = [] {};
  ops.endKioskSessions = [](bool wait) { EXPECT_TRUE(wait); };
  ops.deleteKioskAccount = [this] {
    AccountIsMissing();
    return true;
  };
}

void ServiceTest::AccountCannotBeDeleted() {
  RemovalWorks();
  ops.deleteKioskAccount = [] { return false; };
}

void ServiceTest::SessionsAre(std::vector<SessionInfo> sessions) {
  ops.listSessions = [sessions] { return sessions; };
  ops.sessionOfPid = [](int, SessionInfo*) { return false; };
}

void ServiceTest::CallerIsIn(const SessionInfo& session) {
  ops.sessionOfPid = [session](int, SessionInfo* info) {
    *info = session;
    return true;
  };
}

SessionInfo ServiceTest::PersonSession() {
  return {.id = kTestPersonSession,
          .uid = kTestPersonUid,
          .name = "alex",
          .remote = false,
          .active = true,
          .sessionClass = "user",
          .tty = "tty2"};
}

SessionInfo ServiceTest::KioskSession() {
  return {.id = kTestKioskSession,
          .uid = kTestKioskUid,
          .name = "tarnvale-kiosk",
          .remote = false,
          .active = true,
          .sessionClass = "user",
          .tty = "tty1"};
}

Caller ServiceTest::Person() {
  return {.interactive = true, .uid = kTestPersonUid, .pid = 4001, .session = kTestPersonSession};
}

Caller ServiceTest::Kiosk() {
  return {.interactive = true,
          .kioskAccount = true,
          .uid = kTestKioskUid,
          .pid = 4002,
          .session = kTestKioskSession};
}

Caller ServiceTest::Root() {
  return {.root = true, .uid = 0, .pid = 4003, .session = {}};
}

void ServiceTest::ExitPasswordIs(const std::string& password) {
  KeepSecret(Trim(password));
  Json reply = Json::Object();
  reply.Set("status", "enrolled");
  reply.Set("exitPassword", password);
  portal.Answers(kCheckInPath, 200, reply.Dump());
}

void ServiceTest::IsInService() {
  Enrol();
  Provision();
  ExitPasswordIs(kTestExitPassword);
  StateSetString(StateKey::kSignIn, R"({"microsoft":true,"email":false,"extraHosts":[]})");
}

std::string ServiceTest::Unlock() {
  if (CurrentDeviceToken().empty()) Enrol();
  if (StateGetInt(StateKey::kProvisioned) != 1) Provision();
  SessionsAre({PersonSession(), KioskSession()});
  ExitPasswordIs(kTestExitPassword);
  Json request = Json::Object();
  request.Set("cmd", "unlock");
  request.Set("password", kTestExitPassword);
  const Json reply = Send(request.Dump(), Kiosk());
  const std::string token = reply.Get("unlockToken").AsString("");
  EXPECT_FALSE(token.empty()) << reply.Dump();
  KeepSecret(token);
  calls.Clear();
  log.Clear();
  return token;
}

void ServiceTest::KeepSecret(const std::string& text) {
  if (text.size() >= kShortestSecret) secrets_.push_back(text);
}

Json ServiceTest::Send(const std::string& request, const Caller& caller) {
  const std::string reply = Dispatch(request, caller, after);
  const std::optional<Json> parsed = Json::Parse(reply);
  EXPECT_TRUE(parsed.has_value()) << reply;
  return parsed.value_or(Json());
}

std::string ErrorOf(const Json& reply) {
  return reply.Get("error").AsString("");
}

}  // namespace Tarnvale::KioskService

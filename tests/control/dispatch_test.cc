#include "control/dispatch.h"

#include <algorithm>

#include "core/state.h"
#include "core/stop.h"
#include "kiosk/presence.h"
#include "kiosk/unlock.h"
#include "portal/restart.h"
#include "support/service_test.h"
#include "support/test_clock.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kNotInteractive[] =
    " refused: the caller is not an interactive user other than the kiosk account";
constexpr char kNotInItsSession[] =
    " refused: the caller is not the kiosk account in its own session";
constexpr char kUnlockRefused[] = "<4>terminal settings unlock refused: unreachable";
constexpr char kNotUnlocked[] = " refused: terminal settings are not unlocked for session c7";

class DispatchTest : public ServiceTest {
 protected:
  void SetUp() override {
    Provision();
    SessionsAre({PersonSession(), KioskSession()});
  }
  static Caller RootAtTheConsole() {
    return {.root = true, .interactive = true, .uid = 0, .pid = 4004, .session = "4"};
  }
  static Caller Nobody() {
    return {.uid = kTestPersonUid, .pid = 4005, .session = {}};
  }
  static Caller KioskWithoutSession() {
    return {.interactive = true, .kioskAccount = true, .uid = kTestKioskUid, .session = {}};
  }
  static std::vector<Caller> Everybody() {
    return {Root(), RootAtTheConsole(), Person(), Nobody(), Kiosk(), KioskWithoutSession()};
  }
  std::string Reply(const std::string& line, const Caller& caller) {
    return Dispatch(line, caller, after);
  }
};

// What each caller is answered: an error code, or "ok".
struct CommandRow {
  const char* name;
  const char* root;
  const char* rootAtTheConsole;
  const char* person;
  const char* nobody;
  const char* kiosk;
  const char* kioskWithoutSession;
  const char* refusal;  // The log's words behind the name for not_permitted; empty for none.
};

constexpr char kNo[] = "not_permitted";

// On an enrolled terminal on which no pairing is under way and no restart is pending, and whose
// portal is out of reach.
constexpr CommandRow kCommands[] = {
    {"status", "ok", "ok", "ok", "ok", "ok", "ok", ""},
    {"restart.now", kNo, "not_pending", "not_pending", kNo, kNo, kNo, ""},
    {"pair.begin", kNo, kNo, "already_enrolled", kNo, kNo, kNo, kNotInteractive},
    {"pair.check", kNo, kNo, "unknown_code", kNo, kNo, kNo, kNotInteractive},
    {"maintenance", kNo, kNo, kNo, kNo, "unreachable", kNo, kNotInItsSession},
    {"unlock", kNo, kNo, kNo, kNo, "unreachable", kNo, kNotInItsSession},
    {"session.report", kNo, kNo, kNo, kNo, "invalid", kNo, kNotInItsSession},
    {"net.set", kNo, kNo, kNo, kNo, "not_unlocked", kNo, kNotInItsSession},
    {"time.sync", kNo, kNo, kNo, kNo, "not_unlocked", kNo, kNotInItsSession},
    {"power.get", kNo, kNo, kNo, kNo, "not_unlocked", kNo, kNotInItsSession},
    {"power.set", kNo, kNo, kNo, kNo, "not_unlocked", kNo, kNotInItsSession},
    {"proxy.set", kNo, kNo, kNo, kNo, "not_unlocked", kNo, kNotInItsSession},
    {"os.updates", kNo, kNo, kNo, kNo, "not_unlocked", kNo, kNotInItsSession},
    {"os.install", kNo, kNo, kNo, kNo, "not_unlocked", kNo, kNotInItsSession},
};

class CommandTable : public DispatchTest, public ::testing::WithParamInterface<CommandRow> {
 protected:
  void SetUp() override {
    DispatchTest::SetUp();
    Enrol();
    portal.IsUnreachable(kCheckInPath);
  }
  std::string LogFor(const std::string& answer) const {
    const CommandRow& row = GetParam();
    if (answer == kNo && *row.refusal != '\0') return std::string("<4>") + row.name + row.refusal;
    if (answer == "unreachable" && row.name == std::string("unlock")) return kUnlockRefused;
    if (answer == "not_unlocked") return std::string("<4>") + row.name + kNotUnlocked;
    return {};
  }
  void Answers(const Caller& caller, const std::string& answer) {
    log.Clear();
    const std::string reply = Reply(std::string(R"({"cmd":")") + GetParam().name + R"("})", caller);
    if (answer == "ok") {
      EXPECT_TRUE(reply.starts_with(R"({"ok":true,)")) << reply;
    } else {
      EXPECT_EQ(reply, R"({"ok":false,"error":")" + answer + R"("})");
    }
    const std::string line = LogFor(answer);
    EXPECT_EQ(log.Text(), line.empty() ? "" : line + "\n");
    EXPECT_FALSE(after) << "nothing is left to do";
  }
};

TEST_P(CommandTable, AnswersRootWithoutASession) {
  Answers(Root(), GetParam().root);
}

TEST_P(CommandTable, AnswersRootAtTheConsole) {
  Answers(RootAtTheConsole(), GetParam().rootAtTheConsole);
}

TEST_P(CommandTable, AnswersAPersonAtTheConsole) {
  Answers(Person(), GetParam().person);
}

TEST_P(CommandTable, AnswersAPersonWithoutALocalSession) {
  Answers(Nobody(), GetParam().nobody);
}

TEST_P(CommandTable, AnswersTheKioskAccountInItsSession) {
  Answers(Kiosk(), GetParam().kiosk);
}

TEST_P(CommandTable, AnswersTheKioskAccountOutsideItsSession) {
  Answers(KioskWithoutSession(), GetParam().kioskWithoutSession);
}

std::string CommandName(const ::testing::TestParamInfo<CommandRow>& row) {
  std::string name = row.param.name;
  std::replace(name.begin(), name.end(), '.', '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(Dispatch, CommandTable, ::testing::ValuesIn(kCommands), CommandName);

TEST_F(DispatchTest, RefusesAKioskAccountWhoseSessionHasEnded) {
  SessionsAre({PersonSession()});

  EXPECT_EQ(ErrorOf(Send(R"({"cmd":"session.report","signedIn":true})", Kiosk())), kNo);
  EXPECT_EQ(ErrorOf(Send(R"({"cmd":"net.set"})", Kiosk())), kNo);
  EXPECT_EQ(ErrorOf(Send(R"({"cmd":"unlock"})", Kiosk())), kNo);
  EXPECT_EQ(ErrorOf(Send(R"({"cmd":"maintenance"})", Kiosk())), kNo);
}

class BadRequest : public DispatchTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(BadRequest, IsWhateverIsNoObject) {
  for (const Caller& caller : Everybody()) {
    EXPECT_EQ(Reply(GetParam(), caller), R"({"ok":false,"error":"bad_request"})");
  }
  EXPECT_EQ(log.Text(), "");
}

INSTANTIATE_TEST_SUITE_P(Dispatch, BadRequest,
                         ::testing::Values("[1,2]", R"("status")", "12", "not json", "", "null",
                                           "true", R"({"cmd":"status")", R"(["cmd","status"])",
                                           R"([{"cmd":"status"}])"));

class UnknownCommand : public DispatchTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(UnknownCommand, IsUnknownToEveryCallerBeforeAnythingIsAskedAboutIt) {
  calls.Clear();

  for (const Caller& caller : Everybody()) {
    EXPECT_EQ(Reply(GetParam(), caller), R"({"ok":false,"error":"unknown_command"})");
  }

  EXPECT_EQ(log.Text(), "");
  EXPECT_TRUE(calls.Names().empty());
}

INSTANTIATE_TEST_SUITE_P(Dispatch, UnknownCommand,
                         ::testing::Values("{}", R"({"cmd":""})", R"({"cmd":7})", R"({"cmd":true})",
                                           R"({"cmd":null})", R"({"cmd":["status"]})",
                                           R"({"cmd":{"status":1}})", R"({"Cmd":"status"})",
                                           R"({"cmd":"Status"})", R"({"cmd":"status "})",
                                           R"({"cmd":"statu"})", R"({"cmd":"status\u0000"})",
                                           R"({"cmd":"RESTART.NOW"})", R"({"cmd":"pair.Begin"})",
                                           R"({"cmd":"pair"})", R"({"cmd":"session.reports"})",
                                           R"({"cmd":"unlocks"})", R"({"cmd":"Maintenance"})",
                                           R"({"cmd":"net.set2"})", R"({"cmd":"NET.SET"})",
                                           R"({"cmd":"net.se"})", R"({"cmd":"Os.Install"})",
                                           R"({"cmd":"net.set\u0000"})"));

TEST_F(DispatchTest, TakesTheFirstValueOfTheLine) {
  const std::string reply = Reply(R"({"cmd":"status"} {"cmd":"pair.begin"})", Nobody());

  EXPECT_TRUE(reply.starts_with(R"({"ok":true,"enrolled":)")) << reply;
}

TEST_F(DispatchTest, RefusesSettingsForATokenOfAnyKind) {
  for (const char* token : {R"("0123456789abcdef0123456789abcdef")", "12", "true", "null", "[]"}) {
    const std::string request = std::string(R"({"cmd":"net.set","unlockToken":)") + token + "}";
    EXPECT_EQ(ErrorOf(Send(request, Kiosk())), "not_unlocked") << token;
  }
}

TEST_F(DispatchTest, LogsTheCommandAndNoMemberOfTheRequest) {
  const std::string request =
      R"({"cmd":"net.set","unlockToken":"secret-token","password":"hunter2","address":"10.1.2.3"})";

  (void)Send(request, Kiosk());
  (void)Send(request, Person());
  (void)Send(R"({"cmd":"pair.check","code":"AB12CD34"})", Kiosk());

  const std::vector<std::string> expected = {std::string("<4>net.set") + kNotUnlocked,
                                             std::string("<4>net.set") + kNotInItsSession,
                                             std::string("<4>pair.check") + kNotInteractive};
  EXPECT_EQ(log.Lines(), expected);
}

TEST_F(DispatchTest, HandsTheSessionOfTheCallerToItsReport) {
  EXPECT_EQ(Reply(R"({"cmd":"session.report","signedIn":true})", Kiosk()), R"({"ok":true})");

  EXPECT_EQ(RestartBlocker(), "a Tarnvale user is signed in");
}

// What `unlock` and `maintenance` read of their requests.
class SecretsOfTheRequest : public DispatchTest {
 protected:
  void SetUp() override {
    DispatchTest::SetUp();
    ops.setMaintenanceMarker = [](bool, bool) {};
    ops.endKioskSessions = [](bool wait) { EXPECT_FALSE(wait); };
  }
};

TEST_F(SecretsOfTheRequest, AreHandedToUnlockWithTheSessionOfTheCaller) {
  const std::string token = Unlock();

  EXPECT_TRUE(UnlockValid(token, kTestKioskSession));
  EXPECT_FALSE(UnlockValid(token, kTestPersonSession));
}

TEST_F(SecretsOfTheRequest, AreHandedToMaintenanceWithTheSessionOfTheCaller) {
  const std::string token = Unlock();

  EXPECT_EQ(Reply(R"({"cmd":"maintenance","unlockToken":")" + token + R"("})", Kiosk()),
            R"({"ok":true})");

  EXPECT_EQ(StateGetInt(StateKey::kMaintenance), 1);
  ASSERT_TRUE(after);
  after();
  EXPECT_EQ(calls.Count("endKioskSessions"), 1);
}

TEST_F(SecretsOfTheRequest, LetMaintenanceBeginWithThePasswordAlone) {
  (void)Unlock();

  EXPECT_EQ(Reply(R"({"cmd":"maintenance","password":"exit-password-7"})", Kiosk()),
            R"({"ok":true})");

  EXPECT_TRUE(after);
}

TEST_F(SecretsOfTheRequest, LeaveNothingForAfterTheReplyOfARefusal) {
  (void)Unlock();

  EXPECT_EQ(ErrorOf(Send(R"({"cmd":"maintenance","password":"wrong"})", Kiosk())),
            "wrong_password");

  EXPECT_FALSE(after);
}

TEST_F(SecretsOfTheRequest, MayBeNumbersWhichAreReadAsText) {
  (void)Unlock();
  ExitPasswordIs("271828");

  EXPECT_EQ(ErrorOf(Send(R"({"cmd":"unlock","password":271828})", Kiosk())), "");
  EXPECT_EQ(ErrorOf(Send(R"({"cmd":"maintenance","password":271828})", Kiosk())), "");
}

TEST_F(SecretsOfTheRequest, AreEmptyTextsWhenTheyAreNoPlainValues) {
  (void)Unlock();

  for (const char* secrets : {R"("unlockToken":null,"password":null)",
                              R"("unlockToken":[],"password":{})", R"("token":"x")"}) {
    const std::string request = std::string(R"({"cmd":"maintenance",)") + secrets + "}";
    EXPECT_EQ(ErrorOf(Send(request, Kiosk())), "wrong_password") << "not not_unlocked: " << secrets;
  }
}

TEST_F(SecretsOfTheRequest, ATokenThatIsANumberIsTextForMaintenance) {
  (void)Unlock();

  // Whatever its value: a text that is not empty and no valid token.
  EXPECT_EQ(ErrorOf(Send(R"({"cmd":"maintenance","unlockToken":12})", Kiosk())), "not_unlocked");
  EXPECT_EQ(ErrorOf(Send(R"({"cmd":"maintenance","unlockToken":true})", Kiosk())), "not_unlocked");
}

TEST_F(DispatchTest, HandsTheRequestToThePairing) {
  ops.hostName = [] { return "terminal"; };
  ops.osVersion = [] { return "Linux"; };
  ops.screenCount = [] { return 1; };
  portal.Answers(kPairPath, 200, R"({"pairingCode":"AB12CD34","expiresInSeconds":60})");
  portal.Answers("/api/kiosk/pair/AB12CD34", 202);

  EXPECT_EQ(Reply(R"({"cmd":"pair.begin"})", Person()),
            R"({"ok":true,"code":"AB12CD34","expiresInSeconds":60})");
  EXPECT_EQ(Reply(R"({"cmd":"pair.check","code":"AB12CD34"})", Person()),
            R"({"ok":true,"paired":false})");
}

// With a restart pending that stays so: its thread waits for a notification.
class RestartNow : public DispatchTest {
 protected:
  void SetUp() override {
    DispatchTest::SetUp();
    ops.reboot = [] { return true; };
    TestClock::WaitForReal();
    ScheduleRestart();
    log.Clear();
  }
  void TearDown() override {
    StopThreads();
    StopScheduledRestart();
  }
};

TEST_F(RestartNow, LeavesTheRestartForAfterTheReply) {
  EXPECT_EQ(Reply(R"({"cmd":"restart.now"})", Person()), R"({"ok":true})");

  EXPECT_TRUE(after);
  EXPECT_TRUE(IsRestartPending());
  EXPECT_EQ(calls.Count("reboot"), 0);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(RestartNow, RestartsOnce) {
  (void)Reply(R"({"cmd":"restart.now"})", Person());

  after();
  after();

  EXPECT_EQ(calls.Count("reboot"), 1);
  EXPECT_FALSE(IsRestartPending());
  EXPECT_EQ(log.Text(), "<6>restarting into kiosk mode (Restart now)\n");
}

TEST_F(RestartNow, DoesNothingWhenTheScheduledRestartCameFirst) {
  (void)Reply(R"({"cmd":"restart.now"})", Person());
  RestartIntoKiosk("enrolled");

  after();

  EXPECT_EQ(calls.Count("reboot"), 1);
  EXPECT_EQ(log.Text(), "<6>restarting into kiosk mode (enrolled)\n");
}

TEST_F(RestartNow, IsOpenToRootAtTheConsole) {
  EXPECT_EQ(Reply(R"({"cmd":"restart.now"})", RootAtTheConsole()), R"({"ok":true})");
}

TEST_F(RestartNow, RefusesEverybodyElseSilently) {
  for (const Caller& caller : {Kiosk(), KioskWithoutSession(), Root(), Nobody()}) {
    EXPECT_EQ(Reply(R"({"cmd":"restart.now"})", caller), R"({"ok":false,"error":"not_permitted"})");
  }

  EXPECT_FALSE(after);
  EXPECT_TRUE(IsRestartPending());
  EXPECT_EQ(log.Text(), "");
}

}  // namespace
}  // namespace Tarnvale::KioskService

#include "control/settings_gate.h"

#include "control/dispatch.h"
#include "core/state.h"
#include "device/updates.h"
#include "kiosk/unlock.h"
#include "support/service_test.h"
#include "support/test_clock.h"

namespace Tarnvale::KioskService {
namespace {

constexpr const char* kSettingsCommands[] = {"net.set",   "time.sync",  "power.get", "power.set",
                                             "proxy.set", "os.updates", "os.install"};
constexpr char kExpiredLine[] = "<6>terminal settings locked: the unlock expired";

TEST(IsSettingsCommand, KnowsSevenNamesByteForByte) {
  for (const char* name : kSettingsCommands)
    EXPECT_TRUE(IsSettingsCommand(name)) << name;

  for (const char* name : {"", "net", "net.set2", "net.se", "Net.set", "NET.SET", " net.set",
                           "unlock", "maintenance", "session.report", "status", "net.get"}) {
    EXPECT_FALSE(IsSettingsCommand(name)) << name;
  }
  EXPECT_FALSE(IsSettingsCommand(std::string("net.set\0", 8)));
}

class SettingsGateTest : public ServiceTest {
 protected:
  void SetUp() override {
    token = Unlock();
  }
  // What the gate logs when it refuses.
  static std::string RefusalOf(const std::string& name,
                               const std::string& session = kTestKioskSession) {
    return "<4>" + name + " refused: terminal settings are not unlocked for session " + session;
  }
  // The text of a request whose token is written so. No command takes its other member for valid.
  static std::string Request(const std::string& name, const std::string& unlockToken) {
    return R"({"cmd":")" + name + R"(","unlockToken":)" + unlockToken + R"(,"mode":[]})";
  }
  static std::string Quoted(const std::string& text) {
    return "\"" + text + "\"";
  }
  // Refused by the gate, which tells it and asks nobody for anything but the session.
  void ExpectRefused(const std::string& name, const std::string& request) {
    log.Clear();
    EXPECT_EQ(Dispatch(request, Kiosk(), after), R"({"ok":false,"error":"not_unlocked"})");
    EXPECT_EQ(log.Lines(), std::vector<std::string>{RefusalOf(name)}) << request;
    EXPECT_FALSE(after);
  }

  std::string token;
};

TEST_F(SettingsGateTest, LetsAValidTokenThrough) {
  for (const char* name : {"net.set", "power.set", "proxy.set"}) {
    const std::string reply = Dispatch(Request(name, Quoted(token)), Kiosk(), after);
    EXPECT_EQ(reply.find("not_unlocked"), std::string::npos) << name << reply;
    EXPECT_FALSE(log.Has(RefusalOf(name)));
  }
}

TEST_F(SettingsGateTest, RefusesEveryCommandWithoutATokenTheReadingOnesToo) {
  for (const char* name : kSettingsCommands)
    ExpectRefused(name, R"({"cmd":")" + std::string(name) + R"("})");
}

TEST_F(SettingsGateTest, RefusesATokenThatIsNoText) {
  for (const char* unlockToken : {"12", "true", "null", "[]", "{}"})
    ExpectRefused("power.get", Request("power.get", unlockToken));
  ExpectRefused("power.get", Request("power.get", "[" + Quoted(token) + "]"));

  EXPECT_TRUE(UnlockValid(token, kTestKioskSession));
}

TEST_F(SettingsGateTest, RefusesAWrongToken) {
  ExpectRefused("net.set", Request("net.set", Quoted(std::string(32, '0'))));
  ExpectRefused("net.set", Request("net.set", Quoted("")));
  ExpectRefused("net.set", Request("net.set", Quoted(token + " ")));

  EXPECT_TRUE(UnlockValid(token, kTestKioskSession));
}

TEST_F(SettingsGateTest, RefusesAnotherSessionAndLeavesTheUnlockInForce) {
  SessionInfo second = KioskSession();
  second.id = "c8";
  SessionsAre({KioskSession(), second});
  Caller caller = Kiosk();
  caller.session = "c8";

  EXPECT_EQ(Dispatch(Request("net.set", Quoted(token)), caller, after),
            R"({"ok":false,"error":"not_unlocked"})");

  EXPECT_EQ(log.Lines(), std::vector<std::string>{RefusalOf("net.set", "c8")});
  EXPECT_TRUE(UnlockValid(token, kTestKioskSession));
}

TEST_F(SettingsGateTest, RefusesAnotherAccountBeforeItLooksAtTheToken) {
  TestClock::AdvanceMs(600'000);

  EXPECT_EQ(ErrorOf(Send(Request("net.set", Quoted(token)), Person())), "not_permitted");

  EXPECT_FALSE(log.Has(kExpiredLine));
}

TEST_F(SettingsGateTest, EndsAnExpiredUnlock) {
  TestClock::AdvanceMs(600'000);

  EXPECT_EQ(ErrorOf(Send(Request("net.set", Quoted(token)), Kiosk())), "not_unlocked");
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{kExpiredLine, RefusalOf("net.set")}));

  ExpectRefused("net.set", Request("net.set", Quoted(token)));
}

TEST_F(SettingsGateTest, DoesNotEndAnExpiredUnlockWithoutAToken) {
  TestClock::AdvanceMs(600'000);

  ExpectRefused("net.set", R"({"cmd":"net.set"})");
  ExpectRefused("net.set", Request("net.set", "7"));

  EXPECT_FALSE(UnlockValid(token, kTestKioskSession));
  EXPECT_TRUE(log.Has(kExpiredLine)) << "ended here, not before";
}

TEST_F(SettingsGateTest, CarriesOutAChangeOfTheNetworkWithoutAnEnrolment) {
  StateClear(StateKey::kDeviceToken);
  ops.applyNetwork = [](const NetChange& change) {
    EXPECT_EQ(change.adapter, "eth0");
    return std::string();
  };
  const std::string request =
      R"({"cmd":"net.set","adapter":"eth0","mode":"dhcp","unlockToken":")" + token + R"("})";

  EXPECT_EQ(Dispatch(request, Kiosk(), after), R"({"ok":true})");

  EXPECT_EQ(calls.Count("applyNetwork"), 1);
}

TEST_F(SettingsGateTest, LeavesItToPowerSetToAskForAnEnrolmentFirstOfAll) {
  StateClear(StateKey::kDeviceToken);

  EXPECT_EQ(Dispatch(Request("power.set", Quoted(token)), Kiosk(), after),
            R"({"ok":false,"error":"not_enrolled"})");
  ExpectRefused("power.set", Request("power.set", Quoted("wrong")));
}

TEST_F(SettingsGateTest, AsksForNoEnrolment) {
  StateClear(StateKey::kDeviceToken);

  const std::string reply = Dispatch(Request("net.set", Quoted(token)), Kiosk(), after);

  EXPECT_EQ(reply.find("not_"), std::string::npos) << reply;
}

TEST_F(SettingsGateTest, LetsACommandEndWhoseUnlockExpiresMeanwhile) {
  ops.ntpServer = [] { return "ntp.example"; };
  ops.sntpOffset = [](const std::string&, long*) {
    TestClock::AdvanceMs(600'000);
    return false;
  };
  ops.resyncClock = [] { return true; };

  EXPECT_EQ(ErrorOf(Send(Request("time.sync", Quoted(token)), Kiosk())), "");
  EXPECT_EQ(ErrorOf(Send(Request("time.sync", Quoted(token)), Kiosk())), "not_unlocked");
}

// Each command by what it alone does, or says.
TEST_F(SettingsGateTest, RoutesEachNameToItsOwnCommand) {
  ops.applyNetwork = [](const NetChange&) { return std::string("unknown_adapter"); };
  ops.applyProxy = [](const ProxyChange&) { return false; };
  ops.ntpServer = [] { return "ntp.example"; };
  ops.sntpOffset = [](const std::string&, long*) { return false; };
  ops.resyncClock = [] { return false; };
  StateClear(StateKey::kDeviceToken);
  ASSERT_TRUE(TryBeginUpdates());
  const struct {
    std::string name;
    std::string members;
    std::string start;  // of the reply
  } rows[] = {
      {"net.set", R"("adapter":"eth0","mode":"dhcp")", R"({"ok":false,"error":"unknown_adapter")"},
      {"time.sync", R"("mode":0)", R"({"ok":false,"error":"unreachable")"},
      {"power.get", R"("mode":0)", R"({"ok":true,"policy":)"},
      {"power.set", R"("mode":0)", R"({"ok":false,"error":"not_enrolled")"},
      {"proxy.set", R"("mode":"none")", R"({"ok":false,"error":"failed")"},
      {"os.updates", R"("check":true)", R"({"ok":true,"checking":)"},
      {"os.install", R"("check":true)", R"({"ok":false,"error":"busy")"},
  };

  for (const auto& row : rows) {
    const std::string reply = Dispatch(
        R"({"cmd":")" + row.name + R"(","unlockToken":)" + Quoted(token) + "," + row.members + "}",
        Kiosk(), after);
    EXPECT_TRUE(reply.starts_with(row.start)) << row.name << ": " << reply;
  }
}

TEST_F(SettingsGateTest, IsClosedOnceMaintenanceHasBegun) {
  ops.setMaintenanceMarker = [](bool, bool) {};
  EXPECT_EQ(ErrorOf(Send(Request("maintenance", Quoted(token)), Kiosk())), "");
  after = nullptr;

  ExpectRefused("net.set", Request("net.set", Quoted(token)));
}

TEST_F(SettingsGateTest, RoutesNoOtherName) {
  for (const char* name : {"", "net.set2", "unlock", "status"}) {
    EXPECT_EQ(DispatchSettings(name, Json::Object()), R"({"ok":false,"error":"unknown_command"})");
  }
}

}  // namespace
}  // namespace Tarnvale::KioskService

// What a good reply changes in the state, member by member.

#include <string>
#include <vector>

#include "core/state.h"
#include "portal/check_in_test.h"
#include "support/save_counter.h"

namespace Tarnvale::KioskService {
namespace {

using CheckInSignInTest = CheckInTest;
using CheckInNameTest = CheckInTest;
using CheckInPowerTest = CheckInTest;
using CheckInUpdatesTest = CheckInTest;
using CheckInReplyTest = CheckInTest;

std::string Power(const std::string& text = kPowerText) {
  return R"("power":)" + text;
}

std::string Updates(const std::string& text = kUpdatesText) {
  return R"("updates":)" + text;
}

TEST_F(CheckInSignInTest, StoresTheNormalisedDocumentAndSaysSo) {
  (void)Enrolled(R"("signIn":{"extraHosts":["a.test","A.test"],"email":true,"other":1})");

  const std::string expected = R"({"microsoft":true,"email":true,"extraHosts":["a.test"]})";
  EXPECT_EQ(StateGetString(StateKey::kSignIn), expected);
  EXPECT_EQ(log.Text(), "<6>kiosk sign-in methods now " + expected + "\n");
}

TEST_F(CheckInSignInTest, FallsBackToTheDefaults) {
  for (const char* const member : {"", R"("signIn":null)", R"("signIn":[])", R"("signIn":"x")"}) {
    StateSetString(StateKey::kSignIn, "something else");

    (void)Enrolled(member);

    EXPECT_EQ(StateGetString(StateKey::kSignIn), kDefaultSignIn) << member;
  }
}

TEST_F(CheckInNameTest, StoresTheCleanedNameAndSaysSo) {
  StateSetString(StateKey::kSignIn, kDefaultSignIn);

  (void)Enrolled(R"("name":" Hall\u0007way \n")");

  EXPECT_EQ(StateGetString(StateKey::kTerminalName), "Hallway");
  EXPECT_EQ(log.Text(), "<6>terminal name now \"Hallway\"\n");
}

TEST_F(CheckInNameTest, CutsTheNameTo80Characters) {
  std::string name;
  for (int i = 0; i < 200; ++i)
    name += "\xC3\xA9";

  (void)Enrolled(R"("name":")" + name + "\"");

  EXPECT_EQ(StateGetString(StateKey::kTerminalName), name.substr(0, 160));
}

TEST_F(CheckInNameTest, RemovesTheNameWhenNothingIsLeftOfIt) {
  for (const char* const member : {"", R"("name":null)", R"("name":5)", R"("name":["x"])",
                                   R"("name":"")", R"("name":" ")", R"("name":"\u0001\u0002")"}) {
    StateSetString(StateKey::kTerminalName, "Old");
    StateSetString(StateKey::kSignIn, kDefaultSignIn);
    log.Clear();

    (void)Enrolled(member);

    EXPECT_TRUE(StateFile().Get("TerminalName").IsNull()) << member;
    EXPECT_EQ(log.Text(), "<6>terminal name now \"\"\n") << member;
  }
}

TEST_F(CheckInPowerTest, StoresTheCanonicalPolicyAndItsSource) {
  StateSetString(StateKey::kSignIn, kDefaultSignIn);

  (void)Enrolled(R"("powerSource":"tenant","power":{"x":1,"schedule":{"days":[5,1],)"
                 R"("wakeAt":"06:30","sleepAt":"21:00","enabled":true},"sleepMinutes":60,)"
                 R"("screenOffMinutes":20})");

  EXPECT_EQ(StateGetString(StateKey::kPowerPolicy), kPowerText);
  EXPECT_EQ(StateGetString(StateKey::kPowerSource), "tenant");
  EXPECT_EQ(log.Text(), std::string("<6>power: the portal's policy is now ") + kPowerText + "\n");
}

TEST_F(CheckInPowerTest, IgnoresAPolicyThatIsRefusedTogetherWithItsSource) {
  StateSetString(StateKey::kPowerPolicy, "old policy");
  StateSetString(StateKey::kPowerSource, "device");
  StateSetString(StateKey::kSignIn, kDefaultSignIn);

  for (const char* const power :
       {"null", "{}", "[]", R"({"screenOffMinutes":15,"sleepMinutes":0})",
        R"({"screenOffMinutes":15,"sleepMinutes":241,"schedule":)"
        R"({"enabled":false,"sleepAt":"22:00","wakeAt":"07:00","days":[]}})"}) {
    (void)Enrolled(Power(power) + R"(,"powerSource":"tenant")");

    EXPECT_EQ(StateGetString(StateKey::kPowerPolicy), "old policy") << power;
    EXPECT_EQ(StateGetString(StateKey::kPowerSource), "device") << power;
  }
  EXPECT_EQ(log.Text(), "");
}

TEST_F(CheckInPowerTest, TakesOneOfThreeSourcesAndClearsItOtherwise) {
  for (const char* const source : {"device", "tenant", "default"}) {
    (void)Enrolled(Power() + R"(,"powerSource":")" + source + "\"");
    EXPECT_EQ(StateGetString(StateKey::kPowerSource), source);
  }
  for (const char* const member :
       {"", R"(,"powerSource":"")", R"(,"powerSource":"Tenant")", R"(,"powerSource":"portal")",
        R"(,"powerSource":null)", R"(,"powerSource":1)", R"(,"powerSource":["tenant"])"}) {
    StateSetString(StateKey::kPowerSource, "tenant");
    (void)Enrolled(Power() + member);
    EXPECT_TRUE(StateFile().Get("PowerSource").IsNull()) << member;
  }
}

TEST_F(CheckInPowerTest, TakesANewSourceOfTheSamePolicySilently) {
  (void)Enrolled(Power() + R"(,"powerSource":"tenant")");
  log.Clear();

  (void)Enrolled(Power() + R"(,"powerSource":"device")");

  EXPECT_EQ(StateGetString(StateKey::kPowerSource), "device");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(CheckInUpdatesTest, StoresTheCanonicalPolicyAndItsSource) {
  StateSetString(StateKey::kSignIn, kDefaultSignIn);

  (void)Enrolled(R"("updatesSource":"default","updates":{"window":{"days":[6,0],"end":"04:00",)"
                 R"("start":"22:00"},"x":1,"automatic":true})");

  EXPECT_EQ(StateGetString(StateKey::kUpdatesPolicy), kUpdatesText);
  EXPECT_EQ(StateGetString(StateKey::kUpdatesSource), "default");
  EXPECT_EQ(log.Text(),
            std::string("<6>os updates: the portal's policy is now ") + kUpdatesText + "\n");
}

TEST_F(CheckInUpdatesTest, IgnoresAPolicyThatIsRefusedTogetherWithItsSource) {
  StateSetString(StateKey::kUpdatesPolicy, "old policy");
  StateSetString(StateKey::kUpdatesSource, "device");
  StateSetString(StateKey::kSignIn, kDefaultSignIn);

  for (const char* const updates :
       {"null", "{}", "[]", R"({"automatic":true})",
        R"({"automatic":true,"window":{"start":"02:00","end":"02:00","days":[1]}})"}) {
    (void)Enrolled(Updates(updates) + R"(,"updatesSource":"tenant")");

    EXPECT_EQ(StateGetString(StateKey::kUpdatesPolicy), "old policy") << updates;
    EXPECT_EQ(StateGetString(StateKey::kUpdatesSource), "device") << updates;
  }
  EXPECT_EQ(log.Text(), "");
}

TEST_F(CheckInUpdatesTest, TakesOneOfThreeSourcesAndClearsItOtherwise) {
  for (const char* const source : {"device", "tenant", "default"}) {
    (void)Enrolled(Updates() + R"(,"updatesSource":")" + source + "\"");
    EXPECT_EQ(StateGetString(StateKey::kUpdatesSource), source);
  }
  for (const char* const member :
       {"", R"(,"updatesSource":"")", R"(,"updatesSource":"DEVICE")", R"(,"updatesSource":null)",
        R"(,"updatesSource":true)", R"(,"powerSource":"tenant")"}) {
    StateSetString(StateKey::kUpdatesSource, "tenant");
    (void)Enrolled(Updates() + member);
    EXPECT_TRUE(StateFile().Get("UpdatesSource").IsNull()) << member;
  }
}

TEST_F(CheckInReplyTest, OfAStatusAloneResetsSignInAndNameAndKeepsThePolicies) {
  (void)Enrolled(R"("name":"Hall","signIn":{"email":true},)" + Power() + "," + Updates() +
                 R"(,"powerSource":"device","updatesSource":"tenant")");

  (void)Enrolled();

  EXPECT_EQ(StateGetString(StateKey::kSignIn), kDefaultSignIn);
  EXPECT_EQ(StateGetString(StateKey::kTerminalName), "");
  EXPECT_EQ(StateGetString(StateKey::kPowerPolicy), kPowerText);
  EXPECT_EQ(StateGetString(StateKey::kPowerSource), "device");
  EXPECT_EQ(StateGetString(StateKey::kUpdatesPolicy), kUpdatesText);
  EXPECT_EQ(StateGetString(StateKey::kUpdatesSource), "tenant");
}

TEST_F(CheckInReplyTest, IsAppliedInAFixedOrderWhateverItsOwn) {
  (void)Enrolled(R"("updatesSource":"tenant",)" + Updates() + R"(,"powerSource":"device",)" +
                 Power() + R"(,"name":"Hall","signIn":{})");

  EXPECT_EQ(log.Lines(),
            (std::vector<std::string>{
                std::string("<6>kiosk sign-in methods now ") + kDefaultSignIn,
                "<6>terminal name now \"Hall\"",
                std::string("<6>power: the portal's policy is now ") + kPowerText,
                std::string("<6>os updates: the portal's policy is now ") + kUpdatesText}));
  EXPECT_EQ(StateFile().keys,
            (std::vector<std::string>{"SignIn", "TerminalName", "PowerPolicy", "PowerSource",
                                      "UpdatesPolicy", "UpdatesSource"}));
}

TEST_F(CheckInReplyTest, AppliesEachMemberByItself) {
  (void)Enrolled(R"("signIn":5,"name":"Hall","power":{},"powerSource":"tenant",)" + Updates() +
                 R"(,"updatesSource":"tenant")");

  EXPECT_EQ(StateGetString(StateKey::kSignIn), kDefaultSignIn);
  EXPECT_EQ(StateGetString(StateKey::kTerminalName), "Hall");
  EXPECT_EQ(StateGetString(StateKey::kPowerPolicy), "");
  EXPECT_EQ(StateGetString(StateKey::kPowerSource), "");
  EXPECT_EQ(StateGetString(StateKey::kUpdatesPolicy), kUpdatesText);
  EXPECT_EQ(StateGetString(StateKey::kUpdatesSource), "tenant");
}

TEST_F(CheckInReplyTest, CostsNoWriteAndNoLineWhenNothingChanged) {
  const std::string members = R"("name":"Hall","signIn":{"email":true},)" + Power() + "," +
                              Updates() + R"(,"powerSource":"device","updatesSource":"tenant")";
  (void)Enrolled(members);
  log.Clear();
  SaveCounter saves(config.stateDir, "state.json");

  (void)Enrolled(members);

  EXPECT_EQ(saves.Count(), 0);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(CheckInReplyTest, WritesOnlyWhatChanged) {
  (void)Enrolled(R"("name":"Hall",)" + Power() + R"(,"powerSource":"device")");
  SaveCounter saves(config.stateDir, "state.json");

  (void)Enrolled(R"("name":"Lobby",)" + Power() + R"(,"powerSource":"device")");

  EXPECT_EQ(saves.Count(), 1);
}

TEST_F(CheckInReplyTest, ClearsTheTimeSinceWhichTheDeviceWasUnknown) {
  StateSetInt(StateKey::kUnknownSince, 5);

  (void)Enrolled();

  EXPECT_TRUE(StateFile().Get("UnknownSince").IsNull());
}

}  // namespace
}  // namespace Tarnvale::KioskService

#include "simulator/terminal.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

namespace Tarnvale::KioskService::Simulator {
namespace {

constexpr std::uint32_t kKioskUid = 60000;
constexpr std::uint32_t kOtherUid = 1234;
const KioskAccount kAccount = {.name = "tarnvale-kiosk", .uid = kKioskUid};

Terminal NewTerminal() {
  return {.bootedAtMs = 1000};
}

Terminal KioskTerminal() {
  Terminal terminal = NewTerminal();
  EnableKiosk(terminal, kAccount);
  Boot(terminal, 2000);
  return terminal;
}

TEST(SimulatedTerminal, StartsWithAPersonAtTheConsole) {
  const std::vector<SessionInfo> sessions = SessionsOf(NewTerminal());

  ASSERT_EQ(sessions.size(), 1U);
  EXPECT_EQ(sessions[0].sessionClass, "user");
  EXPECT_EQ(sessions[0].name, "person");
  EXPECT_FALSE(sessions[0].remote);
  EXPECT_TRUE(sessions[0].active);
}

TEST(SimulatedTerminal, PutsEverybodyIntoThePersonsSession) {
  const Terminal terminal = NewTerminal();

  for (const std::uint32_t uid : {0U, kOtherUid, kKioskUid}) {
    const std::optional<SessionInfo> session = SessionOfUid(terminal, uid);
    ASSERT_TRUE(session) << uid;
    EXPECT_EQ(session->id, SessionsOf(terminal)[0].id) << uid;
  }
}

TEST(SimulatedTerminal, LeavesThePersonSignedInUntilTheRestart) {
  Terminal terminal = NewTerminal();

  EnableKiosk(terminal, kAccount);

  EXPECT_EQ(SessionsOf(terminal)[0].name, "person");
  EXPECT_NE(SessionOfUid(terminal, kKioskUid)->uid, kKioskUid);
}

TEST(SimulatedTerminal, NeverTakesThePersonForAKioskAccountOfTheFirstUid) {
  Terminal terminal = NewTerminal();

  EnableKiosk(terminal, {.name = "tarnvale-kiosk", .uid = 1000});

  EXPECT_NE(SessionsOf(terminal)[0].uid, 1000U);
}

TEST(SimulatedTerminal, SignsTheKioskAccountInAtStartup) {
  const Terminal terminal = KioskTerminal();

  EXPECT_EQ(SessionsOf(terminal)[0].name, "tarnvale-kiosk");
  EXPECT_EQ(SessionsOf(terminal)[0].uid, kKioskUid);
  EXPECT_EQ(SessionOfUid(terminal, kKioskUid)->id, SessionsOf(terminal)[0].id);
  EXPECT_FALSE(SessionOfUid(terminal, kOtherUid));
  EXPECT_FALSE(SessionOfUid(terminal, 0));
}

TEST(SimulatedTerminal, SignsThePersonInAtStartupOnceTheSetupToolHasUndoneIt) {
  Terminal terminal = KioskTerminal();

  DisableKiosk(terminal);
  Boot(terminal, 3000);

  EXPECT_EQ(SessionsOf(terminal)[0].name, "person");
  EXPECT_TRUE(terminal.account);
}

TEST(SimulatedTerminal, KeepsAnAccountWhoseSessionIsAtTheConsole) {
  Terminal terminal = KioskTerminal();

  EXPECT_FALSE(DeleteKioskAccount(terminal));
  EXPECT_TRUE(terminal.account);

  EndKioskSession(terminal);
  EXPECT_TRUE(DeleteKioskAccount(terminal));
  EXPECT_FALSE(terminal.account);
}

TEST(SimulatedTerminal, HasNothingAgainstDeletingAnAccountThatIsNotThere) {
  Terminal terminal = NewTerminal();

  EXPECT_TRUE(DeleteKioskAccount(terminal));
}

TEST(SimulatedTerminal, ShowsALoginPromptOnceTheKioskSessionHasEnded) {
  Terminal terminal = KioskTerminal();

  EndKioskSession(terminal);

  EXPECT_TRUE(SessionsOf(terminal).empty());
  for (const std::uint32_t uid : {0U, kOtherUid, kKioskUid})
    EXPECT_FALSE(SessionOfUid(terminal, uid)) << uid;
}

TEST(SimulatedTerminal, LeavesAPersonAloneWhenTheKioskSessionIsToEnd) {
  Terminal terminal = NewTerminal();

  EndKioskSession(terminal);

  EXPECT_EQ(SessionsOf(terminal)[0].name, "person");
}

TEST(SimulatedTerminal, LetsAPersonSignInAtTheLoginPromptAndOutAgain) {
  Terminal terminal = KioskTerminal();
  const std::string kioskSession = SessionsOf(terminal)[0].id;
  EndKioskSession(terminal);

  EXPECT_EQ(SignIn(terminal), "");
  EXPECT_EQ(SessionsOf(terminal)[0].name, "person");
  EXPECT_NE(SessionsOf(terminal)[0].uid, kKioskUid);
  EXPECT_NE(SessionsOf(terminal)[0].id, kioskSession);

  EXPECT_EQ(SignOut(terminal), "");
  EXPECT_TRUE(SessionsOf(terminal).empty());
}

TEST(SimulatedTerminal, TellsWhoIsAtTheConsole) {
  Terminal terminal = KioskTerminal();
  EXPECT_EQ(DescribeConsole(NewTerminal()), "a person is signed in at the console, session 1");
  EXPECT_EQ(DescribeConsole(terminal), "the kiosk account is signed in at the console, session 2");

  EndKioskSession(terminal);
  EXPECT_EQ(DescribeConsole(terminal), "nobody is signed in at the console");
}

TEST(SimulatedTerminal, RefusesWhatAPersonCannotDo) {
  Terminal kiosk = KioskTerminal();
  Terminal person = NewTerminal();
  Terminal nobody = KioskTerminal();
  EndKioskSession(nobody);

  EXPECT_EQ(SignIn(kiosk), "the kiosk session is at the console");
  EXPECT_EQ(SignOut(kiosk), "the kiosk session is at the console");
  EXPECT_EQ(SignIn(person), "a person is signed in already");
  EXPECT_EQ(SignOut(nobody), "nobody is signed in");
  EXPECT_EQ(SessionsOf(kiosk)[0].name, "tarnvale-kiosk");
}

TEST(SimulatedTerminal, StartsTheKioskSessionWhoeverIsAtTheConsole) {
  Terminal terminal = KioskTerminal();
  const std::string before = SessionsOf(terminal)[0].id;

  StartKioskSession(terminal);
  EXPECT_EQ(SessionsOf(terminal)[0].id, before);

  EndKioskSession(terminal);
  StartKioskSession(terminal);
  EXPECT_EQ(SessionsOf(terminal)[0].name, "tarnvale-kiosk");
  EXPECT_NE(SessionsOf(terminal)[0].id, before);
}

TEST(SimulatedTerminal, StartsNoKioskSessionWithoutAnAccount) {
  Terminal terminal = NewTerminal();

  StartKioskSession(terminal);

  EXPECT_EQ(SessionsOf(terminal)[0].name, "person");
}

TEST(SimulatedTerminal, IsDueToRestartFromTheScheduledMomentOn) {
  Terminal terminal = NewTerminal();
  EXPECT_FALSE(IsRestartDue(terminal, 9000));

  terminal.restartAtMs = 5000;
  EXPECT_FALSE(IsRestartDue(terminal, 4999));
  EXPECT_TRUE(IsRestartDue(terminal, 5000));

  terminal = NewTerminal();
  terminal.restarting = true;
  EXPECT_TRUE(IsRestartDue(terminal, 0));
}

TEST(SimulatedTerminal, ForgetsWithAStartupWhatARealOneForgets) {
  Terminal terminal = NewTerminal();
  terminal.restartAtMs = 5000;
  terminal.packages.restartRequired = true;
  terminal.packages.scheduleTaken = true;

  Boot(terminal, 5000);

  EXPECT_EQ(terminal.restartAtMs, 0);
  EXPECT_FALSE(terminal.packages.restartRequired);
  EXPECT_TRUE(terminal.packages.scheduleTaken);
}

TEST(SimulatedTerminal, KeepsTheUidOfAnAccountThatExists) {
  Terminal terminal = KioskTerminal();

  EnableKiosk(terminal, {.name = "tarnvale-kiosk", .uid = kOtherUid});

  EXPECT_EQ(terminal.account->uid, kKioskUid);
}

TEST(SimulatedTerminal, MovesTheBootTimeOnAndGivesTheSessionANewId) {
  Terminal terminal = NewTerminal();
  terminal.restarting = true;

  Boot(terminal, 5000);

  EXPECT_EQ(terminal.bootedAtMs, 5000);
  EXPECT_FALSE(terminal.restarting);
  EXPECT_NE(SessionsOf(terminal)[0].id, SessionsOf(NewTerminal())[0].id);
}

TEST(SimulatedTerminal, MovesTheBootTimeOnWhenTheClockWentBack) {
  Terminal terminal = NewTerminal();

  Boot(terminal, 500);

  EXPECT_EQ(terminal.bootedAtMs, 1001);
}

}  // namespace
}  // namespace Tarnvale::KioskService::Simulator

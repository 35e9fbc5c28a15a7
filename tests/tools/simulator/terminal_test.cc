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
  return {.bootedAtMs = 1000, .account = {}};
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

TEST(SimulatedTerminal, SignsThePersonInAtStartupOnceTheAccountIsGone) {
  Terminal terminal = KioskTerminal();

  DisableKiosk(terminal);
  Boot(terminal, 3000);

  EXPECT_EQ(SessionsOf(terminal)[0].name, "person");
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

TEST(TerminalFile, GivesBackWhatWasWritten) {
  Terminal terminal = KioskTerminal();
  terminal.restarting = true;

  const std::optional<Terminal> read = ParseTerminal(DumpTerminal(terminal));

  ASSERT_TRUE(read);
  EXPECT_EQ(read->bootedAtMs, terminal.bootedAtMs);
  EXPECT_TRUE(read->restarting);
  EXPECT_EQ(read->atConsole, AtConsole::kKiosk);
  EXPECT_EQ(read->sessionNumber, terminal.sessionNumber);
  ASSERT_TRUE(read->account);
  EXPECT_EQ(read->account->name, kAccount.name);
  EXPECT_EQ(read->account->uid, kKioskUid);
}

TEST(TerminalFile, GivesBackATerminalWithoutAccount) {
  const std::optional<Terminal> read = ParseTerminal(DumpTerminal(NewTerminal()));

  ASSERT_TRUE(read);
  EXPECT_EQ(read->atConsole, AtConsole::kPerson);
  EXPECT_FALSE(read->account);
}

TEST(TerminalFile, IsRefusedWhenItIsAnythingElse) {
  for (const char* const text : {"", "garbage", "[1]", "{}", R"({"bootedAtMs":"1"})"})
    EXPECT_FALSE(ParseTerminal(text)) << text;
}

}  // namespace
}  // namespace Tarnvale::KioskService::Simulator

#include "simulator/terminal_json.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace Tarnvale::KioskService::Simulator {
namespace {

// No field has the value that it has on a new terminal.
Terminal ChangedTerminal() {
  Terminal terminal = {.bootedAtMs = 1000,
                       .restarting = true,
                       .restartAtMs = 2000,
                       .atConsole = AtConsole::kKiosk,
                       .sessionNumber = 7};
  terminal.account = {.name = "tarnvale-kiosk", .uid = 4294967294, .signsIn = false};
  terminal.adapters = {{.name = "eth7",
                        .type = "wifi",
                        .managed = false,
                        .connects = false,
                        .profile = "p",
                        .method = "manual",
                        .address = "192.0.2.5/24",
                        .gateway = "192.0.2.1",
                        .dns = "192.0.2.2 192.0.2.3"}};
  terminal.ntp = {.server = "other.example", .offsetMs = -5, .answers = false, .syncs = false};
  terminal.power = {.screenOffMinutes = 3, .sleepMinutes = 4, .schedule = {.enabled = true}};
  terminal.hasWakeAlarm = false;
  terminal.proxy = {.mode = "manual", .pacUrl = "u", .server = "s:1", .bypass = {"a", "b"}};
  terminal.packages = {
      .pending = {{.id = "i", .title = "t", .sizeBytes = 5, .restartRequired = true}},
      .restartRequired = true,
      .scheduleTaken = true,
      .failure = "search_failed",
      .checkSeconds = 1,
      .installSeconds = 2,
      .restartSeconds = 3};
  return terminal;
}

Terminal Parsed(const std::string& text) {
  const std::optional<Terminal> terminal = ParseTerminal(text);
  EXPECT_TRUE(terminal) << text;
  return terminal.value_or(Terminal());
}

TEST(TerminalFile, IsReadOrRefused) {
  EXPECT_EQ(Parsed(R"({"bootedAtMs":1000})").bootedAtMs, 1000);
  for (const char* const text : {R"({"bootedAtMs":"1000"})", "garbage", "", "[1]", "{}"})
    EXPECT_FALSE(ParseTerminal(text)) << text;
}

TEST(TerminalFile, GivesBackTheStateOfTheTerminal) {
  const Terminal read = Parsed(DumpTerminal(ChangedTerminal()));

  EXPECT_EQ(read.bootedAtMs, 1000);
  EXPECT_TRUE(read.restarting);
  EXPECT_EQ(read.restartAtMs, 2000);
  EXPECT_EQ(read.atConsole, AtConsole::kKiosk);
  EXPECT_EQ(read.sessionNumber, 7);
  ASSERT_TRUE(read.account);
  EXPECT_EQ(read.account->name, "tarnvale-kiosk");
  EXPECT_EQ(read.account->uid, 4294967294);
  EXPECT_FALSE(read.account->signsIn);
}

TEST(TerminalFile, GivesBackTheSettings) {
  const Terminal written = ChangedTerminal();

  const Terminal read = Parsed(DumpTerminal(written));

  EXPECT_EQ(read.adapters, written.adapters);
  EXPECT_EQ(read.ntp.server, "other.example");
  EXPECT_EQ(read.ntp.offsetMs, -5);
  EXPECT_FALSE(read.ntp.answers);
  EXPECT_FALSE(read.ntp.syncs);
  EXPECT_EQ(read.power, written.power);
  EXPECT_FALSE(read.hasWakeAlarm);
  ASSERT_TRUE(read.proxy);
  EXPECT_EQ(read.proxy->bypass, written.proxy->bypass);
}

// Whatever a field is: it is written and read.
TEST(TerminalFile, GivesBackTheSameText) {
  for (const Terminal& terminal : {Terminal(), ChangedTerminal()}) {
    const std::string text = DumpTerminal(terminal);
    EXPECT_EQ(DumpTerminal(Parsed(text)), text);
  }
}

TEST(TerminalFile, GivesBackATerminalWithNobodyAtTheConsole) {
  const Terminal read = Parsed(DumpTerminal({.atConsole = AtConsole::kNobody}));

  EXPECT_EQ(read.atConsole, AtConsole::kNobody);
  EXPECT_FALSE(read.account);
}

TEST(TerminalFile, OfAnEarlierTimeHasWhatANewTerminalHas) {
  const Terminal read = Parsed(R"({"bootedAtMs":1,"atConsole":"kiosk","account":{"name":"k"}})");

  EXPECT_TRUE(read.account->signsIn);
  EXPECT_EQ(read.adapters, FirstAdapters());
  EXPECT_EQ(read.packages.pending.size(), FirstPackages().size());
  EXPECT_TRUE(read.ntp.answers);
  EXPECT_FALSE(read.power);
}

TEST(TerminalFile, HasNoKioskSessionWithoutAnAccount) {
  EXPECT_EQ(Parsed(R"({"bootedAtMs":1,"atConsole":"kiosk"})").atConsole, AtConsole::kPerson);
}

TEST(TerminalFile, MayNameAPackageByItsIdAlone) {
  const Terminal read =
      Parsed(R"({"bootedAtMs":1,"packages":{"pending":[{"id":"vim"},7],"checkSeconds":0}})");

  ASSERT_EQ(read.packages.pending.size(), 1U);
  EXPECT_EQ(read.packages.pending[0].title, "vim");
  EXPECT_EQ(read.packages.checkSeconds, 0);
  EXPECT_EQ(read.packages.installSeconds, PackageManager().installSeconds);
}

TEST(TerminalFile, KeepsTheDefaultForWhatDoesNotFit) {
  const Terminal read = Parsed(R"({"bootedAtMs":1,"sessionNumber":4294967296,"ntp":{"offsetMs":"5"},
                                   "hasWakeAlarm":0,"adapters":"none"})");

  EXPECT_EQ(read.sessionNumber, 1);
  EXPECT_EQ(read.ntp.offsetMs, 0);
  EXPECT_TRUE(read.hasWakeAlarm);
  EXPECT_EQ(read.adapters, FirstAdapters());
}

}  // namespace
}  // namespace Tarnvale::KioskService::Simulator

#include "simulator/options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Tarnvale::KioskService::Simulator {
namespace {

bool Parse(const std::vector<const char*>& arguments, Options& options) {
  std::string problem;
  return ParseOptions(arguments, "/here", options, problem);
}

std::string ProblemOf(const std::vector<const char*>& arguments) {
  Options options;
  std::string problem;
  return ParseOptions(arguments, "/here", options, problem) ? "none" : problem;
}

TEST(SimulatorOptions, PutEverythingBelowTheDirectory) {
  Options options;

  ASSERT_TRUE(Parse({"--dir", "t1"}, options));

  EXPECT_EQ(options.dir, "/here/t1");
  EXPECT_EQ(options.hostName, "t1");
  EXPECT_EQ(options.screens, 1);
  EXPECT_FALSE(options.kioskUid);
  EXPECT_FALSE(options.boot);
  EXPECT_FALSE(options.console);
  EXPECT_FALSE(options.sleepNow);
  const Config& config = options.config;
  for (const std::string& path :
       {config.stateDir, config.runDir, config.socket, config.brandingDir, config.etcDir,
        config.client, config.setupTool, config.machineIdPath})
    EXPECT_TRUE(path.starts_with("/here/t1/")) << path;
  EXPECT_EQ(config.authBase, "http://127.0.0.1:8480");
}

TEST(SimulatorOptions, AreTakenBetweenTheServicesOwn) {
  Options options;

  ASSERT_TRUE(
      Parse({"--auth-base", "http://h", "--dir", "/d/", "--no-local-session", "--screens", "16",
             "--kiosk-user", "k", "--host-name", "lobby", "--boot", "--kiosk-uid", "4294967294"},
            options));

  EXPECT_EQ(options.dir, "/d");
  EXPECT_EQ(options.screens, 16);
  EXPECT_EQ(options.hostName, "lobby");
  EXPECT_TRUE(options.boot);
  EXPECT_EQ(options.kioskUid, 4294967294U);
  EXPECT_EQ(options.config.authBase, "http://h");
  EXPECT_EQ(options.config.kioskUser, "k");
  EXPECT_FALSE(options.config.localSession);
}

TEST(SimulatorOptions, LeaveAValueOfTheServicesOptionsAlone) {
  Options options;

  ASSERT_TRUE(Parse({"--kiosk-user", "--screens", "--dir", "t1"}, options));

  EXPECT_EQ(options.config.kioskUser, "--screens");
  EXPECT_EQ(options.dir, "/here/t1");
}

TEST(SimulatorOptions, TakeWhatAPersonDoesAtTheConsole) {
  const struct {
    const char* word;
    ConsoleAction action;
  } rows[] = {{"sign-in", ConsoleAction::kSignIn},
              {"sign-out", ConsoleAction::kSignOut},
              {"restart", ConsoleAction::kRestart}};

  for (const auto& row : rows) {
    Options options;
    ASSERT_TRUE(Parse({"--dir", "t1", "--console", row.word}, options)) << row.word;
    EXPECT_EQ(options.console, row.action) << row.word;
  }
}

TEST(SimulatorOptions, TakeTheFlagOfTheSleepTimersJob) {
  Options options;

  ASSERT_TRUE(Parse({"--sleep-now", "--dir", "t1"}, options));

  EXPECT_TRUE(options.sleepNow);
  EXPECT_EQ(options.dir, "/here/t1");
}

TEST(SimulatorOptions, MakePathsOfTheServiceAbsolute) {
  Options options;

  ASSERT_TRUE(Parse({"--dir", "t1", "--state-dir", "a/../b", "--socket", "./s"}, options));

  EXPECT_EQ(options.config.stateDir, "/here/b");
  EXPECT_EQ(options.config.socket, "/here/s");
}

TEST(SimulatorOptions, TakeASocketPathOf107BytesAtMost) {
  const std::string longest(std::string("/").append(106, 's'));

  EXPECT_EQ(ProblemOf({"--dir", "t1", "--socket", longest.c_str()}), "none");
  EXPECT_TRUE(ProblemOf({"--dir", "t1", "--socket", (longest + "s").c_str()})
                  .starts_with("the socket's path has more than 107 bytes"));
}

TEST(SimulatorOptions, RefuseWhatTheyDoNotKnow) {
  const struct {
    std::vector<const char*> arguments;
    const char* problem;
  } rows[] = {
      {{}, "--dir is missing"},
      {{"--dir", ""}, "--dir is missing"},
      {{"--dir"}, "--dir takes a value"},
      {{"--dir", "t1", "--version"}, "unknown argument --version"},
      {{"--dir", "t1", "--socket"}, "unknown argument --socket"},
      {{"--dir", "t1", "--screens", "0"}, "--screens takes a number from 1 to 16"},
      {{"--dir", "t1", "--screens", "17"}, "--screens takes a number from 1 to 16"},
      {{"--dir", "t1", "--screens", "2x"}, "--screens takes a number from 1 to 16"},
      {{"--dir", "t1", "--console"}, "--console takes a value"},
      {{"--dir", "t1", "--console", "login"}, "--console takes sign-in, sign-out or restart"},
      {{"--kiosk-uid", "0"}, "--kiosk-uid takes the number of a user other than root"},
      {{"--kiosk-uid", "4294967295"}, "--kiosk-uid takes the number of a user other than root"},
  };

  for (const auto& row : rows)
    EXPECT_EQ(ProblemOf(row.arguments), row.problem);
}

TEST(SimulatorOptions, TakeAHostNameOf255BytesAtMost) {
  const std::string longest(255, 'h');

  EXPECT_EQ(ProblemOf({"--dir", "t1", "--host-name", longest.c_str()}), "none");
  EXPECT_EQ(ProblemOf({"--dir", "t1", "--host-name", (longest + "h").c_str()}),
            "--host-name takes at most 255 bytes");
}

}  // namespace
}  // namespace Tarnvale::KioskService::Simulator

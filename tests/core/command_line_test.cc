// The command line, argument by argument.

#include "core/command_line.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Tarnvale::KioskService {
namespace {

class ParseCommandLineTest : public ::testing::Test {
 protected:
  bool Parse(const std::vector<const char*>& arguments) {
    return ParseCommandLine(arguments, config, sleepNow, unknown);
  }

  Config config;
  bool sleepNow = false;
  std::string unknown = "none";
};

// All fields in one text, so that a test sees what else has changed.
std::string Describe(const Config& config) {
  std::string text;
  for (const std::string& field :
       {config.stateDir, config.runDir, config.socket, config.brandingDir, config.etcDir,
        config.authBase, config.kioskUser, config.client, config.setupTool, config.machineIdPath}) {
    text += field + '\n';
  }
  return text + (config.localSession ? "local" : "relaxed");
}

TEST_F(ParseCommandLineTest, ReadsWhatItsHeaderShows) {
  EXPECT_TRUE(Parse({"--socket", "--run-dir"}));
  EXPECT_EQ(config.socket, "--run-dir");
  EXPECT_EQ(config.runDir, Config().runDir);

  EXPECT_FALSE(Parse({"--state-dir"}));
  EXPECT_EQ(unknown, "--state-dir");

  EXPECT_FALSE(Parse({"--state-dir=/x"}));
  EXPECT_EQ(unknown, "--state-dir=/x");
}

TEST_F(ParseCommandLineTest, SetsTheFieldOfEachOptionAndNoOther) {
  const struct {
    const char* option;
    std::string Config::*field;
  } rows[] = {
      {"--state-dir", &Config::stateDir},   {"--run-dir", &Config::runDir},
      {"--socket", &Config::socket},        {"--branding-dir", &Config::brandingDir},
      {"--etc-dir", &Config::etcDir},       {"--auth-base", &Config::authBase},
      {"--kiosk-user", &Config::kioskUser}, {"--client", &Config::client},
      {"--setup-tool", &Config::setupTool},
  };
  for (const auto& row : rows) {
    config = Config();
    Config expected;
    expected.*row.field = "/new";
    EXPECT_TRUE(Parse({row.option, "/new"})) << row.option;
    EXPECT_EQ(Describe(config), Describe(expected)) << row.option;
  }
}

TEST_F(ParseCommandLineTest, ChangesNothingWithoutArguments) {
  EXPECT_TRUE(Parse({}));

  EXPECT_EQ(Describe(config), Describe(Config()));
  EXPECT_EQ(unknown, "none");
}

TEST_F(ParseCommandLineTest, RelaxesTheLocalSessionWithoutAValue) {
  EXPECT_TRUE(Parse({"--no-local-session", "--socket", "/s"}));

  EXPECT_FALSE(config.localSession);
  EXPECT_EQ(config.socket, "/s");
}

TEST_F(ParseCommandLineTest, KeepsTheLastValueOfAnOptionGivenTwice) {
  EXPECT_TRUE(Parse({"--client", "/first", "--run-dir", "/r", "--client", "/last"}));

  EXPECT_EQ(config.client, "/last");
  EXPECT_EQ(config.runDir, "/r");
}

TEST_F(ParseCommandLineTest, TakesAValueWhateverItLooksLike) {
  for (const char* value : {"", "--socket", "--no-local-session", "-", "a b", "--bogus"}) {
    EXPECT_TRUE(Parse({"--state-dir", value})) << value;
    EXPECT_EQ(config.stateDir, value);
  }
  EXPECT_TRUE(config.localSession);
}

TEST_F(ParseCommandLineTest, IsNoCallForSleepUnlessItSaysSo) {
  EXPECT_TRUE(Parse({"--no-local-session", "--socket", "/s"}));

  EXPECT_FALSE(sleepNow);
}

TEST_F(ParseCommandLineTest, NotesTheCallForSleepWithoutAValue) {
  EXPECT_TRUE(Parse({"--sleep-now"}));

  EXPECT_TRUE(sleepNow);
  EXPECT_EQ(Describe(config), Describe(Config()));
}

TEST_F(ParseCommandLineTest, HonoursOtherOptionsBesideTheCallForSleepInAnyOrder) {
  const std::vector<std::vector<const char*>> rows = {
      {"--sleep-now", "--state-dir", "/s", "--run-dir", "/r", "--no-local-session"},
      {"--state-dir", "/s", "--sleep-now", "--no-local-session", "--run-dir", "/r"},
      {"--no-local-session", "--run-dir", "/r", "--state-dir", "/s", "--sleep-now"},
      {"--sleep-now", "--run-dir", "/r", "--state-dir", "/s", "--no-local-session", "--sleep-now"},
  };
  Config expected;
  expected.stateDir = "/s";
  expected.runDir = "/r";
  expected.localSession = false;
  for (const auto& row : rows) {
    config = Config();
    sleepNow = false;
    EXPECT_TRUE(Parse(row));
    EXPECT_TRUE(sleepNow);
    EXPECT_EQ(Describe(config), Describe(expected));
  }
}

TEST_F(ParseCommandLineTest, FailsOnAnUnknownArgumentBesideTheCallForSleep) {
  EXPECT_FALSE(Parse({"--sleep-now", "--bogus"}));
  EXPECT_EQ(unknown, "--bogus");

  EXPECT_FALSE(Parse({"--sleep-now", "--state-dir"}));
  EXPECT_EQ(unknown, "--state-dir");
}

TEST_F(ParseCommandLineTest, TakesTheCallForSleepAsAValueBehindAValueOption) {
  EXPECT_TRUE(Parse({"--state-dir", "--sleep-now"}));

  EXPECT_EQ(config.stateDir, "--sleep-now");
  EXPECT_FALSE(sleepNow);
}

TEST_F(ParseCommandLineTest, RefusesEveryValueOptionInTheLastPlace) {
  for (const char* option : {"--state-dir", "--run-dir", "--socket", "--branding-dir", "--etc-dir",
                             "--auth-base", "--kiosk-user", "--client", "--setup-tool"}) {
    EXPECT_FALSE(Parse({"--no-local-session", option})) << option;
    EXPECT_EQ(unknown, option);
  }
}

TEST_F(ParseCommandLineTest, RefusesAnythingElse) {
  for (const char* argument :
       {"--bogus", "--help", "--version", "-h", "", "-", "--", "state-dir", "--state",
        "--state-dir ", "--state-dir=/x", "--State-Dir", "--no-local-session=1",
        "--machine-id-path", "/var", "--sleep-now=1", "--sleep", "sleep-now"}) {
    EXPECT_FALSE(Parse({argument, "value"})) << argument;
    EXPECT_EQ(unknown, argument);
  }
}

TEST_F(ParseCommandLineTest, NamesTheFirstArgumentThatIsNotKnown) {
  EXPECT_FALSE(Parse({"--socket", "/s", "--first", "--second"}));

  EXPECT_EQ(unknown, "--first");
}

}  // namespace
}  // namespace Tarnvale::KioskService

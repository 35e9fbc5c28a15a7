#include "kioskctl/options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Tarnvale::KioskService::Kioskctl {
namespace {

bool Parse(const std::vector<const char*>& arguments, Options& options) {
  std::string problem;
  return ParseOptions(arguments, options, problem);
}

std::string ProblemOf(const std::vector<const char*>& arguments) {
  Options options;
  std::string problem;
  return ParseOptions(arguments, options, problem) ? "none" : problem;
}

TEST(KioskctlOptions, KnowTheServicesOwnSocket) {
  Options options;

  ASSERT_TRUE(Parse({"status"}, options));

  EXPECT_EQ(options.action, Action::kStatus);
  EXPECT_EQ(options.socket, "/run/tarnvale/kiosk.sock");
  EXPECT_FALSE(options.uid);
  EXPECT_EQ(options.timeoutSeconds, 0U);
  EXPECT_FALSE(options.json);
}

TEST(KioskctlOptions, AreTakenBeforeAndBehindStatus) {
  Options options;

  ASSERT_TRUE(
      Parse({"--uid", "0", "--socket", "/s", "status", "--timeout", "86400", "--json"}, options));

  EXPECT_EQ(options.uid, 0U);
  EXPECT_EQ(options.socket, "/s");
  EXPECT_EQ(options.timeoutSeconds, 86400U);
  EXPECT_TRUE(options.json);
}

TEST(KioskctlOptions, LeaveAllBehindACommandToIt) {
  Options options;

  ASSERT_TRUE(Parse({"--uid", "4294967294", "send", "net.set", "--uid", "a=1"}, options));

  EXPECT_EQ(options.action, Action::kSend);
  EXPECT_EQ(options.command, "net.set");
  EXPECT_EQ(options.members, (std::vector<std::string>{"--uid", "a=1"}));
  EXPECT_EQ(options.uid, 4294967294U);
}

TEST(KioskctlOptions, RefuseWhatTheyDoNotKnow) {
  const struct {
    std::vector<const char*> arguments;
    const char* problem;
  } rows[] = {
      {{}, "nothing to do"},
      {{"--json"}, "nothing to do"},
      {{"stauts"}, "what is stauts?"},
      {{"status", "status"}, "what is status?"},
      {{"status", "send"}, "what is send?"},
      {{"send"}, "send takes a command, and members behind it"},
      {{"send", ""}, "send takes a command, and members behind it"},
      {{"send", "--uid"}, "send takes a command, and members behind it"},
      {{"status", "--socket"}, "--socket takes a value"},
      {{"--uid", "root", "status"}, "--uid takes the number of a user"},
      {{"--uid", "-1", "status"}, "--uid takes the number of a user"},
      {{"--uid", "7x", "status"}, "--uid takes the number of a user"},
      {{"--uid", "4294967295", "status"}, "--uid takes the number of a user"},
      {{"--timeout", "0", "status"}, "--timeout takes seconds, from 1 to 86400"},
      {{"--timeout", "86401", "status"}, "--timeout takes seconds, from 1 to 86400"},
  };

  for (const auto& row : rows)
    EXPECT_EQ(ProblemOf(row.arguments), row.problem);
}

}  // namespace
}  // namespace Tarnvale::KioskService::Kioskctl

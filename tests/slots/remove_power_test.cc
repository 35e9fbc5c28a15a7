// The slot removePower.

#include <gtest/gtest.h>

#include "slots/support/power_terminal.h"

namespace Tarnvale::KioskService {
namespace {

class RemovePowerTest : public PowerTerminalTest {
 protected:
  // All that a policy can bring about is there.
  void ApplyEverything() {
    PowerPolicy policy = Nightly();
    policy.sleepMinutes = 30;
    EXPECT_EQ(Apply(policy), "");
    StartAfresh();
  }

  static void ExpectNothingLeft() {
    for (const char* const path : {kEnvPath, kDropInPath, kServicePath, kTimerPath})
      EXPECT_FALSE(Exists(path)) << path;
  }

  bool Remove() {
    RemovePower(config);
    return true;
  }
};

TEST_F(RemovePowerTest, RemovesEverythingInOrderAndSilently) {
  ApplyEverything();
  Replace("systemctl", "ls " + std::string(kEnvPath) + " " + kDropInPath + " " + kTimerPath +
                           " 2>/dev/null | wc -l >> $here/seen");

  Remove();

  ExpectNothingLeft();
  EXPECT_EQ(Calls(), std::string(kRemovalCalls) + kReloadCall);
  EXPECT_EQ(ReadText(directory.At("seen")), "3\n2\n1\n");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(RemovePowerTest, HasNothingToDoWhereNothingIs) {
  Remove();

  EXPECT_EQ(Calls(), "");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(RemovePowerTest, SendsLogindNoHangUp) {
  ApplyEverything();
  Replace("systemctl", "exit 1");

  Remove();

  ExpectNothingLeft();
  EXPECT_EQ(Calls(), std::string(kRemovalCalls) + kReloadCall);
}

TEST_F(RemovePowerTest, LooksForTheTimerAlone) {
  WriteText(kServicePath, "left behind\n");

  Remove();

  EXPECT_TRUE(Exists(kServicePath));
  EXPECT_EQ(Calls(), "");
}

TEST_F(RemovePowerTest, RemovesFromTheConfiguredDirectory) {
  config.etcDir = directory.At("etc");
  ApplyEverything();

  Remove();

  EXPECT_FALSE(Exists(directory.At("etc/power.env")));
}

TEST_F(RemovePowerTest, LeavesOtherFilesAndTheDirectoriesAlone) {
  ApplyEverything();
  WriteText("/etc/systemd/logind.conf.d/50-own.conf", "[Login]\n");
  WriteText("/etc/tarnvale-kiosk/proxy.env", "");

  Remove();

  EXPECT_TRUE(Exists("/etc/systemd/logind.conf.d/50-own.conf"));
  EXPECT_TRUE(Exists("/etc/tarnvale-kiosk/proxy.env"));
}

class RemovePowerTimeOut : public RemovePowerTest,
                           public ::testing::WithParamInterface<const char*> {};

TEST_P(RemovePowerTimeOut, IsSixtySecondsForTheTimerAndTwentyForLogind) {
  const bool isLogind = std::string(GetParam()) == "reload";
  ApplyEverything();
  SystemctlHangsOn(GetParam());

  (void)PassDeadline(isLogind ? 20'000 : 60'000, [&] { return Remove(); });

  EXPECT_EQ(log.Text(), std::string("<3>/usr/sbin/systemctl did not finish in ") +
                            (isLogind ? "20" : "60") + " s; stopped\n");
  ExpectNothingLeft();
}

INSTANTIATE_TEST_SUITE_P(Of, RemovePowerTimeOut,
                         ::testing::Values("disable", "daemon-reload", "reload"),
                         [](const auto& row) {
                           return row.index == 1 ? std::string("daemonReload")
                                                 : std::string(row.param);
                         });

}  // namespace
}  // namespace Tarnvale::KioskService

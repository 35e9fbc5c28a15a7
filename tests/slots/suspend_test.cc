// The slot suspendUntil.

#include <gtest/gtest.h>

#include <limits>

#include "core/ops_linux.h"
#include "slots/support/power_terminal.h"

namespace Tarnvale::KioskService {
namespace {

using SuspendUntilTest = PowerTerminalTest;

constexpr char kSuspendCall[] = "systemctl [suspend]\n";

TEST_F(SuspendUntilTest, SetsTheAlarmAndSuspends) {
  EXPECT_TRUE(SuspendUntil(1'717'412'400));

  EXPECT_EQ(Calls(), "rtcwake [-m] [mem] [-t] [1717412400]\n");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(SuspendUntilTest, TakesEveryTimeFromOneOn) {
  EXPECT_TRUE(SuspendUntil(1));
  EXPECT_TRUE(SuspendUntil(std::numeric_limits<long>::max()));

  EXPECT_EQ(Calls(),
            "rtcwake [-m] [mem] [-t] [1]\nrtcwake [-m] [mem] [-t] [9223372036854775807]\n");
}

TEST_F(SuspendUntilTest, JustSuspendsWithoutATimeToWake) {
  for (const long none : {0L, -1L}) {
    StartAfresh();
    EXPECT_TRUE(SuspendUntil(none)) << none;
    EXPECT_EQ(Calls(), kSuspendCall) << none;
  }
  EXPECT_EQ(log.Text(), "");
}

TEST_F(SuspendUntilTest, JustSuspendsWithoutRtcwake) {
  std::filesystem::remove("/usr/sbin/rtcwake");

  EXPECT_TRUE(SuspendUntil(1'717'412'400));

  EXPECT_EQ(Calls(), kSuspendCall);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(SuspendUntilTest, JustSuspendsWithoutAWakeAlarm) {
  HasNoWakeAlarm();

  EXPECT_TRUE(SuspendUntil(1'717'412'400));

  EXPECT_EQ(Calls(), kSuspendCall);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(SuspendUntilTest, SuspendsAllTheSameWhenRtcwakeFails) {
  Replace("rtcwake", "echo; echo 'rtcwake: set rtc wake alarm failed: Invalid argument'; exit 1");

  EXPECT_TRUE(SuspendUntil(1'717'412'400));

  EXPECT_EQ(Calls(), "rtcwake [-m] [mem] [-t] [1717412400]\n" + std::string(kSuspendCall));
  EXPECT_EQ(log.Text(),
            "<3>power: rtcwake failed: rtcwake: set rtc wake alarm failed: Invalid argument\n");
}

TEST_F(SuspendUntilTest, FailsWhenBothFail) {
  Replace("rtcwake", "exit 1");
  Replace("systemctl", "exit 1");

  EXPECT_FALSE(SuspendUntil(1'717'412'400));
  EXPECT_EQ(log.Text(), "<3>power: rtcwake failed: \n");
}

TEST_F(SuspendUntilTest, FailsWhenSystemctlFailsOrIsMissing) {
  Replace("systemctl", "exit 1");
  EXPECT_FALSE(SuspendUntil(0));

  std::filesystem::remove("/usr/sbin/systemctl");
  std::filesystem::remove("/usr/bin/systemctl");
  EXPECT_FALSE(SuspendUntil(0));
  EXPECT_EQ(log.Text(), "");
}

TEST_F(SuspendUntilTest, LetsRtcwakeSleepForADay) {
  Replace("rtcwake", kHang);

  EXPECT_TRUE(PassDeadline(86'400'000, [] { return SuspendUntil(1'717'412'400); }));

  EXPECT_EQ(log.Text(),
            "<3>/usr/sbin/rtcwake did not finish in 86400 s; stopped\n"
            "<3>power: rtcwake failed: \n");
  EXPECT_EQ(Calls(), "rtcwake [-m] [mem] [-t] [1717412400]\n" + std::string(kSuspendCall));
}

TEST_F(SuspendUntilTest, GivesSystemctlSixtySeconds) {
  Replace("systemctl", kHang);

  EXPECT_FALSE(PassDeadline(60'000, [] { return SuspendUntil(0); }));

  EXPECT_EQ(log.Text(), "<3>/usr/sbin/systemctl did not finish in 60 s; stopped\n");
}

TEST_F(SuspendUntilTest, GivesRtcwakeNoStatusPipeAndNothingButTheLocale) {
  ASSERT_EQ(::clearenv(), 0);
  Replace("rtcwake", "cat /proc/self/environ > $here/environment\n[ ! -e /proc/self/fd/3 ]");

  EXPECT_TRUE(SuspendUntil(1'717'412'400));

  EXPECT_EQ(ReadText(directory.At("environment")).find("LC_ALL=C"), 0U);
}

TEST_F(SuspendUntilTest, IsTheSlotOfTheTable) {
  const Ops ops = LinuxOps(config);

  EXPECT_TRUE(ops.suspendUntil(1'717'412'400));

  EXPECT_EQ(Calls(), "rtcwake [-m] [mem] [-t] [1717412400]\n");
}

TEST_F(SuspendUntilTest, StandsBesideTheOtherSlotsOfPower) {
  const Ops ops = LinuxOps(config);

  EXPECT_EQ(ops.applyPower(Nightly()), "");
  EXPECT_TRUE(Exists(kTimerPath));
  ops.removePower();
  EXPECT_FALSE(Exists(kTimerPath));
}

}  // namespace
}  // namespace Tarnvale::KioskService

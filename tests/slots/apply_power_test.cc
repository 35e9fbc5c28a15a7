// The slot applyPower, mechanism by mechanism.

#include <gtest/gtest.h>

#include "slots/support/power_terminal.h"

namespace Tarnvale::KioskService {
namespace {

using ApplyIdleTimes = PowerTerminalTest;
using ApplyIdleSuspend = PowerTerminalTest;
using ApplySleepSchedule = PowerTerminalTest;
using ApplyPowerTest = PowerTerminalTest;

constexpr char kDefaultIdleLine[] = "<6>power: screen off 15 min, sleep 0 min (0 = never)\n";

TEST_F(ApplyIdleTimes, WritesTheEnvironmentFile) {
  EXPECT_EQ(Apply(Idle(15, 0)), "");

  EXPECT_EQ(ReadText(kEnvPath), "SCREEN_OFF_SECONDS=900\nSLEEP_SECONDS=0\n");
  EXPECT_EQ(ModeOf(kEnvPath), 0644U);
  EXPECT_EQ(ModeOf("/etc/tarnvale-kiosk"), 0755U);
  EXPECT_EQ(log.Text(), kDefaultIdleLine);
  EXPECT_EQ(Calls(), "");
}

TEST_F(ApplyIdleTimes, GivesSystemModesWhateverTheUmask) {
  (void)::umask(0027);

  EXPECT_EQ(Apply(Idle(15, 240)), "");

  EXPECT_EQ(ModeOf(kEnvPath), 0644U);
  EXPECT_EQ(ModeOf(kDropInPath), 0644U);
}

TEST_F(ApplyIdleTimes, WritesIntoTheConfiguredDirectory) {
  config.etcDir = directory.At("etc");

  EXPECT_EQ(Apply(Idle(0, 1)), "");

  EXPECT_EQ(ReadText(directory.At("etc/power.env")), "SCREEN_OFF_SECONDS=0\nSLEEP_SECONDS=60\n");
  EXPECT_FALSE(Exists(kEnvPath));
}

TEST_F(ApplyIdleTimes, ReplacesAFileOfOtherContents) {
  std::filesystem::create_directories("/etc/tarnvale-kiosk");
  WriteText(kEnvPath, "SCREEN_OFF_SECONDS=1\n");

  EXPECT_EQ(Apply(Idle(15, 0)), "");

  EXPECT_EQ(ReadText(kEnvPath), "SCREEN_OFF_SECONDS=900\nSLEEP_SECONDS=0\n");
  EXPECT_EQ(log.Text(), kDefaultIdleLine);
}

TEST_F(ApplyIdleSuspend, WritesTheDropInAndReloadsLogind) {
  EXPECT_EQ(Apply(Idle(15, 240)), "");

  EXPECT_EQ(ReadText(kDropInPath), "[Login]\nIdleAction=suspend\nIdleActionSec=240min\n");
  EXPECT_EQ(ModeOf(kDropInPath), 0644U);
  EXPECT_EQ(ModeOf("/etc/systemd/logind.conf.d"), 0755U);
  EXPECT_EQ(ReadText(kEnvPath), "SCREEN_OFF_SECONDS=900\nSLEEP_SECONDS=14400\n");
  EXPECT_EQ(Calls(), kReloadCall);
  EXPECT_EQ(log.Text(), "<6>power: screen off 15 min, sleep 240 min (0 = never)\n");
}

TEST_F(ApplyIdleSuspend, ReloadsLogindForAnotherTime) {
  (void)Apply(Idle(15, 10));
  StartAfresh();

  EXPECT_EQ(Apply(Idle(15, 20)), "");

  EXPECT_EQ(ReadText(kDropInPath), "[Login]\nIdleAction=suspend\nIdleActionSec=20min\n");
  EXPECT_EQ(Calls(), kReloadCall);
}

TEST_F(ApplyIdleSuspend, SendsLogindAHangUpWhenItCannotBeReloaded) {
  for (const char* const lines : {"exit 1", "kill -KILL $$"}) {
    std::filesystem::remove(kDropInPath);
    StartAfresh();
    Replace("systemctl", lines);

    EXPECT_EQ(Apply(Idle(15, 10)), "") << lines;
    EXPECT_EQ(Calls(), std::string(kReloadCall) + kKillCall) << lines;
  }
}

TEST_F(ApplyIdleSuspend, RemovesTheDropInWhenTheTerminalNeverSuspends) {
  (void)Apply(Idle(15, 10));
  StartAfresh();

  EXPECT_EQ(Apply(Idle(15, 0)), "");

  EXPECT_FALSE(Exists(kDropInPath));
  EXPECT_EQ(Calls(), kReloadCall);
  EXPECT_EQ(log.Text(), kDefaultIdleLine);
}

TEST_F(ApplyIdleSuspend, SendsAHangUpForARemovedDropInToo) {
  (void)Apply(Idle(15, 10));
  StartAfresh();
  Replace("systemctl", "exit 1");

  EXPECT_EQ(Apply(Idle(15, 0)), "");

  EXPECT_EQ(Calls(), std::string(kReloadCall) + kKillCall);
}

TEST_F(ApplyIdleSuspend, MakesNoDirectoryWithoutADropIn) {
  EXPECT_EQ(Apply(Idle(15, 0)), "");

  EXPECT_FALSE(Exists("/etc/systemd/logind.conf.d"));
}

TEST_F(ApplyIdleSuspend, GivesEachCallTwentySeconds) {
  SystemctlHangsOn("reload");
  EXPECT_EQ(PassDeadline(20'000, [&] { return Apply(Idle(15, 10)); }), "");
  EXPECT_EQ(Calls(), std::string(kReloadCall) + kKillCall);
  EXPECT_TRUE(log.Has("<3>/usr/sbin/systemctl did not finish in 20 s; stopped"));
}

TEST_F(ApplyIdleSuspend, GivesTheHangUpTwentySeconds) {
  Replace("systemctl", std::string("[ \"$1\" = kill ] || exit 1\n") + kHang);
  EXPECT_EQ(PassDeadline(20'000, [&] { return Apply(Idle(15, 10)); }), "");
  EXPECT_TRUE(log.Has("<3>/usr/sbin/systemctl did not finish in 20 s; stopped"));
}

TEST_F(ApplySleepSchedule, WritesBothUnitsAndStartsTheTimer) {
  EXPECT_EQ(Apply(Nightly()), "");

  EXPECT_EQ(ReadText(kServicePath),
            "[Unit]\nDescription=Tarnvale kiosk scheduled sleep\n\n[Service]\nType=oneshot\n"
            "ExecStart=/usr/lib/tarnvale-stream/tarnvale-kioskd --sleep-now\n");
  EXPECT_EQ(ReadText(kTimerPath),
            "[Unit]\nDescription=Tarnvale kiosk scheduled sleep\n\n"
            "[Timer]\nOnCalendar=Mon,Tue,Wed,Thu,Fri 22:00:00\nPersistent=false\n"
            "AccuracySec=1s\n\n[Install]\nWantedBy=timers.target\n");
  EXPECT_EQ(ModeOf(kServicePath), 0644U);
  EXPECT_EQ(ModeOf(kTimerPath), 0644U);
  EXPECT_EQ(Calls(), kTimerCalls);
  EXPECT_EQ(log.Text(), std::string(kDefaultIdleLine) +
                            "<6>power: sleep at Mon,Tue,Wed,Thu,Fri 22:00:00, wake at 07:05\n");
}

TEST_F(ApplySleepSchedule, RestartsTheTimerForAnotherTime) {
  (void)Apply(Nightly());
  const std::string service = Version(kServicePath);
  StartAfresh();

  EXPECT_EQ(Apply(Nightly(65)), "");

  EXPECT_EQ(Calls(), kTimerCalls);
  EXPECT_EQ(log.Text(), "<6>power: sleep at Mon,Tue,Wed,Thu,Fri 01:05:00, wake at 07:05\n");
  EXPECT_EQ(Version(kServicePath), service);
}

TEST_F(ApplySleepSchedule, RestartsTheTimerForAnotherServiceUnit) {
  (void)Apply(Nightly());
  const std::string timer = Version(kTimerPath);
  WriteText(kServicePath, "[Service]\nExecStart=/bin/true\n");
  StartAfresh();

  EXPECT_EQ(Apply(Nightly()), "");

  EXPECT_EQ(Calls(), kTimerCalls);
  EXPECT_EQ(Version(kTimerPath), timer);
}

TEST_F(ApplySleepSchedule, LeavesTheTimerAloneForAnotherTimeToWake) {
  (void)Apply(Nightly());
  StartAfresh();
  PowerPolicy policy = Nightly();
  policy.schedule.wakeAt = 0;

  EXPECT_EQ(Apply(policy), "");

  EXPECT_EQ(Calls(), "");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(ApplySleepSchedule, LooksAtNoResultOfSystemctl) {
  Replace("systemctl", "exit 1");

  EXPECT_EQ(Apply(Nightly()), "");

  EXPECT_EQ(Calls(), kTimerCalls);
  EXPECT_EQ(log.Lines().back(), "<6>power: sleep at Mon,Tue,Wed,Thu,Fri 22:00:00, wake at 07:05");
}

TEST_F(ApplySleepSchedule, TellsEachTimeThatTheTerminalCannotWakeByItself) {
  HasNoWakeAlarm();
  EXPECT_EQ(Apply(Nightly()), "wake_unavailable");
  EXPECT_EQ(log.Lines().back() + "\n", kNoAlarmLine);
  EXPECT_EQ(Calls(), kTimerCalls);
  StartAfresh();

  EXPECT_EQ(Apply(Nightly()), "wake_unavailable");

  EXPECT_EQ(log.Text(), kNoAlarmLine);
  EXPECT_EQ(Calls(), "");
  EXPECT_TRUE(Exists(kTimerPath));
}

TEST_F(ApplySleepSchedule, HasNoErrorOnceTheAlarmIsThere) {
  HasNoWakeAlarm();
  EXPECT_EQ(Apply(Nightly()), "wake_unavailable");
  HasWakeAlarm();

  EXPECT_EQ(Apply(Nightly()), "");
}

TEST_F(ApplySleepSchedule, NeedsNoAlarmWithoutASchedule) {
  HasNoWakeAlarm();

  EXPECT_EQ(Apply(Idle(15, 0)), "");
  EXPECT_EQ(log.Text(), kDefaultIdleLine);
}

TEST_F(ApplySleepSchedule, RemovesAScheduleThatIsOff) {
  (void)Apply(Nightly());
  StartAfresh();

  EXPECT_EQ(Apply(Idle(15, 0)), "");

  EXPECT_FALSE(Exists(kTimerPath));
  EXPECT_FALSE(Exists(kServicePath));
  EXPECT_EQ(Calls(), kRemovalCalls);
  EXPECT_EQ(log.Text(), "<6>power: removed the sleep schedule\n");
}

TEST_F(ApplySleepSchedule, DisablesTheTimerWhileItsUnitIsThereAndReloadsWithoutIt) {
  (void)Apply(Nightly());
  Replace("systemctl", "ls " + std::string(kTimerPath) + " " + kServicePath +
                           " 2>/dev/null | wc -l >> $here/seen");

  (void)Apply(Idle(15, 0));

  EXPECT_EQ(ReadText(directory.At("seen")), "2\n0\n");
}

TEST_F(ApplySleepSchedule, RemovesTheUnitsWhateverSystemctlSays) {
  (void)Apply(Nightly());
  StartAfresh();
  Replace("systemctl", "exit 1");

  EXPECT_EQ(Apply(Idle(15, 0)), "");

  EXPECT_FALSE(Exists(kTimerPath));
  EXPECT_FALSE(Exists(kServicePath));
  EXPECT_EQ(Calls(), kRemovalCalls);
}

TEST_F(ApplySleepSchedule, LooksForTheTimerAlone) {
  WriteText(kServicePath, "left behind\n");

  EXPECT_EQ(Apply(Idle(15, 0)), "");

  EXPECT_EQ(Calls(), "");
  EXPECT_TRUE(Exists(kServicePath));
  EXPECT_EQ(log.Text(), kDefaultIdleLine);
}

class SleepScheduleTimeOut : public PowerTerminalTest,
                             public ::testing::WithParamInterface<const char*> {};

TEST_P(SleepScheduleTimeOut, IsSixtySecondsForEachCallThatStartsTheTimer) {
  SystemctlHangsOn(GetParam());

  EXPECT_EQ(PassDeadline(60'000, [&] { return Apply(Nightly()); }), "");

  EXPECT_TRUE(log.Has("<3>/usr/sbin/systemctl did not finish in 60 s; stopped"));
  EXPECT_EQ(Calls(), kTimerCalls);
}

INSTANTIATE_TEST_SUITE_P(Of, SleepScheduleTimeOut,
                         ::testing::Values("daemon-reload", "enable", "restart"),
                         [](const auto& row) {
                           return row.index == 0 ? std::string("daemonReload")
                                                 : std::string(row.param);
                         });

class SleepScheduleRemovalTimeOut : public PowerTerminalTest,
                                    public ::testing::WithParamInterface<const char*> {};

TEST_P(SleepScheduleRemovalTimeOut, IsSixtySecondsForEachCallThatEndsTheTimer) {
  (void)Apply(Nightly());
  StartAfresh();
  SystemctlHangsOn(GetParam());

  EXPECT_EQ(PassDeadline(60'000, [&] { return Apply(Idle(15, 0)); }), "");

  EXPECT_TRUE(log.Has("<3>/usr/sbin/systemctl did not finish in 60 s; stopped"));
  EXPECT_EQ(Calls(), kRemovalCalls);
}

INSTANTIATE_TEST_SUITE_P(Of, SleepScheduleRemovalTimeOut,
                         ::testing::Values("disable", "daemon-reload"), [](const auto& row) {
                           return row.index == 0 ? std::string("disable")
                                                 : std::string("daemonReload");
                         });

TEST_F(ApplyPowerTest, DoesAllOfItInOrder) {
  PowerPolicy policy = Nightly();
  policy.sleepMinutes = 30;
  HasNoWakeAlarm();
  // What stands there at each call: the drop-in before logind is told, the units after that.
  Replace("systemctl", "ls " + std::string(kEnvPath) + " " + kDropInPath + " " + kTimerPath +
                           " 2>/dev/null | wc -l >> $here/seen");

  EXPECT_EQ(Apply(policy), "wake_unavailable");

  EXPECT_EQ(Calls(), std::string(kReloadCall) + kTimerCalls);
  EXPECT_EQ(ReadText(directory.At("seen")), "2\n3\n3\n3\n");
  EXPECT_EQ(log.Text(),
            "<6>power: screen off 15 min, sleep 30 min (0 = never)\n"
            "<6>power: sleep at Mon,Tue,Wed,Thu,Fri 22:00:00, wake at 07:05\n" +
                std::string(kNoAlarmLine));
}

TEST_F(ApplyPowerTest, TouchesNothingTheSecondTime) {
  PowerPolicy policy = Nightly();
  policy.sleepMinutes = 30;
  (void)Apply(policy);
  std::string before;
  std::string after;
  for (const char* const path : {kEnvPath, kDropInPath, kServicePath, kTimerPath})
    before += Version(path) + "\n";
  StartAfresh();

  EXPECT_EQ(Apply(policy), "");

  for (const char* const path : {kEnvPath, kDropInPath, kServicePath, kTimerPath})
    after += Version(path) + "\n";
  EXPECT_EQ(after, before);
  EXPECT_EQ(Calls(), "");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(ApplyPowerTest, TouchesNothingTheSecondTimeWithoutAnythingInForce) {
  (void)Apply(Idle(0, 0));
  StartAfresh();

  EXPECT_EQ(Apply(Idle(0, 0)), "");

  EXPECT_EQ(Calls(), "");
  EXPECT_EQ(log.Text(), "");
}

}  // namespace
}  // namespace Tarnvale::KioskService

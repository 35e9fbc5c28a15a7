#include "device/time_linux.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "core/clock.h"
#include "slots/support/private_bus.h"
#include "slots/support/recorder.h"
#include "slots/support/stand_in_logind.h"
#include "slots/support/system_stand_ins.h"
#include "support/test_clock.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kSetNtp[] =
    "/org/freedesktop/timedate1 org.freedesktop.timedate1.SetNTP (true, false)";
constexpr char kGetSynchronised[] =
    "/org/freedesktop/timedate1 org.freedesktop.DBus.Properties.Get "
    "('org.freedesktop.timedate1', 'NTPSynchronized')";

constexpr char kBurst[] = "chronyc [-a] [burst] [4/4]\n";
constexpr char kWaitSync[] = "chronyc [waitsync] [20] [0] [0] [1]\n";
constexpr char kMakeStep[] = "chronyc [-a] [makestep]\n";
constexpr char kAskChrony[] = "systemctl [is-active] [--quiet] [chrony.service]\n";
constexpr char kAskChronyd[] = "systemctl [is-active] [--quiet] [chronyd.service]\n";
constexpr char kRestart[] = "systemctl [restart] [systemd-timesyncd.service]\n";

constexpr char kNoChronyUnit[] = "[ $1 != is-active ]";

class ResyncClockTest : public RecordedToolTest {
 protected:
  ResyncClockTest() {
    timedated.Answer("SetNTP", "()");
  }

  // chrony runs, under this name of its unit.
  void ChronyIs(const std::string& unit) {
    Replace("systemctl", "[ $1 = is-active ] && [ $3 = " + unit + " ]");
  }
  // chronyc answers one of its commands with these lines, and all others well.
  void Chronyc(const std::string& command, const std::string& lines) {
    Replace("chronyc", "case \"$*\" in *" + command + "*) ;; *) exit 0;; esac\n" + lines);
  }
  void TimesyncdIsInstalled() {
    WriteText("/usr/lib/systemd/systemd-timesyncd", "");
  }

  PrivateBus bus;
  StandInLogind timedated{bus, "org.freedesktop.timedate1"};
};

class ResyncWithChrony : public ResyncClockTest {
 protected:
  ResyncWithChrony() {
    ChronyIs("chrony.service");
    Replace("chronyc");
  }
};

TEST_F(ResyncWithChrony, MeasuresAnewThenWaitsThenSteps) {
  EXPECT_TRUE(ResyncClock());

  EXPECT_EQ(Calls(), std::string(kAskChrony) + kBurst + kWaitSync + kMakeStep);
  EXPECT_EQ(timedated.Calls(), std::vector<std::string>{kSetNtp});
  EXPECT_EQ(StandIn::DbusTimeoutsMs(), std::vector<int>{20'000});
  EXPECT_EQ(log.Text(), "");
}

TEST_F(ResyncWithChrony, KnowsTheOtherNameOfItsUnit) {
  ChronyIs("chronyd.service");

  EXPECT_TRUE(ResyncClock());

  EXPECT_EQ(Calls(), std::string(kAskChrony) + kAskChronyd + kBurst + kWaitSync + kMakeStep);
}

TEST_F(ResyncWithChrony, TakesNoNoticeOfAFailedBurst) {
  Chronyc("burst", "exit 1");

  EXPECT_TRUE(ResyncClock());

  EXPECT_EQ(log.Text(), "");
}

TEST_F(ResyncWithChrony, FailsWithoutSyncAndStepsAllTheSame) {
  Chronyc("waitsync", "echo; echo ' try: 20, refid: 00000000 '; echo 'not yet' >&2; exit 1");

  EXPECT_FALSE(ResyncClock());

  EXPECT_EQ(Calls(), std::string(kAskChrony) + kBurst + kWaitSync + kMakeStep);
  EXPECT_EQ(log.Text(),
            "<4>time: chrony did not report sync: try: 20, refid: 00000000 \nnot yet\n");
}

TEST_F(ResyncWithChrony, FailsWithoutItsStep) {
  Chronyc("makestep", "exit 1");

  EXPECT_FALSE(ResyncClock());

  EXPECT_EQ(log.Text(), "");
}

TEST_F(ResyncWithChrony, GivesTheBurstTenSeconds) {
  Chronyc("burst", kHang);

  EXPECT_TRUE(PassDeadline(10'000, [] { return ResyncClock(); }));

  EXPECT_EQ(log.Text(), "<3>/usr/sbin/chronyc did not finish in 10 s; stopped\n");
}

TEST_F(ResyncWithChrony, GivesTheWaitThirtySeconds) {
  Chronyc("waitsync", kHang);

  EXPECT_FALSE(PassDeadline(30'000, [] { return ResyncClock(); }));

  EXPECT_EQ(log.Text(),
            "<3>/usr/sbin/chronyc did not finish in 30 s; stopped\n"
            "<4>time: chrony did not report sync: \n");
}

TEST_F(ResyncWithChrony, GivesTheStepTenSeconds) {
  Chronyc("makestep", kHang);

  EXPECT_FALSE(PassDeadline(10'000, [] { return ResyncClock(); }));

  EXPECT_EQ(log.Text(), "<3>/usr/sbin/chronyc did not finish in 10 s; stopped\n");
}

TEST_F(ResyncWithChrony, GoesOnWhenTimedatedRefuses) {
  timedated.Refuse("SetNTP", "no NTP client");

  EXPECT_TRUE(ResyncClock());

  EXPECT_EQ(log.Text(),
            "<4>time: SetNTP failed (GDBus.Error:org.freedesktop.login1.Refused: "
            "no NTP client)\n");
}

TEST_F(ResyncWithChrony, TakesAnyReplyOfTimedated) {
  timedated.Answer("SetNTP", "('done',)");

  EXPECT_TRUE(ResyncClock());

  EXPECT_EQ(log.Text(), "");
}

TEST_F(ResyncWithChrony, TurnsNtpOnBeforeAllElse) {
  timedated.Refuse("SetNTP", "no");
  Chronyc("waitsync", "exit 1");

  EXPECT_FALSE(ResyncClock());

  ASSERT_EQ(log.Lines().size(), 2U);
  EXPECT_TRUE(log.Lines()[0].starts_with("<4>time: SetNTP failed")) << log.Text();
}

class ResyncWithTimesyncd : public ResyncClockTest {
 protected:
  ResyncWithTimesyncd() {
    TimesyncdIsInstalled();
    Replace("systemctl", kNoChronyUnit);
    timedated.Answer("Get", "(<true>,)");
    StandIn::SetExecutables({"/usr/sbin/systemctl"});  // also where chrony is installed
  }

  void ChronycIsInstalled() {
    Replace("chronyc");
    StandIn::SetExecutables({"/usr/sbin/systemctl", "/usr/sbin/chronyc"});
  }
  void ExpectNeverSynchronised() {
    const std::int64_t startMs = SteadyNowMs();
    EXPECT_FALSE(ResyncClock());
    EXPECT_EQ(SteadyNowMs() - startMs, 20'000);
    EXPECT_EQ(timedated.Calls().size(), 1U + 40U);
    EXPECT_EQ(log.Text(), "");
  }
};

TEST_F(ResyncWithTimesyncd, RestartsItAndAsksTimedated) {
  EXPECT_TRUE(ResyncClock());

  const std::vector<std::string> expected = {kSetNtp, kGetSynchronised};
  const std::vector<int> timeoutsMs = {20'000, 10'000};
  EXPECT_EQ(Calls(), kRestart);
  EXPECT_EQ(timedated.Calls(), expected);
  EXPECT_EQ(StandIn::DbusTimeoutsMs(), timeoutsMs);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(ResyncWithTimesyncd, IsTheWayWhenChronyDoesNotRun) {
  ChronycIsInstalled();

  EXPECT_TRUE(ResyncClock());

  EXPECT_EQ(Calls(), std::string(kAskChrony) + kAskChronyd + kRestart);
}

TEST_F(ResyncWithTimesyncd, AsksEveryHalfSecondUntilItIsTrue) {
  timedated.Answer("Get", "(<false>,)");
  int pauses = 0;
  TestClock::BeforeWaits([&](std::int64_t milliseconds) {
    if (milliseconds != 500) return;
    if (++pauses == 3) timedated.Answer("Get", "(<true>,)");
  });

  EXPECT_TRUE(ResyncClock());

  EXPECT_EQ(pauses, 3);
  EXPECT_EQ(timedated.Calls().size(), 1U + 4U);
}

TEST_F(ResyncWithTimesyncd, GivesUpAfterTwentySeconds) {
  timedated.Answer("Get", "(<false>,)");

  ExpectNeverSynchronised();
}

TEST_F(ResyncWithTimesyncd, TakesABooleanOnly) {
  timedated.Answer("Get", "(<'true'>,)");

  ExpectNeverSynchronised();
}

TEST_F(ResyncWithTimesyncd, TakesNoReplyOfAnotherShape) {
  timedated.Answer("Get", "(true,)");

  ExpectNeverSynchronised();
}

TEST_F(ResyncWithTimesyncd, GoesOnAskingWhenTimedatedRefuses) {
  timedated.Refuse("Get", "busy");

  ExpectNeverSynchronised();
}

TEST_F(ResyncWithTimesyncd, TakesNoNoticeOfAFailedRestart) {
  Replace("systemctl", "exit 1");

  EXPECT_TRUE(ResyncClock());

  EXPECT_EQ(log.Text(), "");
}

TEST_F(ResyncWithTimesyncd, GivesTheRestartTwentySeconds) {
  Replace("systemctl", kHang);

  EXPECT_TRUE(PassDeadline(20'000, [] { return ResyncClock(); }));

  EXPECT_EQ(log.Text(), "<3>/usr/sbin/systemctl did not finish in 20 s; stopped\n");
}

// Where /lib is a directory of its own, the program is in one of the two.
TEST_F(ResyncWithTimesyncd, IsInstalledInEitherPlace) {
  constexpr char kLib[] = "/lib/systemd/systemd-timesyncd";
  constexpr char kUsrLib[] = "/usr/lib/systemd/systemd-timesyncd";

  StandIn::HideFromStat({kLib});
  EXPECT_TRUE(ResyncClock());
  StandIn::HideFromStat({kUsrLib});
  EXPECT_TRUE(ResyncClock());
  StandIn::HideFromStat({kLib, kUsrLib});
  EXPECT_FALSE(ResyncClock());
}

TEST_F(ResyncWithTimesyncd, FailsWhenItIsNotInstalled) {
  std::filesystem::remove("/usr/lib/systemd/systemd-timesyncd");

  EXPECT_FALSE(ResyncClock());

  EXPECT_EQ(Calls(), "");
  EXPECT_EQ(timedated.Calls(), std::vector<std::string>{kSetNtp});
  EXPECT_EQ(log.Text(), "<3>time: no NTP client (chrony or systemd-timesyncd) is installed\n");
}

TEST_F(ResyncWithTimesyncd, FailsWhenChronyIsInstalledAndNothingRuns) {
  ChronycIsInstalled();
  std::filesystem::remove("/usr/lib/systemd/systemd-timesyncd");

  EXPECT_FALSE(ResyncClock());

  EXPECT_EQ(Calls(), std::string(kAskChrony) + kAskChronyd);
}

// On a real Debian timedated answers SetNTP before the client that it starts runs. The request that
// switches NTP on then finds nobody to ask, and the next one does.
TEST_F(ResyncWithTimesyncd, MissesAChronyThatTimedatedIsStillStarting) {
  ChronycIsInstalled();
  std::filesystem::remove("/usr/lib/systemd/systemd-timesyncd");
  EXPECT_FALSE(ResyncClock());

  ChronyIs("chrony.service");

  EXPECT_TRUE(ResyncClock());
}

class ResyncWithoutBus : public RecordedToolTest {
 protected:
  PrivateBus bus;
};

TEST_F(ResyncWithoutBus, StillAsksChrony) {
  Replace("systemctl");
  Replace("chronyc");

  EXPECT_TRUE(ResyncClock());

  ASSERT_EQ(log.Lines().size(), 2U);
  EXPECT_EQ(log.Lines()[1], "<4>time: SetNTP failed ()");
}

}  // namespace
}  // namespace Tarnvale::KioskService

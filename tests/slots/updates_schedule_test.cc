// Restarts after updates, and the schedule of the distribution's own unattended upgrades.

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>

#include "device/updates_linux.h"
#include "slots/support/full_disk.h"
#include "slots/support/recorder.h"
#include "slots/support/system_stand_ins.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kConfigDir[] = "/etc/apt/apt.conf.d";
constexpr char kPath[] = "/etc/apt/apt.conf.d/52tarnvale-kiosk-updates";
constexpr char kText[] =
    "APT::Periodic::Unattended-Upgrade \"0\";\n"
    "Unattended-Upgrade::Automatic-Reboot \"false\";\n";

TEST(RebootRequiredTest, IsFalseWithoutAMarker) {
  EXPECT_FALSE(RebootRequired());
}

TEST(RebootRequiredTest, IsTrueForAMarkerOfAnyContents) {
  WriteText("/run/reboot-required", "");
  EXPECT_TRUE(RebootRequired());
  WriteText("/run/reboot-required", "*** System restart required ***\n");
  EXPECT_TRUE(RebootRequired());
}

TEST(RebootRequiredTest, IsTrueForAMarkerOfAnyKind) {
  std::filesystem::create_directory("/run/reboot-required");

  EXPECT_TRUE(RebootRequired());
}

// Where /var/run is a directory of its own, the marker is in one of the two.
TEST(RebootRequiredTest, IsTrueForAMarkerInEitherPlace) {
  WriteText("/run/reboot-required", "");
  ASSERT_EQ(std::filesystem::canonical("/var/run"), "/run");

  StandIn::HideFromStat({"/run/reboot-required"});
  EXPECT_TRUE(RebootRequired());
  StandIn::HideFromStat({"/var/run/reboot-required"});
  EXPECT_TRUE(RebootRequired());
  StandIn::HideFromStat({"/run/reboot-required", "/var/run/reboot-required"});
  EXPECT_FALSE(RebootRequired());
}

TEST(RebootRequiredTest, IsFalseForAMarkerThatLeadsNowhere) {
  std::filesystem::create_symlink("/run/nowhere", "/run/reboot-required");

  EXPECT_FALSE(RebootRequired());
}

TEST(RebootRequiredTest, LooksAnewEachTime) {
  WriteText("/run/reboot-required", "");
  EXPECT_TRUE(RebootRequired());
  std::filesystem::remove("/run/reboot-required");
  EXPECT_FALSE(RebootRequired());
}

using ScheduleUpdateRestartTest = RecordedToolTest;

TEST_F(ScheduleUpdateRestartTest, AsksForARestartInAMinute) {
  Replace("shutdown", "env > $here/environment");

  EXPECT_TRUE(ScheduleUpdateRestart());

  EXPECT_EQ(Calls(), "shutdown [-r] [+1] [Restarting to finish installing updates.]\n");
  EXPECT_EQ(ReadText(directory.At("environment")).find("APT_LISTCHANGES"), std::string::npos);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(ScheduleUpdateRestartTest, FailsWhenItIsRefused) {
  Replace("shutdown", "exit 1");

  EXPECT_FALSE(ScheduleUpdateRestart());

  EXPECT_EQ(log.Text(), "");
}

TEST_F(ScheduleUpdateRestartTest, FailsWithoutItsTool) {
  StandIn::SetExecutables({});

  EXPECT_FALSE(ScheduleUpdateRestart());
}

TEST_F(ScheduleUpdateRestartTest, GivesItTwentySeconds) {
  Replace("shutdown", kHang);

  EXPECT_FALSE(PassDeadline(20'000, [] { return ScheduleUpdateRestart(); }));

  EXPECT_EQ(log.Text(), "<3>/usr/sbin/shutdown did not finish in 20 s; stopped\n");
}

class UpdatesScheduleTest : public RecordedToolTest {
 protected:
  UpdatesScheduleTest() {
    std::filesystem::remove_all(kConfigDir);
  }
};

TEST_F(UpdatesScheduleTest, IsTakenWithTwoLines) {
  std::filesystem::create_directories(kConfigDir);

  TakeUpdatesSchedule({});

  EXPECT_EQ(ReadText(kPath), kText);
  EXPECT_EQ(ModeOf(kPath), 0644U);
  EXPECT_FALSE(Exists(std::string(kPath) + ".tmp"));
  EXPECT_EQ(log.Text(), "");
}

TEST_F(UpdatesScheduleTest, IsTakenWhateverThePolicySays) {
  TakeUpdatesSchedule({.automatic = false, .windowStart = 0, .windowEnd = 1, .days = 1});
  const std::string off = ReadText(kPath);
  TakeUpdatesSchedule({.automatic = true, .windowStart = 60, .windowEnd = 90, .days = 64});

  EXPECT_EQ(off, kText);
  EXPECT_EQ(ReadText(kPath), kText);
}

TEST_F(UpdatesScheduleTest, MakesItsDirectory) {
  ::umask(022);

  TakeUpdatesSchedule({});

  EXPECT_EQ(ModeOf(kConfigDir), 0755U);
  EXPECT_EQ(ReadText(kPath), kText);
}

TEST_F(UpdatesScheduleTest, IsNotTouchedWhenItIsTakenAlready) {
  TakeUpdatesSchedule({});
  const auto longAgo = std::filesystem::last_write_time(kPath) - std::chrono::hours(24);
  std::filesystem::last_write_time(kPath, longAgo);

  TakeUpdatesSchedule({});

  EXPECT_EQ(std::filesystem::last_write_time(kPath), longAgo);
}

TEST_F(UpdatesScheduleTest, IsTakenAgainFromWhoeverChangedIt) {
  TakeUpdatesSchedule({});
  WriteText(kPath, "APT::Periodic::Unattended-Upgrade \"1\";\n");

  TakeUpdatesSchedule({});

  EXPECT_EQ(ReadText(kPath), kText);
}

TEST_F(UpdatesScheduleTest, LogsThatItCannotBeTaken) {
  std::filesystem::remove_all("/etc/apt");

  TakeUpdatesSchedule({});

  EXPECT_EQ(log.Text(), "<3>cannot write " + std::string(kPath) + ".tmp\n");
}

TEST_F(UpdatesScheduleTest, IsTakenAsSoonAsAFullDiskHasRoom) {
  const FullDisk disk(kConfigDir);

  TakeUpdatesSchedule({});
  EXPECT_EQ(log.Text(), "<3>cannot write " + std::string(kPath) + ".tmp\n");
  EXPECT_FALSE(Exists(kPath));

  disk.MakeRoom();
  TakeUpdatesSchedule({});
  EXPECT_EQ(log.Lines().size(), 1U);
  EXPECT_EQ(ReadText(kPath), kText);
  EXPECT_FALSE(Exists(std::string(kPath) + ".tmp"));
}

TEST_F(UpdatesScheduleTest, IsGivenBack) {
  TakeUpdatesSchedule({});

  RestoreUpdatesSchedule();

  EXPECT_FALSE(Exists(kPath));
  EXPECT_TRUE(Exists(kConfigDir));
  EXPECT_EQ(log.Text(), "");
}

TEST_F(UpdatesScheduleTest, IsGivenBackSilentlyWhenItWasNotTaken) {
  RestoreUpdatesSchedule();

  EXPECT_EQ(log.Text(), "");
}

TEST_F(UpdatesScheduleTest, SpeaksTheLanguageOfApt) {
  const std::vector<std::string> dump = {"/usr/bin/apt-config", "dump",
                                         "APT::Periodic::Unattended-Upgrade",
                                         "Unattended-Upgrade::Automatic-Reboot"};
  std::filesystem::create_directories(kConfigDir);
  WriteText(std::string(kConfigDir) + "/20auto-upgrades",
            "APT::Periodic::Unattended-Upgrade \"1\";\n");
  WriteText(std::string(kConfigDir) + "/50unattended-upgrades",
            "Unattended-Upgrade::Automatic-Reboot \"true\";\n");

  TakeUpdatesSchedule({});
  const ProcResult taken = RunProcess(dump, 60'000);
  RestoreUpdatesSchedule();
  const ProcResult restored = RunProcess(dump, 60'000);

  EXPECT_EQ(taken.output, kText);
  EXPECT_EQ(restored.output,
            "APT::Periodic::Unattended-Upgrade \"1\";\n"
            "Unattended-Upgrade::Automatic-Reboot \"true\";\n");
}

}  // namespace
}  // namespace Tarnvale::KioskService

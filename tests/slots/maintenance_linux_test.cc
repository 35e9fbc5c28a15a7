#include "kiosk/maintenance_linux.h"

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>

#include "core/config.h"
#include "core/ops_linux.h"
#include "slots/support/recorder.h"

namespace Tarnvale::KioskService {
namespace {

class SetMaintenanceMarkerTest : public RecordedToolTest {
 protected:
  SetMaintenanceMarkerTest() : marker(directory.At("kiosk-maintenance")) {
    (void)::umask(022);  // as systemd starts the service
    Replace("systemctl");
  }
  void HoldOff() {
    SetMaintenanceMarker(directory.Path(), false, false);
  }
  const std::string marker;
};

TEST_F(SetMaintenanceMarkerTest, MakesAnEmptyFileThatAllMayRead) {
  HoldOff();

  ASSERT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(marker)));
  EXPECT_EQ(ReadText(marker), "");
  EXPECT_EQ(ModeOf(marker), 0644U);
  EXPECT_EQ(Calls(), "");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(SetMaintenanceMarkerTest, EmptiesWhatIsThereAndLeavesItsMode) {
  WriteText(marker, "text", 0600);

  HoldOff();

  EXPECT_EQ(ReadText(marker), "");
  EXPECT_EQ(ModeOf(marker), 0600U);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(SetMaintenanceMarkerTest, DoesNotLookAtTheStartWhenItHoldsOff) {
  SetMaintenanceMarker(directory.Path(), false, true);

  EXPECT_TRUE(Exists(marker));
  EXPECT_EQ(Calls(), "");
}

TEST_F(SetMaintenanceMarkerTest, LeavesNoDescriptorOpen) {
  HoldOff();
  const int before = CountDescriptors();

  HoldOff();

  EXPECT_EQ(CountDescriptors(), before);
}

TEST_F(SetMaintenanceMarkerTest, FollowsNoLink) {
  WriteText(directory.At("target"), "precious");
  for (const char* target : {"target", "nothing"}) {
    ASSERT_EQ(::symlink(target, marker.c_str()), 0);

    HoldOff();

    EXPECT_EQ(ReadText(directory.At("target")), "precious");
    EXPECT_FALSE(Exists(directory.At("nothing")));
    EXPECT_EQ(log.Text(), "<3>cannot create " + marker + " (Too many levels of symbolic links)\n");
    ASSERT_EQ(::unlink(marker.c_str()), 0);
    log.Clear();
  }
}

TEST_F(SetMaintenanceMarkerTest, TellsWhyThereIsNone) {
  SetMaintenanceMarker(directory.At("absent"), false, false);
  ASSERT_EQ(::mkdir(marker.c_str(), 0755), 0);
  HoldOff();

  EXPECT_EQ(log.Text(), "<3>cannot create " + directory.At("absent/kiosk-maintenance") +
                            " (No such file or directory)\n<3>cannot create " + marker +
                            " (Is a directory)\n");
}

TEST_F(SetMaintenanceMarkerTest, IsRemovedWithoutStartingAnything) {
  HoldOff();

  SetMaintenanceMarker(directory.Path(), true, false);

  EXPECT_FALSE(Exists(marker));
  EXPECT_EQ(Calls(), "");
}

TEST_F(SetMaintenanceMarkerTest, IsRemovedBeforeTheUnitIsStarted) {
  Replace("systemctl", "test -e $here/kiosk-maintenance && echo held off >> $here/calls");
  HoldOff();

  SetMaintenanceMarker(directory.Path(), true, true);

  EXPECT_FALSE(Exists(marker));
  EXPECT_EQ(Calls(), "systemctl [start] [--no-block] [tarnvale-kiosk.service]\n");
}

TEST_F(SetMaintenanceMarkerTest, NeedsNoMarkerToStartTheUnit) {
  SetMaintenanceMarker(directory.At("absent"), true, true);

  EXPECT_EQ(Calls(), "systemctl [start] [--no-block] [tarnvale-kiosk.service]\n");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(SetMaintenanceMarkerTest, RemovesALinkAndNotWhatItLeadsTo) {
  WriteText(directory.At("target"), "precious");
  ASSERT_EQ(::symlink("target", marker.c_str()), 0);

  SetMaintenanceMarker(directory.Path(), true, false);

  EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(marker)));
  EXPECT_EQ(ReadText(directory.At("target")), "precious");
}

TEST_F(SetMaintenanceMarkerTest, IsSilentAboutAUnitThatDoesNotStart) {
  Replace("systemctl", "echo no such unit; exit 5");
  SetMaintenanceMarker(directory.Path(), true, true);
  std::filesystem::remove("/usr/sbin/systemctl");
  std::filesystem::remove("/usr/bin/systemctl");
  SetMaintenanceMarker(directory.Path(), true, true);

  EXPECT_EQ(log.Text(), "");
}

TEST_F(SetMaintenanceMarkerTest, GivesSystemctlSixtySeconds) {
  Replace("systemctl", kHang);

  (void)PassDeadline(60'000, [this] {
    SetMaintenanceMarker(directory.Path(), true, true);
    return true;
  });

  EXPECT_EQ(log.Text(), "<3>/usr/sbin/systemctl did not finish in 60 s; stopped\n");
}

TEST_F(SetMaintenanceMarkerTest, IsTheSlotOnTheConfiguredRunDirectory) {
  Config config;
  config.runDir = directory.Path();
  const Ops ops = LinuxOps(config);

  ops.setMaintenanceMarker(false, true);
  EXPECT_TRUE(Exists(marker));
  ops.setMaintenanceMarker(true, false);
  EXPECT_FALSE(Exists(marker));
  EXPECT_EQ(Calls(), "");
}

}  // namespace
}  // namespace Tarnvale::KioskService

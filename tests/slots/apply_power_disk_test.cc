// The slot applyPower on a terminal whose disk is full, or whose directories cannot be written.

#include <gtest/gtest.h>

#include "slots/support/full_disk.h"
#include "slots/support/power_terminal.h"

namespace Tarnvale::KioskService {
namespace {

using ApplyPowerDisk = PowerTerminalTest;

constexpr char kIdleLine[] = "<6>power: screen off 15 min, sleep 30 min (0 = never)\n";

TEST_F(ApplyPowerDisk, GoesOnWithoutTheEnvironmentFileAndWritesItLater) {
  const FullDisk disk("/etc/tarnvale-kiosk");

  EXPECT_EQ(Apply(Idle(15, 30)), "");
  EXPECT_EQ(log.Text(), "<3>cannot write /etc/tarnvale-kiosk/power.env.tmp\n");
  EXPECT_EQ(Calls(), kReloadCall);
  EXPECT_FALSE(Exists(kEnvPath));

  disk.MakeRoom();
  StartAfresh();
  EXPECT_EQ(Apply(Idle(15, 30)), "");
  EXPECT_EQ(log.Text(), kIdleLine);
  EXPECT_EQ(Calls(), "");
  EXPECT_TRUE(Exists(kEnvPath));
}

TEST_F(ApplyPowerDisk, TellsLogindOfADropInOnlyOnceItIsWritten) {
  const FullDisk disk("/etc/systemd/logind.conf.d");

  EXPECT_EQ(Apply(Idle(15, 30)), "");
  EXPECT_EQ(log.Text(), std::string(kIdleLine) + "<3>cannot write " + kDropInPath + ".tmp\n");
  EXPECT_EQ(Calls(), "");

  disk.MakeRoom();
  StartAfresh();
  EXPECT_EQ(Apply(Idle(15, 30)), "");
  EXPECT_EQ(log.Text(), "");
  EXPECT_EQ(Calls(), kReloadCall);
}

TEST_F(ApplyPowerDisk, StartsNoTimerOnceNeitherUnitIsWritten) {
  (void)Apply(Idle(15, 0));
  StartAfresh();
  const FullDisk disk("/etc/systemd/system");

  EXPECT_EQ(Apply(Nightly()), "");
  EXPECT_EQ(log.Text(), "<3>cannot write " + std::string(kServicePath) + ".tmp\n<3>cannot write " +
                            kTimerPath + ".tmp\n");
  EXPECT_EQ(Calls(), "");
}

TEST_F(ApplyPowerDisk, StartsTheTimerWhenJustOneUnitIsWritten) {
  (void)Apply(Idle(15, 0));
  StartAfresh();
  std::filesystem::create_directories(std::string(kTimerPath) + ".tmp");

  EXPECT_EQ(Apply(Nightly()), "");

  EXPECT_EQ(log.Lines().front(), "<3>cannot write " + std::string(kTimerPath) + ".tmp");
  EXPECT_EQ(Calls(), kTimerCalls);
}

TEST_F(ApplyPowerDisk, KeepsTheOldFileWhenTheNewOneDoesNotFit) {
  const FullDisk disk("/etc/tarnvale-kiosk");
  disk.MakeRoom();
  (void)Apply(Idle(15, 30));
  WriteText("/etc/tarnvale-kiosk/filler", "");  // an empty file takes no page
  StartAfresh();

  EXPECT_EQ(Apply(Idle(15, 31)), "");

  EXPECT_EQ(ReadText(kEnvPath), "SCREEN_OFF_SECONDS=900\nSLEEP_SECONDS=1800\n");
  EXPECT_EQ(log.Text(), "<3>cannot write /etc/tarnvale-kiosk/power.env.tmp\n");
}

TEST_F(ApplyPowerDisk, GoesOnWithoutADirectoryForTheEnvironmentFile) {
  WriteText(directory.At("file"), "");
  config.etcDir = directory.At("file/etc");

  EXPECT_EQ(Apply(Nightly()), "");

  EXPECT_EQ(log.Lines().front(), "<3>cannot write " + config.etcDir + "/power.env.tmp");
  EXPECT_EQ(Calls(), kTimerCalls);
}

TEST_F(ApplyPowerDisk, LeavesLogindAloneWhenTheDropInCannotBeRemoved) {
  (void)Apply(Idle(15, 30));
  StartAfresh();
  ASSERT_EQ(::mount(kDropInPath, kDropInPath, nullptr, MS_BIND, nullptr), 0);  // which keeps it

  EXPECT_EQ(Apply(Idle(15, 0)), "");

  EXPECT_TRUE(Exists(kDropInPath));
  EXPECT_EQ(Calls(), "");
}

}  // namespace
}  // namespace Tarnvale::KioskService

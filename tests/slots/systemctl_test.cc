#include <gtest/gtest.h>

#include <filesystem>

#include "device/process_linux.h"
#include "slots/support/recorder.h"

namespace Tarnvale::KioskService {
namespace {

using SystemctlTest = RecordedToolTest;
using UnitActiveTest = RecordedToolTest;
using InstalledToolTest = RecordedToolTest;

TEST_F(SystemctlTest, RunsSystemctlWithTheseArguments) {
  Replace("systemctl", "echo out; echo err >&2; exit 4");

  const ProcResult run = Systemctl({"enable", "--now", "a b.timer"}, 10'000);

  EXPECT_EQ(run.status, 4);
  EXPECT_EQ(run.output, "out\nerr\n");
  EXPECT_EQ(Calls(), "systemctl [enable] [--now] [a b.timer]\n");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(SystemctlTest, AddsNothingToTheEnvironmentButTheLocale) {
  ASSERT_EQ(::clearenv(), 0);
  ASSERT_EQ(::setenv("OWN", "1", 1), 0);
  Replace("systemctl", "exec cat /proc/self/environ");

  const ProcResult run = Systemctl({}, 10'000);

  EXPECT_TRUE(run.output.starts_with(std::string("OWN=1\0LC_ALL=C\0", 15))) << run.output;
}

TEST_F(SystemctlTest, HasTheDeadlineItIsGiven) {
  Replace("systemctl", kHang);

  const ProcResult run = PassDeadline(7'000, [] { return Systemctl({"start", "x"}, 7'000); });

  EXPECT_EQ(run.status, -1);
  EXPECT_EQ(log.Text(), "<3>/usr/sbin/systemctl did not finish in 7 s; stopped\n");
}

TEST_F(SystemctlTest, FailsSilentlyWhereItIsNotInstalled) {
  std::filesystem::remove("/usr/bin/systemctl");

  const ProcResult run = Systemctl({"start", "x"}, 10'000);

  EXPECT_EQ(run.status, -1);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(UnitActiveTest, AsksSystemctlQuietly) {
  Replace("systemctl");

  EXPECT_TRUE(UnitActive("tarnvale-kiosk.service"));
  EXPECT_EQ(Calls(), "systemctl [is-active] [--quiet] [tarnvale-kiosk.service]\n");
}

TEST_F(UnitActiveTest, IsFalseForAnyOtherStatus) {
  for (const char* const lines : {"exit 1", "exit 3", "exit 255", "kill -KILL $$"}) {
    Replace("systemctl", lines);
    EXPECT_FALSE(UnitActive("x.service")) << lines;
  }
}

TEST_F(UnitActiveTest, IsFalseAfterTenSeconds) {
  Replace("systemctl", kHang);

  EXPECT_FALSE(PassDeadline(10'000, [] { return UnitActive("x.service"); }));
  EXPECT_EQ(log.Text(), "<3>/usr/sbin/systemctl did not finish in 10 s; stopped\n");
}

TEST_F(InstalledToolTest, IsFoundInSbinBeforeBin) {
  WriteText("/usr/bin/a-tool", "#!/bin/sh\n", 0755);
  EXPECT_EQ(FindTool("a-tool"), "/usr/bin/a-tool");
  WriteText("/usr/sbin/a-tool", "#!/bin/sh\n", 0755);
  EXPECT_EQ(FindTool("a-tool"), "/usr/sbin/a-tool");
}

TEST_F(InstalledToolTest, IsPassedOverWhileItMayNotBeExecuted) {
  WriteText("/usr/sbin/a-tool", "#!/bin/sh\n", 0644);
  EXPECT_EQ(FindTool("a-tool"), "");
  WriteText("/usr/bin/a-tool", "#!/bin/sh\n", 0755);
  EXPECT_EQ(FindTool("a-tool"), "/usr/bin/a-tool");
}

}  // namespace
}  // namespace Tarnvale::KioskService

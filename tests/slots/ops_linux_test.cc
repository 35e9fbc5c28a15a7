#include "core/ops_linux.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "slots/support/http_peer.h"
#include "slots/support/private_bus.h"
#include "slots/support/tool_test.h"

namespace Tarnvale::KioskService {
namespace {

using LinuxOpsTest = ToolTest;

TEST_F(LinuxOpsTest, FillsEverySlot) {
  const Ops ops = LinuxOps({});

  EXPECT_TRUE(ops.http);
  EXPECT_TRUE(ops.lookupKioskAccount);
  EXPECT_TRUE(ops.runSetupTool);
  EXPECT_TRUE(ops.deleteKioskAccount);
  EXPECT_TRUE(ops.listSessions);
  EXPECT_TRUE(ops.sessionOfPid);
  EXPECT_TRUE(ops.endKioskSessions);
  EXPECT_TRUE(ops.setMaintenanceMarker);
  EXPECT_TRUE(ops.dropAdminGroups);
  EXPECT_TRUE(ops.suspendUntil);
  EXPECT_TRUE(ops.reboot);
  EXPECT_TRUE(ops.applyNetwork);
  EXPECT_TRUE(ops.ntpServer);
  EXPECT_TRUE(ops.sntpOffset);
  EXPECT_TRUE(ops.resyncClock);
  EXPECT_TRUE(ops.applyPower);
  EXPECT_TRUE(ops.removePower);
  EXPECT_TRUE(ops.applyProxy);
  EXPECT_TRUE(ops.runUpdates);
  EXPECT_TRUE(ops.rebootRequired);
  EXPECT_TRUE(ops.scheduleUpdateRestart);
  EXPECT_TRUE(ops.takeUpdatesSchedule);
  EXPECT_TRUE(ops.restoreUpdatesSchedule);
  EXPECT_TRUE(ops.hostName);
  EXPECT_TRUE(ops.osVersion);
  EXPECT_TRUE(ops.screenCount);
  EXPECT_TRUE(ops.exePathOfPid);
  EXPECT_TRUE(ops.bootTime);
}

TEST_F(LinuxOpsTest, HasNoSlotThatThisTestForgets) {
  // One more slot needs one more line above, and here.
  EXPECT_EQ(sizeof(Ops), 28 * sizeof(std::function<void()>));
}

TEST_F(LinuxOpsTest, HoldsItsOwnCopyOfTheConfiguration) {
  Config config;
  config.kioskUser = "root";
  config.setupTool = MakeTool("setup", "printf '%s|' \"$@\"");
  const Ops ops = LinuxOps(config);
  config.kioskUser = "nobody-of-this-name";
  config.setupTool = "/nonexistent";

  unsigned uid = 1;
  std::string detail;
  EXPECT_EQ(ops.lookupKioskAccount(&uid, nullptr), 1);
  EXPECT_EQ(uid, 0U);
  EXPECT_TRUE(ops.runSetupTool(false, &detail));
  EXPECT_EQ(detail, "disable|--from-kioskd|");
}

TEST_F(LinuxOpsTest, WorksAsACopyAfterTheOriginalIsGone) {
  auto original = std::make_unique<Ops>();
  {
    Config config;
    config.kioskUser = "root";
    config.setupTool = MakeTool("setup", "echo $1");
    *original = LinuxOps(config);
  }
  const Ops copy = *original;
  original.reset();

  std::string detail;
  EXPECT_EQ(copy.lookupKioskAccount(nullptr, nullptr), 1);
  EXPECT_TRUE(copy.runSetupTool(true, &detail));
  EXPECT_EQ(detail, "enable");
}

TEST_F(LinuxOpsTest, KeepsTwoConfigurationsApart) {
  Config first;
  first.kioskUser = "root";
  Config second;
  second.kioskUser = "nobody-of-this-name";

  const Ops firstOps = LinuxOps(first);
  const Ops secondOps = LinuxOps(second);

  EXPECT_EQ(firstOps.lookupKioskAccount(nullptr, nullptr), 1);
  EXPECT_EQ(secondOps.lookupKioskAccount(nullptr, nullptr), 0);
}

TEST_F(LinuxOpsTest, ReachesTheSystemThroughItsSlots) {
  const PrivateBus neverStarted;
  HttpPeer peer(AnswerWith("over http"));
  const Ops ops = LinuxOps({});
  SessionInfo session;

  EXPECT_EQ(ops.http("GET", peer.Url(), "", "", 100, "*/*").body, "over http");
  EXPECT_TRUE(ops.listSessions().empty());
  EXPECT_FALSE(ops.sessionOfPid(::getpid(), &session));
  EXPECT_NE(ops.hostName(), "");
  EXPECT_NE(ops.osVersion(), "");
  EXPECT_GE(ops.screenCount(), 1);
  EXPECT_NE(ops.exePathOfPid(::getpid()), "");
  EXPECT_GT(ops.bootTime(), 0);
}

}  // namespace
}  // namespace Tarnvale::KioskService

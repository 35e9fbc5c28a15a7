#include "simulator/slots.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "core/clock.h"
#include "core/stop.h"
#include "device/power_files.h"
#include "device/proxy_files.h"
#include "kiosk/account.h"
#include "simulator/terminal_store.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "support/test_clock.h"

namespace Tarnvale::KioskService::Simulator {
namespace {

// A terminal in a directory of the test's own, all slots but HTTP, and the tests' clock.
class SimulatedSlots : public ::testing::Test {
 protected:
  SimulatedSlots() {
    options.kioskUid = 60000;
    options.config.runDir = dir.Path();
    options.config.etcDir = dir.At("etc");
    ClearStopAndWake();
    EXPECT_TRUE(OpenTerminal(dir.Path()));
    FillAccountSlots(ops, options);
    FillSessionSlots(ops, options);
    FillPowerSlots(ops, options);
    FillNetworkSlots(ops);
    FillTimeSlots(ops);
    FillProxySlots(ops, options);
    FillUpdatesSlots(ops);
    FillFactSlots(ops, options);
  }

  // The kiosk account has the console.
  void BecomeKiosk() {
    std::string detail;
    ASSERT_TRUE(ops.runSetupTool(true, &detail));
    ASSERT_TRUE(BootWhenDue(true));
  }

  WuRun RunUpdates(bool install) {
    return ops.runUpdates(install, &updates, &progress);
  }

  [[nodiscard]] std::vector<std::string> NamesAtConsole() const {
    std::vector<std::string> names;
    for (const SessionInfo& session : ops.listSessions())
      names.push_back(session.name);
    return names;
  }

  [[nodiscard]] std::string Marker() const {
    return dir.At("kiosk-maintenance");
  }

  TempDir dir;
  LogCapture log;
  Options options;
  Ops ops;
  std::vector<OsUpdate> updates;
  std::atomic<int> progress{-1};
};

using Names = std::vector<std::string>;

TEST_F(SimulatedSlots, HoldTheKioskSessionOffAndLetItStartAgain) {
  BecomeKiosk();

  ops.setMaintenanceMarker(false, false);
  EXPECT_EQ(ReadText(Marker()), "");
  EXPECT_TRUE(Exists(Marker()));
  ops.endKioskSessions(false);
  EXPECT_EQ(NamesAtConsole(), Names{});

  ops.setMaintenanceMarker(true, true);
  EXPECT_FALSE(Exists(Marker()));
  EXPECT_EQ(NamesAtConsole(), Names{"tarnvale-kiosk"});
}

TEST_F(SimulatedSlots, RemoveTheMarkerWithoutStartingTheKioskSession) {
  BecomeKiosk();
  ops.setMaintenanceMarker(false, true);
  ops.endKioskSessions(true);

  ops.setMaintenanceMarker(true, false);

  EXPECT_FALSE(Exists(Marker()));
  EXPECT_EQ(NamesAtConsole(), Names{});
}

TEST_F(SimulatedSlots, DoNotFollowALinkInThePlaceOfTheMarker) {
  ASSERT_EQ(::symlink(dir.At("elsewhere").c_str(), Marker().c_str()), 0);

  ops.setMaintenanceMarker(false, false);

  EXPECT_FALSE(Exists(dir.At("elsewhere")));
  EXPECT_TRUE(
      log.Has("<3>simulator: cannot create " + Marker() + " (Too many levels of symbolic links)"));
}

TEST_F(SimulatedSlots, DeleteTheAccountOnceItsSessionHasEnded) {
  BecomeKiosk();
  std::string detail = "old";
  EXPECT_TRUE(ops.runSetupTool(false, &detail));
  EXPECT_EQ(detail, "");

  EXPECT_FALSE(ops.deleteKioskAccount());
  EXPECT_EQ(ops.lookupKioskAccount(nullptr, nullptr), kAccountFound);

  ops.endKioskSessions(true);
  EXPECT_TRUE(ops.deleteKioskAccount());
  EXPECT_EQ(ops.lookupKioskAccount(nullptr, nullptr), kAccountMissing);
}

TEST_F(SimulatedSlots, ApplyAPowerPolicyOnce) {
  const PowerPolicy policy = {.screenOffMinutes = 5, .sleepMinutes = 10, .schedule = {}};

  EXPECT_EQ(ops.applyPower(policy), "");
  EXPECT_EQ(GetTerminal().power, policy);
  EXPECT_EQ(ReadText(dir.At("etc/power.env")), PowerEnvText(policy));
  const std::string line =
      "<6>simulator: power: screen off after 5 min, sleep after 10 min (0 = never)";
  EXPECT_TRUE(log.Has(line));
  EXPECT_TRUE(log.Has("<6>simulator: power: no timer"));

  EXPECT_EQ(ops.applyPower(policy), "");
  EXPECT_EQ(log.Count(line), 1);
}

TEST_F(SimulatedSlots, TellThatAScheduleCannotWakeTheTerminal) {
  const PowerPolicy policy = {.schedule = {.enabled = true}};
  EXPECT_EQ(ops.applyPower(policy), "");
  EXPECT_TRUE(log.Has("<6>simulator: power: a timer for " + CalendarText(policy.schedule)));

  ChangeTerminal([](Terminal& terminal) { terminal.hasWakeAlarm = false; });

  EXPECT_EQ(ops.applyPower(policy), "wake_unavailable");
  EXPECT_EQ(ops.applyPower({}), "");
}

TEST_F(SimulatedSlots, RemoveWhatPowerLeft) {
  ASSERT_EQ(ops.applyPower({}), "");

  ops.removePower();

  EXPECT_FALSE(GetTerminal().power);
  EXPECT_FALSE(Exists(dir.At("etc/power.env")));
}

TEST_F(SimulatedSlots, SleepForNoTimeAtAll) {
  EXPECT_TRUE(ops.suspendUntil(1'800'030'000));
  EXPECT_TRUE(ops.suspendUntil(0));

  EXPECT_TRUE(log.Has("<6>simulator: the terminal sleeps and wakes at 1800030000"));
  EXPECT_TRUE(log.Has("<6>simulator: the terminal sleeps, and somebody wakes it"));
  EXPECT_EQ(WallNowMs(), TestClock::kStartWallMs);
}

TEST_F(SimulatedSlots, RestartTheTerminalWhenTheRestartIsDue) {
  EXPECT_TRUE(ops.scheduleUpdateRestart());
  EXPECT_TRUE(log.Has("<6>simulator: shutdown: the terminal restarts in 60 s"));

  TestClock::AdvanceMs(59'999);
  (void)ops.listSessions();
  EXPECT_FALSE(GetTerminal().restarting);

  TestClock::AdvanceMs(1);
  (void)ops.listSessions();
  EXPECT_TRUE(GetTerminal().restarting);
  EXPECT_FALSE(SleepUnlessStopped(1));
}

TEST_F(SimulatedSlots, AskForARestartOnce) {
  EXPECT_TRUE(ops.reboot());

  (void)ops.listSessions();

  EXPECT_EQ(log.Count("<6>simulator: a restart of the terminal was asked for"), 1);
}

TEST_F(SimulatedSlots, ChangeAnAdapterAndTellIt) {
  NetChange change = {.adapter = "eth0", .dhcp = true, .dns = {}};
  EXPECT_EQ(ops.applyNetwork(change), "");
  EXPECT_TRUE(log.Has("<6>simulator: nmcli: eth0 has auto, DNS automatic"));

  change.adapter = "wlan0";
  EXPECT_EQ(ops.applyNetwork(change), "failed");
  EXPECT_TRUE(log.Has("<4>simulator: nmcli: wlan0: failed"));

  change.adapter = "eth1";
  EXPECT_EQ(ops.applyNetwork(change), "unknown_adapter");
}

TEST_F(SimulatedSlots, SetTheClockRight) {
  ChangeTerminal([](Terminal& terminal) { terminal.ntp.offsetMs = -90'000; });
  long offsetMs = 0;

  EXPECT_TRUE(ops.sntpOffset(ops.ntpServer(), &offsetMs));
  EXPECT_EQ(offsetMs, -90'000);
  EXPECT_TRUE(ops.resyncClock());

  EXPECT_EQ(ops.ntpServer(), "ntp.example");
  EXPECT_TRUE(ops.sntpOffset(ops.ntpServer(), &offsetMs));
  EXPECT_EQ(offsetMs, 0);
}

TEST_F(SimulatedSlots, LeaveTheClockWrongWithoutAServer) {
  ChangeTerminal([](Terminal& terminal) {
    terminal.ntp = {.offsetMs = 500, .answers = false, .syncs = false};
  });
  long offsetMs = 7;

  EXPECT_FALSE(ops.sntpOffset(ops.ntpServer(), &offsetMs));
  EXPECT_FALSE(ops.resyncClock());

  EXPECT_EQ(offsetMs, 7);
  EXPECT_EQ(GetTerminal().ntp.offsetMs, 500);
}

TEST_F(SimulatedSlots, WriteTheProxyForTheKioskSession) {
  const ProxyChange change = {
      .mode = "manual", .pacUrl = {}, .server = "proxy.example:3128", .bypass = {"a", "b"}};

  EXPECT_TRUE(ops.applyProxy(change));

  EXPECT_EQ(ReadText(dir.At("etc/proxy.env")), ProxyEnvText(change));
  EXPECT_EQ(GetTerminal().proxy->server, "proxy.example:3128");
  EXPECT_TRUE(
      log.Has("<6>simulator: proxy: proxy.example:3128 for the kiosk session and the package "
              "manager, direct to \"a;b\""));
}

TEST_F(SimulatedSlots, TellThatTheProxyCannotBeWritten) {
  ASSERT_EQ(::symlink("/dev/null/etc", dir.At("etc").c_str()), 0);
  options.config.etcDir = "/dev/null/etc";
  FillProxySlots(ops, options);

  EXPECT_FALSE(ops.applyProxy({.mode = "none", .pacUrl = {}, .server = {}, .bypass = {}}));
}

TEST_F(SimulatedSlots, FindOutWhatIsPending) {
  const std::int64_t startMs = SteadyNowMs();

  const WuRun run = RunUpdates(false);

  EXPECT_EQ(run.result, kWuDone);
  EXPECT_EQ(updates.size(), 2U);
  EXPECT_EQ(SteadyNowMs() - startMs, 2'000);
  EXPECT_EQ(progress, -1);
  EXPECT_TRUE(log.Has("<6>simulator: the package manager has 2 to install"));
}

TEST_F(SimulatedSlots, InstallWhatIsPending) {
  const std::int64_t startMs = SteadyNowMs();

  const WuRun run = RunUpdates(true);

  EXPECT_EQ(run.result, kWuDone);
  EXPECT_EQ(run.pending, 0);
  EXPECT_TRUE(updates.empty());
  EXPECT_EQ(SteadyNowMs() - startMs, 17'000);
  EXPECT_EQ(progress, 100);
  EXPECT_TRUE(ops.rebootRequired());
  EXPECT_TRUE(log.Has("<6>simulator: the package manager has 0 to install and wants a restart"));

  EXPECT_EQ(RunUpdates(true).result, kWuNothingToDo);
}

TEST_F(SimulatedSlots, FinishARunAtOnceWhenTheServiceStops) {
  RequestStop();
  const std::int64_t startMs = SteadyNowMs();

  EXPECT_EQ(RunUpdates(true).result, kWuDone);

  EXPECT_EQ(SteadyNowMs(), startMs);
  EXPECT_TRUE(GetTerminal().packages.pending.empty());
}

TEST_F(SimulatedSlots, FailARunAsTheTerminalSays) {
  ChangeTerminal([](Terminal& terminal) { terminal.packages.failure = "search_failed"; });

  const WuRun run = RunUpdates(true);

  EXPECT_EQ(run.result, kWuFailed);
  EXPECT_EQ(run.error, "search_failed");
  EXPECT_TRUE(log.Has("<4>simulator: the package manager fails: search_failed"));
  EXPECT_EQ(progress, -1);
}

TEST_F(SimulatedSlots, TellATurnOfThePackageManagersScheduleOnce) {
  ops.takeUpdatesSchedule({});
  ops.takeUpdatesSchedule({});
  EXPECT_TRUE(GetTerminal().packages.scheduleTaken);
  EXPECT_EQ(log.Count("<6>simulator: the package manager's own schedule is off"), 1);

  ops.restoreUpdatesSchedule();
  EXPECT_FALSE(GetTerminal().packages.scheduleTaken);
  EXPECT_EQ(log.Count("<6>simulator: the package manager's own schedule is on again"), 1);
}

TEST_F(SimulatedSlots, SeeWhatAnotherProcessDoesToTheTerminal) {
  BecomeKiosk();
  std::string text = ReadText(dir.At("terminal.json"));
  const std::string_view kiosk = "\"kiosk\"";

  text.replace(text.find(kiosk), kiosk.size(), "\"nobody\"");
  WriteText(dir.At("terminal.json"), text);

  EXPECT_EQ(NamesAtConsole(), Names{});
}

TEST_F(SimulatedSlots, TellOnceWhoHasTheConsole) {
  BecomeKiosk();
  const std::string line = "<6>simulator: the kiosk account is signed in at the console, session 2";
  (void)ops.listSessions();
  (void)ops.listSessions();
  EXPECT_EQ(log.Count(line), 1);

  ops.endKioskSessions(false);
  (void)ops.listSessions();
  EXPECT_TRUE(log.Has("<6>simulator: nobody is signed in at the console"));
}

TEST_F(SimulatedSlots, GoOnWithWhatWasReadLastWhenTheFileIsNotReadable) {
  BecomeKiosk();

  WriteText(dir.At("terminal.json"), "{\"bootedAt");

  EXPECT_EQ(NamesAtConsole(), Names{"tarnvale-kiosk"});
}

}  // namespace
}  // namespace Tarnvale::KioskService::Simulator

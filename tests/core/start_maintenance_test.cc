// Maintenance across a start: a restart of the terminal ends it, a restart of the service does not.

#include <algorithm>
#include <string>
#include <vector>

#include "core/start.h"
#include "core/state.h"
#include "kiosk/admin_sessions.h"
#include "kiosk/session_watcher.h"
#include "support/service_test.h"

namespace Tarnvale::KioskService {
namespace {

constexpr long kBootMs = 1'799'999'000'000;
constexpr char kRestartedLine[] =
    "<6>maintenance over (the device restarted): kiosk sign-in restored";

class RunInMaintenance : public ServiceTest {
 protected:
  void SetUp() override {
    ops.exePathOfPid = [](int) { return std::string("/usr/bin/env"); };
    ops.bootTime = [] { return kBootMs; };
    ops.dropAdminGroups = [] {};
    ops.rebootRequired = [] { return false; };
    ops.setMaintenanceMarker = [this](bool allowKiosk, bool startKiosk) {
      kioskRestored = allowKiosk && startKiosk;
    };
    SessionsAre({PersonSession(), KioskSession()});
    Enrol();
    Provision();
    calls.Clear();
  }
  // The service starts, with maintenance that began then.
  void StartWithMaintenanceAt(std::int64_t atMs) {
    StateSetInt(StateKey::kMaintenance, 1);
    StateSetInt(StateKey::kMaintenanceAt, atMs);
    ASSERT_TRUE(KioskService::Run(config, ForwardingOps(ops, calls)));
  }
  bool kioskRestored = false;
};

TEST_F(RunInMaintenance, EndsItWhenItBeganBeforeTheBoot) {
  StartWithMaintenanceAt(kBootMs - 1);

  EXPECT_TRUE(StateFile().Get(StateKey::kMaintenance).IsNull());
  EXPECT_TRUE(StateFile().Get(StateKey::kMaintenanceAt).IsNull());
  EXPECT_TRUE(kioskRestored);
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{kRestartedLine,
                                                   "<6>enrolled=1 provisioned=1 maintenance=0"}));
}

TEST_F(RunInMaintenance, TracksNobodyOnceItIsOver) {
  StartWithMaintenanceAt(kBootMs - 1);

  EXPECT_EQ(calls.Count("listSessions"), 1);
  EXPECT_FALSE(ForgetAdminSession(kTestPersonSession));
}

TEST_F(RunInMaintenance, KeepsItWhenItBeganAtTheBootOrLater) {
  for (const std::int64_t atMs : {std::int64_t{kBootMs}, std::int64_t{kBootMs} + 1}) {
    log.Clear();
    StartWithMaintenanceAt(atMs);

    EXPECT_EQ(StateGetInt(StateKey::kMaintenance), 1);
    EXPECT_EQ(StateGetInt(StateKey::kMaintenanceAt), atMs);
    EXPECT_EQ(log.Text(), "<6>enrolled=1 provisioned=1 maintenance=1\n");
  }
  EXPECT_EQ(calls.Count("setMaintenanceMarker"), 0);
}

TEST_F(RunInMaintenance, EndsOneThatHasNoBeginning) {
  WriteState(R"({"Maintenance":1,"DeviceToken":"token-of-the-test"})");

  ASSERT_TRUE(KioskService::Run(config, ForwardingOps(ops, calls)));

  EXPECT_EQ(log.Count(kRestartedLine), 1);
  EXPECT_EQ(calls.Count("setMaintenanceMarker"), 0) << "not provisioned";
}

TEST_F(RunInMaintenance, DoesNotAskForTheBootOutsideMaintenance) {
  ASSERT_TRUE(KioskService::Run(config, ForwardingOps(ops, calls)));

  EXPECT_EQ(calls.Count("bootTime"), 0);
  EXPECT_EQ(calls.Count("setMaintenanceMarker"), 0);
}

TEST_F(RunInMaintenance, EndsItBeforeItLooksAtTheSessions) {
  StartWithMaintenanceAt(kBootMs - 1);

  const std::vector<std::string> names = calls.Names();
  const auto at = [&names](const char* slot) {
    return std::find(names.begin(), names.end(), slot) - names.begin();
  };
  EXPECT_LT(at("exePathOfPid"), at("bootTime"));
  EXPECT_LT(at("bootTime"), at("setMaintenanceMarker"));
  EXPECT_LT(at("setMaintenanceMarker"), at("listSessions"));
  EXPECT_LT(at("listSessions"), at("dropAdminGroups"));
}

TEST_F(RunInMaintenance, GoesOnWaitingForTheAdministratorWhoIsThere) {
  StartWithMaintenanceAt(kBootMs);
  EXPECT_EQ(calls.Count("listSessions"), 2);

  SessionsAre({KioskSession()});
  SessionWatcherTick();

  EXPECT_TRUE(kioskRestored);
  EXPECT_TRUE(
      log.Has("<6>maintenance over (the administrator signed out): kiosk sign-in restored"));
}

TEST_F(RunInMaintenance, DoesNotWaitForTheKiosksOwnSession) {
  StartWithMaintenanceAt(kBootMs);

  SessionsAre({PersonSession()});
  SessionWatcherTick();

  EXPECT_EQ(StateGetInt(StateKey::kMaintenance), 1);
}

}  // namespace
}  // namespace Tarnvale::KioskService

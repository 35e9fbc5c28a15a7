// The restart that OS updates still owe when the service starts.

#include <algorithm>
#include <string>
#include <vector>

#include "core/start.h"
#include "core/state.h"
#include "device/updates.h"
#include "support/service_test.h"

namespace Tarnvale::KioskService {
namespace {

class RunRecovery : public ServiceTest {
 protected:
  RunRecovery() {
    ops.exePathOfPid = [](int) { return std::string("/usr/bin/env"); };
    ops.bootTime = [] { return 0L; };
    SessionsAre({});
  }

  void MarkerIs(bool present) {
    ops.rebootRequired = [present] { return present; };
  }
  // Starts with this report in the state, or without the key. True when a restart is owed.
  bool StartFindsRestartOwed(const std::string& report) {
    Json state = Json::Object();
    if (!report.empty()) state.Set(StateKey::kOsUpdatesReport, report);
    WriteState(state.Dump());
    EXPECT_TRUE(KioskService::Run(config, ForwardingOps(ops, calls)));
    return Json::Parse(HandleOsUpdates(Json::Object()))->Get("restartRequired").boolean;
  }
};

TEST_F(RunRecovery, TakesTheWordOfTheLastReport) {
  MarkerIs(false);

  EXPECT_TRUE(StartFindsRestartOwed(R"({"restartRequired":true})"));

  EXPECT_EQ(calls.Count("rebootRequired"), 0);
}

TEST_F(RunRecovery, AsksTheSystemWithoutAReportThatAsksForIt) {
  for (const char* const report : {"", "garbage", "true", "[true]", "{}",
                                   R"({"restartRequired":false})", R"({"restartRequired":null})"}) {
    MarkerIs(true);
    EXPECT_TRUE(StartFindsRestartOwed(report)) << report;
    MarkerIs(false);
    EXPECT_FALSE(StartFindsRestartOwed(report)) << report;
  }
}

TEST_F(RunRecovery, KnowsNothingElseOfAnEarlierRun) {
  MarkerIs(false);

  (void)StartFindsRestartOwed(
      R"({"lastRunAt":"T","lastResult":"failed","error":"E","pending":3,"restartRequired":true})");

  EXPECT_EQ(HandleOsUpdates(Json::Object()),
            R"({"ok":true,"checking":false,"installing":false,"progress":0,"restartRequired":true,)"
            R"("lastChecked":null,"error":null,"updates":[]})");
}

TEST_F(RunRecovery, ComesBehindTheAdminGroupsAndBeforeTheSummary) {
  Enrol();
  Provision();
  ops.dropAdminGroups = [] {};
  ops.rebootRequired = [this] {
    EXPECT_EQ(log.Text(), "");
    return true;
  };

  EXPECT_TRUE(KioskService::Run(config, ForwardingOps(ops, calls)));

  const std::vector<std::string> names = calls.Names();
  const auto dropped = std::find(names.begin(), names.end(), "dropAdminGroups");
  EXPECT_NE(std::find(dropped, names.end(), "rebootRequired"), names.end());
  EXPECT_EQ(log.Text(), "<6>enrolled=1 provisioned=1 maintenance=0\n");
}

TEST_F(RunRecovery, StartsNoRun) {
  MarkerIs(true);

  (void)StartFindsRestartOwed("");

  EXPECT_EQ(calls.Count("runUpdates"), 0);
  EXPECT_EQ(calls.Count("scheduleUpdateRestart"), 0);
  EXPECT_TRUE(TryBeginUpdates());
}

}  // namespace
}  // namespace Tarnvale::KioskService

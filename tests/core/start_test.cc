// The start: what is true before the first request, and in which order it came to be.

#include "core/start.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "core/clock.h"
#include "core/failing_calls.h"
#include "core/service.h"
#include "core/state.h"
#include "core/stop.h"
#include "core/unprivileged.h"
#include "kiosk/admin_sessions.h"
#include "kiosk/session_watcher.h"
#include "portal/identity.h"
#include "portal/restart.h"
#include "support/service_test.h"
#include "support/test_clock.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kDevBuild[] =
    "<4>this service is not installed (a dev build): "
    "it admits non-root callers only while DevAllowAnyCaller=1";
constexpr char kFirstStart[] = "<6>enrolled=0 provisioned=0 maintenance=0";

class RunTest : public ServiceTest {
 protected:
  RunTest() {
    ops.exePathOfPid = [](int) { return std::string("/usr/bin/env"); };
    ops.bootTime = [] { return 0L; };
    ops.rebootRequired = [] { return false; };
    SessionsAre({});
  }

  bool Start() {
    return KioskService::Run(config, ForwardingOps(ops, calls));
  }
  void StartsFrom(const std::string& path) {
    ops.exePathOfPid = [path](int) { return path; };
  }
};

using RunOrder = RunTest;
using RunDirectories = RunTest;
using RunInstalled = RunTest;
using RunSessions = RunTest;
using RunSummary = RunTest;

TEST_F(RunTest, StartsATerminalThatHasNeverRun) {
  config.stateDir = dir.At("var/lib/kiosk");
  config.runDir = dir.At("new-run");

  EXPECT_TRUE(Start());

  EXPECT_EQ(ModeOf(dir.At("var/lib")), 0755U);
  EXPECT_EQ(ModeOf(config.stateDir), 0700U);
  EXPECT_EQ(ModeOf(config.runDir), 0755U);
  EXPECT_FALSE(Exists(config.stateDir + "/state.json"));
  EXPECT_EQ(log.Text(), std::string(kFirstStart) + "\n");
}

TEST_F(RunTest, KeepsCopiesOfItsArguments) {
  const std::string stateDir = config.stateDir;
  Ops table = ForwardingOps(ops, calls);
  config.localSession = false;
  ASSERT_TRUE(KioskService::Run(config, table));

  config = Config();
  table = Ops();

  EXPECT_EQ(ServiceConfig().stateDir, stateDir);
  EXPECT_EQ(ServiceConfig().authBase, "https://portal.test");
  EXPECT_FALSE(ServiceConfig().localSession);
  EXPECT_EQ(Platform().bootTime(), 0);
}

TEST_F(RunTest, ForgetsAStopAndAWakeUpFromBeforeIt) {
  RequestStop();
  WakeServiceLoop();

  EXPECT_TRUE(Start());

  const std::int64_t startMs = SteadyNowMs();
  EXPECT_TRUE(WaitForServicePass(30000));
  EXPECT_EQ(SteadyNowMs() - startMs, 30000);
}

TEST_F(RunTest, RemembersAStopThatComesWhileItPreparesItsDirectories) {
  const FailingCalls directories;
  FailingCalls::WatchOpens([this](const std::string& path, int) {
    if (path == config.stateDir) RequestStop();
  });

  EXPECT_TRUE(Start());

  EXPECT_FALSE(SleepUnlessStopped(1));
}

TEST_F(RunTest, RemembersAStopThatComesWhileItRuns) {
  ops.listSessions = [] {
    RequestStop();
    return std::vector<SessionInfo>();
  };

  EXPECT_TRUE(Start());

  EXPECT_FALSE(SleepUnlessStopped(1));
}

TEST_F(RunTest, ForgetsAPendingRestart) {
  TestClock::WaitForReal();
  ScheduleRestart();
  ASSERT_TRUE(IsRestartPending());

  EXPECT_TRUE(Start());

  EXPECT_FALSE(IsRestartPending());
  StopThreads();
  StopScheduledRestart();
}

TEST_F(RunTest, TouchesNoNetwork) {
  Enrol();

  EXPECT_TRUE(Start());

  EXPECT_EQ(calls.Count("http"), 0);
}

TEST_F(RunTest, StartsUnenrolledFromADamagedState) {
  WriteState("half a docum");

  EXPECT_TRUE(Start());

  EXPECT_EQ(log.Lines(),
            (std::vector<std::string>{"<3>the state file is not a JSON object; starting unenrolled",
                                      kFirstStart}));
}

TEST_F(RunOrder, AsksThePlatformInOneOrder) {
  Enrol();
  Provision();
  ops.dropAdminGroups = [] {};

  EXPECT_TRUE(Start());

  std::vector<std::string> names = calls.Names();
  EXPECT_EQ(names.front(), "exePathOfPid");
  const auto at = [&names](const char* slot) {
    return std::find(names.begin(), names.end(), slot) - names.begin();
  };
  EXPECT_LT(at("exePathOfPid"), at("listSessions"));
  EXPECT_LT(at("listSessions"), at("dropAdminGroups"));
  EXPECT_EQ(calls.Count("exePathOfPid"), 1);
  EXPECT_EQ(calls.Count("dropAdminGroups"), 1);
}

TEST_F(RunOrder, LoadsTheStateBeforeItAsksAnything) {
  config.runDir = dir.At("new-run");
  WriteState(R"({"TerminalName":"Lobby"})");
  ops.exePathOfPid = [this](int) {
    EXPECT_EQ(ServiceConfig().runDir, config.runDir);
    EXPECT_TRUE(Exists(config.runDir));
    EXPECT_EQ(StateGetString(StateKey::kTerminalName), "Lobby");
    EXPECT_EQ(log.Text(), "");
    return std::string();
  };

  EXPECT_TRUE(Start());
}

TEST_F(RunOrder, TellsTheSummaryLast) {
  StartsFrom("");
  WriteState("[]");

  EXPECT_TRUE(Start());

  EXPECT_EQ(log.Lines(),
            (std::vector<std::string>{"<3>the state file is not a JSON object; starting unenrolled",
                                      kDevBuild, kFirstStart}));
}

TEST_F(RunDirectories, SecuresAnExistingStateDirectoryAndNoOther) {
  ASSERT_EQ(::chmod(config.stateDir.c_str(), 0777), 0);
  ASSERT_EQ(::chmod(config.runDir.c_str(), 0711), 0);

  EXPECT_TRUE(Start());

  EXPECT_EQ(ModeOf(config.stateDir), 0700U);
  EXPECT_EQ(ModeOf(config.runDir), 0711U);
}

TEST_F(RunDirectories, ReplacesAFileAtThePlaceOfTheRunDirectory) {
  config.runDir = dir.At("file");
  WriteText(config.runDir, "text");

  EXPECT_TRUE(Start());

  EXPECT_TRUE(log.Has("<4>removing " + config.runDir + ": not a plain directory"));
  EXPECT_EQ(ModeOf(config.runDir), 0755U);
}

TEST_F(RunDirectories, GivesUpWithoutAStateDirectory) {
  WriteText(dir.At("file"), "");
  for (const std::string& stateDir : {std::string(), dir.At("file/state")}) {
    config.stateDir = stateDir;
    log.Clear();

    EXPECT_FALSE(Start());

    const char* const reason = stateDir.empty() ? "No such file or directory" : "Not a directory";
    EXPECT_EQ(log.Text(), "<3>cannot create " + stateDir + " (" + reason + ")\n");
  }
  EXPECT_EQ(calls.Names(), std::vector<std::string>{});
}

TEST_F(RunDirectories, GivesUpWithoutARunDirectoryWhoseParentsItDoesNotMake) {
  config.runDir = dir.At("absent/run");

  EXPECT_FALSE(Start());

  EXPECT_EQ(log.Text(), "<3>cannot create " + config.runDir + " (No such file or directory)\n");
  EXPECT_EQ(calls.Names(), std::vector<std::string>{});
}

TEST_F(RunDirectories, MakesNoRunDirectoryWithoutAStateDirectory) {
  config.stateDir = "";
  config.runDir = dir.At("new-run");

  EXPECT_FALSE(Start());

  EXPECT_FALSE(Exists(config.runDir));
}

TEST_F(RunDirectories, AreMadeByAnOrdinaryUserToo) {
  ASSERT_EQ(::chmod(dir.Path().c_str(), 0777), 0);
  config.stateDir = dir.At("user/state");
  config.runDir = dir.At("user-run");
  const Unprivileged user;

  EXPECT_TRUE(Start());

  EXPECT_EQ(ModeOf(config.stateDir), 0700U);
  EXPECT_EQ(ModeOf(config.runDir), 0755U);
}

TEST_F(RunInstalled, AsksForItsOwnImage) {
  int asked = 0;
  ops.exePathOfPid = [&asked](int pid) {
    asked = pid;
    return std::string("/usr/bin/env");
  };

  EXPECT_TRUE(Start());

  EXPECT_EQ(asked, ::getpid());
}

TEST_F(RunInstalled, IsAnImageBelowUsrThatOnlyRootMayChange) {
  EXPECT_TRUE(Start());

  EXPECT_TRUE(ServiceInstalled());
  EXPECT_FALSE(log.Has(kDevBuild));
}

TEST_F(RunInstalled, IsNoOtherImage) {
  WriteText(dir.At("image"), "", 0755);
  for (const std::string& path :
       {std::string(), dir.At("image"), std::string("/etc/passwd"), std::string("/usr"),
        std::string("/usr/bin/absent-image"), std::string("usr/bin/env"), std::string("/")}) {
    StartsFrom(path);
    log.Clear();

    EXPECT_TRUE(Start());

    EXPECT_FALSE(ServiceInstalled()) << path;
    EXPECT_EQ(log.Count(kDevBuild), 1) << path;
  }
}

TEST_F(RunSessions, TakesThoseThatExistForKnown) {
  SessionsAre({PersonSession()});
  EXPECT_TRUE(Start());
  StateSetInt(StateKey::kMaintenance, 1);

  SessionInfo later = PersonSession();
  later.id = "9";
  SessionsAre({PersonSession(), later});
  SessionWatcherTick();

  EXPECT_FALSE(ForgetAdminSession(kTestPersonSession));
  EXPECT_TRUE(ForgetAdminSession("9"));
}

TEST_F(RunSessions, LoseTheirAdminGroupsOnlyWhenTheSetupToolMadeTheAccount) {
  Provision();
  AccountIs(kTestKioskUid, "Somebody's own");

  EXPECT_TRUE(Start());

  EXPECT_EQ(calls.Count("dropAdminGroups"), 0);
}

TEST_F(RunSessions, LoseNothingWhenAnotherAccountHasTheName) {
  Provision();
  AccountIs(kTestKioskUid + 1);

  EXPECT_TRUE(Start());

  EXPECT_EQ(calls.Count("dropAdminGroups"), 0);
  EXPECT_TRUE(log.Has(kFirstStart));
}

TEST_F(RunSummary, TellsWhatTheTerminalIs) {
  ops.dropAdminGroups = [] {};
  Enrol();
  EXPECT_TRUE(Start());
  EXPECT_TRUE(log.Has("<6>enrolled=1 provisioned=0 maintenance=0"));

  Provision();
  EXPECT_TRUE(Start());
  EXPECT_TRUE(log.Has("<6>enrolled=1 provisioned=1 maintenance=0"));

  StateSetInt(StateKey::kMaintenance, 1);
  EXPECT_TRUE(Start());
  EXPECT_TRUE(log.Has("<6>enrolled=1 provisioned=1 maintenance=1"));
}

TEST_F(RunSummary, CountsAFlagOnlyAsTheNumberOne) {
  WriteState(R"({"Maintenance":true,"Provisioned":"1"})");

  EXPECT_TRUE(Start());

  EXPECT_TRUE(log.Has(kFirstStart));
}

}  // namespace
}  // namespace Tarnvale::KioskService

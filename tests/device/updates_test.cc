// The commands of OS updates and what they show.

#include "device/updates.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "core/state.h"
#include "device/updates_fixture.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kInvalidReply[] = R"({"ok":false,"error":"invalid"})";
constexpr char kFreshStatus[] =
    R"({"ok":true,"checking":false,"installing":false,"progress":0,"restartRequired":false,)"
    R"("lastChecked":null,"error":null,"updates":[]})";
constexpr char kCheckRequested[] = "<6>os updates: check requested at the terminal";
constexpr char kInstallRequested[] = "<6>os updates: install requested at the terminal";

using OsUpdatesCommand = UpdatesFixture;
using OsInstallCommand = UpdatesFixture;
using OsUpdatesStatusTest = UpdatesFixture;

TEST_F(OsUpdatesCommand, ShowsNothingAfterAStart) {
  EXPECT_EQ(HandleOsUpdates(Json::Object()), kFreshStatus);

  EXPECT_EQ(log.Text(), "");
  EXPECT_TRUE(calls.Names().empty());
}

TEST_F(OsUpdatesCommand, OnlyShowsWithoutACheck) {
  for (const char* const request : {"{}", R"({"check":null})", R"({"check":false})",
                                    R"({"Check":true})", R"({"cmd":"os.updates"})"})
    EXPECT_EQ(HandleOsUpdates(Document(request)), kFreshStatus) << request;

  EXPECT_TRUE(calls.Names().empty());
}

TEST_F(OsUpdatesCommand, RefusesACheckOfAnotherKind) {
  for (const char* const check : {"1", "0", "\"true\"", "\"\"", "[]", "[true]", "{}"})
    EXPECT_EQ(HandleOsUpdates(Document(std::string(R"({"check":)") + check + "}")), kInvalidReply)
        << check;

  EXPECT_EQ(StatusText(), kFreshStatus);
  EXPECT_EQ(log.Text(), "");
  EXPECT_TRUE(TryBeginUpdates());
}

TEST_F(OsUpdatesCommand, StartsACheckAndAnswersWithoutWaitingForIt) {
  RunsEndWith({.result = 0, .pending = 1, .error = {}}, Packages(1));
  HoldRuns();

  const Json reply = Document(HandleOsUpdates(Document(R"({"check":true})")));

  EXPECT_TRUE(reply.Get("ok").boolean);
  EXPECT_TRUE(reply.Get("checking").boolean);
  EXPECT_FALSE(reply.Get("installing").boolean);
  EXPECT_TRUE(log.Has(kCheckRequested));
  Release();
  JoinSettingsWorker();
  EXPECT_EQ(installs, std::vector<bool>{false});
  EXPECT_EQ(Status().Get("updates").Size(), 1U);
}

TEST_F(OsUpdatesCommand, ShowsTheRunThatIsUnderWayInsteadOfASecondOne) {
  RunsEndWith({.result = 0, .error = {}});
  HoldRuns();
  EXPECT_TRUE(Document(HandleOsInstall()).Get("ok").boolean);
  ASSERT_TRUE(RunIsInside());

  const Json reply = Document(HandleOsUpdates(Document(R"({"check":true})")));

  EXPECT_TRUE(reply.Get("ok").boolean);
  EXPECT_TRUE(reply.Get("checking").boolean);
  EXPECT_FALSE(log.Has(kCheckRequested));
  Release();
  JoinSettingsWorker();
  EXPECT_EQ(installs, std::vector<bool>{true});
}

TEST_F(OsUpdatesCommand, ShowsAnAutomaticRunToo) {
  ASSERT_TRUE(TryBeginUpdates());

  EXPECT_EQ(HandleOsUpdates(Document(R"({"check":true})")), kFreshStatus);

  EXPECT_TRUE(calls.Names().empty());
  EXPECT_EQ(log.Text(), "");
}

TEST_F(OsInstallCommand, StartsAnInstallAndAnswersWithoutWaitingForIt) {
  RunsEndWith({.result = 0, .restartRequired = true, .error = {}});
  HoldRuns();

  const Json reply = Document(HandleOsInstall());

  EXPECT_TRUE(reply.Get("ok").boolean);
  EXPECT_TRUE(reply.Get("checking").boolean);
  EXPECT_TRUE(log.Has(kInstallRequested));
  Release();
  JoinSettingsWorker();
  EXPECT_EQ(installs, std::vector<bool>{true});
  EXPECT_TRUE(Status().Get("restartRequired").boolean);
  EXPECT_EQ(calls.Names(), std::vector<std::string>{"runUpdates"}) << "it never restarts";
}

TEST_F(OsInstallCommand, IsRefusedWhileARunIsUnderWay) {
  RunsEndWith({.result = 0, .error = {}});
  HoldRuns();
  (void)HandleOsUpdates(Document(R"({"check":true})"));
  ASSERT_TRUE(RunIsInside());

  EXPECT_EQ(HandleOsInstall(), kBusyReply);

  EXPECT_FALSE(log.Has(kInstallRequested));
  EXPECT_TRUE(Status().Get("checking").boolean);
  Release();
  JoinSettingsWorker();
  EXPECT_EQ(installs, std::vector<bool>{false});
}

TEST_F(OsInstallCommand, IsRefusedDuringAnAutomaticRun) {
  ASSERT_TRUE(TryBeginUpdates());

  EXPECT_EQ(HandleOsInstall(), kBusyReply);

  EXPECT_EQ(StatusText(), kFreshStatus);
  EXPECT_TRUE(calls.Names().empty());
  EXPECT_EQ(log.Text(), "");
}

TEST_F(OsInstallCommand, IsAdmittedOnceToManyAtTheSameTime) {
  RunsEndWith({.result = 0, .error = {}});
  HoldRuns();
  std::atomic<int> refused{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&refused] {
      if (HandleOsInstall() == kBusyReply) refused.fetch_add(1);
    });
  }
  for (std::thread& thread : threads)
    thread.join();

  EXPECT_EQ(refused, 7);
  EXPECT_EQ(log.Count(kInstallRequested), 1);
  Release();
  JoinSettingsWorker();
  EXPECT_EQ(installs.size(), 1U);
}

TEST_F(OsUpdatesStatusTest, HoldsEverythingInItsOrder) {
  StateSetString(StateKey::kUpdatesPolicy,
                 R"({"window":{"days":[5,1],"end":"04:00","start":"22:00"},"automatic":true})");
  RunsEndWith(
      {.result = 0, .pending = 2, .restartRequired = true, .error = {}},
      {{.id = "libc6", .title = "libc6 2.36", .sizeBytes = 2'757'000, .restartRequired = true},
       {.id = "nano", .title = "nano"}});

  (void)RunNow(true);

  EXPECT_EQ(
      StatusText(),
      R"({"ok":true,"checking":false,"installing":false,"progress":0,)"
      R"("restartRequired":true,"lastChecked":"2027-01-15T08:00:00Z","error":null,"updates":[)"
      R"({"id":"libc6","title":"libc6 2.36","sizeBytes":2757000,"restartRequired":true},)"
      R"({"id":"nano","title":"nano","sizeBytes":0,"restartRequired":false}],)"
      R"("policy":{"automatic":true,"window":{"start":"22:00","end":"04:00","days":[1,5]}}})");
}

TEST_F(OsUpdatesStatusTest, TellsAnErrorBesideItsSuccess) {
  RunsEndWith({.result = 2, .error = "search_failed"});

  (void)RunNow(false);

  EXPECT_EQ(
      StatusText(),
      R"({"ok":true,"checking":false,"installing":false,"progress":0,"restartRequired":false,)"
      R"("lastChecked":null,"error":"search_failed","updates":[]})");
}

TEST_F(OsUpdatesStatusTest, LeavesAPolicyOutThatIsNone) {
  for (const char* const text : {"", "garbage", "{}", "[]", R"({"automatic":true})"}) {
    StateSetString(StateKey::kUpdatesPolicy, text);

    EXPECT_EQ(StatusText(), kFreshStatus) << text;
  }
}

TEST_F(OsUpdatesStatusTest, ShowsThePolicyAlsoWhenItIsNotAutomatic) {
  const std::string text =
      R"({"automatic":false,"window":{"start":"02:00","end":"05:00","days":[0]}})";
  StateSetString(StateKey::kUpdatesPolicy, text);

  EXPECT_EQ(Status().Get("policy").Dump(), text);
}

TEST_F(OsUpdatesStatusTest, WritesSizesAsNumbersOfAnyLength) {
  const auto sizeShown = [this](std::uint64_t size) {
    RunsEndWith({.result = 0, .error = {}}, {{.id = "a", .title = "a", .sizeBytes = size}});
    (void)RunNow(false);
    return Status().Get("updates").At(0).Get("sizeBytes").Dump();
  };

  EXPECT_EQ(sizeShown(1), "1");
  EXPECT_EQ(sizeShown(std::uint64_t{1} << 53), "9007199254740992");
  EXPECT_EQ(sizeShown(~std::uint64_t{0}), "1.84467e+19");
}

TEST_F(OsUpdatesStatusTest, ListsAllPackagesWhileTheReportStopsAt500) {
  RunsEndWith({.result = 0, .pending = 900, .error = {}}, Packages(900));

  (void)HandleOsUpdates(Document(R"({"check":true})"));
  JoinSettingsWorker();

  EXPECT_EQ(Status().Get("updates").Size(), 900U);
  EXPECT_EQ(Status().Get("updates").At(899).Get("title").text, "package900 1.0");
  EXPECT_EQ(Report().Get("pending").AsInt(0), 500);
}

}  // namespace
}  // namespace Tarnvale::KioskService

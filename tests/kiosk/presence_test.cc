// The reports, in memory and on disk. What they speak against is in restart_blocker_test.cc.

#include "kiosk/presence.h"

#include <unistd.h>

#include <thread>

#include "core/service.h"
#include "kiosk/session_watcher.h"
#include "support/service_test.h"
#include "support/test_clock.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kSignedInLine[] = "<6>a Tarnvale user is signed in at the terminal\n";
constexpr char kSignedOutLine[] = "<6>a Tarnvale user is no longer signed in at the terminal\n";

class PresenceTest : public ServiceTest {
 protected:
  std::string Report(const std::string& members, const std::string& session = kTestKioskSession) {
    return HandleSessionReport(Json::Parse("{\"cmd\":\"session.report\"" + members + "}").value(),
                               session);
  }
  [[nodiscard]] std::string Path() const {
    return config.runDir + "/kiosk-presence.json";
  }
  [[nodiscard]] std::string File() const {
    return ReadText(Path());
  }
};

using SessionReport = PresenceTest;

TEST_F(SessionReport, WritesTheFileWhole) {
  EXPECT_EQ(Report(R"(,"signedIn":true,"live":true)"), R"({"ok":true})");

  EXPECT_EQ(File(), R"({"signedIn":true,"live":true,"at":1800000000000})");
  EXPECT_EQ(ModeOf(Path()), 0600U);
}

TEST_F(SessionReport, TellsTheWallClock) {
  TestClock::SetWallMs(1'700'000'000'123);

  (void)Report(R"(,"signedIn":false)");

  EXPECT_EQ(File(), R"({"signedIn":false,"live":false,"at":1700000000123})");
}

TEST_F(SessionReport, TakesAMissingOrNullLiveForFalse) {
  for (const char* members : {R"(,"signedIn":true)", R"(,"signedIn":true,"live":null)"}) {
    (void)Report(R"(,"signedIn":true,"live":true)");
    EXPECT_EQ(Report(members), R"({"ok":true})");
    EXPECT_EQ(File(), R"({"signedIn":true,"live":false,"at":1800000000000})") << members;
  }
}

TEST_F(SessionReport, ReplacesTheFileOfAnEarlierRun) {
  WriteText(Path(), "an earlier run's", 0644);

  (void)Report(R"(,"signedIn":false,"live":true)");

  EXPECT_EQ(File(), R"({"signedIn":false,"live":true,"at":1800000000000})");
  EXPECT_EQ(ModeOf(Path()), 0600U);
}

class InvalidReport : public PresenceTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(InvalidReport, ChangesNothing) {
  Provision();
  SessionsAre({KioskSession()});
  (void)Report(R"(,"signedIn":false,"live":true)");
  const std::string before = File();
  TestClock::AdvanceMs(1000);

  EXPECT_EQ(Report(GetParam(), "another"), R"({"ok":false,"error":"invalid"})");

  EXPECT_EQ(File(), before);
  EXPECT_EQ(RestartBlocker(), "a stream session is live");
  EXPECT_EQ(log.Text(), "");
}

TEST_P(InvalidReport, WritesNoFile) {
  EXPECT_EQ(Report(GetParam()), R"({"ok":false,"error":"invalid"})");

  EXPECT_FALSE(Exists(Path()));
}

INSTANTIATE_TEST_SUITE_P(
    SessionReport, InvalidReport,
    ::testing::Values("", R"(,"live":true)", R"(,"signedIn":null)", R"(,"signedIn":"true")",
                      R"(,"signedIn":1)", R"(,"signedIn":0)", R"(,"signedIn":[])",
                      R"(,"signedIn":{})", R"(,"SignedIn":true)", R"(,"signedIn":true,"live":1)",
                      R"(,"signedIn":true,"live":0)", R"(,"signedIn":true,"live":"true")",
                      R"(,"signedIn":true,"live":"")", R"(,"signedIn":true,"live":[])",
                      R"(,"signedIn":true,"live":{})"));

TEST_F(SessionReport, LogsWhenSomebodySignsInAndOut) {
  (void)Report(R"(,"signedIn":true)");
  (void)Report(R"(,"signedIn":true)");
  EXPECT_EQ(log.Text(), kSignedInLine);

  log.Clear();
  (void)Report(R"(,"signedIn":false)");
  (void)Report(R"(,"signedIn":false)");
  EXPECT_EQ(log.Text(), kSignedOutLine);
}

TEST_F(SessionReport, LogsNothingForAFirstReportOfNobody) {
  (void)Report(R"(,"signedIn":false)");

  EXPECT_EQ(log.Text(), "");
}

TEST_F(SessionReport, LogsNoChangeOfLiveAlone) {
  (void)Report(R"(,"signedIn":false,"live":true)");
  (void)Report(R"(,"signedIn":false,"live":false)");

  EXPECT_EQ(log.Text(), "");
}

TEST_F(SessionReport, ComparesAlsoWithTheReportOfAnotherSession) {
  (void)Report(R"(,"signedIn":true)", "c7");
  log.Clear();

  (void)Report(R"(,"signedIn":true)", "c8");

  EXPECT_EQ(log.Text(), "");
}

TEST_F(SessionReport, HoldsInMemoryWhenTheFileCannotBeWritten) {
  Provision();
  SessionsAre({KioskSession()});
  ASSERT_EQ(::rmdir(config.runDir.c_str()), 0);

  EXPECT_EQ(Report(R"(,"signedIn":true)"), R"({"ok":true})");

  EXPECT_EQ(RestartBlocker(), "a Tarnvale user is signed in");
  ASSERT_EQ(log.Lines().size(), 2U);
  EXPECT_EQ(log.Lines()[0] + "\n", kSignedInLine);
  EXPECT_TRUE(log.Lines()[1].starts_with("<3>")) << log.Lines()[1];
}

using ForgetPresence = PresenceTest;

TEST_F(ForgetPresence, ClearsTheReportOfThatSession) {
  (void)Report(R"(,"signedIn":true,"live":true)");
  log.Clear();
  TestClock::AdvanceMs(2000);

  ForgetPresenceOf(kTestKioskSession);

  EXPECT_EQ(File(), R"({"signedIn":false,"live":false,"at":1800000002000})");
  EXPECT_EQ(ModeOf(Path()), 0600U);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(ForgetPresence, LeavesTheReportOfAnotherSessionAlone) {
  (void)Report(R"(,"signedIn":true,"live":true)");
  TestClock::AdvanceMs(2000);

  ForgetPresenceOf("c77");

  EXPECT_EQ(File(), R"({"signedIn":true,"live":true,"at":1800000000000})");
}

TEST_F(ForgetPresence, WritesNoFileWithoutAReport) {
  ForgetPresenceOf(kTestKioskSession);

  EXPECT_FALSE(Exists(Path()));
}

TEST_F(ForgetPresence, LeavesNobodySignedIn) {
  (void)Report(R"(,"signedIn":true)");
  ForgetPresenceOf(kTestKioskSession);
  log.Clear();

  (void)Report(R"(,"signedIn":false)");
  EXPECT_EQ(log.Text(), "");
  (void)Report(R"(,"signedIn":true)");
  EXPECT_EQ(log.Text(), kSignedInLine);
}

TEST_F(ForgetPresence, KeepsWhoReportedAndWhen) {
  Provision();
  SessionsAre({KioskSession()});
  (void)Report(R"(,"signedIn":true,"live":true)");
  TestClock::AdvanceMs(150'000);

  ForgetPresenceOf(kTestKioskSession);

  // The report still counts, so its session is looked up; it has nothing to say any more.
  EXPECT_EQ(RestartBlocker(), "");
  EXPECT_EQ(calls.Count("listSessions"), 1);
  TestClock::AdvanceMs(1);
  EXPECT_EQ(RestartBlocker(), "");
  EXPECT_EQ(calls.Count("listSessions"), 1);
}

TEST(WritePresence, NeedsNoReport) {
  const TempDir dir;
  Config config;
  config.runDir = dir.Path();
  SetService(config, Ops());

  {
    const MutexLock lock(presenceLock);
    WritePresence(false, true);
  }

  EXPECT_EQ(ReadText(dir.At("kiosk-presence.json")),
            R"({"signedIn":false,"live":true,"at":1800000000000})");
}

TEST_F(SessionReport, MeetsTicksAndQuestionsOfOtherThreads) {
  Provision();
  SessionsAre({KioskSession()});
  std::thread reports([this] {
    for (int count = 0; count < 30; ++count) {
      EXPECT_EQ(Report(count % 2 == 0 ? R"(,"signedIn":true)" : R"(,"signedIn":false)"),
                R"({"ok":true})");
    }
    (void)Report(R"(,"signedIn":true,"live":true)");
  });
  std::thread questions([] {
    for (int count = 0; count < 200; ++count)
      (void)RestartBlocker();
  });
  for (int count = 0; count < 30; ++count) {
    SessionWatcherTick();
    ForgetPresenceOf(count % 2 == 0 ? "another" : kTestKioskSession);
  }
  reports.join();
  questions.join();

  // Whoever came last, the file says what the memory says.
  const bool live = RestartBlocker() == "a stream session is live";
  EXPECT_EQ(Json::Parse(File()).value().Get("live").AsBool(!live), live);
}

}  // namespace
}  // namespace Tarnvale::KioskService

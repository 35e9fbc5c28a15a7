#include <limits>

#include "core/service.h"
#include "core/state.h"
#include "kiosk/presence.h"
#include "support/service_test.h"
#include "support/test_clock.h"

namespace Tarnvale::KioskService {
namespace {

class RestartBlockerTest : public ServiceTest {
 protected:
  void SetUp() override {
    Provision();
    SessionsAre({PersonSession(), KioskSession()});
  }
  static void Report(bool signedIn, bool live, const std::string& session = kTestKioskSession) {
    Json request = Json::Object();
    request.Set("signedIn", signedIn);
    request.Set("live", live);
    EXPECT_EQ(HandleSessionReport(request, session), R"({"ok":true})");
  }
};

TEST_F(RestartBlockerTest, IsEmptyWithoutAReportAndAsksNobody) {
  EXPECT_EQ(RestartBlocker(), "");

  EXPECT_TRUE(calls.Names().empty());
}

TEST_F(RestartBlockerTest, NamesALiveStreamFirst) {
  Report(true, true);
  EXPECT_EQ(RestartBlocker(), "a stream session is live");
  Report(false, true);
  EXPECT_EQ(RestartBlocker(), "a stream session is live");
}

TEST_F(RestartBlockerTest, NamesASignedInUser) {
  Report(true, false);

  EXPECT_EQ(RestartBlocker(), "a Tarnvale user is signed in");
}

TEST_F(RestartBlockerTest, IsEmptyWhenNobodyIsThere) {
  Report(false, false);

  EXPECT_EQ(RestartBlocker(), "");
}

TEST_F(RestartBlockerTest, TakesAReportFor150Seconds) {
  Report(false, true);

  TestClock::AdvanceMs(150'000);
  EXPECT_EQ(RestartBlocker(), "a stream session is live");
  TestClock::AdvanceMs(1);
  EXPECT_EQ(RestartBlocker(), "");
}

TEST_F(RestartBlockerTest, AsksNobodyAboutAnOldReport) {
  Report(true, true);
  TestClock::AdvanceMs(150'001);

  EXPECT_EQ(RestartBlocker(), "");

  EXPECT_TRUE(calls.Names().empty());
}

TEST_F(RestartBlockerTest, CountsFromTheLastReport) {
  Report(true, false);
  TestClock::AdvanceMs(100'000);
  Report(true, false);
  TestClock::AdvanceMs(100'000);

  EXPECT_EQ(RestartBlocker(), "a Tarnvale user is signed in");
}

TEST_F(RestartBlockerTest, DoesNotLookAtTheWallClock) {
  Report(true, false);

  TestClock::SetWallMs(1);
  EXPECT_EQ(RestartBlocker(), "a Tarnvale user is signed in");
  TestClock::SetWallMs(std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(RestartBlocker(), "a Tarnvale user is signed in");
}

TEST_F(RestartBlockerTest, TakesNoReportOfASessionThatIsNotTheKiosksOwn) {
  Report(true, true, kTestPersonSession);
  EXPECT_EQ(RestartBlocker(), "");

  Report(true, true);
  SessionsAre({PersonSession()});
  EXPECT_EQ(RestartBlocker(), "");
}

TEST_F(RestartBlockerTest, TakesNoReportOnceTheAccountIsLost) {
  Report(true, true);
  AccountIsMissing();

  EXPECT_EQ(RestartBlocker(), "");
}

TEST_F(RestartBlockerTest, AsksLogindOnceForACurrentReport) {
  Report(false, false);

  (void)RestartBlocker();

  const std::vector<std::string> expected = {"lookupKioskAccount", "listSessions"};
  EXPECT_EQ(calls.Names(), expected);
}

TEST_F(RestartBlockerTest, HoldsNoLockWhileLogindThinks) {
  Report(true, true);
  ops.listSessions = [] {
    Report(false, false);
    return std::vector<SessionInfo>{KioskSession()};
  };

  EXPECT_EQ(RestartBlocker(), "a stream session is live") << "the report as it was when asked";
  EXPECT_EQ(RestartBlocker(), "");
}

}  // namespace
}  // namespace Tarnvale::KioskService

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "portal/pairing_test.h"
#include "support/other_thread.h"

namespace Tarnvale::KioskService {
namespace {

Http Answer(int status, const std::string& body = "{}") {
  return {.ok = true, .status = status, .body = body, .error = {}};
}

using PairingThreadsTest = PairingTest;

TEST_F(PairingThreadsTest, SecondCheckWaitsForTheFirstAndFindsNoCode) {
  Begin();
  EnrolmentSucceeds();
  std::unique_ptr<OtherThread> second;
  portal.AnswersWith(kCodePath, [&](const PortalCall&) {
    if (second != nullptr) return Answer(202);  // asked by the second check, which must not ask
    second = std::make_unique<OtherThread>([] { return Check(); });
    EXPECT_TRUE(Eventually([&] { return second->IsAtRest(); }));
    EXPECT_FALSE(second->IsDone());
    return Answer(200, kClaimedBody);
  });

  const std::string first = Check();

  EXPECT_TRUE(Json::Parse(first)->Get("provisioned").AsBool(false)) << first;
  EXPECT_EQ(second->Result(), kUnknownCodeReply);
  EXPECT_EQ(portal.CallsTo(kCodePath), 1);
}

TEST_F(PairingThreadsTest, SecondCheckWaitsForTheCheckInOfTheFirstToo) {
  Begin();
  EnrolmentSucceeds();
  std::unique_ptr<OtherThread> second;
  portal.AnswersWith(kCheckInPath, [&](const PortalCall&) {
    second = std::make_unique<OtherThread>([] { return Check(); });
    EXPECT_TRUE(Eventually([&] { return second->IsAtRest(); }));
    EXPECT_FALSE(second->IsDone());
    return Answer(500);
  });

  (void)Check();

  EXPECT_EQ(second->Result(), kUnknownCodeReply);
}

TEST_F(PairingThreadsTest, BeginWaitsBehindARunningCheck) {
  Begin();
  std::unique_ptr<OtherThread> begin;
  portal.AnswersWith(kCodePath, [&](const PortalCall&) {
    PortalGivesCode("NEWCODE1");
    begin = std::make_unique<OtherThread>([] { return PairBegin(); });
    EXPECT_TRUE(Eventually([&] { return portal.CallsTo(kPairPath) == 2 && begin->IsAtRest(); }));
    EXPECT_FALSE(begin->IsDone());
    return Answer(404);  // which forgets the old code, and must not forget the new one
  });

  EXPECT_EQ(Check(), R"({"ok":false,"error":"expired"})");
  EXPECT_EQ(begin->Result(), R"({"ok":true,"code":"NEWCODE1","expiresInSeconds":900})");
  EXPECT_TRUE(IsPending("NEWCODE1"));
}

TEST_F(PairingThreadsTest, OtherRequestsAreAnsweredWhileTheSetupToolRuns) {
  Begin();
  EnrolmentSucceeds();
  std::unique_ptr<OtherThread> check;
  std::unique_ptr<OtherThread> begin;
  ops.runSetupTool = [&](bool, std::string*) {
    check = std::make_unique<OtherThread>([] { return Check(); });
    begin = std::make_unique<OtherThread>([] { return PairBegin(); });
    EXPECT_TRUE(Eventually([&] { return check->IsDone() && begin->IsDone(); }));
    AccountIs(kTestKioskUid);
    return true;
  };

  (void)Check();

  EXPECT_EQ(check->Result(), kUnknownCodeReply);
  EXPECT_EQ(begin->Result(), R"({"ok":false,"error":"already_enrolled"})");
}

TEST_F(PairingThreadsTest, ManyChecksAtOnceEnrolOnce) {
  Begin();
  EnrolmentSucceeds();
  std::atomic<int> enrolled{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&enrolled] {
      if (Check() != kUnknownCodeReply) enrolled.fetch_add(1);
    });
  }
  for (std::thread& thread : threads)
    thread.join();

  EXPECT_EQ(enrolled, 1);
  EXPECT_EQ(portal.CallsTo(kCodePath), 1);
  EXPECT_EQ(portal.CallsTo(kCheckInPath), 1);
}

}  // namespace
}  // namespace Tarnvale::KioskService

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "portal/pairing_test.h"
#include "support/threads.h"

namespace Tarnvale::KioskService {
namespace {

// A request on another connection's thread.
class OtherConnection {
 public:
  explicit OtherConnection(std::function<std::string()> request)
      : thread_([this, request = std::move(request)] {
          id_ = ThreadId();
          reply_ = request();
          answered_ = true;
        }) {}
  ~OtherConnection() {
    if (thread_.joinable()) thread_.join();
  }
  OtherConnection(const OtherConnection&) = delete;
  OtherConnection& operator=(const OtherConnection&) = delete;

  [[nodiscard]] bool IsAnswered() const {
    return answered_;
  }
  // It goes no further by itself: its reply is there, or it waits for a lock.
  [[nodiscard]] bool IsAtRest() const {
    return answered_ || (id_ != 0 && IsAsleep(id_));
  }
  [[nodiscard]] std::string Reply() {
    thread_.join();
    return reply_;
  }

 private:
  std::atomic<pid_t> id_{0};
  std::atomic<bool> answered_{false};
  std::string reply_;
  std::thread thread_;  // Last: it uses the others from its start.
};

Http Answer(int status, const std::string& body = "{}") {
  return {.ok = true, .status = status, .body = body, .error = {}};
}

using PairingThreadsTest = PairingTest;

TEST_F(PairingThreadsTest, SecondCheckWaitsForTheFirstAndFindsNoCode) {
  Begin();
  EnrolmentSucceeds();
  std::unique_ptr<OtherConnection> second;
  portal.AnswersWith(kCodePath, [&](const PortalCall&) {
    if (second != nullptr) return Answer(202);  // asked by the second check, which must not ask
    second = std::make_unique<OtherConnection>([] { return Check(); });
    EXPECT_TRUE(Eventually([&] { return second->IsAtRest(); }));
    EXPECT_FALSE(second->IsAnswered());
    return Answer(200, kClaimedBody);
  });

  const std::string first = Check();

  EXPECT_TRUE(Json::Parse(first)->Get("provisioned").AsBool(false)) << first;
  EXPECT_EQ(second->Reply(), kUnknownCodeReply);
  EXPECT_EQ(portal.CallsTo(kCodePath), 1);
}

TEST_F(PairingThreadsTest, SecondCheckWaitsForTheCheckInOfTheFirstToo) {
  Begin();
  EnrolmentSucceeds();
  std::unique_ptr<OtherConnection> second;
  portal.AnswersWith(kCheckInPath, [&](const PortalCall&) {
    second = std::make_unique<OtherConnection>([] { return Check(); });
    EXPECT_TRUE(Eventually([&] { return second->IsAtRest(); }));
    EXPECT_FALSE(second->IsAnswered());
    return Answer(500);
  });

  (void)Check();

  EXPECT_EQ(second->Reply(), kUnknownCodeReply);
}

TEST_F(PairingThreadsTest, BeginWaitsBehindARunningCheck) {
  Begin();
  std::unique_ptr<OtherConnection> begin;
  portal.AnswersWith(kCodePath, [&](const PortalCall&) {
    PortalGivesCode("NEWCODE1");
    begin = std::make_unique<OtherConnection>([] { return PairBegin(); });
    EXPECT_TRUE(Eventually([&] { return portal.CallsTo(kPairPath) == 2 && begin->IsAtRest(); }));
    EXPECT_FALSE(begin->IsAnswered());
    return Answer(404);  // which forgets the old code, and must not forget the new one
  });

  EXPECT_EQ(Check(), R"({"ok":false,"error":"expired"})");
  EXPECT_EQ(begin->Reply(), R"({"ok":true,"code":"NEWCODE1","expiresInSeconds":900})");
  EXPECT_TRUE(IsPending("NEWCODE1"));
}

TEST_F(PairingThreadsTest, OtherRequestsAreAnsweredWhileTheSetupToolRuns) {
  Begin();
  EnrolmentSucceeds();
  std::unique_ptr<OtherConnection> check;
  std::unique_ptr<OtherConnection> begin;
  ops.runSetupTool = [&](bool, std::string*) {
    check = std::make_unique<OtherConnection>([] { return Check(); });
    begin = std::make_unique<OtherConnection>([] { return PairBegin(); });
    EXPECT_TRUE(Eventually([&] { return check->IsAnswered() && begin->IsAnswered(); }));
    AccountIs(kTestKioskUid);
    return true;
  };

  (void)Check();

  EXPECT_EQ(check->Reply(), kUnknownCodeReply);
  EXPECT_EQ(begin->Reply(), R"({"ok":false,"error":"already_enrolled"})");
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

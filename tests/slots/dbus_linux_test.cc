#include "device/dbus_linux.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "slots/support/private_bus.h"
#include "slots/support/stand_in_logind.h"
#include "slots/support/system_stand_ins.h"
#include "slots/support/tool_test.h"
#include "support/log_capture.h"
#include "support/threads.h"

namespace Tarnvale::KioskService {
namespace {

constexpr int kTimeoutMs = 30'000;

Variant CallLogind(const char* method, GVariant* parameters = nullptr,
                   const char* replyType = nullptr, std::string* errorText = nullptr,
                   int timeoutMs = kTimeoutMs) {
  return DbusCall("org.freedesktop.login1", "/a/path", "an.Interface", method, parameters,
                  replyType, timeoutMs, errorText);
}

// A floating "(u)" that tells when its last owner has let it go.
GVariant* MakeWatched(std::atomic<bool>& released) {
  static const guint32 number = 7;
  return g_variant_new_from_data(
      G_VARIANT_TYPE("(u)"), &number, sizeof number, TRUE,
      [](gpointer flag) { static_cast<std::atomic<bool>*>(flag)->store(true); }, &released);
}

class DbusCallWithoutBus : public ::testing::Test {
 protected:
  PrivateBus bus;
  LogCapture log;
};

TEST_F(DbusCallWithoutBus, FailsAndLogsTheMissingBusOnce) {
  EXPECT_EQ(CallLogind("First"), nullptr);
  EXPECT_EQ(CallLogind("Second"), nullptr);
  EXPECT_EQ(SystemBus(), nullptr);

  EXPECT_EQ(log.Text(), "<3>no system bus (Could not connect: No such file or directory)\n");
}

TEST_F(DbusCallWithoutBus, GoesOnFailingWhenTheBusAppears) {
  EXPECT_EQ(CallLogind("First"), nullptr);
  StandInLogind logind(bus);
  logind.Answer("Second", "()");

  EXPECT_EQ(CallLogind("Second"), nullptr);
  EXPECT_EQ(logind.Calls(), std::vector<std::string>{});
  EXPECT_EQ(log.Lines().size(), 1U);
}

TEST_F(DbusCallWithoutBus, LeavesTheErrorTextAlone) {
  std::string errorText = "as it was";

  EXPECT_EQ(CallLogind("Method", nullptr, nullptr, &errorText), nullptr);
  EXPECT_EQ(errorText, "as it was");
}

TEST_F(DbusCallWithoutBus, ReleasesItsParameters) {
  std::atomic<bool> released{false};

  EXPECT_EQ(CallLogind("Method", MakeWatched(released)), nullptr);
  EXPECT_TRUE(released.load());
}

TEST_F(DbusCallWithoutBus, LogsOnceOnManyThreads) {
  std::vector<std::thread> threads;
  for (int count = 0; count < 8; ++count)
    threads.emplace_back([] { EXPECT_EQ(CallLogind("Method"), nullptr); });
  for (std::thread& thread : threads)
    thread.join();

  EXPECT_EQ(log.Lines().size(), 1U);
}

class DbusCallTest : public ::testing::Test {
 protected:
  PrivateBus bus;
  LogCapture log;
  StandInLogind logind{bus};
};

TEST_F(DbusCallTest, ReturnsTheReply) {
  logind.Answer("Method", "('text', uint32 5)");

  const Variant reply = CallLogind("Method", g_variant_new("(bs)", TRUE, "in"), "(su)");

  ASSERT_NE(reply, nullptr);
  const char* text = nullptr;
  guint32 number = 0;
  g_variant_get(reply.get(), "(&su)", &text, &number);
  EXPECT_STREQ(text, "text");
  EXPECT_EQ(number, 5U);
  EXPECT_EQ(logind.Calls(), std::vector<std::string>{"/a/path an.Interface.Method (true, 'in')"});
}

TEST_F(DbusCallTest, TakesAnyReplyWithoutAType) {
  logind.Answer("Method", "([1, 2, 3],)");

  EXPECT_NE(CallLogind("Method"), nullptr);
}

TEST_F(DbusCallTest, RefusesAReplyOfAnotherType) {
  logind.Answer("Method", "('text',)");
  std::string errorText;

  EXPECT_EQ(CallLogind("Method", nullptr, "(o)", &errorText), nullptr);
  EXPECT_NE(errorText, "");
}

TEST_F(DbusCallTest, LeavesTheErrorTextAloneOnSuccess) {
  logind.Answer("Method", "()");
  std::string errorText = "as it was";

  EXPECT_NE(CallLogind("Method", nullptr, nullptr, &errorText), nullptr);
  EXPECT_EQ(errorText, "as it was");
}

TEST_F(DbusCallTest, PassesTheErrorsMessageOnAndLogsNothing) {
  logind.Refuse("Method", "not today");
  std::string errorText;

  EXPECT_EQ(CallLogind("Method", nullptr, nullptr, &errorText), nullptr);
  EXPECT_EQ(errorText, "GDBus.Error:org.freedesktop.login1.Refused: not today");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(DbusCallTest, FailsWithoutAPlaceForTheErrorText) {
  logind.Refuse("Method", "not today");

  EXPECT_EQ(CallLogind("Method"), nullptr);
}

TEST_F(DbusCallTest, GivesUpAfterItsTimeout) {
  logind.StaySilent("Method");
  std::string errorText;

  EXPECT_EQ(CallLogind("Method", nullptr, nullptr, &errorText, 50), nullptr);
  EXPECT_EQ(errorText, "Timeout was reached");
}

TEST_F(DbusCallTest, FailsForANameThatNobodyHas) {
  std::string errorText;

  EXPECT_EQ(DbusCall("org.example.Nobody", "/a", "a.b", "Method", nullptr, nullptr, kTimeoutMs,
                     &errorText),
            nullptr);
  EXPECT_NE(errorText.find("org.example.Nobody"), std::string::npos) << errorText;
}

TEST_F(DbusCallTest, ReleasesItsParameters) {
  logind.Answer("Method", "()");
  std::atomic<bool> released{false};

  EXPECT_NE(CallLogind("Method", MakeWatched(released)), nullptr);

  EXPECT_TRUE(WaitFor([&released] { return released.load(); }));
}

TEST_F(DbusCallTest, AnswersEachOfManyThreads) {
  logind.Answer("Method", "('shared',)");
  std::atomic<int> answered{0};

  std::vector<std::thread> threads;
  for (int count = 0; count < 8; ++count)
    threads.emplace_back([&answered] {
      for (int call = 0; call < 20; ++call)
        answered += CallLogind("Method", nullptr, "(s)") != nullptr ? 1 : 0;
    });
  for (std::thread& thread : threads)
    thread.join();

  EXPECT_EQ(answered.load(), 160);
}

// As many calls at once as the service makes, all waiting for a logind that says nothing.
class DbusCallsAtOnce : public ::testing::Test {
 protected:
  DbusCallsAtOnce() {
    logind->StaySilent("Method");
    while (threads.size() < kAtOnce)
      threads.emplace_back([] { EXPECT_EQ(CallLogind("Method"), nullptr); });
    EXPECT_TRUE(WaitFor([this] { return logind->Calls().size() == kAtOnce; }));
  }
  ~DbusCallsAtOnce() override {
    LogindEnds();
    for (std::thread& thread : threads)
      thread.join();
  }
  // All calls that wait for it then fail.
  void LogindEnds() {
    logind.reset();
  }

  static constexpr std::size_t kAtOnce = 6;
  PrivateBus bus;
  LogCapture log;
  std::unique_ptr<StandInLogind> logind = std::make_unique<StandInLogind>(bus);
  std::vector<std::thread> threads;
};

TEST_F(DbusCallsAtOnce, LeaveOneMoreWaitingUntilItsTimeoutEnds) {
  std::atomic<bool> released{false};
  std::string errorText;

  EXPECT_EQ(CallLogind("Method", MakeWatched(released), nullptr, &errorText, 20), nullptr);

  EXPECT_EQ(errorText, "too many calls at once");
  EXPECT_TRUE(released.load());
  EXPECT_EQ(logind->Calls().size(), kAtOnce);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(DbusCallsAtOnce, LeaveOneMoreTheRestOfItsTimeout) {
  std::atomic<pid_t> waiting{0};
  std::thread seventh([&waiting] {
    waiting = ThreadId();
    EXPECT_EQ(CallLogind("Method"), nullptr);
  });
  EXPECT_TRUE(WaitFor([&waiting] { return waiting != 0 && IsAsleep(waiting); }));
  const auto asleepAt = std::chrono::steady_clock::now();
  EXPECT_TRUE(WaitFor([asleepAt] {
    return std::chrono::steady_clock::now() - asleepAt > std::chrono::milliseconds(2);
  }));

  LogindEnds();
  seventh.join();

  const std::vector<int> timeoutsMs = StandIn::DbusTimeoutsMs();
  ASSERT_EQ(timeoutsMs.size(), kAtOnce + 1);
  EXPECT_LT(timeoutsMs.back(), kTimeoutMs);
  EXPECT_GT(timeoutsMs.back(), 0);
}

TEST_F(DbusCallTest, UsesOneConnectionForAll) {
  EXPECT_NE(SystemBus(), nullptr);
  EXPECT_EQ(SystemBus(), SystemBus());
}

}  // namespace
}  // namespace Tarnvale::KioskService

#include "device/time_sync.h"

#include <limits>

#include "support/service_test.h"
#include "support/test_clock.h"

namespace Tarnvale::KioskService {
namespace {

class TimeSync : public ServiceTest {
 protected:
  TimeSync() {
    ops.ntpServer = [] { return "ntp.example"; };
    ClockIsOut(-1234);
    ResyncEnds(true);
  }

  void ClockIsOut(long milliseconds) {
    ops.sntpOffset = [this, milliseconds](const std::string& server, long* offsetMs) {
      asked = server;
      *offsetMs = milliseconds;
      return true;
    };
  }
  void ServerIsSilent() {
    ops.sntpOffset = [](const std::string&, long*) { return false; };
  }
  void ResyncEnds(bool well) {
    ops.resyncClock = [well] { return well; };
  }

  std::string asked;
};

TEST_F(TimeSync, TellsByHowMuchTheClockWasOut) {
  EXPECT_EQ(HandleTimeSync(),
            R"({"ok":true,"server":"ntp.example","offsetMs":-1234,"at":"2027-01-15T08:00:00Z"})");
  EXPECT_EQ(log.Text(), "<6>time: resynced with ntp.example, the clock was -1234 ms out\n");
}

TEST_F(TimeSync, MeasuresTheSystemsOwnServerBeforeTheCorrection) {
  (void)HandleTimeSync();  // the order is looked at

  const std::vector<std::string> expected = {"ntpServer", "sntpOffset", "resyncClock"};
  EXPECT_EQ(calls.Names(), expected);
  EXPECT_EQ(asked, "ntp.example");
}

TEST_F(TimeSync, SucceedsWithoutAMeasurement) {
  ServerIsSilent();

  EXPECT_EQ(HandleTimeSync(),
            R"({"ok":true,"server":"ntp.example","offsetMs":null,"at":"2027-01-15T08:00:00Z"})");
  EXPECT_EQ(log.Text(),
            "<4>time: no SNTP answer from ntp.example\n"
            "<6>time: resynced with ntp.example, the clock was 0 ms out\n");
}

TEST_F(TimeSync, FailsWhenTheClientDoesThoughTheServerAnswered) {
  ResyncEnds(false);

  EXPECT_EQ(HandleTimeSync(), R"({"ok":false,"error":"sync_failed","server":"ntp.example"})");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(TimeSync, FailsWhenNobodyAnswers) {
  ServerIsSilent();
  ResyncEnds(false);

  EXPECT_EQ(HandleTimeSync(), R"({"ok":false,"error":"unreachable","server":"ntp.example"})");
  EXPECT_EQ(log.Text(), "<4>time: no SNTP answer from ntp.example\n");
  const std::vector<std::string> expected = {"ntpServer", "sntpOffset", "resyncClock"};
  EXPECT_EQ(calls.Names(), expected);
}

TEST_F(TimeSync, TellsAnOffsetOfNothingAsANumber) {
  ClockIsOut(0);

  EXPECT_EQ(HandleTimeSync(),
            R"({"ok":true,"server":"ntp.example","offsetMs":0,"at":"2027-01-15T08:00:00Z"})");
}

TEST_F(TimeSync, TellsTheOffsetOfAClockWithoutABattery) {
  ClockIsOut(1'800'000'000'123);

  const Json reply = Json::Parse(HandleTimeSync()).value_or(Json());

  EXPECT_EQ(reply.Get("offsetMs").AsInt(0), 1'800'000'000'123);
  EXPECT_TRUE(log.Has("<6>time: resynced with ntp.example, the clock was 1800000000123 ms out"));
}

TEST_F(TimeSync, TellsTheTimeAfterTheCorrection) {
  ops.resyncClock = [] {
    TestClock::SetWallMs(1'709'210'096'999);
    return true;
  };

  const Json reply = Json::Parse(HandleTimeSync()).value_or(Json());

  EXPECT_EQ(reply.Get("at").AsString(""), "2024-02-29T12:34:56Z");
}

TEST_F(TimeSync, TellsAnyTimeThatAClockMayShow) {
  const auto replyAt = [](std::int64_t wallMs) {
    TestClock::SetWallMs(wallMs);
    return Json::Parse(HandleTimeSync()).value_or(Json()).Get("at").AsString("none");
  };

  EXPECT_EQ(replyAt(0), "1970-01-01T00:00:00Z");
  EXPECT_EQ(replyAt(253'402'300'799'000), "9999-12-31T23:59:59Z");
  EXPECT_EQ(replyAt(253'402'300'800'000), "10000-01-01T00:00:00Z");
  EXPECT_EQ(replyAt(std::numeric_limits<std::int64_t>::max()), "292278994-08-17T07:12:55Z");
}

}  // namespace
}  // namespace Tarnvale::KioskService

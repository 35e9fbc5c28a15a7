// When the connection stops reading, and what it takes for the request.

#include <atomic>
#include <csignal>
#include <thread>

#include "control/connection_fixture.h"
#include "support/threads.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kStatus[] = R"({"cmd":"status"})";
constexpr std::size_t kMaxRequestBytes = 8192;

using RequestReading = ConnectionFixture;

// A status request of this many bytes, padded inside, so that it is whole at its last byte only.
std::string StatusOf(std::size_t bytes) {
  const std::string head = R"({"cmd":"status","pad":")";
  return head + std::string(bytes - head.size() - 2, 'x') + R"("})";
}

// The text in two pieces.
std::deque<std::string> CutAt(const std::string& text, std::size_t first) {
  return {text.substr(0, first), text.substr(first)};
}

TEST_F(RequestReading, TakesAWholeTextWithoutLineFeedAtOnce) {
  PeerSends(kStatus);

  Serve();

  EXPECT_TRUE(IsStatus(PeerReads()));
  EXPECT_EQ(elapsedMs, 0);
}

TEST_F(RequestReading, TakesATextInPieces) {
  PeerSendsPieceByPiece({R"({"cm)", R"(d":"sta)", R"(tus"})", "never sent"});

  Serve();

  EXPECT_TRUE(IsStatus(PeerReads()));
  EXPECT_EQ(piecesSent, 3);
}

TEST_F(RequestReading, GivesUpOnASilentPeerAfterFifteenSeconds) {
  Serve();

  EXPECT_EQ(PeerReads(), "");
  EXPECT_EQ(elapsedMs, 15000);
  EXPECT_TRUE(calls.Names().empty());
}

TEST_F(RequestReading, SendsNothingToAPeerThatClosesAtOnce) {
  PeerEndsWriting();

  Serve();

  EXPECT_EQ(PeerReads(), "");
  EXPECT_EQ(elapsedMs, 0);
  EXPECT_TRUE(calls.Names().empty());
  EXPECT_EQ(log.Text(), "");
}

class BlankRequest : public ConnectionFixture, public ::testing::WithParamInterface<const char*> {};

TEST_P(BlankRequest, GetsNoReplyAndNoTestOfThePeer) {
  PeerSends(GetParam());
  PeerEndsWriting();

  Serve();

  EXPECT_EQ(PeerReads(), "");
  EXPECT_TRUE(calls.Names().empty());
}

INSTANTIATE_TEST_SUITE_P(RequestReading, BlankRequest,
                         ::testing::Values(" ", "\n", "\r\n", " \t\v\f\r\n", "\n\n\n", "   \n   "));

TEST_F(RequestReading, EndsAtALineFeedWithoutWaitingForMore) {
  PeerSendsPieceByPiece({"\n", kStatus});

  Serve();

  EXPECT_EQ(PeerReads(), "");
  EXPECT_EQ(piecesSent, 1);
}

TEST_F(RequestReading, EndsAtALineFeedAnywhereInWhatIsThere) {
  PeerSendsPieceByPiece({"{\"cmd\":\n", "\"status\"}"});

  Serve();

  EXPECT_EQ(PeerReads(), kBadRequestReply);
  EXPECT_EQ(piecesSent, 1);
}

TEST_F(RequestReading, TrimsAllThatCameAndDoesNotCutItAtTheLineFeed) {
  PeerSends("\r\n\t {\"cmd\":\n\"status\"\n} \r\n");

  Serve();

  EXPECT_TRUE(IsStatus(PeerReads()));
}

TEST_F(RequestReading, TakesTwoObjectsForOneRequest) {
  PeerSends("{\"cmd\":\"status\"}\n{\"cmd\":\"nothing\"}\n");

  Serve();

  const std::string reply = PeerReads();
  EXPECT_TRUE(IsStatus(reply));
  EXPECT_EQ(reply.find('\n'), reply.size() - 1);
}

TEST_F(RequestReading, StopsAtTheFirstValueEvenWhenMoreWouldChangeIt) {
  PeerSendsPieceByPiece({"1", "2"});

  Serve();

  EXPECT_EQ(PeerReads(), kBadRequestReply);
  EXPECT_EQ(piecesSent, 1);
}

TEST_F(RequestReading, AnswersHalfAnObjectAfterTheSilence) {
  PeerSends(R"({"cmd":"sta)");

  Serve();

  EXPECT_EQ(PeerReads(), kBadRequestReply);
  EXPECT_EQ(elapsedMs, 15000);
}

TEST_F(RequestReading, AnswersHalfAnObjectAtTheEndOfTheWriting) {
  PeerSends(R"({"cmd":"sta)");
  PeerEndsWriting();

  Serve();

  EXPECT_EQ(PeerReads(), kBadRequestReply);
  EXPECT_EQ(elapsedMs, 0);
}

TEST_F(RequestReading, CountsTheDeadlineFromTheStartAndNotFromEachPiece) {
  const std::string request = StatusOf(100);
  std::deque<std::string> bytes;
  for (const char byte : request)
    bytes.emplace_back(1, byte);
  PeerSendsPieceByPiece(bytes, 1000);

  Serve();

  EXPECT_EQ(PeerReads(), kBadRequestReply);
  EXPECT_EQ(piecesSent, 15);
  EXPECT_EQ(elapsedMs, 15000);
}

TEST_F(RequestReading, GivesEachPieceTheTimeThatIsLeft) {
  std::vector<std::int64_t> waits;
  TestClock::BeforeWaits([&](std::int64_t milliseconds) {
    waits.push_back(milliseconds);
    TestClock::AdvanceMs(6000);
    PeerSends(" ");
  });

  Serve();

  const std::vector<std::int64_t> expected = {15000, 9000, 3000};
  EXPECT_EQ(waits, expected);
}

// A first piece as large as one read, and the rest waiting in the socket behind it.
class LateRest : public ConnectionFixture {
 protected:
  void SendAllAfter(std::int64_t milliseconds) {
    PeerSendsPieceByPiece({StatusOf(1024 + 100)}, milliseconds);
  }
};

TEST_F(LateRest, IsReadWithAMillisecondLeft) {
  SendAllAfter(14999);

  Serve();

  EXPECT_TRUE(IsStatus(PeerReads()));
}

TEST_F(LateRest, IsNotReadOnceTheTimeIsUp) {
  SendAllAfter(15000);

  Serve();

  EXPECT_EQ(PeerReads(), kBadRequestReply);
}

TEST_F(RequestReading, TakesARequestOfTheLargestSize) {
  PeerSendsPieceByPiece(CutAt(StatusOf(kMaxRequestBytes - 1 + 1024), kMaxRequestBytes - 1));

  Serve();

  EXPECT_TRUE(IsStatus(PeerReads()));
}

TEST_F(RequestReading, StopsReadingWithTheChunkThatReachesTheLimit) {
  PeerSendsPieceByPiece(CutAt(StatusOf(kMaxRequestBytes + 1024), kMaxRequestBytes - 1));

  Serve();

  EXPECT_EQ(PeerReads(), kBadRequestReply);
}

TEST_F(RequestReading, AsksForNoMoreOnceTheLimitIsReached) {
  PeerSendsPieceByPiece(CutAt(StatusOf(kMaxRequestBytes + 1), kMaxRequestBytes));

  Serve();

  EXPECT_EQ(PeerReads(), kBadRequestReply);
  EXPECT_EQ(piecesSent, 1);
}

TEST_F(RequestReading, TakesARequestThatIsWholeAtTheLimit) {
  PeerSends(StatusOf(kMaxRequestBytes));

  Serve();

  EXPECT_TRUE(IsStatus(PeerReads()));
}

TEST_F(RequestReading, AnswersTheDeepestNestingThatFits) {
  const std::size_t bytes = kMaxRequestBytes - 1 + 1024;
  for (const std::string opening : {"[", "{\"a\":"}) {
    std::string nested;
    while (nested.size() < bytes)
      nested += opening;
    Connect();
    PeerSendsPieceByPiece(CutAt(nested.substr(0, bytes), kMaxRequestBytes - 1));
    Serve();
    EXPECT_EQ(PeerReads(), kBadRequestReply);
  }
}

TEST_F(RequestReading, LooksAtAnOverlongRequestOnlyAfterThePeer) {
  ConnectAsPerson();
  StateClear(StateKey::kDevAllowAnyCaller);
  PeerSends(std::string(kMaxRequestBytes, 'x'));

  Serve();

  EXPECT_EQ(PeerReads(), kCallerRefusedReply);
}

// Signals that interrupt whatever call they find.
class Interruptions {
 public:
  Interruptions() {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    EXPECT_EQ(::sigaction(SIGUSR1, &action, nullptr), 0);
  }
  static void Send(std::thread& thread) {
    EXPECT_EQ(::pthread_kill(thread.native_handle(), SIGUSR1), 0);
  }
};

TEST_F(RequestReading, TakesAnInterruptedPollForTheEndOfTheRequest) {
  const Interruptions interruptions;
  TestClock::WaitForReal();
  std::atomic<bool> served = false;
  std::thread server([&] {
    Serve();
    served = true;
  });

  const bool ended = Eventually([&] {
    Interruptions::Send(server);
    return served.load();
  });

  server.join();
  EXPECT_TRUE(ended);
  EXPECT_EQ(PeerReads(), "");
}

TEST_F(RequestReading, SendsALargeReplyWholeThroughShortWritesAndSignals) {
  const Interruptions interruptions;
  config.brandingDir = "/" + std::string(1 << 20, 'x');
  UseConfig();
  PeerSends(kStatus);
  std::thread server([&] { Serve(); });

  std::string reply;
  char block[4096];
  ssize_t count = 0;
  while ((count = ::recv(peer.Get(), block, sizeof block, 0)) > 0) {
    reply.append(block, static_cast<std::size_t>(count));
    Interruptions::Send(server);
  }

  server.join();
  EXPECT_TRUE(IsStatus(reply));
  EXPECT_NE(reply.find(config.brandingDir), std::string::npos);
}

}  // namespace
}  // namespace Tarnvale::KioskService

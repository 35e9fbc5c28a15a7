// What an exchange makes of an answer, whole or cut short.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "portal/http_linux.h"
#include "slots/support/http_peer.h"
#include "slots/support/http_test.h"

namespace Tarnvale::KioskService {
namespace {

constexpr unsigned long kMaxBytes = 65'536;

class HttpAnswer : public HttpTest {
 protected:
  // An exchange with a server that gives this answer and closes.
  static Http Get(const std::string& answer, unsigned long maxBytes = kMaxBytes) {
    HttpPeer peer(answer);
    return HttpExchange("GET", peer.Url(), "", "", maxBytes, "*/*");
  }

  static void ExpectAnswered(const Http& http, int status, const std::string& body) {
    EXPECT_TRUE(http.ok);
    EXPECT_EQ(http.status, status);
    EXPECT_EQ(http.body, body);
    EXPECT_EQ(http.error, "");
  }
};

TEST_F(HttpAnswer, BringsStatusAndBody) {
  ExpectAnswered(Get(AnswerWith("{\"a\":1}")), 200, "{\"a\":1}");
}

TEST_F(HttpAnswer, BringsEveryByteOfTheBody) {
  const std::string body("\0\xff\r\n\0", 5);

  ExpectAnswered(Get(AnswerWith(body)), 200, body);
}

class HttpAnswerStatus : public HttpAnswer, public ::testing::WithParamInterface<int> {};

TEST_P(HttpAnswerStatus, IsNoFailureWhateverItSays) {
  const std::string status = std::to_string(GetParam());

  ExpectAnswered(Get("HTTP/1.1 " + status + " Some Words\r\nContent-Length: 4\r\n\r\nbody"),
                 GetParam(), "body");
}

INSTANTIATE_TEST_SUITE_P(Statuses, HttpAnswerStatus,
                         ::testing::Values(200, 201, 299, 400, 401, 404, 410, 429, 500, 503, 599));

TEST_F(HttpAnswer, NeedsNoBody) {
  ExpectAnswered(Get("HTTP/1.1 204 No Content\r\n\r\n"), 204, "");
  ExpectAnswered(Get("HTTP/1.1 304 Not Modified\r\n\r\n"), 304, "");
}

TEST_F(HttpAnswer, IsNotFollowedWhenItRedirects) {
  HttpPeer elsewhere(AnswerWith("elsewhere"));
  HttpPeer peer("HTTP/1.1 302 Found\r\nLocation: " + elsewhere.Url("/") +
                "\r\nContent-Length: 4\r\n\r\nmove");

  ExpectAnswered(HttpExchange("GET", peer.Url(), "", "t", kMaxBytes, "*/*"), 302, "move");

  EXPECT_TRUE(elsewhere.Requests().empty());
  EXPECT_EQ(peer.Requests().size(), 1U);
}

TEST_F(HttpAnswer, MayEndWithTheConnection) {
  ExpectAnswered(Get("HTTP/1.1 200 OK\r\n\r\nto the end"), 200, "to the end");
  ExpectAnswered(Get("HTTP/1.0 200 OK\r\n\r\nold"), 200, "old");
}

TEST_F(HttpAnswer, MayComeInChunks) {
  ExpectAnswered(Get("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                     "3\r\none\r\n5\r\n, two\r\n0\r\n\r\n"),
                 200, "one, two");
}

TEST_F(HttpAnswer, HasTheStatusBehindAnInterimOne) {
  ExpectAnswered(Get("HTTP/1.1 103 Early Hints\r\n\r\n" + AnswerWith("x")), 200, "x");
}

TEST_F(HttpAnswer, IsKeptToOneByteOverTheLimit) {
  constexpr unsigned long kLimit = 10;
  // The peer sends each body in one piece. One that crosses the limit is cut off whole.
  const std::pair<std::size_t, std::size_t> rows[] = {{0, 0}, {9, 9}, {10, 10}, {11, 11}, {12, 0}};

  for (const auto& [sent, kept] : rows) {
    SCOPED_TRACE(sent);
    ExpectAnswered(Get(AnswerWith(std::string(sent, 'x')), kLimit), 200, std::string(kept, 'x'));
  }
}

TEST_F(HttpAnswer, IsCutOffAtTheChunkThatCrossesTheLimit) {
  const std::string head = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nfirst\r\n";

  ExpectAnswered(Get(head + "6\r\nsecond\r\n0\r\n\r\n", 10), 200, "firstsecond");
  ExpectAnswered(Get(head + "7\r\nseconds\r\n0\r\n\r\n", 10), 200, "first");
}

TEST_F(HttpAnswer, NeverGrowsFarPastTheLimit) {
  const Http http = Get(AnswerWith(std::string(3'000'000, 'x')));

  EXPECT_TRUE(http.ok);
  EXPECT_EQ(http.status, 200);
  EXPECT_LE(http.body.size(), kMaxBytes + 1);
}

TEST_F(HttpAnswer, MayHaveALimitOfNothing) {
  ExpectAnswered(Get(AnswerWith("x"), 0), 200, "x");
  ExpectAnswered(Get(AnswerWith("xy"), 0), 200, "");
}

TEST_F(HttpAnswer, CountsWhenItIsCutOffBehindTheStatusLine) {
  ExpectAnswered(Get("HTTP/1.1 401 Unauthorized\r\n"), 401, "");
  ExpectAnswered(Get("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nonly"), 200, "only");
  ExpectAnswered(Get("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nonly\r\n"), 200,
                 "only");
}

TEST_F(HttpAnswer, CountsWhenItIsResetInTheBody) {
  HttpPeer peer("HTTP/1.1 500 Oh\r\nContent-Length: 9\r\n\r\n", HttpPeer::Ending::kReset);

  const Http http = HttpExchange("GET", peer.Url(), "", "", kMaxBytes, "*/*");

  // A reset may overtake what was sent before it.
  EXPECT_EQ(http.ok, http.status == 500);
  EXPECT_EQ(http.body, "");
}

TEST_F(HttpAnswer, BelongsToItsOwnExchangeOnManyThreads) {
  HttpPeer first(AnswerWith("first"));
  HttpPeer second(AnswerWith("second"));
  std::atomic<int> right{0};
  const auto ask = [&right](const std::string& url, const std::string& expected) {
    for (int count = 0; count < 10; ++count)
      right += HttpExchange("GET", url, "", "", kMaxBytes, "*/*").body == expected ? 1 : 0;
  };

  std::vector<std::thread> threads;
  for (int count = 0; count < 4; ++count) {
    threads.emplace_back(ask, first.Url(), "first");
    threads.emplace_back(ask, second.Url(), "second");
  }
  for (std::thread& thread : threads)
    thread.join();

  EXPECT_EQ(right.load(), 80);
}

}  // namespace
}  // namespace Tarnvale::KioskService

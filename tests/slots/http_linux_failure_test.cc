// Exchanges that bring no status: each ends with libcurl's own words.

#include <sys/socket.h>

#include <curl/curl.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "portal/http_linux.h"
#include "slots/support/http_peer.h"
#include "slots/support/http_test.h"
#include "slots/support/system_stand_ins.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace Tarnvale::KioskService {
namespace {

class HttpFailure : public HttpTest {
 protected:
  static Http Get(const std::string& url) {
    return HttpExchange("GET", url, "", "secret-token", 100, "*/*");
  }

  static void ExpectFailed(const Http& http, CURLcode reason) {
    EXPECT_FALSE(http.ok);
    EXPECT_EQ(http.status, 0);
    EXPECT_EQ(http.body, "");
    EXPECT_EQ(http.error, curl_easy_strerror(reason));
  }
};

TEST_F(HttpFailure, IsARefusedConnection) {
  const Descriptor bound = BindLoopback(-1);

  ExpectFailed(Get("http://127.0.0.1:" + std::to_string(PortOf(bound)) + "/"),
               CURLE_COULDNT_CONNECT);
}

TEST_F(HttpFailure, IsAServerThatHangsUp) {
  HttpPeer peer("");

  ExpectFailed(Get(peer.Url()), CURLE_GOT_NOTHING);
}

TEST_F(HttpFailure, IsAServerThatResets) {
  HttpPeer peer("", HttpPeer::Ending::kReset);

  ExpectFailed(Get(peer.Url()), CURLE_RECV_ERROR);
}

TEST_F(HttpFailure, IsAnAnswerThatIsNoHttp) {
  HttpPeer peer("hello, this is something else\r\n");

  ExpectFailed(Get(peer.Url()), CURLE_UNSUPPORTED_PROTOCOL);
}

TEST_F(HttpFailure, IsAUrlThatIsNone) {
  ExpectFailed(Get("http://"), CURLE_URL_MALFORMAT);
  ExpectFailed(Get(""), CURLE_URL_MALFORMAT);
}

TEST_F(HttpFailure, IsAFileOfThisMachine) {
  const TempDir directory;
  WriteText(directory.At("secret"), "text");

  ExpectFailed(Get("file://" + directory.At("secret")), CURLE_UNSUPPORTED_PROTOCOL);
}

TEST_F(HttpFailure, IsAnyOtherProtocol) {
  HttpPeer peer("220 welcome\r\n");
  const std::string rest = "://127.0.0.1:" + std::to_string(peer.Port()) + "/x";

  for (const std::string scheme : {"ftp", "gopher", "telnet", "dict", "smtp", "tftp"}) {
    SCOPED_TRACE(scheme);
    ExpectFailed(Get(scheme + rest), CURLE_UNSUPPORTED_PROTOCOL);
  }
  EXPECT_TRUE(peer.Requests().empty());
}

TEST_F(HttpFailure, IsALibraryThatHasNoHandleToGive) {
  StandIn::FailCurlHandles();

  const Http http = Get("http://127.0.0.1:1/");

  EXPECT_FALSE(http.ok);
  EXPECT_EQ(http.status, 0);
  EXPECT_EQ(http.body, "");
  EXPECT_EQ(http.error, "curl_easy_init failed");
}

TEST_F(HttpFailure, IsSilent) {
  const LogCapture log;
  HttpPeer peer("");

  (void)Get(peer.Url());

  EXPECT_EQ(log.Text(), "");
}

// Takes connections up to its backlog and answers none: what comes then gets no connection at all.
class FullServer {
 public:
  FullServer() : listener_(BindLoopback(0)) {
    for (Descriptor& waiting : waiting_) {
      waiting = Descriptor(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
      sockaddr_storage address = {};
      socklen_t length = sizeof address;
      auto* const peer = reinterpret_cast<sockaddr*>(&address);
      EXPECT_EQ(::getsockname(listener_.Get(), peer, &length), 0);
      (void)::connect(waiting.Get(), peer, length);  // under way is enough
    }
  }

  [[nodiscard]] std::string Url() const {
    return "http://127.0.0.1:" + std::to_string(PortOf(listener_)) + "/";
  }

 private:
  Descriptor listener_;
  Descriptor waiting_[4];
};

// The one test here that waits for time to pass: the fifteen seconds are libcurl's to count. All
// its servers are waited for at once.
class HttpFifteenSecondsOfRealTime : public HttpFailure {
 protected:
  using Clock = std::chrono::steady_clock;

  void Ask(const std::string& url, Http& http) {
    threads_.emplace_back([url, &http] {
      const Clock::time_point start = Clock::now();
      http = Get(url);
      EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(14'900));
    });
  }

  void WaitForAll() {
    for (std::thread& thread : threads_)
      thread.join();
  }

 private:
  std::vector<std::thread> threads_;
};

TEST_F(HttpFifteenSecondsOfRealTime, EndEveryExchange) {
  const FullServer full;
  HttpPeer silent("", HttpPeer::Ending::kHold);
  HttpPeer inTheHead("HTTP/1.1 401 No\r\n", HttpPeer::Ending::kHold);
  HttpPeer inTheBody("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nonly", HttpPeer::Ending::kHold);
  Http answers[4];

  Ask(full.Url(), answers[0]);
  Ask(silent.Url(), answers[1]);
  Ask(inTheHead.Url(), answers[2]);
  Ask(inTheBody.Url(), answers[3]);
  WaitForAll();

  ExpectFailed(answers[0], CURLE_OPERATION_TIMEDOUT);
  ExpectFailed(answers[1], CURLE_OPERATION_TIMEDOUT);
  EXPECT_TRUE(answers[2].ok && answers[2].status == 401);
  EXPECT_TRUE(answers[3].ok && answers[3].status == 200 && answers[3].body == "only");
}

}  // namespace
}  // namespace Tarnvale::KioskService

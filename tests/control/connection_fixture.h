// One connection without a server: the test is the peer, and serves itself.

#ifndef TARNVALE_KIOSKD_TESTS_CONTROL_CONNECTION_FIXTURE_H_
#define TARNVALE_KIOSKD_TESTS_CONTROL_CONNECTION_FIXTURE_H_

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <deque>
#include <string>
#include <string_view>
#include <utility>

#include "control/connection.h"
#include "core/clock.h"
#include "core/descriptor.h"
#include "core/state.h"
#include "support/service_test.h"
#include "support/test_clock.h"

namespace Tarnvale::KioskService {

inline constexpr char kBadRequestReply[] = "{\"ok\":false,\"error\":\"bad_request\"}\n";
inline constexpr char kCallerRefusedReply[] = "{\"ok\":false,\"error\":\"caller_refused\"}\n";

class ConnectionFixture : public ServiceTest {
 protected:
  void SetUp() override {
    // Admitted whether root runs the tests or somebody else.
    StateSetInt(StateKey::kDevAllowAnyCaller, 1);
    SessionsAre({});
    Connect();
  }

  // The kernel records this process as the peer, as it is at this moment.
  void Connect() {
    int ends[2] = {-1, -1};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    connection = Descriptor(ends[0]);
    peer = Descriptor(ends[1]);
  }

  // The same with a peer that is not root.
  void ConnectAsPerson() {
    const uid_t self = ::geteuid();
    peerUid = self == 0 ? kTestPersonUid : self;
    ASSERT_EQ(::seteuid(peerUid), 0);
    Connect();
    ASSERT_EQ(::seteuid(self), 0);
  }

  void PeerSends(std::string_view bytes) {
    ASSERT_EQ(::send(peer.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
  }

  void PeerEndsWriting() {
    ASSERT_EQ(::shutdown(peer.Get(), SHUT_WR), 0);
  }

  // Whenever the connection has read all there is and polls for more, the next piece arrives,
  // `pauseMs` of the clock later.
  void PeerSendsPieceByPiece(std::deque<std::string> pieces, std::int64_t pauseMs = 0) {
    TestClock::BeforeWaits([this, fd = connection.Get(), pieces, pauseMs](std::int64_t) mutable {
      pollfd unread = {fd, POLLIN, 0};
      if (pieces.empty() || ::poll(&unread, 1, 0) > 0) return;
      TestClock::AdvanceMs(pauseMs);
      PeerSends(pieces.front());
      pieces.pop_front();
      ++piecesSent;
    });
  }

  // Serves the connection to its end; how long that took is in `elapsedMs`.
  void Serve() {
    const std::int64_t before = SteadyNowMs();
    ServeConnection(std::move(connection));
    elapsedMs = SteadyNowMs() - before;
  }

  // All that the peer can read; it must end with the end of the file and nothing worse.
  std::string PeerReads() {
    std::string text;
    char block[4096];
    ssize_t count = 0;
    while ((count = ::recv(peer.Get(), block, sizeof block, MSG_DONTWAIT)) > 0)
      text.append(block, static_cast<std::size_t>(count));
    EXPECT_EQ(count, 0) << "the peer sees no clean end";
    return text;
  }

  [[nodiscard]] static bool IsStatus(const std::string& reply) {
    return reply.starts_with(R"({"ok":true,"enrolled":)") && reply.ends_with("}\n");
  }

  Descriptor connection;
  Descriptor peer;
  uid_t peerUid = ::geteuid();
  int piecesSent = 0;
  std::int64_t elapsedMs = -1;
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_CONTROL_CONNECTION_FIXTURE_H_

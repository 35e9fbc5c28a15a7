// A server of exact bytes: takes requests one after the other, keeps them, and answers each with
// what the test wrote down, whatever was asked.

#ifndef TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_HTTP_PEER_H_
#define TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_HTTP_PEER_H_

#include <string>
#include <thread>
#include <vector>

#include "core/descriptor.h"
#include "core/mutex.h"

namespace Tarnvale::KioskService {

class HttpPeer {
 public:
  // What becomes of the connection behind the answer's last byte.
  enum class Ending { kClose, kReset, kHold };

  // Gives every connection this answer. A held one stays open until the peer is gone.
  explicit HttpPeer(std::string answer, Ending ending = Ending::kClose);
  ~HttpPeer();
  HttpPeer(const HttpPeer&) = delete;
  HttpPeer& operator=(const HttpPeer&) = delete;

  [[nodiscard]] int Port() const {
    return port_;
  }
  // An http URL of this server, for a path with its slash.
  [[nodiscard]] std::string Url(const std::string& path = "/") const;
  // Whole requests, head and body, in their order.
  [[nodiscard]] std::vector<std::string> Requests();

 private:
  void Serve();
  void ServeOne(Descriptor connection);

  const std::string answer_;
  const Ending ending_;
  Descriptor listener_;
  int port_ = 0;
  std::vector<Descriptor> held_;
  Mutex lock_;
  std::vector<std::string> requests_ GUARDED_BY(lock_);
  std::thread thread_;
};

// A TCP socket of 127.0.0.1 with a port of its own; it listens unless the backlog is negative.
[[nodiscard]] Descriptor BindLoopback(int backlog);
[[nodiscard]] int PortOf(const Descriptor& socket);

// "HTTP/1.1 200 OK" with a length and this body.
[[nodiscard]] std::string AnswerWith(const std::string& body);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_HTTP_PEER_H_

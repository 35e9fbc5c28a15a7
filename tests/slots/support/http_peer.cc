#include "slots/support/http_peer.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <utility>

namespace Tarnvale::KioskService {
namespace {

constexpr int kBacklog = 64;
constexpr char kLengthHeader[] = "\r\nContent-Length: ";

std::size_t BodyLength(const std::string& head) {
  const std::size_t found = head.find(kLengthHeader);
  if (found == std::string::npos) return 0;
  return std::strtoul(head.c_str() + found + sizeof kLengthHeader - 1, nullptr, 10);
}

// Reads until the head is whole and as much body as it announces is there, or the peer stops.
std::string ReadRequest(const Descriptor& connection) {
  std::string request;
  std::size_t wanted = std::string::npos;
  char block[16384];
  while (request.size() < wanted) {
    const ssize_t count = ::recv(connection.Get(), block, sizeof block, 0);
    if (count < 1) break;
    request.append(block, static_cast<std::size_t>(count));
    const std::size_t headEnd = request.find("\r\n\r\n");
    if (headEnd != std::string::npos) wanted = headEnd + 4 + BodyLength(request.substr(0, headEnd));
  }
  return request;
}

// A client that has had enough goes away in the middle: no failure of the test's.
void SendAll(const Descriptor& connection, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(connection.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 1) return;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
}

// Closing then sends a reset instead of an orderly end.
void ResetOnClose(const Descriptor& connection) {
  const linger abrupt = {1, 0};
  EXPECT_EQ(::setsockopt(connection.Get(), SOL_SOCKET, SO_LINGER, &abrupt, sizeof abrupt), 0);
}

}  // namespace

Descriptor BindLoopback(int backlog) {
  Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(::bind(socket.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  EXPECT_TRUE(backlog < 0 || ::listen(socket.Get(), backlog) == 0);
  return socket;
}

int PortOf(const Descriptor& socket) {
  sockaddr_in address = {};
  socklen_t length = sizeof address;
  EXPECT_EQ(::getsockname(socket.Get(), reinterpret_cast<sockaddr*>(&address), &length), 0);
  return ntohs(address.sin_port);
}

std::string AnswerWith(const std::string& body) {
  return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

HttpPeer::HttpPeer(std::string answer, Ending ending)
    : answer_(std::move(answer)),
      ending_(ending),
      listener_(BindLoopback(kBacklog)),
      port_(PortOf(listener_)),
      thread_([this] { Serve(); }) {}

HttpPeer::~HttpPeer() {
  (void)::shutdown(listener_.Get(), SHUT_RDWR);  // ends the accept
  thread_.join();
}

std::string HttpPeer::Url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + path;
}

std::vector<std::string> HttpPeer::Requests() {
  const MutexLock lock(lock_);
  return requests_;
}

void HttpPeer::Serve() {
  for (;;) {
    Descriptor connection(::accept4(listener_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!connection.IsOpen()) return;
    ServeOne(std::move(connection));
  }
}

void HttpPeer::ServeOne(Descriptor connection) {
  const std::string request = ReadRequest(connection);
  {
    const MutexLock lock(lock_);
    requests_.push_back(request);
  }
  SendAll(connection, answer_);
  if (ending_ == Ending::kReset) ResetOnClose(connection);
  if (ending_ == Ending::kHold) held_.push_back(std::move(connection));
}

}  // namespace Tarnvale::KioskService

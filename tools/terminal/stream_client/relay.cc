#include "terminal/stream_client/relay.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/descriptor.h"
#include "core/units.h"
#include "kioskctl/socket_client.h"

namespace Tarnvale::KioskService::StreamClient {
namespace {

constexpr std::size_t kMaxRequestBytes = 64 * kKiB;

// A socket that listens at the path, or a closed descriptor with errno.
Descriptor Listen(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  (void)::unlink(path.c_str());  // a leftover of the last run, or nothing
  Descriptor listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!listener.IsOpen()) return listener;
  if (::bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(listener.Get(), 8) != 0) {
    return Descriptor();
  }
  return listener;
}

// Up to the first line feed, the end, or the limit.
std::string ReadLine(int fd) {
  std::string line;
  char byte = 0;
  while (line.size() < kMaxRequestBytes && ::recv(fd, &byte, 1, 0) == 1 && byte != '\n') {
    line += byte;
  }
  return line;
}

void SendLine(int fd, const std::string& text) {
  const std::string line = text + "\n";
  (void)::send(fd, line.data(), line.size(), MSG_NOSIGNAL);  // a peer that went away misses it
}

void ServeOne(int listener, const std::string& servicePath) {
  const Descriptor connection(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
  if (!connection.IsOpen()) return;
  std::string reply;
  std::string problem;
  if (!Kioskctl::Exchange(servicePath, ReadLine(connection.Get()), reply, problem)) {
    (void)std::fprintf(stderr, "tarnvale-stream: %s\n", problem.c_str());
  }
  SendLine(connection.Get(), reply);
}

// Whether there may be more: a console that was hung up gives no keys any more.
bool DropKeys() {
  std::array<char, 256> keys;
  return ::read(STDIN_FILENO, keys.data(), keys.size()) > 0;
}

}  // namespace

void Relay(const std::string& path, const std::string& servicePath, std::string& problem) {
  const Descriptor listener = Listen(path);
  if (!listener.IsOpen()) {
    problem = "cannot listen at " + path + " (" + std::strerror(errno) + ")";
    return;
  }
  std::array<pollfd, 2> ready = {{{listener.Get(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}}};
  for (;;) {
    if (::poll(ready.data(), ready.size(), -1) < 1) continue;
    if (ready[0].revents != 0) ServeOne(listener.Get(), servicePath);
    if (ready[1].revents != 0 && !DropKeys()) ready[1].fd = -1;
  }
}

}  // namespace Tarnvale::KioskService::StreamClient

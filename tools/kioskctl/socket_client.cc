#include "kioskctl/socket_client.h"

#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "core/descriptor.h"
#include "core/units.h"

namespace Tarnvale::KioskService::Kioskctl {
namespace {

constexpr std::size_t kMaxPathBytes = sizeof(sockaddr_un::sun_path) - 1;
constexpr std::size_t kMaxReplyBytes = 1 * kMiB;
constexpr std::size_t kReadChunkBytes = 16 * kKiB;

// Set once, before the alarm that reads it.
volatile sig_atomic_t timeoutExitStatus = 0;

void HandleAlarm(int /*signal*/) {
  constexpr std::string_view kLine = "tarnvale-kioskctl: the service did not answer in time\n";
  (void)!::write(STDERR_FILENO, kLine.data(), kLine.size());  // nowhere left to say so
  ::_exit(timeoutExitStatus);
}

bool Connect(int fd, const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, kMaxPathBytes);
  return ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

// A service that refuses a request answers without reading all of it, so a failed send is no
// reason not to listen.
void SendAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 1) return;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
}

// Up to the first line feed, the end, or a byte past the limit.
std::string Receive(int fd) {
  std::string bytes;
  std::array<char, kReadChunkBytes> chunk;
  while (bytes.size() <= kMaxReplyBytes && bytes.find('\n') == std::string::npos) {
    const ssize_t count = ::recv(fd, chunk.data(), chunk.size(), 0);
    if (count < 1) break;
    bytes.append(chunk.data(), static_cast<std::size_t>(count));
  }
  return bytes;
}

bool TakeReply(const std::string& bytes, std::string& reply, std::string& problem) {
  const std::size_t end = std::min(bytes.find('\n'), bytes.size());
  if (end > kMaxReplyBytes) {
    problem = "the service's answer is longer than 1 MiB";
  } else if (end == bytes.size()) {
    problem = bytes.empty() ? "the service closed the connection without an answer"
                            : "the service's answer broke off";
  } else {
    reply = bytes.substr(0, end);
    return true;
  }
  return false;
}

}  // namespace

bool Exchange(const std::string& socketPath, const std::string& request, std::string& reply,
              std::string& problem) {
  if (socketPath.size() > kMaxPathBytes) {
    problem = "the path of a socket has at most 107 bytes";
    return false;
  }
  const Descriptor connection(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!connection.IsOpen() || !Connect(connection.Get(), socketPath)) {
    problem = "cannot connect to " + socketPath + " (" + std::strerror(errno) +
              "); is tarnvale-kioskd running?";
    return false;
  }
  SendAll(connection.Get(), request + "\n");
  return TakeReply(Receive(connection.Get()), reply, problem);
}

void EndProcessAfter(unsigned int seconds, int exitStatus) {
  timeoutExitStatus = exitStatus;
  (void)::signal(SIGALRM, HandleAlarm);  // fails only for signals that cannot be handled
  (void)::alarm(seconds);                // no earlier alarm was set
}

}  // namespace Tarnvale::KioskService::Kioskctl

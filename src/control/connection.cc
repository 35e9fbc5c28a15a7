#include "control/connection.h"

#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "control/caller.h"
#include "control/dispatch.h"
#include "control/reply.h"
#include "core/clock.h"
#include "core/log.h"
#include "core/text.h"
#include "core/units.h"
#include "json/json.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::int64_t kRequestTimeoutMs = 15 * kSecondMs;
// Reading stops at the first chunk that takes the request here or past it.
constexpr std::size_t kMaxRequestBytes = 8 * kKiB;
constexpr std::size_t kReadChunkBytes = 1 * kKiB;

bool WaitForInput(int fd, std::int64_t deadlineMs) {
  const std::int64_t remainingMs = deadlineMs - SteadyNowMs();
  if (remainingMs < 1) return false;
  pollfd entry = {fd, POLLIN, 0};
  return PollFor(&entry, 1, remainingMs) > 0;
}

bool ReadChunk(int fd, std::string& buffer) {
  std::array<char, kReadChunkBytes> chunk;
  const ssize_t count = ::read(fd, chunk.data(), chunk.size());
  if (count < 1) return false;
  buffer.append(chunk.data(), static_cast<std::size_t>(count));
  ::explicit_bzero(chunk.data(), chunk.size());
  return true;
}

// A client that sends a whole JSON text, no line feed, and waits is a good client.
bool IsComplete(const std::string& buffer) {
  std::string text = Trim(buffer);
  std::optional<Json> request = Json::Parse(text);
  if (request) WipeTexts(*request);
  WipeText(text);
  return request.has_value();
}

// What the peer sent, without the white space around it. The deadline covers the whole of it. A
// password may be in it, so no copy stays behind, not even of a text that grew.
std::string ReadRequest(int fd) {
  const std::int64_t deadlineMs = SteadyNowMs() + kRequestTimeoutMs;
  std::string buffer;
  buffer.reserve(kMaxRequestBytes + kReadChunkBytes);
  while (buffer.size() < kMaxRequestBytes && buffer.find('\n') == std::string::npos) {
    if (!WaitForInput(fd, deadlineMs) || !ReadChunk(fd, buffer)) break;
    if (IsComplete(buffer)) break;
  }
  std::string line = Trim(buffer);
  WipeText(buffer);
  return line;
}

bool ReadPeerCredentials(int fd, ucred& peer) {
  socklen_t size = sizeof peer;
  return ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.pid > 0;
}

std::string Answer(int fd, const std::string& line, std::function<void()>& after) {
  ucred peer = {};
  if (!ReadPeerCredentials(fd, peer)) {
    Log("<4>caller refused: no peer credentials\n");
    return ReplyError("caller_refused");
  }
  std::string reason;
  if (!CheckCallerImage(peer.pid, peer.uid, reason)) {
    // The reason may name the program, and the peer has chosen that name.
    Log("<4>caller refused: %s\n", OneLine(reason).c_str());
    return ReplyError("caller_refused");
  }
  Caller caller;
  IdentifyCaller(peer.pid, peer.uid, caller);
  return Dispatch(line, caller, after);
}

// Ends silently when the peer is gone.
void SendAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent < 1) return;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
}

// An unlock token may be in the reply, so no copy stays behind, not even of a text that grew.
void SendReply(int fd, std::string& reply) {
  std::string line;
  line.reserve(reply.size() + 1);
  line.append(reply).push_back('\n');
  SendAll(fd, line);
  WipeText(line);
  WipeText(reply);
}

// What the peer sent beyond its request would turn the close into a reset, and cost it the reply.
// After the shutdown no more can come, so this ends with what the socket holds.
void DiscardUnread(int fd) {
  std::array<char, kReadChunkBytes> chunk;
  while (::recv(fd, chunk.data(), chunk.size(), MSG_DONTWAIT) > 0) {
  }
}

}  // namespace

void ServeConnection(Descriptor connection) {
  std::function<void()> after;
  std::string line = ReadRequest(connection.Get());
  if (!line.empty()) {
    std::string reply = Answer(connection.Get(), line, after);
    WipeText(line);
    SendReply(connection.Get(), reply);
  }
  (void)::shutdown(connection.Get(), SHUT_RDWR);  // the peer may be gone already
  DiscardUnread(connection.Get());
  (void)connection.Close();
  // The peer has its whole reply by now; what comes may end its session.
  if (after) after();
}

}  // namespace Tarnvale::KioskService

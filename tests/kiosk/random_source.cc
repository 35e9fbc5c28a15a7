#include "kiosk/random_source.h"

#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <optional>

#include "core/failing_calls.h"

namespace Tarnvale::KioskService::RandomSource {
namespace {

// Set while no other thread of the test opens anything.
std::atomic<int> nextFd{-1};
std::atomic<int> nextError{0};
std::atomic<int> opened{0};
std::atomic<int> openFlags{0};

std::optional<int> Open(const char* path, int flags) {
  if (std::strcmp(path, "/dev/urandom") != 0) return std::nullopt;
  opened.fetch_add(1);
  openFlags = flags;
  if (const int error = nextError.exchange(0); error != 0) {
    errno = error;
    return -1;
  }
  const int fd = nextFd.exchange(-1);
  return fd >= 0 ? std::optional<int>(fd) : std::nullopt;
}

// From the start of the process, so that every opening is counted.
[[maybe_unused]] const bool inPlace = (AnswerOpens(Open), true);

}  // namespace

void Gives(const std::vector<std::string>& chunks) {
  int ends[2] = {-1, -1};
  // Each read of such a socket takes one message.
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
  for (const std::string& chunk : chunks) {
    ASSERT_EQ(::send(ends[1], chunk.data(), chunk.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(chunk.size()));
  }
  ASSERT_EQ(::close(ends[1]), 0);
  nextFd = ends[0];
}

void FailsToOpen(int error) {
  nextError = error;
}

int Opened() {
  return opened;
}

int OpenFlags() {
  return openFlags;
}

}  // namespace Tarnvale::KioskService::RandomSource

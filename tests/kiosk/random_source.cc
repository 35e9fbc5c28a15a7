#include "kiosk/random_source.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>

namespace Tarnvale::KioskService::RandomSource {
namespace {

// Set while no other thread of the test opens anything.
std::atomic<int> nextFd{-1};
std::atomic<int> nextError{0};
std::atomic<int> opened{0};
std::atomic<int> openFlags{0};

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

static int Open(const char* path, int flags, mode_t mode) {
  if (std::strcmp(path, "/dev/urandom") == 0) {
    opened.fetch_add(1);
    openFlags = flags;
    if (const int error = nextError.exchange(0); error != 0) {
      errno = error;
      return -1;
    }
    if (const int fd = nextFd.exchange(-1); fd >= 0) return fd;
  }
  return static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

}  // namespace Tarnvale::KioskService::RandomSource

// The program's own function of this name comes before the C library's.
extern "C" int open(const char* path, int flags, ...) {
  mode_t mode = 0;
  if ((flags & O_CREAT) != 0) {
    va_list arguments;
    va_start(arguments, flags);
    mode = va_arg(arguments, mode_t);
    va_end(arguments);
  }
  return Tarnvale::KioskService::RandomSource::Open(path, flags, mode);
}

#include "core/failing_calls.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <map>
#include <utility>

namespace Tarnvale::KioskService {
namespace {

// Changed while no other thread of the test runs.
std::map<std::string, int> failures;
std::function<void(const std::string& call)> watcher;
std::function<void(const std::string& path, int flags)> openWatcher;
OpenAnswerer openAnswerer = nullptr;

// The errno that the call shall fail with, or 0.
int FailureOf(const char* call) {
  if (watcher) watcher(call);
  const auto found = failures.find(call);
  return found == failures.end() ? 0 : found->second;
}

template <typename... Arguments>
int Pass(const char* call, long number, Arguments... arguments) {
  if (const int error = FailureOf(call); error != 0) {
    errno = error;
    return -1;
  }
  return static_cast<int>(::syscall(number, arguments...));
}

}  // namespace

FailingCalls::~FailingCalls() {
  failures.clear();
  watcher = nullptr;
  openWatcher = nullptr;
}

void FailingCalls::Fail(const std::string& call, int error) {
  failures[call] = error;
}

void FailingCalls::Watch(std::function<void(const std::string& call)> action) {
  watcher = std::move(action);
}

void FailingCalls::WatchOpens(std::function<void(const std::string& path, int flags)> action) {
  openWatcher = std::move(action);
}

void AnswerOpens(OpenAnswerer answerer) {
  openAnswerer = answerer;
}

}  // namespace Tarnvale::KioskService

// The program's own functions of these names come before the C library's.
extern "C" {

int fchmod(int fd, mode_t mode) noexcept {
  return Tarnvale::KioskService::Pass("fchmod", SYS_fchmod, fd, mode);
}

int fchown(int fd, uid_t owner, gid_t group) noexcept {
  return Tarnvale::KioskService::Pass("fchown", SYS_fchown, fd, owner, group);
}

int fsync(int fd) {
  return Tarnvale::KioskService::Pass("fsync", SYS_fsync, fd);
}

int open(const char* path, int flags, ...) {
  mode_t mode = 0;
  if ((flags & (O_CREAT | O_TMPFILE)) != 0) {
    va_list arguments;
    va_start(arguments, flags);
    mode = va_arg(arguments, mode_t);
    va_end(arguments);
  }
  if (Tarnvale::KioskService::openWatcher) Tarnvale::KioskService::openWatcher(path, flags);
  if (Tarnvale::KioskService::openAnswerer != nullptr) {
    const auto answer = Tarnvale::KioskService::openAnswerer(path, flags);
    if (answer) return *answer;
  }
  return static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

int rename(const char* from, const char* to) noexcept {
  return Tarnvale::KioskService::Pass("rename", SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0);
}
}

#include "slots/support/system_stand_ins.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <curl/curl.h>
#include <gio/gio.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <optional>

#include "core/mutex.h"

namespace Tarnvale::KioskService::StandIn {
namespace {

std::atomic<bool> forksFail{false};
std::atomic<bool> groupsStay{false};
std::atomic<int> nextPollError{0};
std::atomic<int> longestPollMs{0};
std::atomic<bool> hostNameFails{false};
std::atomic<bool> curlHandlesFail{false};

Mutex recordLock;
std::optional<std::vector<std::string>> executables GUARDED_BY(recordLock);
std::vector<std::string> triedExecutables GUARDED_BY(recordLock);
std::vector<std::string> hiddenFromStat GUARDED_BY(recordLock);
std::vector<int> dbusTimeoutsMs GUARDED_BY(recordLock);
std::optional<std::string> hostName GUARDED_BY(recordLock);
std::vector<CurlOption> curlOptions GUARDED_BY(recordLock);

template <typename Function>
Function* RealFunction(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

void FailForks() {
  forksFail.store(true);
}

void LeaveProcessGroupsAlone() {
  groupsStay.store(true);
}

void FailNextPoll(int error) {
  nextPollError.store(error);
}

int LongestPollMs() {
  return longestPollMs.load();
}

void SetExecutables(const std::vector<std::string>& paths) {
  const MutexLock lock(recordLock);
  executables = paths;
}

std::vector<std::string> TriedExecutables() {
  const MutexLock lock(recordLock);
  return triedExecutables;
}

void HideFromStat(const std::vector<std::string>& paths) {
  const MutexLock lock(recordLock);
  hiddenFromStat = paths;
}

void FailHostName() {
  hostNameFails.store(true);
}

void SetHostName(const std::string& name) {
  const MutexLock lock(recordLock);
  hostName = name;
}

std::vector<int> DbusTimeoutsMs() {
  const MutexLock lock(recordLock);
  return dbusTimeoutsMs;
}

void FailCurlHandles() {
  curlHandlesFail.store(true);
}

std::vector<CurlOption> CurlOptions() {
  const MutexLock lock(recordLock);
  return curlOptions;
}

static void RecordCurlOption(CURLoption option, void* value) {
  const bool isNumber = option < CURLOPTTYPE_OBJECTPOINT;
  const MutexLock lock(recordLock);
  curlOptions.push_back({option, isNumber ? reinterpret_cast<long>(value) : 0});
}

// Nothing when the disk decides.
static std::optional<bool> TryExecutable(const char* path) {
  const MutexLock lock(recordLock);
  if (!executables) return std::nullopt;
  triedExecutables.emplace_back(path);
  return std::find(executables->begin(), executables->end(), path) != executables->end();
}

static bool IsHiddenFromStat(const char* path) {
  const MutexLock lock(recordLock);
  return std::find(hiddenFromStat.begin(), hiddenFromStat.end(), path) != hiddenFromStat.end();
}

static bool CopyHostName(char* buffer, std::size_t bytes) {
  const MutexLock lock(recordLock);
  if (!hostName) return false;
  std::memcpy(buffer, hostName->c_str(), std::min(bytes, hostName->size() + 1));
  return true;
}

static void RecordDbusTimeout(int timeoutMs) {
  const MutexLock lock(recordLock);
  dbusTimeoutsMs.push_back(timeoutMs);
}

}  // namespace Tarnvale::KioskService::StandIn

namespace StandIn = Tarnvale::KioskService::StandIn;

extern "C" {

pid_t fork() noexcept {
  if (StandIn::forksFail.load()) {
    errno = EAGAIN;
    return -1;
  }
  static const auto real = StandIn::RealFunction<pid_t()>("fork");
  return real();
}

// Runs between fork and exec, so it asks the kernel and no loader.
int setpgid(pid_t pid, pid_t group) noexcept {
  if (StandIn::groupsStay.load()) return 0;
  return static_cast<int>(::syscall(SYS_setpgid, pid, group));
}

int poll(pollfd* entries, nfds_t count, int timeoutMs) {
  const int error = StandIn::nextPollError.exchange(0);
  if (error != 0) {
    errno = error;
    return -1;
  }
  if (timeoutMs > StandIn::longestPollMs.load()) StandIn::longestPollMs.store(timeoutMs);
  static const auto real = StandIn::RealFunction<int(pollfd*, nfds_t, int)>("poll");
  return real(entries, count, timeoutMs);
}

int access(const char* path, int mode) noexcept {
  const std::optional<bool> answer = mode == X_OK ? StandIn::TryExecutable(path) : std::nullopt;
  if (!answer) return static_cast<int>(::syscall(SYS_faccessat, AT_FDCWD, path, mode));
  if (*answer) return 0;
  errno = ENOENT;
  return -1;
}

int stat(const char* path, struct stat* status) noexcept {
  if (StandIn::IsHiddenFromStat(path)) {
    errno = ENOENT;
    return -1;
  }
  static const auto real = StandIn::RealFunction<int(const char*, struct stat*)>("stat");
  return real(path, status);
}

int gethostname(char* buffer, size_t bytes) noexcept {
  if (StandIn::hostNameFails.load()) {
    errno = EPERM;
    return -1;
  }
  if (StandIn::CopyHostName(buffer, bytes)) return 0;
  static const auto real = StandIn::RealFunction<int(char*, size_t)>("gethostname");
  return real(buffer, bytes);
}

GVariant* g_dbus_connection_call_sync(GDBusConnection* connection, const gchar* name,
                                      const gchar* path, const gchar* interface,
                                      const gchar* method, GVariant* parameters,
                                      const GVariantType* replyType, GDBusCallFlags flags,
                                      gint timeoutMs, GCancellable* cancellable, GError** error) {
  StandIn::RecordDbusTimeout(timeoutMs);
  static const auto real =
      StandIn::RealFunction<decltype(g_dbus_connection_call_sync)>("g_dbus_connection_call_sync");
  return real(connection, name, path, interface, method, parameters, replyType, flags, timeoutMs,
              cancellable, error);
}

CURL* curl_easy_init() {
  if (StandIn::curlHandlesFail.load()) return nullptr;
  static const auto real = StandIn::RealFunction<CURL*()>("curl_easy_init");
  return real();
}

// In brackets, because the library's header has a macro of the same name. A number and a pointer
// are handed over alike.
CURLcode(curl_easy_setopt)(CURL* handle, CURLoption option, ...) {
  va_list arguments;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wvarargs"  // the library's own prototype has an enumeration here
  va_start(arguments, option);
#pragma GCC diagnostic pop
  void* const value = va_arg(arguments, void*);
  va_end(arguments);
  StandIn::RecordCurlOption(option, value);
  static const auto real =
      StandIn::RealFunction<CURLcode(CURL*, CURLoption, ...)>("curl_easy_setopt");
  return real(handle, option, value);
}

}  // extern "C"

// Stands between the logic and some calls of the system that hardly ever fail, so that a test can
// see them being made and let them fail.

#ifndef TARNVALE_KIOSKD_TESTS_CORE_FAILING_CALLS_H_
#define TARNVALE_KIOSKD_TESTS_CORE_FAILING_CALLS_H_

#include <functional>
#include <optional>
#include <string>

namespace Tarnvale::KioskService {

// Known calls: "fchmod", "fchown", "fsync", "rename".
class FailingCalls {
 public:
  FailingCalls() = default;
  ~FailingCalls();
  FailingCalls(const FailingCalls&) = delete;
  FailingCalls& operator=(const FailingCalls&) = delete;

  // From now on, and for as long as this lives, the call fails with this errno.
  static void Fail(const std::string& call, int error);
  // From now on this runs at the head of every known call, with the call's name.
  static void Watch(std::function<void(const std::string& call)> action);
  // From now on this runs at the head of every open(), with the path and the flags.
  static void WatchOpens(std::function<void(const std::string& path, int flags)> action);
};

// Answers an open() in the system's place, for the whole of the process: the result of the call,
// with errno set, or nothing for what the system shall open itself.
using OpenAnswerer = std::optional<int> (*)(const char* path, int flags);
void AnswerOpens(OpenAnswerer answerer);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_CORE_FAILING_CALLS_H_

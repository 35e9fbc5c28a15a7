// Something that the service does on a second thread while a test holds the first one still.

#ifndef TARNVALE_KIOSKD_TESTS_SUPPORT_OTHER_THREAD_H_
#define TARNVALE_KIOSKD_TESTS_SUPPORT_OTHER_THREAD_H_

#include <sys/types.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "core/mutex.h"
#include "support/threads.h"

namespace Tarnvale::KioskService {

// Starts at once, and is waited for at the end.
class OtherThread {
 public:
  explicit OtherThread(std::function<std::string()> action)
      : thread_([this, action = std::move(action)] {
          id_ = ThreadId();
          result_ = action();
          done_ = true;
        }) {}
  ~OtherThread() {
    if (thread_.joinable()) thread_.join();
  }
  OtherThread(const OtherThread&) = delete;
  OtherThread& operator=(const OtherThread&) = delete;

  [[nodiscard]] bool IsDone() const {
    return done_;
  }
  // It goes no further by itself: it is done, or waits for a lock.
  [[nodiscard]] bool IsAtRest() const {
    return done_ || (id_ != 0 && IsAsleep(id_));
  }
  // Waits until it is done.
  [[nodiscard]] std::string Result() {
    thread_.join();
    return result_;
  }

 private:
  std::atomic<pid_t> id_{0};
  std::atomic<bool> done_{false};
  std::string result_;
  std::thread thread_;  // Last: it uses the others from its start.
};

// Whether another thread can take each of these locks: nobody holds one for long.
[[nodiscard]] inline bool AreFree(const std::vector<Mutex*>& locks) {
  const OtherThread other([&locks] {
    for (Mutex* lock : locks) {
      lock->Lock();
      lock->Unlock();
    }
    return std::string();
  });
  return Eventually([&other] { return other.IsDone(); });
}

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_SUPPORT_OTHER_THREAD_H_

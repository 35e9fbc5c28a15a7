// A package manager whose runs end as the test says, and may be held inside.

#ifndef TARNVALE_KIOSKD_TESTS_DEVICE_UPDATES_FIXTURE_H_
#define TARNVALE_KIOSKD_TESTS_DEVICE_UPDATES_FIXTURE_H_

#include <atomic>
#include <functional>
#include <future>
#include <string>
#include <vector>

#include "core/state.h"
#include "device/updates.h"
#include "support/service_test.h"
#include "support/threads.h"

namespace Tarnvale::KioskService {

inline constexpr char kBusyReply[] = R"({"ok":false,"error":"busy"})";

// The text as JSON; no object when it is none.
inline Json Document(const std::string& text) {
  return Json::Parse(text).value_or(Json("unreadable"));
}

inline std::vector<OsUpdate> Packages(int count) {
  std::vector<OsUpdate> packages;
  for (int number = 1; number <= count; ++number) {
    const std::string name = "package" + std::to_string(number);
    packages.push_back({.id = name, .title = name + " 1.0"});
  }
  return packages;
}

class UpdatesFixture : public ServiceTest {
 protected:
  ~UpdatesFixture() override {
    Release();
    JoinSettingsWorker();
  }

  // The package manager ends each run so.
  void RunsEndWith(const WuRun& run, const std::vector<OsUpdate>& found = {}) {
    ops.runUpdates = [this, run, found](bool install, std::vector<OsUpdate>* updates,
                                        std::atomic<int>* progress) {
      installs.push_back(install);
      progressAtStart = progress->load();
      progress->store(42);
      duringRun();
      *updates = found;
      return run;
    };
  }
  // Each run waits inside the package manager until it is released.
  void HoldRuns() {
    duringRun = [this] {
      runThread = ThreadId();
      released.wait();
    };
  }
  void Release() {
    if (!isReleased) release.set_value();
    isReleased = true;
  }
  [[nodiscard]] bool RunIsInside() const {
    return Eventually([this] { return runThread != 0; });
  }

  // What `os.updates` shows.
  static std::string StatusText() {
    return HandleOsUpdates(Json::Object());
  }
  static Json Status() {
    return Document(StatusText());
  }
  static Json Report() {
    return Document(StateGetString(StateKey::kOsUpdatesReport));
  }
  // A run on this thread, which has ended.
  static WuRun RunNow(bool install) {
    EXPECT_TRUE(TryBeginUpdates());
    const WuRun run = RunUpdates(install);
    EndUpdates();
    return run;
  }

  std::vector<bool> installs;  // What each run was asked for.
  int progressAtStart = -1;    // Of the last run.
  std::function<void()> duringRun = [] {};
  std::atomic<pid_t> runThread{0};

 private:
  std::promise<void> release;
  std::shared_future<void> released = release.get_future().share();
  bool isReleased = false;
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_DEVICE_UPDATES_FIXTURE_H_

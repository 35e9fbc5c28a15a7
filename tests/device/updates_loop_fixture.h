// A terminal whose passes of the updates loop are made one by one, minute by minute.

#ifndef TARNVALE_KIOSKD_TESTS_DEVICE_UPDATES_LOOP_FIXTURE_H_
#define TARNVALE_KIOSKD_TESTS_DEVICE_UPDATES_LOOP_FIXTURE_H_

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "core/clock.h"
#include "core/state.h"
#include "core/units.h"
#include "device/updates_loop.h"
#include "device/updates_policy_json.h"
#include "kiosk/presence.h"
#include "support/service_test.h"
#include "support/test_clock.h"
#include "support/time_zone.h"

namespace Tarnvale::KioskService {

// The days of the tests are those of October 2026: the fifth is a Monday.
class UpdatesLoopFixture : public ServiceTest {
 protected:
  void SetUp() override {
    UseTimeZone(kUtc);
    Enrol();
    Provision();
    SessionsAre({KioskSession()});
    ops.takeUpdatesSchedule = [](const UpdatesPolicy&) {};
    ops.restoreUpdatesSchedule = [] {};
    ops.runUpdates = [this](bool install, std::vector<OsUpdate>*, std::atomic<int>*) {
      EXPECT_TRUE(install);
      Note("run");
      duringRun();
      return run;
    };
    ops.scheduleUpdateRestart = [this] {
      Note("restart");
      return restartSucceeds;
    };
    PolicyIs({.automatic = true});  // 02:00 to 05:00 on all days
    ClockIs(5, 1, 0);
  }

  static void PolicyIs(const UpdatesPolicy& policy) {
    StateSetString(StateKey::kUpdatesPolicy, UpdatesPolicyToJson(policy).Dump());
  }
  static void ClockIs(int day, int hour, int minute) {
    TestClock::SetWallMs(LocalTime(2026, 10, day, hour, minute) * kSecondMs);
  }
  // The person at the terminal, who is reported once a minute from now on.
  void PersonIs(bool signedIn, bool live) {
    Json request = Json::Object();
    request.Set("signedIn", signedIn);
    request.Set("live", live);
    reportPresence = [request] {
      EXPECT_EQ(HandleSessionReport(request, kTestKioskSession), R"({"ok":true})");
    };
    reportPresence();
  }
  void ReportsStop() {
    reportPresence = [] {};
  }

  // One look now, without a move of the clock.
  void Pass() {
    AutomaticUpdatesPass(memory);
  }
  // A look at the end of each of the next minutes.
  void PassMinutes(int count) {
    for (int minute = 0; minute < count; ++minute) {
      TestClock::AdvanceMs(kMinuteMs);
      reportPresence();
      Pass();
    }
  }
  // A look in each minute, the last of them at this time.
  void PassUntil(int day, int hour, int minute) {
    const std::int64_t untilMs = LocalTime(2026, 10, day, hour, minute) * kSecondMs;
    PassMinutes(static_cast<int>((untilMs - WallNowMs()) / kMinuteMs));
  }
  // A restart of the service: what the loop remembers is gone.
  void ServiceRestarts() {
    memory = {};
  }

  static std::string WindowDone() {
    return StateGetString(StateKey::kOsUpdatesWindowDone);
  }
  // A member of the report, as JSON text.
  static std::string Reported(const char* member) {
    return Json::Parse(StateGetString(StateKey::kOsUpdatesReport))
        .value_or(Json())
        .Get(member)
        .Dump();
  }

  UpdatesLoopMemory memory;
  WuRun run = {.result = 0, .error = {}};  // How the package manager's runs end.
  bool restartSucceeds = true;
  std::function<void()> duringRun = [] {};
  // Runs and restarts with their days and times.
  std::vector<std::string> events;

 private:
  void Note(const char* what) {
    const std::time_t now = WallNowMs() / kSecondMs;
    std::tm local = {};
    char text[16] = {};
    (void)::localtime_r(&now, &local);
    (void)std::strftime(text, sizeof text, "%d %H:%M ", &local);
    events.push_back(text + std::string(what));
  }

  std::function<void()> reportPresence = [] {};
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_DEVICE_UPDATES_LOOP_FIXTURE_H_

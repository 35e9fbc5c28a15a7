// The slots of OS updates: runUpdates, rebootRequired, scheduleUpdateRestart, takeUpdatesSchedule,
// restoreUpdatesSchedule.
//
// A run takes as long as the terminal's package manager says. A real one outlasts the stop of the
// service; here a stop leaves it its outcome and no more time.

#include "core/clock.h"
#include "core/log.h"
#include "core/stop.h"
#include "core/units.h"
#include "simulator/slots.h"
#include "simulator/terminal_store.h"

namespace Tarnvale::KioskService::Simulator {
namespace {

constexpr int kPercentDone = 100;

void Pause(std::int64_t milliseconds) {
  (void)SleepUnlessStopped(milliseconds);  // a stop shortens it, and the run goes on
}

void ShowProgress(int seconds, std::atomic<int>& progress) {
  for (int percent = 1; percent <= kPercentDone; ++percent) {
    Pause(seconds * kSecondMs / kPercentDone);
    progress = percent;
  }
}

WuRun Search(std::vector<OsUpdate>& updates) {
  const int seconds = GetTerminal().packages.checkSeconds;
  Log("<6>simulator: the package manager searches for %d s\n", seconds);
  Pause(seconds * kSecondMs);
  return SearchUpdates(GetTerminal().packages, updates);
}

WuRun Install(std::vector<OsUpdate>& updates, std::atomic<int>& progress) {
  const int seconds = GetTerminal().packages.installSeconds;
  Log("<6>simulator: the package manager installs for %d s\n", seconds);
  progress = 0;
  ShowProgress(seconds, progress);
  WuRun run;
  ChangeTerminal([&](Terminal& terminal) { run = InstallUpdates(terminal.packages, updates); });
  return run;
}

WuRun Run(bool install, std::vector<OsUpdate>* updates, std::atomic<int>* progress) {
  const WuRun search = Search(*updates);
  const WuRun run = install && search.result == kWuDone ? Install(*updates, *progress) : search;
  if (run.result == kWuFailed) {
    Log("<4>simulator: the package manager fails: %s\n", run.error.c_str());
  } else {
    Log("<6>simulator: the package manager has %d to install%s\n", run.pending,
        run.restartRequired ? " and wants a restart" : "");
  }
  return run;
}

bool ScheduleRestart() {
  int seconds = 0;
  ChangeTerminal([&](Terminal& terminal) {
    seconds = terminal.packages.restartSeconds;
    terminal.restartAtMs = WallNowMs() + seconds * kSecondMs;
  });
  Log("<6>simulator: shutdown: the terminal restarts in %d s\n", seconds);
  return true;
}

// The service asks for the same once a minute; only a change is worth a line.
void SetScheduleTaken(bool taken) {
  bool changed = false;
  ChangeTerminal([&](Terminal& terminal) {
    changed = terminal.packages.scheduleTaken != taken;
    terminal.packages.scheduleTaken = taken;
  });
  if (!changed) return;
  Log("<6>simulator: the package manager's own schedule is %s\n", taken ? "off" : "on again");
}

}  // namespace

void FillUpdatesSlots(Ops& ops) {
  ops.runUpdates = Run;
  ops.rebootRequired = [] { return GetTerminal().packages.restartRequired; };
  ops.scheduleUpdateRestart = ScheduleRestart;
  ops.takeUpdatesSchedule = [](const UpdatesPolicy& /*policy*/) { SetScheduleTaken(true); };
  ops.restoreUpdatesSchedule = [] { SetScheduleTaken(false); };
}

}  // namespace Tarnvale::KioskService::Simulator

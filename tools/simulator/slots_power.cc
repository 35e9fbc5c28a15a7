// The slots of power: reboot, suspendUntil, applyPower, removePower.

#include <unistd.h>

#include "core/clock.h"
#include "core/log.h"
#include "core/stop.h"
#include "device/power_files.h"
#include "simulator/slots.h"
#include "simulator/terminal_store.h"

namespace Tarnvale::KioskService::Simulator {
namespace {

constexpr char kPowerEnv[] = "power.env";
constexpr char kWakeUnavailable[] = "wake_unavailable";

// Marks the terminal and stops the service; the main thread starts the program anew from there
// (restart.h).
bool Reboot() {
  Log("<6>simulator: a restart of the terminal was asked for\n");
  ChangeTerminal([](Terminal& terminal) { terminal.restarting = true; });
  RequestStop();
  return true;
}

// The night takes no time here.
bool Suspend(long wakeAt) {
  if (wakeAt > 0) {
    Log("<6>simulator: the terminal sleeps and wakes at %ld\n", wakeAt);
  } else {
    Log("<6>simulator: the terminal sleeps, and somebody wakes it\n");
  }
  return true;
}

void TellPolicy(const PowerPolicy& policy) {
  Log("<6>simulator: power: screen off after %d min, sleep after %d min (0 = never)\n",
      policy.screenOffMinutes, policy.sleepMinutes);
  if (policy.schedule.enabled) {
    Log("<6>simulator: power: a timer for %s\n", CalendarText(policy.schedule).c_str());
  } else {
    Log("<6>simulator: power: no timer\n");
  }
}

std::string Apply(const PowerPolicy& policy, const std::string& etcDir) {
  WriteEtcFile(etcDir, kPowerEnv, PowerEnvText(policy));
  const Terminal terminal = GetTerminal();
  if (terminal.power != policy) {
    ChangeTerminal([&](Terminal& changed) { changed.power = policy; });
    TellPolicy(policy);
  }
  if (!policy.schedule.enabled || terminal.hasWakeAlarm) return {};
  Log("<4>simulator: power: the terminal has no wake alarm\n");
  return kWakeUnavailable;
}

void Remove(const std::string& etcDir) {
  (void)::unlink((etcDir + "/" + kPowerEnv).c_str());  // gone is what is wanted
  ChangeTerminal([](Terminal& terminal) { terminal.power.reset(); });
  Log("<6>simulator: power: as it was before the kiosk\n");
}

}  // namespace

void RestartWhenDue() {
  const Terminal terminal = GetTerminal();
  // One that has begun already is on its way.
  if (!terminal.restarting && IsRestartDue(terminal, WallNowMs())) (void)Reboot();  // always true
}

void FillPowerSlots(Ops& ops, const Options& options) {
  const std::string& etcDir = options.config.etcDir;
  ops.reboot = Reboot;
  ops.suspendUntil = Suspend;
  ops.applyPower = [etcDir](const PowerPolicy& policy) { return Apply(policy, etcDir); };
  ops.removePower = [etcDir] { Remove(etcDir); };
}

}  // namespace Tarnvale::KioskService::Simulator

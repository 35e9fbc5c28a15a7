#include "simulator/restart.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "core/log.h"

namespace Tarnvale::KioskService::Simulator {
namespace {

constexpr int kExitStopped = 0;
constexpr int kExitCannotRestart = 1;

// Atomic: set in signal context, on any thread.
std::atomic<bool> stopSignalArrived{false};

// Fixed before any signal can reach the handler that reads it.
void (*serviceHandler)(int signal) = nullptr;

void HandleStopSignal(int signal) {
  stopSignalArrived = true;
  serviceHandler(signal);
}

sigset_t StopSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  return signals;
}

void SetStopSignalsBlocked(bool blocked) {
  const sigset_t signals = StopSignals();
  (void)::pthread_sigmask(blocked ? SIG_BLOCK : SIG_UNBLOCK, &signals, nullptr);  // cannot fail
}

}  // namespace

void AllowStopSignals() {
  SetStopSignalsBlocked(false);
}

void WatchStopSignals() {
  struct sigaction action = {};
  // These fail only for signals that cannot be handled.
  (void)::sigaction(SIGTERM, nullptr, &action);
  serviceHandler = action.sa_handler;
  action.sa_handler = HandleStopSignal;
  (void)::sigaction(SIGTERM, &action, nullptr);
  (void)::sigaction(SIGINT, &action, nullptr);
}

int RestartProgram(char** argv) {
  // A signal that comes between the look at the flag and the new program's first step waits: the
  // kernel hands the mask and what is pending on, and AllowStopSignals then lets it end the
  // program.
  SetStopSignalsBlocked(true);
  if (stopSignalArrived) return kExitStopped;
  Log("<6>simulator: the terminal restarts\n");
  (void)::execv("/proc/self/exe", argv);  // returns only on failure
  Log("<3>simulator: cannot start anew (%s)\n", std::strerror(errno));
  return kExitCannotRestart;
}

}  // namespace Tarnvale::KioskService::Simulator

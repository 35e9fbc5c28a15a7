#include "core/run_service.h"

#include <signal.h>

#include <cerrno>

#include "control/server.h"
#include "core/build_stamp.h"
#include "core/log.h"
#include "core/start.h"
#include "core/stop.h"
#include "device/updates.h"
#include "portal/restart.h"

namespace Tarnvale::KioskService {
namespace {

constexpr int kExitStopped = 0;
constexpr int kExitCannotStart = 1;

void HandleStopSignal(int /*signal*/) {
  const int savedErrno = errno;
  RequestStop();
  errno = savedErrno;
}

// Without SA_RESTART, so that a blocked poll is interrupted.
void InstallStopHandler() {
  struct sigaction action = {};
  action.sa_handler = HandleStopSignal;
  sigemptyset(&action.sa_mask);
  // These fail only for signals that cannot be handled.
  (void)::sigaction(SIGTERM, &action, nullptr);
  (void)::sigaction(SIGINT, &action, nullptr);
  (void)::signal(SIGPIPE, SIG_IGN);
}

using MakeOps = Ops(const Config& config);

// A connection may have scheduled a restart or started an update run since the accept loop ended
// the last one.
void FinishRestartAndWorkers() {
  StopScheduledRestart();
  JoinSettingsWorker();
}

bool Start(const Config& config, MakeOps* makeOps) {
  if (!Run(config, makeOps(config))) {
    Log("<3>cannot prepare %s\n", config.stateDir.c_str());
    return false;
  }
  return OpenControlSocket();
}

}  // namespace

int RunService(const Config& config, Ops (*makeOps)(const Config& config)) {
  Log("<6>tarnvale-kioskd %s starting\n", kBuildStamp);
  InstallStopHandler();
  if (!Start(config, makeOps)) return kExitCannotStart;
  AcceptLoop();
  FinishRestartAndWorkers();
  Log("<6>tarnvale-kioskd stopped\n");
  return kExitStopped;
}

}  // namespace Tarnvale::KioskService

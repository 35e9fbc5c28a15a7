// tarnvale-kiosk-simulator: the service's own logic on a simulated terminal.
//
// For people who write the kiosk user interface or the portal, for the demo and for tests. The
// control socket, HTTP, the state file and all logic are the real thing; the terminal around them
// is a small model in files below one directory. No root is needed and nothing is ever restarted
// but this process.

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <span>
#include <string>

#include "control/server.h"
#include "core/descriptor.h"
#include "core/run_service.h"
#include "device/scheduled_sleep.h"
#include "simulator/console.h"
#include "simulator/directory.h"
#include "simulator/options.h"
#include "simulator/restart.h"
#include "simulator/slots.h"
#include "simulator/terminal_store.h"

namespace Tarnvale::KioskService::Simulator {
namespace {

constexpr int kExitOk = 0;
constexpr int kExitCannotStart = 1;
constexpr int kExitUsage = 2;

// Fixed before the service starts.
Options options;

Ops MakeOps(const Config& /*config*/) {
  WatchStopSignals();
  return SimulatorOps(options);
}

// For a process that serves nobody and so leaves the signals alone.
Ops MakeSleepOps(const Config& /*config*/) {
  return SimulatorOps(options);
}

bool ParseArguments(int argc, char** argv) {
  const std::span<const char* const> arguments(argv + 1, static_cast<std::size_t>(argc - 1));
  std::string problem;
  if (ParseOptions(arguments, std::filesystem::current_path().string(), options, problem)) {
    return true;
  }
  (void)std::fprintf(stderr, "tarnvale-kiosk-simulator: %s (see --help)\n", problem.c_str());
  return false;
}

int RunTerminal(char** argv) {
  const Descriptor directory = PrepareDirectory(options);
  if (!directory.IsOpen()) return kExitCannotStart;
  if (!OpenTerminal(options.dir)) return kExitCannotStart;
  if (BootWhenDue(options.boot)) EmptyRunDirectory(options.config);
  const int status = RunService(options.config, MakeOps);
  return GetTerminal().restarting ? RestartProgram(argv) : status;
}

int SleepNow() {
  if (OpenExistingTerminal(options.dir)) return ScheduledSleep(options.config, MakeSleepOps);
  (void)std::fprintf(stderr, "tarnvale-kiosk-simulator: there is no terminal in %s\n",
                     options.dir.c_str());
  return kExitCannotStart;
}

int ShowHelp() {
  (void)std::fputs(kHelpText, stdout);  // nobody reads it when that fails
  return kExitOk;
}

int Main(int argc, char** argv) {
  AllowStopSignals();
  if (!ParseArguments(argc, argv)) return kExitUsage;
  if (options.help) return ShowHelp();
  if (options.console) return RunConsole(options.dir, *options.console);
  return options.sleepNow ? SleepNow() : RunTerminal(argv);
}

}  // namespace
}  // namespace Tarnvale::KioskService::Simulator

int main(int argc, char** argv) {
  const int status = Tarnvale::KioskService::Simulator::Main(argc, argv);
  // Connections that are still being served use what a normal exit would destroy under them.
  if (Tarnvale::KioskService::AreConnectionsRunning()) ::_exit(status);
  return status;
}

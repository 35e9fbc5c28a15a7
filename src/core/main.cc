// tarnvale-kioskd: the privileged service of a kiosk terminal.

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <span>
#include <string>

#include "control/server.h"
#include "core/command_line.h"
#include "core/config.h"
#include "core/ops_linux.h"
#include "core/run_service.h"
#include "device/scheduled_sleep.h"

namespace {

constexpr int kExitUsage = 2;

// Whoever started the process may have left some of the three closed. A file that took such a
// number would receive the log, or be handed to a child.
void OpenStandardStreams() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (::fcntl(fd, F_GETFD) >= 0) continue;
    (void)::open("/dev/null",
                 O_RDWR);  // NOLINT: takes this very number, and children shall have it
  }
}

}  // namespace

int main(int argc, char** argv) {
  using namespace Tarnvale::KioskService;

  OpenStandardStreams();
  Config config;
  bool sleepNow = false;
  std::string unknown;
  const std::span<const char* const> arguments(argv + 1, static_cast<std::size_t>(argc - 1));
  if (!ParseCommandLine(arguments, config, sleepNow, unknown)) {
    // For whoever typed the command, so without the priority that the journal reads.
    (void)std::fprintf(stderr, "tarnvale-kioskd: unknown argument %s\n", unknown.c_str());
    return kExitUsage;
  }
  if (sleepNow) return ScheduledSleep(config, LinuxOps);
  const int status = RunService(config, LinuxOps);
  // Connections that are still being served use what a normal exit would destroy under them.
  if (AreConnectionsRunning()) ::_exit(status);
  return status;
}

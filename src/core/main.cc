// tarnvale-kioskd: the privileged service of a kiosk terminal.

#include <unistd.h>

#include <cstdio>
#include <span>
#include <string>

#include "control/server.h"
#include "core/command_line.h"
#include "core/config.h"
#include "core/ops_linux.h"
#include "core/run_service.h"

namespace {

constexpr int kExitUsage = 2;

}  // namespace

int main(int argc, char** argv) {
  using namespace Tarnvale::KioskService;

  Config config;
  std::string unknown;
  const std::span<const char* const> arguments(argv + 1, static_cast<std::size_t>(argc - 1));
  if (!ParseCommandLine(arguments, config, unknown)) {
    // For whoever typed the command, so without the priority that the journal reads.
    (void)std::fprintf(stderr, "tarnvale-kioskd: unknown argument %s\n", unknown.c_str());
    return kExitUsage;
  }
  const int status = RunService(config, LinuxOps);
  // Connections that are still being served use what a normal exit would destroy under them.
  if (AreConnectionsRunning()) ::_exit(status);
  return status;
}

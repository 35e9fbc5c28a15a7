#include "simulator/terminal_updates.h"

#include <algorithm>

namespace Tarnvale::KioskService::Simulator {
namespace {

constexpr char kInstallFailed[] = "install_failed";

bool FailsToInstall(const PackageManager& packages) {
  return packages.failure.starts_with(kInstallFailed);
}

WuRun Failed(const PackageManager& packages) {
  WuRun run;
  run.error = packages.failure;
  return run;
}

bool WantsRestart(const std::vector<OsUpdate>& updates) {
  return std::any_of(updates.begin(), updates.end(),
                     [](const OsUpdate& update) { return update.restartRequired; });
}

}  // namespace

std::vector<OsUpdate> FirstPackages() {
  return {{.id = "tzdata", .title = "tzdata 2026b-0+deb12u1", .sizeBytes = 302'000},
          {.id = "linux-image-amd64",
           .title = "linux-image-amd64 6.1.170-1",
           .sizeBytes = 71'400'000,
           .restartRequired = true}};
}

WuRun SearchUpdates(const PackageManager& packages, std::vector<OsUpdate>& updates) {
  if (!packages.failure.empty() && !FailsToInstall(packages)) return Failed(packages);
  updates = packages.pending;
  WuRun run;
  run.result = updates.empty() ? kWuNothingToDo : kWuDone;
  run.pending = static_cast<std::int32_t>(updates.size());
  run.restartRequired = packages.restartRequired;
  return run;
}

WuRun InstallUpdates(PackageManager& packages, std::vector<OsUpdate>& updates) {
  WuRun run = FailsToInstall(packages) ? Failed(packages) : WuRun{.result = kWuDone, .error = {}};
  if (run.result == kWuDone) {
    packages.restartRequired = packages.restartRequired || WantsRestart(packages.pending);
    packages.pending.clear();
  }
  updates = packages.pending;
  run.pending = static_cast<std::int32_t>(updates.size());
  run.restartRequired = packages.restartRequired;
  return run;
}

}  // namespace Tarnvale::KioskService::Simulator

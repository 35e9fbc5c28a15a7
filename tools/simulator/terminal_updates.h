// The package manager of the simulated terminal.
//
// Plain data and rules, like terminal.h; silent. How long its work takes stands here, and the slot
// (slots_updates.cc) waits for it.

#ifndef TARNVALE_KIOSKD_TOOLS_SIMULATOR_TERMINAL_UPDATES_H_
#define TARNVALE_KIOSKD_TOOLS_SIMULATOR_TERMINAL_UPDATES_H_

#include <string>
#include <vector>

#include "device/os_update.h"

namespace Tarnvale::KioskService::Simulator {

// What a new terminal has to install: a package that wants a restart behind it and one that does
// not.
[[nodiscard]] std::vector<OsUpdate> FirstPackages();

struct PackageManager {
  std::vector<OsUpdate> pending = FirstPackages();
  bool restartRequired = false;  // The system's own marker, which a startup removes.
  bool scheduleTaken = false;    // Its own schedule is turned off.
  // How each run ends: empty for well, or a run's error. Those that begin with "install_failed"
  // come when all is downloaded, the others before anything is known.
  std::string failure = {};
  int checkSeconds = 2;     // A run's search.
  int installSeconds = 15;  // The rest of an install.
  int restartSeconds = 60;  // From the end of an automatic install to the restart.
};

// The first half of each run: what is pending. `updates` is left alone when that fails.
[[nodiscard]] WuRun SearchUpdates(const PackageManager& packages, std::vector<OsUpdate>& updates);

// The second half of an install: nothing is pending any more, unless it fails. `updates` and the
// result tell what stands afterwards.
[[nodiscard]] WuRun InstallUpdates(PackageManager& packages, std::vector<OsUpdate>& updates);

}  // namespace Tarnvale::KioskService::Simulator

#endif  // TARNVALE_KIOSKD_TOOLS_SIMULATOR_TERMINAL_UPDATES_H_

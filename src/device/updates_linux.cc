#include "device/updates_linux.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "core/files.h"
#include "core/log.h"
#include "core/text.h"
#include "core/units.h"
#include "device/apt_output.h"
#include "device/process_linux.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::int32_t kRefreshTimeoutMs = 15 * kMinuteMs;
constexpr std::int32_t kSimulationTimeoutMs = 2 * kMinuteMs;
constexpr std::int32_t kShowTimeoutMs = 1 * kMinuteMs;
constexpr std::int32_t kUpgradeTimeoutMs = 2 * kHourMs;
constexpr std::int32_t kShutdownTimeoutMs = 20 * kSecondMs;
constexpr int kAptStatusFd = 3;  // as in the upgrade's arguments

// Bounds the length of an argument vector, and the number of children.
constexpr std::size_t kPackagesPerShow = 100;
constexpr std::size_t kMaxRefreshTextBytes = 400;
constexpr std::size_t kMaxUpgradeTextBytes = 800;

constexpr char kSearchFailed[] = "search_failed";

constexpr char kAptConfigDir[] = "/etc/apt/apt.conf.d";
constexpr char kSchedulePath[] = "/etc/apt/apt.conf.d/52tarnvale-kiosk-updates";
constexpr char kScheduleText[] =
    "APT::Periodic::Unattended-Upgrade \"0\";\n"
    "Unattended-Upgrade::Automatic-Reboot \"false\";\n";

// Nobody is there to answer a question or to read a change log.
const std::vector<std::string> AptEnvironment = {"DEBIAN_FRONTEND=noninteractive",
                                                 "APT_LISTCHANGES_FRONTEND=none"};

ProcResult RunTool(const char* tool, const std::vector<std::string>& args, std::int32_t timeoutMs) {
  std::vector<std::string> argv = {FindTool(tool)};
  argv.insert(argv.end(), args.begin(), args.end());
  return RunProcess(argv, timeoutMs, AptEnvironment);
}

std::string CutOutput(const ProcResult& run, std::size_t maxBytes) {
  return Trim(run.output).substr(0, maxBytes);
}

// A failed batch tells what it can, and leaves the other sizes unknown.
void FetchSizes(const std::vector<std::string>& specs, std::vector<OsUpdate>& updates) {
  for (std::size_t begin = 0; begin < specs.size(); begin += kPackagesPerShow) {
    const std::size_t end = std::min(begin + kPackagesPerShow, specs.size());
    std::vector<std::string> args = {"show", "--no-all-versions"};
    args.insert(args.end(), specs.begin() + static_cast<std::ptrdiff_t>(begin),
                specs.begin() + static_cast<std::ptrdiff_t>(end));
    ReadSizes(RunTool("apt-cache", args, kShowTimeoutMs).output, updates);
  }
}

// What an upgrade would do. Empty when the simulation fails, and then `error`, when given, is set.
// The simulation takes no lock of the package manager.
std::vector<OsUpdate> ListUpdates(std::string* error) {
  const ProcResult simulation =
      RunTool("apt-get", {"-s", "-q", "-o", "Debug::NoLocking=1", "upgrade", "--with-new-pkgs"},
              kSimulationTimeoutMs);
  if (simulation.status != 0) {
    if (error != nullptr) *error = kSearchFailed;
    return {};
  }
  std::vector<std::string> specs;
  std::vector<OsUpdate> updates = ParseSimulation(simulation.output, specs);
  FetchSizes(specs, updates);
  return updates;
}

bool RefreshLists(const std::string& aptGet) {
  const ProcResult run = RunProcess({aptGet, "update", "-q"}, kRefreshTimeoutMs, AptEnvironment);
  if (run.status == 0) return true;
  Log("<3>os updates: apt-get update failed: %s\n", CutOutput(run, kMaxRefreshTextBytes).c_str());
  return false;
}

// Configuration files that somebody changed on the terminal stay as they are.
ProcResult RunUpgrade(const std::string& aptGet, std::atomic<int>& progress) {
  progress.store(0);
  return RunProcess(
      {aptGet, "-y", "-q", "-o", "Dpkg::Options::=--force-confdef", "-o",
       "Dpkg::Options::=--force-confold", "-o", "APT::Status-Fd=3", "upgrade", "--with-new-pkgs"},
      kUpgradeTimeoutMs, AptEnvironment, kAptStatusFd,
      [&progress](const std::string& line) { AptProgressLine(line, progress); });
}

void TellPending(const std::vector<OsUpdate>& updates, WuRun& run) {
  run.pending = static_cast<std::int32_t>(updates.size());
  run.restartRequired = RebootRequired();
}

void Install(const std::string& aptGet, std::vector<OsUpdate>& updates, std::atomic<int>& progress,
             WuRun& run) {
  const ProcResult upgrade = RunUpgrade(aptGet, progress);
  updates = ListUpdates(nullptr);
  TellPending(updates, run);
  if (upgrade.status == 0) {
    run.result = kWuDone;
    return;
  }
  run.error = "install_failed " + std::to_string(upgrade.status);
  Log("<3>os updates: apt-get upgrade failed: %s\n",
      CutOutput(upgrade, kMaxUpgradeTextBytes).c_str());
}

}  // namespace

WuRun RunApt(bool install, std::vector<OsUpdate>* updates, std::atomic<int>* progress) {
  WuRun run;
  const std::string aptGet = FindTool("apt-get");
  if (aptGet.empty()) {
    run.error = "apt_missing";
    return run;
  }
  if (!RefreshLists(aptGet)) {
    run.error = kSearchFailed;
    return run;
  }
  const std::vector<OsUpdate> found = ListUpdates(&run.error);
  if (!run.error.empty()) return run;
  *updates = found;
  if (install && !found.empty()) {
    Install(aptGet, *updates, *progress, run);
    return run;
  }
  run.result = found.empty() ? kWuNothingToDo : kWuDone;
  TellPending(found, run);
  return run;
}

bool RebootRequired() {
  return PathExists("/run/reboot-required") || PathExists("/var/run/reboot-required");
}

bool ScheduleUpdateRestart() {
  // The message is one argument.
  const std::vector<std::string> argv = {FindTool("shutdown"), "-r", "+1",
                                         "Restarting to finish installing updates."};
  return RunProcess(argv, kShutdownTimeoutMs).status == 0;
}

void TakeUpdatesSchedule(const UpdatesPolicy& policy) {
  (void)policy;                        // any policy that updates by itself takes the schedule
  (void)::mkdir(kAptConfigDir, 0755);  // there already, as a rule; the write tells when it is not
  (void)WriteIfChanged(kSchedulePath, kScheduleText);  // apt reads it when it runs
}

void RestoreUpdatesSchedule() {
  (void)::unlink(kSchedulePath);  // not there unless it was taken
}

}  // namespace Tarnvale::KioskService

#include "simulator/options.h"

#include <sys/un.h>

#include <filesystem>
#include <string_view>
#include <vector>

#include "core/command_line.h"
#include "core/text.h"
#include "kiosk/session_info.h"

namespace Tarnvale::KioskService::Simulator {
namespace {

constexpr std::uint32_t kMaxScreens = 16;
constexpr std::size_t kMaxHostNameBytes = 255;
constexpr std::size_t kMaxSocketPathBytes = sizeof(sockaddr_un::sun_path) - 1;
// Where the portal stand-in listens unless told otherwise.
constexpr char kPortalStandIn[] = "http://127.0.0.1:8480";

bool TakeScreens(std::string_view value, Options& options, std::string& problem) {
  std::uint32_t screens = 0;
  if (!ParseNumber(value, 1, kMaxScreens, screens)) {
    problem = "--screens takes a number from 1 to 16";
    return false;
  }
  options.screens = static_cast<int>(screens);
  return true;
}

bool TakeKioskUid(std::string_view value, Options& options, std::string& problem) {
  std::uint32_t uid = 0;
  // Root is admitted everywhere and enrols nowhere; an account of root's uid would show neither.
  if (!ParseNumber(value, 1, kUnknownUid - 1, uid)) {
    problem = "--kiosk-uid takes the number of a user other than root";
    return false;
  }
  options.kioskUid = uid;
  return true;
}

bool TakeHostName(std::string_view value, Options& options, std::string& problem) {
  if (value.size() > kMaxHostNameBytes) {
    problem = "--host-name takes at most 255 bytes";
    return false;
  }
  options.hostName = value;
  return true;
}

bool TakeConsole(std::string_view value, Options& options, std::string& problem) {
  if (value == "sign-in") options.console = ConsoleAction::kSignIn;
  if (value == "sign-out") options.console = ConsoleAction::kSignOut;
  if (value == "restart") options.console = ConsoleAction::kRestart;
  const bool known = value == "sign-in" || value == "sign-out" || value == "restart";
  if (!known) problem = "--console takes sign-in, sign-out or restart";
  return known;
}

bool IsOwnValueOption(std::string_view argument) {
  return argument == "--dir" || argument == "--screens" || argument == "--host-name" ||
         argument == "--kiosk-uid" || argument == "--console";
}

bool TakeOwnValue(std::string_view name, std::string_view value, Options& options,
                  std::string& problem) {
  if (name == "--screens") return TakeScreens(value, options, problem);
  if (name == "--kiosk-uid") return TakeKioskUid(value, options, problem);
  if (name == "--console") return TakeConsole(value, options, problem);
  if (name == "--host-name") return TakeHostName(value, options, problem);
  options.dir = value;
  return true;
}

bool TakeOwnFlag(std::string_view argument, Options& options) {
  if (argument == "--boot") options.boot = true;
  if (argument == "--help") options.help = true;
  return argument == "--boot" || argument == "--help";
}

// Those of the service's options that take no value.
bool IsServiceFlag(std::string_view argument) {
  return argument == "--no-local-session" || argument == "--sleep-now";
}

// Takes the simulator's own options and leaves the service's in `rest`. Most of those take a value,
// which goes along whatever it looks like.
bool SplitOwnOptions(std::span<const char* const> arguments, Options& options,
                     std::vector<const char*>& rest, std::string& problem) {
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string_view argument = arguments[i];
    const bool isLast = i + 1 == arguments.size();
    if (TakeOwnFlag(argument, options)) continue;
    if (IsOwnValueOption(argument)) {
      if (isLast) {
        problem = std::string(argument) + " takes a value";
        return false;
      }
      if (!TakeOwnValue(argument, arguments[++i], options, problem)) return false;
      continue;
    }
    rest.push_back(arguments[i]);
    if (!IsServiceFlag(argument) && !isLast) rest.push_back(arguments[++i]);
  }
  return true;
}

std::string Absolute(const std::string& path, const std::string& workingDir) {
  const std::filesystem::path joined = std::filesystem::path(workingDir) / path;
  std::string text = joined.lexically_normal().string();
  while (text.size() > 1 && text.ends_with('/'))
    text.pop_back();
  return text;
}

Config PathsBelow(const std::string& dir) {
  Config config;
  config.stateDir = dir + "/state";
  config.runDir = dir + "/run";
  config.socket = dir + "/kiosk.sock";
  config.brandingDir = dir + "/branding";
  config.etcDir = dir + "/etc";
  config.client = dir + "/client";
  config.setupTool = dir + "/setup-tool";
  config.machineIdPath = dir + "/machine-id";
  config.authBase = kPortalStandIn;
  return config;
}

// The service makes missing parents from the root, also for a relative path.
void MakePathsAbsolute(const std::string& workingDir, Config& config) {
  for (std::string Config::*const field :
       {&Config::stateDir, &Config::runDir, &Config::socket, &Config::brandingDir, &Config::etcDir,
        &Config::client, &Config::setupTool}) {
    config.*field = Absolute(config.*field, workingDir);
  }
}

bool ParseServiceOptions(const std::vector<const char*>& rest, const std::string& workingDir,
                         Config& config, bool& sleepNow, std::string& problem) {
  std::string unknown;
  if (!ParseCommandLine(rest, config, sleepNow, unknown)) {
    problem = "unknown argument " + unknown;
    return false;
  }
  MakePathsAbsolute(workingDir, config);
  if (config.socket.size() <= kMaxSocketPathBytes) return true;
  problem = "the socket's path has more than 107 bytes, the most that a socket can have: " +
            config.socket;
  return false;
}

}  // namespace

bool ParseOptions(std::span<const char* const> arguments, const std::string& workingDir,
                  Options& options, std::string& problem) {
  std::vector<const char*> rest;
  if (!SplitOwnOptions(arguments, options, rest, problem)) return false;
  if (options.help) return true;
  if (options.dir.empty()) {
    problem = "--dir is missing";
    return false;
  }
  options.dir = Absolute(options.dir, workingDir);
  if (options.hostName.empty()) {
    options.hostName = std::filesystem::path(options.dir).filename().string();
  }
  options.config = PathsBelow(options.dir);
  return ParseServiceOptions(rest, workingDir, options.config, options.sleepNow, problem);
}

const char kHelpText[] =
    R"(usage: tarnvale-kiosk-simulator --dir DIR [OPTION...]

Runs the service's own logic on a simulated terminal. Needs no root, touches nothing outside DIR and
restarts nothing but itself. tools/simulator/README.md tells how to work with it.

  --dir DIR          where the terminal lives; made when missing
  --screens N        connected screens, 1 to 16 (1)
  --host-name NAME   the terminal's host name (the name of DIR)
  --kiosk-uid N      uid of the kiosk account (your own; 60000 for root)
  --boot             start as after a restart of the terminal
  --console ACTION   act at the console of the terminal in DIR, whose simulator may be running:
                     sign-in, sign-out or restart
  --help             this text

The service's own options are taken as well. Their defaults:

  --auth-base URL    http://127.0.0.1:8480, the portal stand-in
  --socket PATH      DIR/kiosk.sock, at most 107 bytes
  --state-dir PATH   DIR/state            --run-dir PATH    DIR/run
  --branding-dir PATH  DIR/branding       --etc-dir PATH    DIR/etc
  --client PATH      DIR/client           --setup-tool PATH DIR/setup-tool, not used
  --kiosk-user NAME  tarnvale-kiosk       --no-local-session
  --sleep-now        be the job behind the sleep timer of the terminal in DIR, whose simulator may
                     be running
)";

}  // namespace Tarnvale::KioskService::Simulator

#include "core/command_line.h"

#include <string_view>

namespace Tarnvale::KioskService {
namespace {

struct ValueOption {
  std::string_view name;
  std::string Config::*field;
};

constexpr ValueOption kValueOptions[] = {
    {"--state-dir", &Config::stateDir},   {"--run-dir", &Config::runDir},
    {"--socket", &Config::socket},        {"--branding-dir", &Config::brandingDir},
    {"--etc-dir", &Config::etcDir},       {"--auth-base", &Config::authBase},
    {"--kiosk-user", &Config::kioskUser}, {"--client", &Config::client},
    {"--setup-tool", &Config::setupTool},
};

std::string* FindField(std::string_view option, Config& config) {
  for (const ValueOption& known : kValueOptions) {
    if (known.name == option) return &(config.*known.field);
  }
  return nullptr;
}

}  // namespace

bool ParseCommandLine(std::span<const char* const> arguments, Config& config, bool& sleepNow,
                      std::string& unknown) {
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string_view argument = arguments[i];
    if (argument == "--no-local-session") {
      config.localSession = false;
      continue;
    }
    if (argument == "--sleep-now") {
      sleepNow = true;
      continue;
    }
    std::string* const field = FindField(argument, config);
    if (field == nullptr || i + 1 == arguments.size()) {
      unknown = argument;
      return false;
    }
    *field = arguments[++i];
  }
  return true;
}

}  // namespace Tarnvale::KioskService

#include "kioskctl/options.h"

#include <string_view>

#include "core/text.h"
#include "kiosk/session_info.h"

namespace Tarnvale::KioskService::Kioskctl {
namespace {

constexpr std::uint32_t kMaxTimeoutSeconds = 86400;

bool TakeUid(std::string_view value, Options& options, std::string& problem) {
  std::uint32_t uid = 0;
  if (!ParseNumber(value, 0, kUnknownUid - 1, uid)) {
    problem = "--uid takes the number of a user";
    return false;
  }
  options.uid = uid;
  return true;
}

bool TakeTimeout(std::string_view value, Options& options, std::string& problem) {
  if (ParseNumber(value, 1, kMaxTimeoutSeconds, options.timeoutSeconds)) return true;
  problem = "--timeout takes seconds, from 1 to 86400";
  return false;
}

bool TakeValueOption(std::string_view name, std::string_view value, Options& options,
                     std::string& problem) {
  if (name == "--uid") return TakeUid(value, options, problem);
  if (name == "--timeout") return TakeTimeout(value, options, problem);
  options.socket = value;
  return true;
}

bool IsValueOption(std::string_view argument) {
  return argument == "--socket" || argument == "--uid" || argument == "--timeout";
}

// An argument that stands alone. False for one that means nothing where it stands.
bool TakeWord(std::string_view word, bool haveAction, Options& options) {
  if (word == "--json") {
    options.json = true;
    return true;
  }
  if (haveAction) return false;
  if (word == "--help") {
    options.action = Action::kHelp;
  } else if (word == "--version") {
    options.action = Action::kVersion;
  } else if (word == "status") {
    options.action = Action::kStatus;
  } else {
    return false;
  }
  return true;
}

bool TakeSend(std::span<const char* const> rest, Options& options, std::string& problem) {
  if (rest.empty() || *rest.front() == '\0' || *rest.front() == '-') {
    problem = "send takes a command, and members behind it";
    return false;
  }
  options.action = Action::kSend;
  options.command = rest.front();
  options.members.assign(rest.begin() + 1, rest.end());
  return true;
}

}  // namespace

bool ParseOptions(std::span<const char* const> arguments, Options& options, std::string& problem) {
  bool haveAction = false;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string_view argument = arguments[i];
    if (argument == "send" && !haveAction) {
      return TakeSend(arguments.subspan(i + 1), options, problem);
    }
    if (IsValueOption(argument)) {
      if (i + 1 == arguments.size()) {
        problem = std::string(argument) + " takes a value";
        return false;
      }
      if (!TakeValueOption(argument, arguments[++i], options, problem)) return false;
      continue;
    }
    if (!TakeWord(argument, haveAction, options)) {
      problem = "what is " + std::string(argument) + "?";
      return false;
    }
    haveAction = haveAction || argument != "--json";
  }
  if (!haveAction) problem = "nothing to do";
  return haveAction;
}

const char kHelpText[] =
    R"(usage: tarnvale-kioskctl [OPTION...] status [--json]
       tarnvale-kioskctl [OPTION...] send COMMAND [MEMBER...]
       tarnvale-kioskctl --help | --version

Talks to tarnvale-kioskd over its control socket.

  status           what the terminal is, in words; with --json as the service answered
  send             sends any command and prints the answer, one line of JSON

Members of a command:
  NAME=TEXT        a text
  NAME:=JSON       anything else: true, 7, null, {"a":1}
  NAME=-           a text from the standard input, one line; from a terminal it is asked for and
                   not shown. For passwords: what stands on a command line can be read by all.

Options:
  --socket PATH    the control socket (/run/tarnvale/kiosk.sock)
  --uid N          become this user before connecting; for root, who may not try what only a
                   signed-in person or the kiosk account may
  --timeout N      give up after N seconds; without it, Ctrl-C does

Exit status: 0 done, 1 the service answered with an error, 2 wrong arguments, 3 no talking to the
service.
)";

}  // namespace Tarnvale::KioskService::Kioskctl

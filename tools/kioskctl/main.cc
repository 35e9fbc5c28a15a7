// tarnvale-kioskctl: the control socket of tarnvale-kioskd for a person's hands.
//
// It sends one command and shows the answer. It is written on the service's own JSON code and needs
// nothing that a terminal does not have. Who may do what is the service's decision, here as
// everywhere: this program only asks.

#include <cstdio>
#include <optional>
#include <span>
#include <string>

#include "core/build_stamp.h"
#include "json/json.h"
#include "kioskctl/identity.h"
#include "kioskctl/members.h"
#include "kioskctl/options.h"
#include "kioskctl/socket_client.h"
#include "kioskctl/status_text.h"
#include "kioskctl/typed_value.h"

namespace Tarnvale::KioskService::Kioskctl {
namespace {

constexpr int kExitOk = 0;
constexpr int kExitRefused = 1;
constexpr int kExitUsage = 2;
constexpr int kExitNoService = 3;

int Fail(int status, const std::string& problem) {
  (void)std::fprintf(stderr, "tarnvale-kioskctl: %s\n", problem.c_str());
  return status;
}

// Standard output may be full or gone; what was asked for is lost then.
int Print(const std::string& text, int status) {
  const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  if (written && std::fflush(stdout) == 0) return status;
  return Fail(kExitNoService, "cannot write the answer");
}

int ShowReply(const Options& options, const std::string& text) {
  const std::optional<Json> reply = Json::Parse(text);
  if (!reply || !reply->IsObject()) {
    return Fail(kExitNoService, "the service's answer is no JSON object");
  }
  const bool accepted = reply->Get("ok").AsBool(false);
  const bool readable = options.action == Action::kStatus && !options.json && accepted;
  const int status = accepted ? kExitOk : kExitRefused;
  return Print(readable ? StatusText(*reply) : text + "\n", status);
}

int TalkToService(const Options& options) {
  std::string request;
  std::string problem;
  const std::string command = options.action == Action::kStatus ? "status" : options.command;
  if (!MakeRequest(command, options.members, ReadValueFromInput, request, problem)) {
    return Fail(kExitUsage, problem);
  }
  if (options.uid && !BecomeUser(*options.uid, problem)) return Fail(kExitNoService, problem);
  if (options.timeoutSeconds > 0) EndProcessAfter(options.timeoutSeconds, kExitNoService);
  std::string reply;
  if (!Exchange(options.socket, request, reply, problem)) return Fail(kExitNoService, problem);
  return ShowReply(options, reply);
}

int Main(std::span<const char* const> arguments) {
  Options options;
  std::string problem;
  if (!ParseOptions(arguments, options, problem)) {
    return Fail(kExitUsage, problem + " (see --help)");
  }
  if (options.action == Action::kHelp) return Print(kHelpText, kExitOk);
  if (options.action == Action::kVersion) {
    return Print(std::string("tarnvale-kioskctl ") + kBuildStamp + "\n", kExitOk);
  }
  return TalkToService(options);
}

}  // namespace
}  // namespace Tarnvale::KioskService::Kioskctl

int main(int argc, char** argv) {
  const std::span<const char* const> arguments(argv + 1, static_cast<std::size_t>(argc - 1));
  return Tarnvale::KioskService::Kioskctl::Main(arguments);
}

#include "simulator/console.h"

#include <cstdio>

#include "core/clock.h"
#include "simulator/terminal_store.h"

namespace Tarnvale::KioskService::Simulator {
namespace {

constexpr int kExitDone = 0;
constexpr int kExitNotDone = 1;

std::string AskForRestart(Terminal& terminal) {
  terminal.restartAtMs = WallNowMs();
  return {};
}

std::string Act(ConsoleAction action, Terminal& terminal) {
  if (action == ConsoleAction::kSignIn) return SignIn(terminal);
  return action == ConsoleAction::kSignOut ? SignOut(terminal) : AskForRestart(terminal);
}

int Refuse(const std::string& problem) {
  (void)std::fprintf(stderr, "tarnvale-kiosk-simulator: %s\n", problem.c_str());
  return kExitNotDone;
}

}  // namespace

int RunConsole(const std::string& dir, ConsoleAction action) {
  if (!OpenExistingTerminal(dir)) return Refuse("there is no terminal in " + dir);
  std::string problem;
  ChangeTerminal([&](Terminal& terminal) { problem = Act(action, terminal); });
  if (!problem.empty()) return Refuse(problem);
  const std::string done =
      action == ConsoleAction::kRestart ? "the terminal restarts" : DescribeConsole(GetTerminal());
  (void)std::printf("%s\n", done.c_str());  // nobody reads it when that fails
  return kExitDone;
}

}  // namespace Tarnvale::KioskService::Simulator

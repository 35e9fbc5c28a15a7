#include "kioskctl/typed_value.h"

#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>

#include "core/units.h"

namespace Tarnvale::KioskService::Kioskctl {
namespace {

constexpr std::size_t kMaxValueBytes = 4 * kKiB;
constexpr int kEndingSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

// How the terminal was; read by the handler, which must not leave it mute behind.
termios savedTerminal = {};

void RestoreTerminal() {
  (void)::tcsetattr(STDIN_FILENO, TCSANOW, &savedTerminal);  // it may be gone by now
}

// Runs once: SA_RESETHAND has put the default back, so that the second raise ends the process.
void HandleEndingSignal(int signal) {
  RestoreTerminal();
  (void)::raise(signal);
}

// Byte by byte, so that what follows the line is left for the next value.
bool ReadLine(std::string& value) {
  std::string line;
  char byte = 0;
  while (::read(STDIN_FILENO, &byte, 1) == 1) {
    if (byte == '\n') {
      value = line;
      return true;
    }
    if (line.size() == kMaxValueBytes) return false;
    line += byte;
  }
  return false;
}

void HideTyping() {
  struct sigaction action = {};
  action.sa_handler = HandleEndingSignal;
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  for (const int number : kEndingSignals)
    (void)::sigaction(number, &action, nullptr);  // fails only for signals that cannot be handled
  termios silent = savedTerminal;
  silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  (void)::tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);  // the prompt still works, if seen
}

void ShowTyping() {
  RestoreTerminal();
  for (const int number : kEndingSignals)
    (void)::signal(number, SIG_DFL);
}

}  // namespace

bool ReadValueFromInput(const std::string& name, std::string& value) {
  if (::tcgetattr(STDIN_FILENO, &savedTerminal) != 0) return ReadLine(value);
  (void)std::fprintf(stderr, "%s: ", name.c_str());
  HideTyping();
  const bool read = ReadLine(value);
  ShowTyping();
  (void)std::fputc('\n', stderr);
  return read;
}

}  // namespace Tarnvale::KioskService::Kioskctl

#include "simulator/terminal_store.h"

#include <optional>

#include "core/clock.h"
#include "core/files.h"
#include "core/locks.h"
#include "core/log.h"
#include "core/units.h"

namespace Tarnvale::KioskService::Simulator {
namespace {

constexpr std::size_t kMaxFileBytes = 64 * kKiB;
constexpr mode_t kFileMode = 0644;

// Slots run under the service's locks and take none of them, so this one is innermost.
Mutex terminalLock ACQUIRED_AFTER(lifecycleLock);
Terminal terminal GUARDED_BY(terminalLock);
std::string path GUARDED_BY(terminalLock);

bool SaveLocked() REQUIRES(terminalLock) {
  return WriteFileAtomic(path, DumpTerminal(terminal), kFileMode);
}

std::optional<Terminal> ReadTerminalFile(const std::string& file) {
  std::string text;
  if (!ReadFileLimited(file, kMaxFileBytes, text)) return std::nullopt;
  std::optional<Terminal> read = ParseTerminal(text);
  if (!read) Log("<4>simulator: %s is not readable; starting a new terminal\n", file.c_str());
  return read;
}

const char* WhoIs(AtConsole atConsole) {
  return atConsole == AtConsole::kKiosk ? "the kiosk account" : "a person";
}

}  // namespace

bool OpenTerminal(const std::string& file, bool boot) {
  const MutexLock lock(terminalLock);
  path = file;
  const std::optional<Terminal> read = ReadTerminalFile(file);
  terminal = read.value_or(Terminal{.bootedAtMs = WallNowMs(), .account = {}});
  const bool boots = read && (read->restarting || boot);
  if (boots) Boot(terminal, WallNowMs());
  Log("<6>simulator: %s; %s is signed in at the console, session %d\n",
      boots ? "the terminal has started" : "the terminal is on", WhoIs(terminal.atConsole),
      terminal.sessionNumber);
  return SaveLocked();
}

Terminal GetTerminal() {
  const MutexLock lock(terminalLock);
  return terminal;
}

void ChangeTerminal(const std::function<void(Terminal& terminal)>& change) {
  const MutexLock lock(terminalLock);
  change(terminal);
  (void)SaveLocked();  // the writer has logged a failure
}

}  // namespace Tarnvale::KioskService::Simulator

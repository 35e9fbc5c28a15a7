#include "simulator/terminal_store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>

#include "core/clock.h"
#include "core/descriptor.h"
#include "core/files.h"
#include "core/locks.h"
#include "core/log.h"
#include "core/units.h"
#include "simulator/terminal_json.h"

namespace Tarnvale::KioskService::Simulator {
namespace {

constexpr std::size_t kMaxFileBytes = kMiB;
constexpr mode_t kFileMode = 0644;

// Slots run under the service's locks and take none of them, so this one is innermost.
Mutex terminalLock ACQUIRED_AFTER(lifecycleLock);
// As it was read or written last.
Terminal terminal GUARDED_BY(terminalLock);
std::string directory GUARDED_BY(terminalLock);

std::string PathLocked() REQUIRES(terminalLock) {
  return directory + "/terminal.json";
}

// Other processes wait while it is open. Changes go on without it: they are few, and whoever works
// at the desk is told.
Descriptor LockFileLocked() REQUIRES(terminalLock) {
  const std::string path = directory + "/terminal.lock";
  Descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kFileMode));
  if (file.IsOpen() && ::flock(file.Get(), LOCK_EX) == 0) return file;
  Log("<4>simulator: cannot lock %s (%s)\n", path.c_str(), std::strerror(errno));
  return {};
}

// False, with the terminal as it was, when there is no file or none of a terminal.
bool RefreshLocked() REQUIRES(terminalLock) {
  std::string text;
  if (!ReadFileLimited(PathLocked(), kMaxFileBytes, text)) return false;
  const std::optional<Terminal> read = ParseTerminal(text);
  if (read) terminal = *read;
  return read.has_value();
}

bool SaveLocked() REQUIRES(terminalLock) {
  return WriteFileAtomic(PathLocked(), DumpTerminal(terminal), kFileMode);
}

bool IsThereLocked() REQUIRES(terminalLock) {
  return ::access(PathLocked().c_str(), F_OK) == 0;
}

}  // namespace

bool OpenTerminal(const std::string& dir) {
  const MutexLock lock(terminalLock);
  directory = dir;
  const Descriptor file = LockFileLocked();
  if (RefreshLocked()) return SaveLocked();
  if (IsThereLocked()) {
    Log("<4>simulator: %s is not readable; starting a new terminal\n", PathLocked().c_str());
  }
  terminal = {.bootedAtMs = WallNowMs()};
  return SaveLocked();
}

bool OpenExistingTerminal(const std::string& dir) {
  const MutexLock lock(terminalLock);
  directory = dir;
  return RefreshLocked();
}

bool BootWhenDue(bool asked) {
  bool boots = false;
  ChangeTerminal([&](Terminal& changed) {
    boots = asked || IsRestartDue(changed, WallNowMs());
    if (boots) Boot(changed, WallNowMs());
  });
  Log("<6>simulator: the terminal %s\n", boots ? "has started" : "is on");
  return boots;
}

Terminal GetTerminal() {
  const MutexLock lock(terminalLock);
  (void)RefreshLocked();  // what was read last stands in
  return terminal;
}

void ChangeTerminal(const std::function<void(Terminal& terminal)>& change) {
  const MutexLock lock(terminalLock);
  const Descriptor file = LockFileLocked();
  (void)RefreshLocked();  // what was read last stands in
  const std::string before = DumpTerminal(terminal);
  change(terminal);
  if (DumpTerminal(terminal) == before) return;
  (void)SaveLocked();  // the writer has logged a failure
}

}  // namespace Tarnvale::KioskService::Simulator

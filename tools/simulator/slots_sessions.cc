// The slots of sessions and callers: listSessions, sessionOfPid, exePathOfPid.

#include <sys/stat.h>

#include <optional>

#include "simulator/slots.h"
#include "simulator/terminal_store.h"

namespace Tarnvale::KioskService::Simulator {
namespace {

// The peer's process is real, and so is its user; which session that makes is the terminal's to
// say.
std::optional<std::uint32_t> UidOfProcess(int pid) {
  struct stat status = {};
  const std::string directory = "/proc/" + std::to_string(pid);
  if (::stat(directory.c_str(), &status) != 0) return std::nullopt;
  return status.st_uid;
}

bool FindSession(int pid, SessionInfo* session) {
  const std::optional<std::uint32_t> uid = UidOfProcess(pid);
  if (!uid) return false;
  const std::optional<SessionInfo> found = SessionOfUid(GetTerminal(), *uid);
  if (found) *session = *found;
  return found.has_value();
}

}  // namespace

void FillSessionSlots(Ops& ops) {
  ops.listSessions = [] { return SessionsOf(GetTerminal()); };
  ops.sessionOfPid = FindSession;
  // Never the installed service, wherever this was built: so no image of a caller counts.
  ops.exePathOfPid = [](int /*pid*/) { return std::string(); };
}

}  // namespace Tarnvale::KioskService::Simulator

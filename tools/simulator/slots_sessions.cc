// The slots of sessions, callers and the console: listSessions, sessionOfPid, exePathOfPid,
// endKioskSessions, setMaintenanceMarker.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <optional>

#include "core/descriptor.h"
#include "core/log.h"
#include "simulator/slots.h"
#include "simulator/terminal_store.h"

namespace Tarnvale::KioskService::Simulator {
namespace {

constexpr mode_t kMarkerMode = 0644;

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

// The console's session that was told last, negative once it has ended: nothing in it changes but
// that. Atomic: any thread may look at the sessions.
std::atomic<int> toldSession{0};

// Whoever acts at the console can see in the log that the service has seen it.
void TellConsole(const Terminal& terminal) {
  const bool ended = terminal.atConsole == AtConsole::kNobody;
  const int session = ended ? -terminal.sessionNumber : terminal.sessionNumber;
  if (toldSession.exchange(session) == session) return;
  Log("<6>simulator: %s\n", DescribeConsole(terminal).c_str());
}

std::vector<SessionInfo> ListSessions() {
  RestartWhenDue();
  const Terminal terminal = GetTerminal();
  TellConsole(terminal);
  return SessionsOf(terminal);
}

// The session ends at once, so there is nothing to wait for.
void EndSessions(bool /*wait*/) {
  ChangeTerminal(EndKioskSession);
  Log("<6>simulator: getty: the console has no kiosk session\n");
}

void HoldKioskOff(const std::string& marker) {
  const Descriptor file(
      ::open(marker.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, kMarkerMode));
  if (file.IsOpen()) {
    Log("<6>simulator: %s holds the kiosk session off\n", marker.c_str());
  } else {
    Log("<3>simulator: cannot create %s (%s)\n", marker.c_str(), std::strerror(errno));
  }
}

void AllowKiosk(const std::string& marker, bool start) {
  (void)::unlink(marker.c_str());  // gone is what is wanted
  if (start) ChangeTerminal(StartKioskSession);
  Log("<6>simulator: the kiosk session may start%s\n", start ? ", and does" : "");
}

}  // namespace

void FillSessionSlots(Ops& ops, const Options& options) {
  ops.listSessions = ListSessions;
  ops.sessionOfPid = FindSession;
  // Never the installed service, wherever this was built: so no image of a caller counts.
  ops.exePathOfPid = [](int /*pid*/) { return std::string(); };
  ops.endKioskSessions = EndSessions;
  ops.setMaintenanceMarker = [marker = options.config.runDir + "/kiosk-maintenance"](
                                 bool allowKiosk, bool startKiosk) {
    if (!allowKiosk) return HoldKioskOff(marker);
    AllowKiosk(marker, startKiosk);
  };
}

}  // namespace Tarnvale::KioskService::Simulator

// The seam of the program: every way in which the service's logic reaches the platform.
//
// Logic on one side, all Linux-facing code on the other. The logic calls these slots and knows
// nothing of how they work; LinuxOps (core/ops_linux.h) fills them for a real terminal, the
// simulator and the tests fill them with callables of their own. The table is written once, before
// any thread starts, and only read from then on, so calling through it needs no lock. Slots may run
// on any thread and several at once; where calls must not overlap, the caller holds the lock. Slots
// report failure by their results and log their own details. Calling a slot that nobody filled
// throws std::bad_function_call.

#ifndef TARNVALE_KIOSKD_CORE_OPS_H_
#define TARNVALE_KIOSKD_CORE_OPS_H_

#include <functional>
#include <string>
#include <vector>

#include "kiosk/session_info.h"
#include "portal/http.h"

namespace Tarnvale::KioskService {

struct Ops {
  // One HTTP exchange, at most 15 s but for what a hanging resolver adds. `maxBytes` bounds the
  // body that is kept.
  std::function<Http(const std::string& method, const std::string& url, const std::string& body,
                     const std::string& token, unsigned long maxBytes, const std::string& accept)>
      http;

  // Looks the kiosk account up: 0 no such account, 1 found, 2 the lookup failed. Either pointer may
  // be null; `comment` receives the account's comment field.
  std::function<int(unsigned int* uid, std::string* comment)> lookupKioskAccount;

  // Runs the setup tool to enable or disable kiosk mode, at most 15 minutes. `detail` receives what
  // the tool had to say, at most 800 bytes.
  std::function<bool(bool enable, std::string* detail)> runSetupTool;

  // All logind sessions, in logind's order; none when logind cannot be reached.
  std::function<std::vector<SessionInfo>()> listSessions;

  // The logind session of a process; false when it has none.
  std::function<bool(int pid, SessionInfo* session)> sessionOfPid;

  // Takes the kiosk account out of the administrative groups.
  std::function<void()> dropAdminGroups;

  // Restarts the terminal; true when the restart was accepted.
  std::function<bool()> reboot;

  // The host name, empty when the system does not tell.
  std::function<std::string()> hostName;

  // The system's display name and version.
  std::function<std::string()> osVersion;

  // The number of connected screens, at least 1.
  std::function<int()> screenCount;

  // The path of a process's executable, empty on any failure.
  std::function<std::string(int pid)> exePathOfPid;

  // The time of the last boot in milliseconds since the epoch, 0 when unknown.
  std::function<long()> bootTime;
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CORE_OPS_H_

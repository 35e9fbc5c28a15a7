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

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "device/net_change.h"
#include "device/os_update.h"
#include "device/power_policy.h"
#include "device/proxy_change.h"
#include "device/updates_policy.h"
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

  // Deletes the kiosk account with its home directory, at most 60 s. False when it is still there.
  std::function<bool()> deleteKioskAccount;

  // All logind sessions, in logind's order; none when logind cannot be reached.
  std::function<std::vector<SessionInfo>()> listSessions;

  // The logind session of a process; false when it has none.
  std::function<bool(int pid, SessionInfo* session)> sessionOfPid;

  // Hands the console back to a login prompt and ends all sessions of the kiosk account; with
  // `wait`, stays up to 10 s until they are gone.
  std::function<void(bool wait)> endKioskSessions;

  // Without `allowKiosk` makes the marker file that holds the kiosk session off. With it removes
  // the marker, and with `startKiosk` also starts the kiosk unit.
  std::function<void(bool allowKiosk, bool startKiosk)> setMaintenanceMarker;

  // Takes the kiosk account out of the administrative groups.
  std::function<void()> dropAdminGroups;

  // Suspends the terminal with an RTC wake-up at this Unix time in seconds, 0 for none. True when
  // it suspended and came back, up to 24 h later.
  std::function<bool(long wakeAt)> suspendUntil;

  // Restarts the terminal; true when the restart was accepted.
  std::function<bool()> reboot;

  // Applies a network change, at most 190 s of child processes; the error code for the peer, empty
  // on success.
  std::function<std::string(const NetChange& change)> applyNetwork;

  // The NTP server to ask; never empty.
  std::function<std::string()> ntpServer;

  // One SNTP exchange: how many milliseconds the clock is behind the server, negative when ahead.
  std::function<bool(const std::string& server, long* offsetMs)> sntpOffset;

  // Makes the system's NTP client correct the clock; true when it reports that it is synchronised.
  std::function<bool()> resyncClock;

  // Applies a power policy; the error text, empty on success. The caller holds the power lock.
  std::function<std::string(const PowerPolicy& policy)> applyPower;

  // Removes all that applyPower put in place. The caller holds the power lock.
  std::function<void()> removePower;

  // Writes the system proxy; true when its file exists afterwards.
  std::function<bool(const ProxyChange& change)> applyProxy;

  // A check or an install by the package manager, up to hours; one at a time, whoever asks.
  // `updates` receives what is pending, `progress` runs from 0 to 100.
  std::function<WuRun(bool install, std::vector<OsUpdate>* updates, std::atomic<int>* progress)>
      runUpdates;

  // Whether the system's own marker asks for a restart.
  std::function<bool()> rebootRequired;

  // Schedules the restart that finishes an update, a minute ahead; true when it was accepted.
  std::function<bool()> scheduleUpdateRestart;

  // Turns the package manager's own schedule off, and gives it back.
  std::function<void(const UpdatesPolicy& policy)> takeUpdatesSchedule;
  std::function<void()> restoreUpdatesSchedule;

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

// The state document: all that the service remembers across restarts.
//
// One JSON object, held in memory and mirrored to `state.json` in the state directory (mode 0600,
// compact, at most 4 MiB when read back). Every change is written through at once, as a full
// rewrite that leaves the old file or the new one. A key that is absent, null, or of another type
// reads as unset; a cleared key stays in the file as null. Flags are the number 1, times are
// wall-clock milliseconds, structured values are JSON text inside a string.
//
// Every function here may be called from any thread, takes the state lock for itself and waits
// behind a save with its fsync; none may be called with that lock held, but for the two that say
// so.

#ifndef TARNVALE_KIOSKD_CORE_STATE_H_
#define TARNVALE_KIOSKD_CORE_STATE_H_

#include <cstdint>
#include <string>

#include "core/locks.h"
#include "json/json.h"

namespace Tarnvale::KioskService {

// The keys, each owned in detail by the module named.
namespace StateKey {
inline constexpr char kDeviceToken[] = "DeviceToken";  // portal/identity: the bearer token
inline constexpr char kDeviceId[] = "DeviceId";        // portal/identity: hash of its machine-id
inline constexpr char kProvisioned[] = "Provisioned";  // kiosk/provisioning: 1 when complete
inline constexpr char kAccountUid[] = "AccountUid";    // kiosk/account: decimal uid, as text
inline constexpr char kTeardownPending[] =
    "TeardownPending";  // kiosk/removal: 1 while the account still has to go
inline constexpr char kMaintenance[] = "Maintenance";      // kiosk/maintenance: 1 while in force
inline constexpr char kMaintenanceAt[] = "MaintenanceAt";  // kiosk/maintenance: when it began
inline constexpr char kMaintenanceFailures[] =
    "MaintenanceFailures";  // kiosk/exit_password: attempts since a lock-out or a success
inline constexpr char kMaintenanceLockedUntil[] =
    "MaintenanceLockedUntil";  // kiosk/exit_password: attempts are refused until then
inline constexpr char kLastError[] = "LastError";        // kiosk/provisioning: its last failure
inline constexpr char kUnknownSince[] = "UnknownSince";  // portal/check_in: when 401 unknown began
inline constexpr char kSignIn[] = "SignIn";              // portal/sign_in: normalised, JSON text
inline constexpr char kTerminalName[] = "TerminalName";  // portal/check_in: as the portal sends it
inline constexpr char kPowerPolicy[] = "PowerPolicy";    // device/power_policy_json: JSON text
inline constexpr char kPowerSource[] = "PowerSource";    // portal/check_in: who made that policy
inline constexpr char kPowerLocal[] =
    "PowerLocal";  // device/power_policy_json: made at the terminal
inline constexpr char kPowerError[] = "PowerError";        // last error of applying power
inline constexpr char kUpdatesPolicy[] = "UpdatesPolicy";  // device/updates_policy_json: JSON text
inline constexpr char kUpdatesSource[] = "UpdatesSource";  // portal/check_in: who made that policy
inline constexpr char kOsUpdatesReport[] =
    "OsUpdatesReport";  // last report of OS updates, JSON text
inline constexpr char kOsUpdatesWindowDone[] =
    "OsUpdatesWindowDone";  // device/updates_loop: key of the window that was served
inline constexpr char kOwnsWuPolicy[] =
    "OwnsWuPolicy";  // device/updates_loop: 1 while the package manager's schedule is ours
// Read and never written: put into the file by hand.
inline constexpr char kAuthBaseUrl[] = "AuthBaseUrl";  // portal/request: base URL override
inline constexpr char kDevAllowAnyCaller[] = "DevAllowAnyCaller";  // control/caller: admit non-root
}  // namespace StateKey

// Reads the file into the document, which is an empty object when there is no usable file. Only a
// file whose text is no JSON object is told in the log. Called once, before any other function
// here.
void StateLoad() EXCLUDES(stateLock, signallingLock);

// The member's text when it is a string, otherwise empty: a number is not converted.
[[nodiscard]] std::string StateGetString(const char* key) EXCLUDES(stateLock, signallingLock);

// The member when it is a number, otherwise 0: a flag stored as true or "1" reads as 0.
[[nodiscard]] std::int64_t StateGetInt(const char* key) EXCLUDES(stateLock, signallingLock);

// Sets the member and saves, also when the value is the same. A failed save is told in the log and
// in no other way: memory is then ahead of the file until the next save succeeds.
void StateSet(const char* key, const Json& value) EXCLUDES(stateLock, signallingLock);
void StateSetString(const char* key, const std::string& text) EXCLUDES(stateLock, signallingLock);
void StateSetInt(const char* key, std::int64_t number) EXCLUDES(stateLock, signallingLock);

// Sets the member to null and saves; when it is null or absent, writes nothing.
void StateClear(const char* key) EXCLUDES(stateLock, signallingLock);

// Stores a text, or clears the key for an empty one, when that differs from what stands there. True
// when it differed, so that callers log a change once and an unchanged policy costs no disk write.
bool StateUpdateString(const char* key, const std::string& text)
    EXCLUDES(stateLock, signallingLock);

// For the one writer that sets two keys in one save: the document itself, and the save.
[[nodiscard]] Json& StateDocument() REQUIRES(stateLock);
void StateSave() REQUIRES(stateLock);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CORE_STATE_H_

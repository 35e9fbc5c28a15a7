// The check-in: the terminal's heartbeat, and its only way of receiving policy.
//
// One POST tells the portal the build, the local power override, the last power error and the last
// OS updates report; the reply brings the device's status, the sign-in methods, the terminal's
// name, the policies, the exit password and the branding. Made by the service loop about every 30 s
// and by `pair.check` right after the token arrives, also at the same time: each state write stands
// by itself.

#ifndef TARNVALE_KIOSKD_PORTAL_CHECK_IN_H_
#define TARNVALE_KIOSKD_PORTAL_CHECK_IN_H_

#include <string>

#include "core/locks.h"
#include "json/json.h"

namespace Tarnvale::KioskService {

enum class CheckInOutcome {
  kEnrolled = 0,
  kRevoked = 1,  // The portal removed this terminal (401, status revoked).
  kUnknown = 2,  // The portal does not know the token (401, status unknown).
  kFailed = 3,   // No usable answer.
};

struct CheckInResult {
  CheckInResult() = default;
  CheckInResult(CheckInResult&&) = default;
  CheckInResult& operator=(CheckInResult&&) = default;
  ~CheckInResult();  // Wipes the exit password.

  CheckInOutcome outcome = CheckInOutcome::kFailed;
  // The password that lets an administrator out. It is kept here alone, in memory, for the life of
  // one check-in, and wiped with this record. Empty unless enrolled.
  std::string exitPassword;
  std::string error;     // The reason, unless enrolled.
  Json branding;         // As the portal sent it. Null unless enrolled.
  std::string tenantId;  // Empty unless enrolled.
};

// Makes the exchange with `token`, the caller's copy of the token in force, and stores what a good
// reply carries: each member stands by itself, and an invalid policy leaves the old one in force.
// Of any other reply nothing is applied. Logs each change of what is stored, not the failure. Holds
// no lock across the exchange of up to 15 s.
[[nodiscard]] CheckInResult CheckIn(const std::string& token);

// Acts on the verdict of a check-in that was made with `token`. True when the reply ended the
// terminal's identity, or may have: the caller stops what it was doing. A revoked terminal is
// removed at once; one that the portal does not know is given a day, counted on the wall clock
// across restarts. A verdict about a token that is no longer in force ends no identity. Every
// caller of CheckIn calls this straight after it. May take the lifecycle lock for up to 1050 s.
// Logs it.
[[nodiscard]] bool ApplyDeviceStatus(const CheckInResult& result, const std::string& token)
    EXCLUDES(lifecycleLock, powerLock, pairingLock, stateLock, signallingLock);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_PORTAL_CHECK_IN_H_

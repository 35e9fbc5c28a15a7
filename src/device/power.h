// Power policy: which one counts, and the commands `power.get` and `power.set`.
//
// A policy comes from the portal with a check-in (state key PowerPolicy) or is made at the terminal
// (PowerLocal), and the local one wins for as long as it exists. With neither, the system is left
// as it stands, even though `power.get` shows the defaults. The service loop applies the policy in
// force after every good check-in, so that the system converges on it; that is cheap, because the
// applyPower slot touches nothing when nothing has changed.
//
// The power lock is held across that slot and so across its child processes, up to four minutes: a
// `power.set` waits that long for its turn.

#ifndef TARNVALE_KIOSKD_DEVICE_POWER_H_
#define TARNVALE_KIOSKD_DEVICE_POWER_H_

#include <string>

#include "core/locks.h"
#include "device/power_policy.h"
#include "json/json.h"

namespace Tarnvale::KioskService {

// Reads the policy that counts: the local override, or else the portal's. False, with `policy`
// untouched, when there is neither. Silent.
[[nodiscard]] bool LoadPowerPolicyInForce(PowerPolicy& policy) EXCLUDES(stateLock, signallingLock);

// Applies the policy through the applyPower slot and keeps its error text, or the absence of one,
// under the state key PowerError, from where `power.get` and the next check-in take it. Logs an
// error when it is another one than before.
void ApplyPowerPolicy(const PowerPolicy& policy) REQUIRES(powerLock)
    EXCLUDES(stateLock, signallingLock);

// Applies the policy in force, if there is one.
void ReapplyPower() EXCLUDES(powerLock, stateLock, signallingLock);

// The reply of `power.get`, the power document: the portal's policy or the defaults, who made it,
// the local override or null, the policy of the two that counts, and the last error or null.
[[nodiscard]] std::string HandlePowerGet() EXCLUDES(stateLock, signallingLock);

// The reply of `power.set`: the power document, `not_enrolled` or `invalid`. Makes a local
// override, which takes the schedule of the policy in force when the request brings none, or with
// `useOrganisation` drops the override. Stores first, then applies. Logs what has changed, and why
// minutes or a schedule were refused; a refused request changes nothing.
[[nodiscard]] std::string HandlePowerSet(const Json& request)
    EXCLUDES(powerLock, stateLock, signallingLock);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_POWER_H_

#include "core/service_loop.h"

#include <algorithm>
#include <atomic>
#include <string>
#include <utility>

#include "core/clock.h"
#include "core/log.h"
#include "core/state.h"
#include "core/stop.h"
#include "core/units.h"
#include "device/power.h"
#include "kiosk/account.h"
#include "kiosk/provisioning.h"
#include "kiosk/removal.h"
#include "portal/branding.h"
#include "portal/check_in.h"
#include "portal/identity.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::int64_t kPassIntervalMs = 30 * kSecondMs;
constexpr std::int64_t kLongestRetryMs = 600 * kSecondMs;
constexpr std::int64_t kNextProvisionMs = 600 * kSecondMs;
constexpr std::int64_t kNoTimer = -1;

// The loop thread's.
std::int64_t retryDelayMs = kPassIntervalMs;  // The delay after the next failed check-in.
std::int64_t nextProvisionAt = 0;  // Steady clock; no provisioning by the loop before it.

// The last check-in had no usable answer; keeps the log to one line for each outage.
std::atomic<bool> portalUnreachable{false};

std::int64_t BackOff(const CheckInResult& result) {
  if (!portalUnreachable.exchange(true)) {
    Log("<4>check-in: no usable answer from AuthSystem (%s); still enrolled\n",
        result.error.c_str());
  }
  return std::exchange(retryDelayMs, std::min(2 * retryDelayMs, kLongestRetryMs));
}

void EndBackOff() {
  if (portalUnreachable.exchange(false)) Log("<6>check-in: AuthSystem reachable again\n");
  retryDelayMs = kPassIntervalMs;
}

// A terminal that cannot be provisioned tries again every 10 minutes, not at every pass.
void RetryProvisioning() {
  if (IsProvisioned() || SteadyNowMs() < nextProvisionAt) return;
  if (!ProvisionKiosk().empty()) nextProvisionAt = SteadyNowMs() + kNextProvisionMs;
}

// Without an identity there is nothing to do but to go on with a removal.
std::int64_t WaitUnenrolled() {
  retryDelayMs = kPassIntervalMs;
  return StateGetInt(StateKey::kTeardownPending) == 1 ? kPassIntervalMs : kNoTimer;
}

}  // namespace

std::int64_t ServicePass() {
  FinishPendingRemoval();
  const std::string token = CurrentDeviceToken();
  if (token.empty()) return WaitUnenrolled();
  const CheckInResult result = CheckIn(token);
  if (ApplyDeviceStatus(result, token)) return kPassIntervalMs;
  if (result.outcome != CheckInOutcome::kEnrolled) return BackOff(result);
  EndBackOff();
  DropKioskAdminGroups();
  RetryProvisioning();
  UpdateBranding(result, token);
  // A terminal that was removed while the pass ran is left alone.
  if (CurrentDeviceToken() == token) ReapplyPower();
  return kPassIntervalMs;
}

void ServiceLoop() {
  std::int64_t delayMs = 0;
  while (WaitForServicePass(delayMs))
    delayMs = ServicePass();
}

}  // namespace Tarnvale::KioskService

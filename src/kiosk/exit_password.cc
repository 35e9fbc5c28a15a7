#include "kiosk/exit_password.h"

#include <cctype>
#include <cstddef>
#include <cstdint>

#include "core/clock.h"
#include "core/log.h"
#include "core/state.h"
#include "core/text.h"
#include "core/units.h"
#include "kiosk/account.h"
#include "portal/check_in.h"
#include "portal/identity.h"

namespace Tarnvale::KioskService {
namespace {

constexpr int kMaxAttempts = 5;
constexpr std::int64_t kLockOutMs = 300 * kSecondMs;

bool passwordCheckRunning GUARDED_BY(passwordLock) = false;

void LockOutAttempts() REQUIRES(passwordLock) {
  StateSetInt(StateKey::kMaintenanceLockedUntil, WallNowMs() + kLockOutMs);
  StateSetInt(StateKey::kMaintenanceFailures, 0);
  Log("<4>maintenance: %d attempts without the right password; refusing for %lld s\n", kMaxAttempts,
      static_cast<long long>(kLockOutMs / kSecondMs));
}

// Counts the attempt and takes the ticket of the one test that may run. Empty when this one may;
// `attempt` is then its number since the last success or lock-out.
std::string BeginAttempt(std::int64_t& attempt) EXCLUDES(passwordLock) {
  const MutexLock lock(passwordLock);
  if (StateGetInt(StateKey::kMaintenanceLockedUntil) > WallNowMs()) return "locked";
  if (passwordCheckRunning) return "busy";
  const std::int64_t failures = StateGetInt(StateKey::kMaintenanceFailures);
  // Attempts that never came to a comparison used them up; they set off no lock-out themselves.
  if (failures >= kMaxAttempts) {
    LockOutAttempts();
    return "locked";
  }
  attempt = failures + 1;
  StateSetInt(StateKey::kMaintenanceFailures, attempt);
  passwordCheckRunning = true;
  return {};
}

void EndAttempt() EXCLUDES(passwordLock) {
  const MutexLock lock(passwordLock);
  passwordCheckRunning = false;
}

char LowerOf(char byte) {
  return static_cast<char>(std::tolower(static_cast<unsigned char>(byte)));
}

// Byte by byte in place, because a lower-case copy would be one more secret to wipe. How long it
// takes tells the length of the expected password and nothing of its bytes.
bool EqualsIgnoringCase(const std::string& entered, const std::string& expected) {
  if (entered.size() != expected.size()) return false;
  unsigned difference = 0;
  for (std::size_t i = 0; i < expected.size(); ++i)
    difference |= static_cast<unsigned char>(LowerOf(entered[i]) ^ LowerOf(expected[i]));
  return difference == 0;
}

// An empty expected password matches nothing: a portal that has none lets nobody out.
bool Matches(const std::string& password, const std::string& exitPassword) {
  std::string entered = Trim(password);
  std::string expected = Trim(exitPassword);
  const bool matches = !expected.empty() && EqualsIgnoringCase(entered, expected);
  WipeText(entered);
  WipeText(expected);
  return matches;
}

std::string RecordOutcome(bool matches, std::int64_t attempt) EXCLUDES(passwordLock) {
  const MutexLock lock(passwordLock);
  if (matches) {
    StateClear(StateKey::kMaintenanceFailures);
    StateClear(StateKey::kMaintenanceLockedUntil);
    return {};
  }
  if (attempt == kMaxAttempts) LockOutAttempts();
  return "wrong_password";
}

std::string TestAgainstPortal(const std::string& password, const std::string& token,
                              std::int64_t attempt)
    EXCLUDES(lifecycleLock, powerLock, pairingLock, passwordLock, stateLock, signallingLock) {
  const CheckInResult result = CheckIn(token);
  if (ApplyDeviceStatus(result, token)) return "not_enrolled";
  if (result.outcome != CheckInOutcome::kEnrolled) return "unreachable";
  return RecordOutcome(Matches(password, result.exitPassword), attempt);
}

std::string TestPassword(const std::string& password, std::int64_t attempt)
    EXCLUDES(lifecycleLock, powerLock, pairingLock, passwordLock, stateLock, signallingLock) {
  const std::string token = CurrentDeviceToken();
  if (token.empty()) return "not_enrolled";
  if (!IsProvisioned()) return "not_provisioned";
  return TestAgainstPortal(password, token, attempt);
}

}  // namespace

std::string CheckExitPassword(const std::string& password) {
  std::int64_t attempt = 0;
  std::string refusal = BeginAttempt(attempt);
  if (!refusal.empty()) return refusal;
  std::string error = TestPassword(password, attempt);
  EndAttempt();
  return error;
}

}  // namespace Tarnvale::KioskService

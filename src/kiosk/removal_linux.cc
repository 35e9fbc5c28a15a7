#include "kiosk/removal_linux.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "core/clock.h"
#include "core/units.h"
#include "device/process_linux.h"
#include "kiosk/account.h"
#include "kiosk/account_linux.h"
#include "kiosk/sessions_linux.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::int32_t kGettyTimeoutMs = 60 * kSecondMs;
constexpr std::int32_t kTerminateTimeoutMs = 20 * kSecondMs;
constexpr std::int32_t kUserdelTimeoutMs = 60 * kSecondMs;
// logind gives a session's processes a moment to end.
constexpr std::int64_t kSessionsEndMs = 10 * kSecondMs;
constexpr std::int64_t kLookIntervalMs = 250;

// Exit statuses of userdel after which there is no account.
constexpr std::int32_t kUserdelDone = 0;
constexpr std::int32_t kUserdelNoSuchUser = 6;
constexpr std::int32_t kUserdelHomeLeft = 12;

// A console needs a prompt where the kiosk session was, or nobody could sign in there.
void OfferLoginPrompt() {
  // Without it the terminal is still reached over the network, and the removal goes on.
  (void)Systemctl({"start", "--no-block", "getty@tty1.service"}, kGettyTimeoutMs);
}

void TerminateSessions(const std::string& user) {
  const std::string loginctl = FindTool("loginctl");
  if (loginctl.empty()) return;
  // Whether it worked shows in the sessions that are left.
  (void)RunProcess({loginctl, "terminate-user", user}, kTerminateTimeoutMs);
}

bool HasSession(std::uint32_t uid) {
  const std::vector<SessionInfo> sessions = ListSessions();
  return std::any_of(sessions.begin(), sessions.end(),
                     [uid](const SessionInfo& session) { return session.uid == uid; });
}

void WaitUntilSessionsEnd(std::uint32_t uid) {
  const std::int64_t deadlineMs = SteadyNowMs() + kSessionsEndMs;
  while (SteadyNowMs() < deadlineMs && HasSession(uid))
    PauseFor(kLookIntervalMs);
}

}  // namespace

void EndKioskSessions(const std::string& user, bool wait) {
  OfferLoginPrompt();
  TerminateSessions(user);
  if (!wait) return;
  unsigned int uid = 0;
  if (LookupAccount(user, &uid, nullptr) != kAccountFound) return;
  WaitUntilSessionsEnd(uid);
}

bool DeleteKioskAccount(const std::string& user) {
  const ProcResult run = RunProcess({FindTool("userdel"), "-r", user}, kUserdelTimeoutMs);
  return run.status == kUserdelDone || run.status == kUserdelNoSuchUser ||
         run.status == kUserdelHomeLeft;
}

}  // namespace Tarnvale::KioskService

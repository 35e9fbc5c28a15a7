#include "kiosk/presence.h"

#include <sys/types.h>

#include <cstdint>

#include "control/caller.h"
#include "control/reply.h"
#include "core/clock.h"
#include "core/files.h"
#include "core/log.h"
#include "core/service.h"
#include "core/units.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::int64_t kReportLifetimeMs = 150 * kSecondMs;
constexpr mode_t kPresenceFileMode = 0600;

struct PresenceReport {
  bool signedIn = false;        // A user of the stream client is signed in.
  bool live = false;            // A stream session is running.
  std::string reportSession;    // The logind session that reported.
  std::int64_t reportedAt = 0;  // Steady clock; 0 when nobody has reported since the start.
};

PresenceReport report GUARDED_BY(presenceLock);

PresenceReport GetReport() EXCLUDES(presenceLock) {
  const MutexLock lock(presenceLock);
  return report;
}

bool IsCurrent(const PresenceReport& reported) {
  return reported.reportedAt != 0 && SteadyNowMs() - reported.reportedAt <= kReportLifetimeMs;
}

}  // namespace

std::string HandleSessionReport(const Json& request, const std::string& session) {
  const Json& signedIn = request.Get("signedIn");
  const Json& live = request.Get("live");
  if (!signedIn.IsBool() || !(live.IsBool() || live.IsNull())) return ReplyError("invalid");

  const MutexLock lock(presenceLock);
  if (signedIn.boolean != report.signedIn) {
    Log("<6>a Tarnvale user is %s at the terminal\n",
        signedIn.boolean ? "signed in" : "no longer signed in");
  }
  report = {.signedIn = signedIn.boolean,
            .live = live.AsBool(false),
            .reportSession = session,
            .reportedAt = SteadyNowMs()};
  WritePresence(report.signedIn, report.live);
  return ReplyOk();
}

void ForgetPresenceOf(const std::string& session) {
  const MutexLock lock(presenceLock);
  if (report.reportSession != session) return;
  report.signedIn = false;
  report.live = false;
  WritePresence(false, false);
}

void WritePresence(bool signedIn, bool live) {
  Json presence = Json::Object();
  presence.Set("signedIn", signedIn);
  presence.Set("live", live);
  presence.Set("at", WallNowMs());
  // The writer has logged a failure; the report in memory holds all the same.
  (void)WriteFileAtomic(ServiceConfig().runDir + "/kiosk-presence.json", presence.Dump(),
                        kPresenceFileMode);
}

std::string RestartBlocker() {
  const PresenceReport reported = GetReport();
  if (!IsCurrent(reported)) return {};
  if (!IsKioskSession(reported.reportSession)) return {};
  if (reported.live) return "a stream session is live";
  if (reported.signedIn) return "a Tarnvale user is signed in";
  return {};
}

}  // namespace Tarnvale::KioskService

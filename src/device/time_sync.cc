#include "device/time_sync.h"

#include <cstdint>
#include <optional>

#include "core/log.h"
#include "core/service.h"
#include "core/utc_time.h"
#include "json/json.h"

namespace Tarnvale::KioskService {
namespace {

// Nothing when the server did not answer.
std::optional<std::int64_t> MeasureOffset(const std::string& server) {
  long offsetMs = 0;
  if (Platform().sntpOffset(server, &offsetMs)) return offsetMs;
  Log("<4>time: no SNTP answer from %s\n", server.c_str());
  return std::nullopt;
}

std::string FailedReply(const std::string& server, bool answered) {
  Json reply = Json::Object();
  reply.Set("ok", false);
  reply.Set("error", answered ? "sync_failed" : "unreachable");
  reply.Set("server", server);
  return reply.Dump();
}

}  // namespace

std::string HandleTimeSync() {
  const std::string server = Platform().ntpServer();
  // Measured first: afterwards the error is gone. Without an answer the client may still know more.
  const std::optional<std::int64_t> offsetMs = MeasureOffset(server);
  if (!Platform().resyncClock()) return FailedReply(server, offsetMs.has_value());
  Log("<6>time: resynced with %s, the clock was %lld ms out\n", server.c_str(),
      static_cast<long long>(offsetMs.value_or(0)));
  Json reply = Json::Object();
  reply.Set("ok", true);
  reply.Set("server", server);
  reply.Set("offsetMs", offsetMs ? Json(*offsetMs) : Json());
  reply.Set("at", UtcNow());
  return reply.Dump();
}

}  // namespace Tarnvale::KioskService

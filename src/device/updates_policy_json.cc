#include "device/updates_policy_json.h"

#include "core/state.h"
#include "device/policy_fields.h"
#include "json/object.h"

namespace Tarnvale::KioskService {

bool UpdatesPolicyFromJson(const Json& value, UpdatesPolicy& policy) {
  UpdatesPolicy read;
  if (!value.Get("automatic").IsBool()) return false;
  read.automatic = value.Get("automatic").boolean;
  const Json& window = value.Get("window");
  if (!window.IsObject()) return false;
  if (!ParseClock(window.Get("start"), read.windowStart)) return false;
  if (!ParseClock(window.Get("end"), read.windowEnd)) return false;
  if (read.windowEnd == read.windowStart) return false;
  if (!ParseDays(window.Get("days"), read.days) || read.days == 0) return false;
  policy = read;
  return true;
}

Json UpdatesPolicyToJson(const UpdatesPolicy& policy) {
  Json window = Json::Object();
  window.Set("start", FormatClock(policy.windowStart));
  window.Set("end", FormatClock(policy.windowEnd));
  window.Set("days", DaysToJson(policy.days));
  Json object = Json::Object();
  object.Set("automatic", policy.automatic);
  object.Set("window", window);
  return object;
}

bool LoadUpdatesPolicy(UpdatesPolicy& policy) {
  return UpdatesPolicyFromJson(ParseObjectOrEmpty(StateGetString(StateKey::kUpdatesPolicy)),
                               policy);
}

}  // namespace Tarnvale::KioskService

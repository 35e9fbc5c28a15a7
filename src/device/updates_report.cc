#include "device/updates_report.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "core/state.h"
#include "core/utc_time.h"
#include "json/json.h"
#include "json/object.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::int32_t kMaxPending = 500;
constexpr std::size_t kMaxErrorBytes = 80;

Json LoadReport() {
  return ParseObjectOrEmpty(StateGetString(StateKey::kOsUpdatesReport));
}

void SetResult(Json& report, const std::string& result, const std::string& error) {
  report.Set("lastRunAt", UtcNow());
  report.Set("lastResult", result);
  report.Set("error", TextOrNull(error.substr(0, kMaxErrorBytes)));
}

void SetOutcome(Json& report, const WuRun& run) {
  report.Set("pending", std::min(run.pending, kMaxPending));
  report.Set("restartRequired", run.restartRequired);
}

void SetIfMissing(Json& report, const char* member, Json value) {
  if (!report.Has(member)) report.Set(member, std::move(value));
}

}  // namespace

std::string UpdatesVerdict(const WuRun& run) {
  if (run.result == kWuDone) return "ok";
  if (run.result == kWuNothingToDo) return "nothing";
  return "failed";
}

void WriteUpdatesReport(const std::optional<std::string>& result, const std::optional<WuRun>& run) {
  Json report = LoadReport();
  if (result) SetResult(report, *result, run ? run->error : std::string());
  if (run) SetOutcome(report, *run);
  SetIfMissing(report, "pending", 0);
  SetIfMissing(report, "restartRequired", false);
  for (const char* const member : {"lastRunAt", "lastResult", "error"})
    SetIfMissing(report, member, Json());
  (void)StateUpdateString(StateKey::kOsUpdatesReport, report.Dump());  // a change is not logged
}

bool ReportsRestartRequired() {
  return LoadReport().Get("restartRequired").AsBool(false);
}

}  // namespace Tarnvale::KioskService

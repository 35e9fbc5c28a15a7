#include "core/state.h"

#include <optional>
#include <utility>

#include "core/files.h"
#include "core/log.h"
#include "core/service.h"
#include "core/units.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::size_t kMaxStateBytes = 4 * kMiB;
constexpr mode_t kStateFileMode = 0600;

Json document GUARDED_BY(stateLock) = Json::Object();

std::string StatePath() {
  return ServiceConfig().stateDir + "/state.json";
}

Json ReadStateFile() {
  std::string text;
  if (!ReadFileLimited(StatePath(), kMaxStateBytes, text)) return Json::Object();
  std::optional<Json> value = Json::Parse(text);
  if (value && value->IsObject()) return std::move(*value);
  Log("<3>the state file is not a JSON object; starting unenrolled\n");
  return Json::Object();
}

}  // namespace

void StateLoad() {
  const MutexLock lock(stateLock);
  document = ReadStateFile();
}

std::string StateGetString(const char* key) {
  const MutexLock lock(stateLock);
  const Json& member = document.Get(key);
  return member.IsString() ? member.text : std::string();
}

std::int64_t StateGetInt(const char* key) {
  const MutexLock lock(stateLock);
  const Json& member = document.Get(key);
  return member.IsNumber() ? member.AsInt(0) : 0;
}

void StateSet(const char* key, const Json& value) {
  const MutexLock lock(stateLock);
  document.Set(key, value);
  StateSave();
}

void StateSetString(const char* key, const std::string& text) {
  StateSet(key, Json(text));
}

void StateSetInt(const char* key, std::int64_t number) {
  StateSet(key, Json(number));
}

void StateClear(const char* key) {
  const MutexLock lock(stateLock);
  if (document.Get(key).IsNull()) return;
  document.Set(key, Json());
  StateSave();
}

bool StateUpdateString(const char* key, const std::string& text) {
  if (StateGetString(key) == text) return false;
  if (text.empty()) {
    StateClear(key);
  } else {
    StateSetString(key, text);
  }
  return true;
}

Json& StateDocument() {
  return document;
}

void StateSave() {
  // The writer has logged a failure; the next save writes the whole document again.
  (void)WriteFileAtomic(StatePath(), document.Dump(), kStateFileMode);
}

}  // namespace Tarnvale::KioskService

// The JSON reader and writer: what was written reads as what it was written from.

#include <algorithm>
#include <cmath>
#include <optional>
#include <vector>

#include "json/json.h"
#include "target.h"

namespace Tarnvale::KioskService {
namespace {

// Calls `action` with the value and all that is in it. The nesting is the input's, so this keeps a
// list of its own instead of recursing.
template <typename Action>
void ForEachValue(const Json& root, const Action& action) {
  std::vector<const Json*> open = {&root};
  while (!open.empty()) {
    const Json* value = open.back();
    open.pop_back();
    action(*value);
    for (std::size_t i = 0; i < value->Size(); ++i)
      open.push_back(&value->At(i));
  }
}

bool HoldsOnly(const Json& root, bool (*predicate)(const Json&)) {
  bool holds = true;
  ForEachValue(root, [&holds, predicate](const Json& value) { holds = holds && predicate(value); });
  return holds;
}

// A number too large for a double is infinite, and infinity has no spelling in JSON.
bool IsFinite(const Json& value) {
  return !value.IsNumber() || std::isfinite(value.number);
}

bool IsNoNumber(const Json& value) {
  return !value.IsNumber();
}

Json ReadBack(const std::string& dump) {
  std::optional<Json> value = Json::Parse(dump);
  Expect(value.has_value(), "what Dump writes can be read");
  return *value;
}

void Convert(const Json& value) {
  (void)value.AsBool(false);  // called for what they do on the way: nothing undefined
  (void)value.AsNumber(0);
  (void)value.AsInt(0);
  (void)value.AsString("");
}

void CheckRoundTrip(const Json& value) {
  const std::string first = value.Dump();
  const Json second = ReadBack(first);
  Expect(second.kind == value.kind && second.Size() == value.Size(), "the kind and size come back");
  // Six digits of 1234567.5 make a whole number, which the next Dump spells differently.
  const std::string settled = second.Dump();
  Expect(ReadBack(settled).Dump() == settled, "the second reading is the last that changes");
  if (HoldsOnly(value, IsNoNumber)) Expect(settled == first, "all but numbers comes back as it is");
}

}  // namespace
}  // namespace Tarnvale::KioskService

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace Tarnvale::KioskService;
  std::string error;
  const std::optional<Json> value = Json::Parse(TextOf(data, size), &error);
  Expect(value.has_value() == error.empty(), "a failure, and only a failure, has a sentence");
  if (!value) return 0;
  ForEachValue(*value, Convert);
  if (HoldsOnly(*value, IsFinite)) CheckRoundTrip(*value);
  return 0;
}

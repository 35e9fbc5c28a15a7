#include "json/json.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <utility>

#include "json/number.h"

namespace Tarnvale::KioskService {
namespace {

const Json& SharedNull() {
  static const Json null;
  return null;
}

bool HasChildren(const Json& value) {
  return !value.items.empty() || !value.values.empty();
}

bool HasGrandchildren(const Json& value) {
  return std::any_of(value.items.begin(), value.items.end(), HasChildren) ||
         std::any_of(value.values.begin(), value.values.end(), HasChildren);
}

void MoveChildren(Json& from, std::vector<Json>& into) {
  into.insert(into.end(), std::make_move_iterator(from.items.begin()),
              std::make_move_iterator(from.items.end()));
  into.insert(into.end(), std::make_move_iterator(from.values.begin()),
              std::make_move_iterator(from.values.end()));
  from.items.clear();
  from.values.clear();
}

// Takes a value apart level by level, so that destroying its children never goes deeper than one.
void FlattenChildren(Json& value) {
  std::vector<Json> pending;
  MoveChildren(value, pending);
  while (!pending.empty()) {
    Json last = std::move(pending.back());
    pending.pop_back();
    MoveChildren(last, pending);
  }
}

void CopyScalars(const Json& from, Json& to) {
  to.kind = from.kind;
  to.boolean = from.boolean;
  to.number = from.number;
  to.text = from.text;
  to.keys = from.keys;
}

struct CopyStep {
  const Json* from;
  Json* to;
};

void CopyChildren(const std::vector<Json>& from, std::vector<Json>& to,
                  std::vector<CopyStep>& pending) {
  to.resize(from.size());
  for (std::size_t i = 0; i < from.size(); ++i)
    pending.push_back({&from[i], &to[i]});
}

double ParseLeadingNumber(const std::string& text) {
  return std::strtod(text.c_str(), nullptr);
}

}  // namespace

Json::Json(bool value) : kind(JsonKind::kBool), boolean(value) {}
Json::Json(double value) : kind(JsonKind::kNumber), number(value) {}
Json::Json(std::int64_t value) : kind(JsonKind::kNumber), number(static_cast<double>(value)) {}
Json::Json(int value) : kind(JsonKind::kNumber), number(value) {}
Json::Json(std::string value) : kind(JsonKind::kString), text(std::move(value)) {}
Json::Json(const char* value) : kind(JsonKind::kString), text(value) {}

Json Json::Array() {
  Json array;
  array.kind = JsonKind::kArray;
  return array;
}

Json Json::Object() {
  Json object;
  object.kind = JsonKind::kObject;
  return object;
}

Json::Json(const Json& other) {
  std::vector<CopyStep> pending = {{&other, this}};
  while (!pending.empty()) {
    const CopyStep step = pending.back();
    pending.pop_back();
    CopyScalars(*step.from, *step.to);
    CopyChildren(step.from->items, step.to->items, pending);
    CopyChildren(step.from->values, step.to->values, pending);
  }
}

Json& Json::operator=(const Json& other) {
  // The copy is complete before anything of this value goes: `other` may be a part of it.
  *this = Json(other);
  return *this;
}

Json& Json::operator=(Json&& other) noexcept {
  // `other` may be a part of this value, so it is taken out before this value's children go.
  Json taken(std::move(other));
  std::swap(kind, taken.kind);
  std::swap(boolean, taken.boolean);
  std::swap(number, taken.number);
  text.swap(taken.text);
  items.swap(taken.items);
  keys.swap(taken.keys);
  values.swap(taken.values);
  return *this;
}

Json::~Json() {
  if (HasGrandchildren(*this)) FlattenChildren(*this);
}

bool Json::AsBool(bool fallback) const {
  switch (kind) {
    case JsonKind::kBool:
      return boolean;
    case JsonKind::kNumber:
      return number != 0;
    case JsonKind::kString:
      return text == "true" || text == "1";
    default:
      return fallback;
  }
}

double Json::AsNumber(double fallback) const {
  switch (kind) {
    case JsonKind::kBool:
      return boolean ? 1.0 : 0.0;
    case JsonKind::kNumber:
      return number;
    case JsonKind::kString:
      return text.empty() ? fallback : ParseLeadingNumber(text);
    default:
      return fallback;
  }
}

std::int64_t Json::AsInt(std::int64_t fallback) const {
  if (kind == JsonKind::kNull) return fallback;
  const double value = AsNumber(static_cast<double>(fallback));
  if (!(std::fabs(value) <= std::numeric_limits<double>::max())) return fallback;
  return TruncateToInt64(value);
}

std::string Json::AsString(std::string_view fallback) const {
  switch (kind) {
    case JsonKind::kBool:
      return boolean ? "true" : "false";
    case JsonKind::kNumber:
      return NumberText(number);
    case JsonKind::kString:
      return text;
    default:
      return std::string(fallback);
  }
}

std::size_t Json::Size() const {
  if (kind == JsonKind::kArray) return items.size();
  if (kind == JsonKind::kObject) return keys.size();
  return 0;
}

const Json& Json::At(std::size_t index) const {
  if (index >= Size()) return SharedNull();
  return kind == JsonKind::kArray ? items[index] : values[index];
}

const Json& Json::Get(std::string_view key) const {
  if (kind != JsonKind::kObject) return SharedNull();
  for (std::size_t i = 0; i < keys.size(); ++i) {
    if (keys[i] == key) return values[i];
  }
  return SharedNull();
}

bool Json::Has(std::string_view key) const {
  return &Get(key) != &SharedNull();
}

void Json::Set(std::string_view key, Json value) {
  if (kind != JsonKind::kObject) {
    kind = JsonKind::kObject;
    keys.clear();
    values.clear();
  }
  for (std::size_t i = 0; i < keys.size(); ++i) {
    if (keys[i] == key) {
      values[i] = std::move(value);
      return;
    }
  }
  keys.emplace_back(key);
  values.push_back(std::move(value));
}

void Json::Append(Json value) {
  if (kind != JsonKind::kArray) {
    kind = JsonKind::kArray;
    items.clear();
  }
  items.push_back(std::move(value));
}

}  // namespace Tarnvale::KioskService

#include "json/object.h"

#include <utility>

namespace Tarnvale::KioskService {

Json ParseObjectOrEmpty(std::string_view text) {
  std::optional<Json> value = Json::Parse(text);
  if (!value || !value->IsObject()) return Json::Object();
  return std::move(*value);
}

std::string StringMember(const Json& object, std::string_view key) {
  const Json& member = object.Get(key);
  return member.IsString() ? member.text : std::string();
}

Json TextOrNull(const std::string& text) {
  return text.empty() ? Json() : Json(text);
}

}  // namespace Tarnvale::KioskService

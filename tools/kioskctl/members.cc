#include "kioskctl/members.h"

#include <optional>
#include <utility>

#include "core/text.h"

namespace Tarnvale::KioskService::Kioskctl {
namespace {

// The parser looks at nothing behind the first value; inside an array it has to.
bool ParseWholeValue(std::string_view text, Json& value) {
  std::optional<Json> array = Json::Parse("[" + std::string(text) + "]");
  if (!array || array->Size() != 1) return false;
  value = std::move(array->items.front());
  return true;
}

// False with what is wrong, to be said of the member.
bool TakeMember(const std::string& typed, const ReadTypedValue& readTypedValue, Json& request,
                std::string& problem) {
  Member member;
  if (!ParseMember(typed, member)) {
    problem = "is neither NAME=TEXT nor NAME:=JSON";
    return false;
  }
  if (!member.fromInput) {
    request.Set(member.name, std::move(member.value));
    return true;
  }
  std::string value;
  if (!readTypedValue(member.name, value)) {
    problem = "got no line from the standard input";
    return false;
  }
  request.Set(member.name, value);
  WipeText(value);
  return true;
}

}  // namespace

bool ParseMember(std::string_view typed, Member& member) {
  const std::size_t equals = typed.find('=');
  if (equals == std::string_view::npos) return false;
  const bool isJson = equals > 0 && typed[equals - 1] == ':';
  const std::string_view name = typed.substr(0, isJson ? equals - 1 : equals);
  const std::string_view value = typed.substr(equals + 1);
  if (name.empty() || name == "cmd") return false;

  Json parsed{std::string(value)};
  if (isJson && !ParseWholeValue(value, parsed)) return false;
  member = {
      .name = std::string(name), .value = std::move(parsed), .fromInput = !isJson && value == "-"};
  return true;
}

bool MakeRequest(const std::string& command, const std::vector<std::string>& typed,
                 const ReadTypedValue& readTypedValue, std::string& request, std::string& problem) {
  Json object = Json::Object();
  object.Set("cmd", command);
  for (std::size_t i = 0; i < typed.size(); ++i) {
    if (TakeMember(typed[i], readTypedValue, object, problem)) continue;
    problem.insert(0, "member " + std::to_string(i + 1) + " ");
    return false;
  }
  request = object.Dump();
  return true;
}

}  // namespace Tarnvale::KioskService::Kioskctl

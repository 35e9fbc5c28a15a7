#include "portal/sign_in.h"

#include <algorithm>
#include <string>

namespace Tarnvale::KioskService {
namespace {

constexpr std::size_t kMaxExtraHosts = 10;
constexpr std::size_t kMaxHostBytes = 253;
constexpr std::size_t kMaxLabelBytes = 63;

bool IsLowerOrDigit(char byte) {
  return (byte >= 'a' && byte <= 'z') || (byte >= '0' && byte <= '9');
}

bool IsLabel(std::string_view label) {
  if (label.empty() || label.size() > kMaxLabelBytes) return false;
  if (!IsLowerOrDigit(label.front()) || label.back() == '-') return false;
  return std::all_of(label.begin(), label.end(),
                     [](char byte) { return IsLowerOrDigit(byte) || byte == '-'; });
}

bool HoldsText(const Json& array, const std::string& text) {
  return std::any_of(array.items.begin(), array.items.end(),
                     [&text](const Json& item) { return item.text == text; });
}

Json ReadExtraHosts(const Json& value) {
  Json hosts = Json::Array();
  if (!value.IsArray()) return hosts;
  for (const Json& item : value.items) {
    if (hosts.Size() == kMaxExtraHosts) break;
    if (!item.IsString() || !IsSignInHost(item.text) || HoldsText(hosts, item.text)) continue;
    hosts.Append(item.text);
  }
  return hosts;
}

bool BoolMember(const Json& value, std::string_view key, bool fallback) {
  const Json& member = value.Get(key);
  return member.IsBool() ? member.boolean : fallback;
}

}  // namespace

Json ReadSignIn(const Json& value) {
  Json signIn = Json::Object();
  signIn.Set("microsoft", BoolMember(value, "microsoft", true));
  signIn.Set("email", BoolMember(value, "email", false));
  signIn.Set("extraHosts", ReadExtraHosts(value.Get("extraHosts")));
  return signIn;
}

bool IsSignInHost(std::string_view host) {
  if (host.size() > kMaxHostBytes || host.find('.') == std::string_view::npos) return false;
  while (true) {
    const std::size_t dot = host.find('.');
    if (!IsLabel(host.substr(0, dot))) return false;
    if (dot == std::string_view::npos) return true;
    host.remove_prefix(dot + 1);
  }
}

}  // namespace Tarnvale::KioskService

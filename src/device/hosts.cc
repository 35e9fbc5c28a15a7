#include "device/hosts.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <string>

#include "device/ipv4.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::size_t kMaxPortDigits = 5;
constexpr std::int32_t kMaxPort = 65535;
// The longest text of an IPv6 address, with an IPv4 address at its end.
constexpr std::size_t kMaxIpv6Bytes = 45;
constexpr std::size_t kMaxNameBytes = 253;
constexpr std::size_t kMaxLabelBytes = 63;

bool ConsistsOf(std::string_view text, std::string_view bytes) {
  return text.find_first_not_of(bytes) == std::string_view::npos;
}

bool IsIpv6(std::string_view text) {
  if (text.empty() || text.size() > kMaxIpv6Bytes) return false;
  if (!ConsistsOf(text, "0123456789abcdef:.")) return false;
  in6_addr address = {};
  return ::inet_pton(AF_INET6, std::string(text).c_str(), &address) == 1;
}

bool IsIpv4(std::string_view text) {
  std::uint32_t address = 0;
  return ParseIpv4(Json(std::string(text)), address);
}

bool IsLabel(std::string_view text) {
  if (text.empty() || text.size() > kMaxLabelBytes) return false;
  if (!ConsistsOf(text, "abcdefghijklmnopqrstuvwxyz0123456789-")) return false;
  return text.front() != '-' && text.back() != '-';
}

bool IsHostName(std::string_view text) {
  if (text.empty() || text.size() > kMaxNameBytes) return false;
  while (true) {
    const std::size_t dot = text.find('.');
    if (!IsLabel(text.substr(0, dot))) return false;
    if (dot == std::string_view::npos) return true;
    text.remove_prefix(dot + 1);
  }
}

}  // namespace

bool ValidHost(std::string_view text, bool bracketed) {
  if (bracketed) return IsIpv6(text);
  if (IsIpv4(text)) return true;
  if (ConsistsOf(text, "0123456789.")) return false;
  return IsHostName(text);
}

bool ParsePort(std::string_view text, std::int32_t& port) {
  if (text.empty() || text.size() > kMaxPortDigits) return false;
  if (text.front() == '0' || !ConsistsOf(text, "0123456789")) return false;
  std::int32_t number = 0;
  (void)std::from_chars(text.data(), text.data() + text.size(), number);  // five digits at most
  if (number > kMaxPort) return false;
  port = number;
  return true;
}

}  // namespace Tarnvale::KioskService

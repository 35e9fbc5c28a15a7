#include "device/ipv4.h"

#include <algorithm>
#include <charconv>

#include "core/text.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::size_t kMaxAddressBytes = 15;
constexpr int kOctets = 4;
constexpr std::size_t kMaxOctetDigits = 3;
constexpr std::uint32_t kMaxOctet = 255;

bool TakeDot(std::string_view& text) {
  if (text.empty() || text.front() != '.') return false;
  text.remove_prefix(1);
  return true;
}

// Moves the digits at the head of the text into the address, as its lowest byte.
bool TakeOctet(std::string_view& text, std::uint32_t& address) {
  const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
  if (digits == 0 || digits > kMaxOctetDigits) return false;
  if (digits > 1 && text.front() == '0') return false;
  std::uint32_t octet = 0;
  (void)std::from_chars(text.data(), text.data() + digits, octet);  // nothing but a few digits
  if (octet > kMaxOctet) return false;
  address = (address << 8) | octet;
  text.remove_prefix(digits);
  return true;
}

}  // namespace

bool ParseIpv4(const Json& value, std::uint32_t& address) {
  if (!value.IsString() || value.text.size() > kMaxAddressBytes) return false;
  std::string_view text = value.text;
  std::uint32_t read = 0;
  for (int octet = 0; octet < kOctets; ++octet) {
    if (octet > 0 && !TakeDot(text)) return false;
    if (!TakeOctet(text, read)) return false;
  }
  if (!text.empty()) return false;
  address = read;
  return true;
}

std::string FormatIpv4(std::uint32_t address) {
  return FormatText("%u.%u.%u.%u", address >> 24, (address >> 16) & 0xFF, (address >> 8) & 0xFF,
                    address & 0xFF);
}

std::string JoinIpv4(const std::vector<std::uint32_t>& addresses, std::string_view separator) {
  std::vector<std::string> texts;
  for (const std::uint32_t address : addresses)
    texts.push_back(FormatIpv4(address));
  return Join(texts, separator);
}

}  // namespace Tarnvale::KioskService

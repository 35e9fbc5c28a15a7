#include "device/facts.h"

#include <cstdlib>
#include <optional>

#include "core/units.h"

namespace Tarnvale::KioskService {
namespace {

// What stands behind `lead` in the first line that begins with it.
std::optional<std::string> FindLineValue(std::string_view text, std::string_view lead) {
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    if (line.starts_with(lead)) {
      return std::string(line.substr(lead.size()));
    }
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return std::nullopt;
}

bool BeginsWithQuote(const std::string& value) {
  return value.size() >= 2 && (value.front() == '"' || value.front() == '\'');
}

}  // namespace

long ParseBootTimeMs(std::string_view procStat) {
  const std::optional<std::string> value = FindLineValue(procStat, "btime ");
  if (!value) return 0;
  // Unsigned, so that a number that no clock will ever show wraps instead of overflowing.
  const auto seconds = static_cast<unsigned long>(std::strtoll(value->c_str(), nullptr, 10));
  return static_cast<long>(seconds * static_cast<unsigned long>(kSecondMs));
}

std::string ParseDisplayName(std::string_view osRelease) {
  const std::optional<std::string> value = FindLineValue(osRelease, "PRETTY_NAME=");
  if (!value) return "Linux";
  return BeginsWithQuote(*value) ? value->substr(1, value->size() - 2) : *value;
}

}  // namespace Tarnvale::KioskService

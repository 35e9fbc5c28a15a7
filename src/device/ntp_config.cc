#include "device/ntp_config.h"

#include <algorithm>
#include <cctype>

#include "core/text.h"

namespace Tarnvale::KioskService {
namespace {

// The longest name that DNS knows, without the dot of the root.
constexpr std::size_t kMaxHostBytes = 253;
constexpr std::string_view kTimesyncdKey = "NTP=";

bool IsHostByte(char byte) {
  return std::isalnum(static_cast<unsigned char>(byte)) != 0 || byte == '-' || byte == '.';
}

}  // namespace

bool ValidNtpHost(std::string_view name) {
  return !name.empty() && name.size() <= kMaxHostBytes && name[0] != '-' && name[0] != '.' &&
         std::all_of(name.begin(), name.end(), IsHostByte);
}

std::vector<std::string> ChronyHosts(std::string_view text) {
  std::vector<std::string> hosts;
  for (const std::string& line : SplitLines(text)) {
    const std::vector<std::string> words = SplitWords(line);
    if (words.size() < 2 || (words[0] != "pool" && words[0] != "server")) continue;
    if (ValidNtpHost(words[1])) hosts.push_back(words[1]);
  }
  return hosts;
}

std::vector<std::string> TimesyncdHosts(std::string_view text) {
  std::vector<std::string> hosts;
  for (const std::string& line : SplitLines(text)) {
    const std::string setting = Trim(line);
    if (!setting.starts_with(kTimesyncdKey)) continue;
    const std::vector<std::string> words = SplitWords(setting.substr(kTimesyncdKey.size()));
    std::copy_if(words.begin(), words.end(), std::back_inserter(hosts), ValidNtpHost);
  }
  return hosts;
}

}  // namespace Tarnvale::KioskService

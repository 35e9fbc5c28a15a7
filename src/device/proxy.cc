#include "device/proxy.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <string_view>
#include <vector>

#include "control/reply.h"
#include "core/log.h"
#include "core/service.h"
#include "core/text.h"
#include "core/units.h"
#include "device/hosts.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::size_t kMaxPacUrlBytes = 2 * kKiB;
constexpr std::size_t kMaxServerBytes = 300;
constexpr std::size_t kMaxBypassTextBytes = 2 * kKiB;
constexpr std::size_t kMaxBypassEntryBytes = 253;
constexpr std::size_t kMaxBypassEntries = 64;

// Names without a dot go direct. Not a host name, but what browsers call it.
constexpr std::string_view kLocalNames = "<local>";
constexpr std::string_view kBypassBytes = "abcdefghijklmnopqrstuvwxyz0123456789-.*";

// A host and the text of its port, cut apart and not yet looked at.
struct HostPort {
  std::string_view host;
  bool bracketed = false;  // It stood between brackets, as an IPv6 address does.
  std::string_view port;   // Empty when there is none.
};

bool IsVisible(char byte) {
  return byte >= '!' && byte <= '~';
}

bool IsPort(std::string_view text) {
  std::int32_t port = 0;
  return ParsePort(text, port);
}

// "[HOST]" and what stands behind it.
bool SplitBracketed(std::string_view text, HostPort& parts, std::string_view& rest) {
  const std::size_t end = text.find(']');
  if (end == std::string_view::npos) return false;
  parts.host = text.substr(1, end - 1);
  parts.bracketed = true;
  rest = text.substr(end + 1);
  return true;
}

// The port may be missing, and may be empty behind its colon.
bool SplitAuthority(std::string_view authority, HostPort& parts) {
  if (authority.starts_with('[')) {
    std::string_view rest;
    if (!SplitBracketed(authority, parts, rest)) return false;
    if (rest.empty()) return true;
    parts.port = rest.substr(1);
    return rest.front() == ':';
  }
  const std::size_t colon = authority.rfind(':');
  parts.host = authority.substr(0, colon);
  if (colon != std::string_view::npos) parts.port = authority.substr(colon + 1);
  return true;
}

// The port is mandatory, and so a server with a scheme in front is none.
bool SplitServer(std::string_view server, HostPort& parts) {
  if (server.starts_with('[')) {
    std::string_view rest;
    if (!SplitBracketed(server, parts, rest) || !rest.starts_with(':')) return false;
    parts.port = rest.substr(1);
    return true;
  }
  const std::size_t colon = server.rfind(':');
  if (colon == std::string_view::npos || colon == 0) return false;
  parts.host = server.substr(0, colon);
  parts.port = server.substr(colon + 1);
  return parts.host.find(':') == std::string_view::npos;
}

bool IsValidAuthority(std::string_view authority) {
  if (authority.empty() || authority.find('@') != std::string_view::npos) return false;
  HostPort parts;
  if (!SplitAuthority(authority, parts)) return false;
  if (!parts.port.empty() && !IsPort(parts.port)) return false;
  return ValidHost(parts.host, parts.bracketed);
}

// Whether it is "http://" or "https://" with a host that makes sense; the path is not looked at.
bool IsHttpUrl(const std::string& url) {
  const std::string separator = "://";  // no string_view: comparing to one may not raise, see below
  const std::size_t colon = url.find(':');
  const std::string scheme = ToLower(url.substr(0, colon));
  if (scheme != "http" && scheme != "https") return false;
  // Without any colon this raises std::out_of_range. That is known, and told in the header.
  if (url.compare(colon, separator.size(), separator) != 0) return false;
  const std::size_t begin = colon + separator.size();
  const std::size_t end = url.find_first_of("/?#", begin);
  const std::string authority = url.substr(begin, end - begin);
  return IsValidAuthority(ToLower(authority));
}

bool ReadPacUrl(const Json& value, std::string& pacUrl) {
  if (!value.IsString()) return false;
  const std::string url = Trim(value.text);
  if (url.empty() || url.size() > kMaxPacUrlBytes) return false;
  if (!std::all_of(url.begin(), url.end(), IsVisible)) return false;
  if (!IsHttpUrl(url)) return false;
  pacUrl = url;
  return true;
}

bool ReadServer(const Json& value, std::string& server) {
  if (!value.IsString()) return false;
  const std::string text = ToLower(Trim(value.text));
  if (text.empty() || text.size() > kMaxServerBytes) return false;
  HostPort parts;
  if (!SplitServer(text, parts)) return false;
  if (!ValidHost(parts.host, parts.bracketed) || !IsPort(parts.port)) return false;
  server = text;
  return true;
}

// The tokens of the one-line form, divided by semicolons, commas and white space.
std::vector<std::string> SplitBypassText(std::string text) {
  for (char& byte : text) {
    if (byte == ';' || byte == ',') byte = ' ';
  }
  return SplitWords(text);
}

// The tokens of either form, as they came.
bool ReadBypassTokens(const Json& value, std::vector<std::string>& tokens) {
  if (value.IsString()) {
    if (value.text.size() > kMaxBypassTextBytes) return false;
    tokens = SplitBypassText(value.text);
    return true;
  }
  if (!value.IsArray()) return false;
  for (const Json& item : value.items) {
    if (!item.IsString()) return false;
    tokens.push_back(Trim(item.text));
  }
  return true;
}

bool IsValidBypassEntry(std::string_view entry) {
  if (entry == kLocalNames) return true;
  if (entry.size() > kMaxBypassEntryBytes) return false;
  if (entry.find_first_not_of(kBypassBytes) != std::string_view::npos) return false;
  if (entry.find("..") != std::string_view::npos) return false;
  return entry.front() != '-' && entry.front() != '.';
}

// What is empty or there already is passed over before anything else is asked of it.
bool AddBypassEntry(const std::string& entry, std::vector<std::string>& bypass) {
  if (entry.empty()) return true;
  if (std::find(bypass.begin(), bypass.end(), entry) != bypass.end()) return true;
  if (!IsValidBypassEntry(entry) || bypass.size() >= kMaxBypassEntries) return false;
  bypass.push_back(entry);
  return true;
}

bool ReadBypass(const Json& value, std::vector<std::string>& bypass) {
  if (value.IsNull()) return true;
  std::vector<std::string> tokens;
  if (!ReadBypassTokens(value, tokens)) return false;
  return std::all_of(tokens.begin(), tokens.end(), [&bypass](const std::string& token) {
    return AddBypassEntry(ToLower(token), bypass);
  });
}

// The name of the first member that is not right; empty when all are.
std::string ReadMembers(const Json& request, ProxyChange& change) {
  change.mode = request.Get("mode").AsString("");
  if (change.mode == "none") return {};
  if (change.mode == "auto") {
    return ReadPacUrl(request.Get("pacUrl"), change.pacUrl) ? "" : "pacUrl";
  }
  if (change.mode != "manual") return "mode";
  if (!ReadServer(request.Get("server"), change.server)) return "server";
  if (!ReadBypass(request.Get("bypass"), change.bypass)) return "bypass";
  return {};
}

void LogChange(const ProxyChange& change, const std::string& bypass) {
  if (change.mode == "manual") {
    Log("<6>proxy: %s, bypass \"%s\"\n", change.server.c_str(), bypass.c_str());
  } else if (change.mode == "auto") {
    Log("<6>proxy: automatic from %s\n", change.pacUrl.c_str());
  } else {
    Log("<6>proxy: direct\n");
  }
}

std::string ReplyChange(const ProxyChange& change) {
  Json bypass = Json::Array();
  for (const std::string& entry : change.bypass)
    bypass.Append(entry);
  Json reply = Json::Object();
  reply.Set("ok", true);
  reply.Set("mode", change.mode);
  reply.Set("pacUrl", change.pacUrl);
  reply.Set("server", change.server);
  reply.Set("bypass", bypass);
  return reply.Dump();
}

}  // namespace

bool ParseProxyChange(const Json& request, ProxyChange& change, std::string& field) {
  ProxyChange read;
  const std::string invalid = ReadMembers(request, read);
  if (!invalid.empty()) {
    field = invalid;
    return false;
  }
  change = read;
  return true;
}

std::string HandleProxySet(const Json& request) {
  ProxyChange change;
  std::string field;
  if (!ParseProxyChange(request, change, field)) {
    Log("<4>proxy.set refused: invalid %s\n", field.c_str());
    return ReplyError("invalid");
  }
  const std::string bypass = Join(change.bypass, ";");
  if (!Platform().applyProxy(change)) {
    Log("<3>proxy: cannot write the system proxy\n");
    return ReplyError("failed");
  }
  LogChange(change, bypass);
  return ReplyChange(change);
}

}  // namespace Tarnvale::KioskService

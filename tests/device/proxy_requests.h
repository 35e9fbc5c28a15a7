// The words of the tests of `proxy.set`: its requests, and what is made of them.

#ifndef TARNVALE_KIOSKD_TESTS_DEVICE_PROXY_REQUESTS_H_
#define TARNVALE_KIOSKD_TESTS_DEVICE_PROXY_REQUESTS_H_

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "device/proxy.h"
#include "json/json.h"

namespace Tarnvale::KioskService {

using Texts = std::vector<std::string>;

inline constexpr char kServer[] = "proxy.example:3128";

inline Json Value(const std::string& text) {
  const std::optional<Json> value = Json::Parse(text);
  EXPECT_TRUE(value.has_value()) << text;
  return value.value_or(Json());
}

inline Json Automatic(const Json& pacUrl) {
  Json request = Json::Object();
  request.Set("mode", "auto");
  request.Set("pacUrl", pacUrl);
  return request;
}

inline Json Manual(const Json& server) {
  Json request = Json::Object();
  request.Set("mode", "manual");
  request.Set("server", server);
  return request;
}

inline Json ManualWith(const Json& bypass) {
  Json request = Manual(kServer);
  request.Set("bypass", bypass);
  return request;
}

inline Json ArrayOf(const Texts& texts) {
  Json array = Json::Array();
  for (const std::string& text : texts)
    array.Append(text);
  return array;
}

// The member that is refused; empty when none is.
inline std::string RefusedMember(const Json& request) {
  ProxyChange change;
  std::string field;
  return ParseProxyChange(request, change, field) ? "" : field;
}

inline ProxyChange Parsed(const Json& request) {
  ProxyChange change;
  std::string field;
  EXPECT_TRUE(ParseProxyChange(request, change, field)) << field << " in " << request.Dump();
  return change;
}

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_DEVICE_PROXY_REQUESTS_H_

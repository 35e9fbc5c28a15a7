#include "device/proxy_files.h"

#include <algorithm>
#include <vector>

#include "core/text.h"

namespace Tarnvale::KioskService {
namespace {

std::string Line(const std::string& name, const std::string& value) {
  return name + "=" + value + "\n";
}

std::string ServerUrl(const ProxyChange& change) {
  return "http://" + change.server;
}

std::string NoProxyList(std::vector<std::string> bypass) {
  std::replace(bypass.begin(), bypass.end(), std::string("<local>"),
               std::string("localhost,127.0.0.1,::1"));
  return Join(bypass, ",");
}

std::string AutomaticLines(const ProxyChange& change) {
  return Line("TARNVALE_PAC_URL", change.pacUrl) + Line("http_proxy", "pac+" + change.pacUrl) +
         Line("https_proxy", "pac+" + change.pacUrl);
}

std::string ManualLines(const ProxyChange& change) {
  const std::string url = ServerUrl(change);
  const std::string noProxy = NoProxyList(change.bypass);
  return Line("http_proxy", url) + Line("https_proxy", url) + Line("HTTP_PROXY", url) +
         Line("HTTPS_PROXY", url) + Line("no_proxy", noProxy) + Line("NO_PROXY", noProxy) +
         Line("TARNVALE_PROXY_SERVER", change.server) +
         Line("TARNVALE_PROXY_BYPASS", Join(change.bypass, ";"));
}

}  // namespace

std::string ProxyEnvText(const ProxyChange& change) {
  const std::string mode = Line("TARNVALE_PROXY_MODE", change.mode);
  if (change.mode == "auto") return mode + AutomaticLines(change);
  if (change.mode == "manual") return mode + ManualLines(change);
  return mode;
}

std::string AptProxyText(const ProxyChange& change) {
  const std::string url = ServerUrl(change);
  return "Acquire::http::Proxy \"" + url + "\";\nAcquire::https::Proxy \"" + url + "\";\n";
}

}  // namespace Tarnvale::KioskService

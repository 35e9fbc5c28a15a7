// The slot http: the service's own client, with a line in the log for each exchange.

#include "core/log.h"
#include "portal/http_linux.h"
#include "simulator/slots.h"

namespace Tarnvale::KioskService::Simulator {
namespace {

// Without the host, which is the same each time and may carry a password.
std::string PathOf(const std::string& url) {
  const std::size_t scheme = url.find("://");
  const std::size_t path = url.find('/', scheme == std::string::npos ? 0 : scheme + 3);
  return path == std::string::npos ? std::string("/") : url.substr(path);
}

Http ShownExchange(const std::string& method, const std::string& url, const std::string& body,
                   const std::string& token, unsigned long maxBytes, const std::string& accept) {
  Http http = HttpExchange(method, url, body, token, maxBytes, accept);
  const std::string answer = http.ok ? std::to_string(http.status) : http.error;
  Log("<6>simulator: %s %s: %s\n", method.c_str(), PathOf(url).c_str(), answer.c_str());
  return http;
}

}  // namespace

void FillPortalSlots(Ops& ops) {
  PrepareHttp();
  ops.http = ShownExchange;
}

}  // namespace Tarnvale::KioskService::Simulator

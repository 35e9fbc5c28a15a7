#include "portal/request.h"

#include "core/service.h"
#include "core/state.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kDefaultBaseUrl[] = KIOSK_PORTAL_URL;

std::string ChooseBaseUrl() {
  if (!ServiceConfig().authBase.empty()) return ServiceConfig().authBase;
  const std::string byHand = StateGetString(StateKey::kAuthBaseUrl);
  return byHand.empty() ? kDefaultBaseUrl : byHand;
}

std::string WithoutTrailingSlashes(std::string url) {
  while (url.ends_with('/'))
    url.pop_back();
  return url;
}

}  // namespace

Http PortalRequest(const std::string& method, const std::string& path, const std::string& body,
                   const std::string& token, unsigned long maxBytes, const std::string& accept) {
  const std::string url = WithoutTrailingSlashes(ChooseBaseUrl()) + path;
  return Platform().http(method, url, body, token, maxBytes, accept);
}

}  // namespace Tarnvale::KioskService

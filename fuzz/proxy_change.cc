// The request `proxy.set`. What is accepted is read unquoted from files by other programs, so no
// byte of it may end a line or a word.

#include <algorithm>
#include <stdexcept>

#include "core/text.h"
#include "device/proxy.h"
#include "target.h"

namespace Tarnvale::KioskService {
namespace {

bool IsOneWord(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char byte) { return byte > ' ' && byte <= '~'; });
}

void CheckAccepted(const ProxyChange& change) {
  Expect(change.mode == "none" || change.mode == "manual" || change.mode == "auto", "a known mode");
  Expect(change.pacUrl.empty() != (change.mode == "auto"),
         "only an automatic proxy has an address");
  Expect(change.server.empty() != (change.mode == "manual"), "only a manual proxy has a server");
  Expect(IsOneWord(change.pacUrl) && change.pacUrl.size() <= 2048, "the address is one word");
  Expect(IsOneWord(change.server) && change.server.size() <= 300, "the server is one word");
  Expect(change.bypass.size() <= 64, "at most 64 hosts go direct");
  for (const std::string& host : change.bypass)
    Expect(!host.empty() && IsOneWord(host) && host.size() <= 253, "each host is one word");
}

// The one input that raises instead of being refused: see device/proxy.h.
bool IsSchemeAlone(const Json& request) {
  const std::string url = ToLower(Trim(request.Get("pacUrl").AsString("")));
  return request.Get("mode").AsString("") == "auto" && (url == "http" || url == "https");
}

void Check(const Json& request) {
  ProxyChange change;
  change.mode = "untouched";
  std::string field;
  if (ParseProxyChange(request, change, field)) {
    CheckAccepted(change);
  } else {
    Expect(!field.empty(), "a refusal names its member");
    Expect(change.mode == "untouched", "a refusal leaves the record alone");
  }
}

}  // namespace
}  // namespace Tarnvale::KioskService

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace Tarnvale::KioskService;
  const Json request = ValueOf(data, size);
  bool raised = false;
  try {
    Check(request);
  } catch (const std::out_of_range&) {
    raised = true;
  }
  Expect(raised == IsSchemeAlone(request), "a scheme alone raises, and nothing else does");
  return 0;
}

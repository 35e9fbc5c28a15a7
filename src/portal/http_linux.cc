#include "portal/http_linux.h"

#include <string.h>

#include <curl/curl.h>

#include <cstring>
#include <memory>
#include <mutex>

#include "core/build_stamp.h"
#include "core/text.h"
#include "core/units.h"

namespace Tarnvale::KioskService {
namespace {

constexpr long kExchangeTimeoutMs = 15 * kSecondMs;
constexpr char kBearer[] = "Authorization: Bearer ";

struct HandleCleanup {
  void operator()(CURL* handle) const {
    curl_easy_cleanup(handle);
  }
};
using Handle = std::unique_ptr<CURL, HandleCleanup>;

// The device token stands in the last header. What libcurl copies of it into its own buffers is out
// of reach, but this list is ours.
struct HeadersFree {
  void operator()(curl_slist* headers) const {
    for (const curl_slist* header = headers; header != nullptr; header = header->next)
      ::explicit_bzero(header->data, std::strlen(header->data));
    curl_slist_free_all(headers);
  }
};
using Headers = std::unique_ptr<curl_slist, HeadersFree>;

struct KeptBody {
  std::string* body;
  unsigned long maxBytes;
};

// libcurl's write callback: anything but `count` makes it stop the transfer.
std::size_t KeepBytes(char* bytes, std::size_t size, std::size_t items, void* userData) {
  const KeptBody& kept = *static_cast<KeptBody*>(userData);
  const std::size_t count = size * items;
  if (kept.body->size() + count > kept.maxBytes + 1) return 0;
  kept.body->append(bytes, count);
  return count;
}

void AppendHeader(Headers& headers, const std::string& line) {
  curl_slist* const longer = curl_slist_append(headers.get(), line.c_str());
  if (longer == nullptr) return;  // out of memory: the request goes out with one header less
  (void)headers.release();        // now a part of `longer`
  headers.reset(longer);
}

Headers MakeHeaders(const std::string& token, const std::string& accept) {
  Headers headers;
  AppendHeader(headers, "Content-Type: application/json");
  AppendHeader(headers, "Accept: " + accept);
  if (token.empty()) return headers;
  std::string line;
  line.reserve(sizeof kBearer +
               token.size());  // a text that grows would leave its beginnings behind
  line.append(kBearer).append(token);
  AppendHeader(headers, line);
  WipeText(line);
  return headers;
}

bool SendsBody(const std::string& method) {
  return method == "POST" || method == "PUT";
}

}  // namespace

void PrepareHttp() {
  static std::once_flag once;
  // A library that cannot be made ready gives no handles later, which each exchange reports.
  std::call_once(once, [] { (void)curl_global_init(CURL_GLOBAL_ALL); });
}

Http HttpExchange(const std::string& method, const std::string& url, const std::string& body,
                  const std::string& token, unsigned long maxBytes, const std::string& accept) {
  Http http;
  const Handle handle(curl_easy_init());
  if (handle == nullptr) {
    http.error = "curl_easy_init failed";
    return http;
  }
  const Headers headers = MakeHeaders(token, accept);
  const std::string userAgent = std::string("TarnvaleKiosk/") + kBuildStamp;
  KeptBody kept = {&http.body, maxBytes};
  // Setting one of these fails only without memory, and then the exchange fails in its own words.
  CURL* const curl = handle.get();
  (void)curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  (void)curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, method.c_str());
  (void)curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers.get());
  (void)curl_easy_setopt(curl, CURLOPT_USERAGENT, userAgent.c_str());
  (void)curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, kExchangeTimeoutMs);
  (void)curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, kExchangeTimeoutMs);
  (void)curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  (void)curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
  (void)curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &KeepBytes);
  (void)curl_easy_setopt(curl, CURLOPT_WRITEDATA, &kept);
  if (SendsBody(method)) {
    (void)curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
    (void)curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
  }
  const CURLcode result = curl_easy_perform(curl);
  long status = 0;
  (void)curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);  // stays 0 without an answer
  if (status < 1) {
    http.error = curl_easy_strerror(result);
    return http;
  }
  // Answered, also when the body was cut short: whoever parses it will see.
  http.ok = true;
  http.status = static_cast<std::int32_t>(status);
  return http;
}

}  // namespace Tarnvale::KioskService

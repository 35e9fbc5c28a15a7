// A portal made of prepared answers, for the http slot.

#ifndef TARNVALE_KIOSKD_TESTS_SUPPORT_FAKE_PORTAL_H_
#define TARNVALE_KIOSKD_TESTS_SUPPORT_FAKE_PORTAL_H_

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "portal/http.h"

namespace Tarnvale::KioskService {

// One request as the slot received it.
struct PortalCall {
  std::string method;
  std::string url;
  std::string body;
  std::string token;
  unsigned long maxBytes = 0;
  std::string accept;
};

// Every path needs an answer; a request without one fails the test. Thread-safe.
class FakePortal {
 public:
  // From now on the path (the text behind the host) is answered so, as often as it is asked.
  void Answers(const std::string& path, std::int32_t status, const std::string& body = "{}");
  // There is no answer at all, for this reason.
  void IsUnreachable(const std::string& path, const std::string& error = "Could not connect");
  // The answer is made at each request, on the requesting thread.
  void AnswersWith(const std::string& path, std::function<Http(const PortalCall&)> answer);

  [[nodiscard]] std::vector<PortalCall> Calls() const;
  // How often a path was asked.
  [[nodiscard]] int CallsTo(const std::string& path) const;

  // What the http slot does.
  [[nodiscard]] Http Exchange(const PortalCall& call);

 private:
  mutable std::mutex mutex_;
  std::map<std::string, std::function<Http(const PortalCall&)>> answers_;
  std::vector<PortalCall> calls_;
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_SUPPORT_FAKE_PORTAL_H_

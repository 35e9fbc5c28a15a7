// The result of one HTTP exchange with the portal. Data and nothing else.
//
// Filled by the slot http (portal/http_linux.h, or a stand-in of the simulator and the tests), read
// by pairing, the check-in and the branding cache. It tells only whether there was an answer: what
// status and body mean is for who asked. The body comes from outside and may be cut anywhere; it is
// bounded by the caller's limit (65,536 bytes for documents) and one more byte, by which a caller
// sees that there was more.

#ifndef TARNVALE_KIOSKD_PORTAL_HTTP_H_
#define TARNVALE_KIOSKD_PORTAL_HTTP_H_

#include <cstdint>
#include <string>

namespace Tarnvale::KioskService {

// The status that most answers are tested for.
inline constexpr std::int32_t kHttpOk = 200;

struct Http {
  // The server answered with a status. Tells nothing about the status, nor that the body is whole:
  // an answer that a time-out or the size limit cut short counts as answered.
  bool ok = false;
  std::int32_t status = 0;  // 0 when not ok.
  std::string body;   // As far as it was kept: never more than the caller's limit and one byte.
  std::string error;  // Why there was no answer; empty when ok.
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_PORTAL_HTTP_H_

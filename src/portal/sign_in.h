// The sign-in methods that the portal allows at the terminal, and the hosts that they need.
//
// The check-in (portal/check_in.cc) normalises what the portal sent and keeps the text of the
// result in the state; `status` normalises that text once more, so the client always gets all
// members, also before the first check-in and from a state of an older build. What is wrong is
// passed over, never refused: a terminal that nobody can sign in to helps nobody. Limits: 10 hosts,
// of 253 bytes each. Pure functions on any thread; silent.

#ifndef TARNVALE_KIOSKD_PORTAL_SIGN_IN_H_
#define TARNVALE_KIOSKD_PORTAL_SIGN_IN_H_

#include <string_view>

#include "json/json.h"

namespace Tarnvale::KioskService {

// The normalised document, whatever `value` is: `microsoft` (bool, true unless the portal says
// otherwise), `email` (bool, false unless it does) and `extraHosts` (the first 10 valid, distinct
// host names, in their order; the others are skipped silently).
//
//   {"email":true,"extraHosts":["a.example","A.example"]}   email, and a.example alone
//   {"microsoft":"false"}                                   microsoft: that is no bool
//   7                                                       all defaults
[[nodiscard]] Json ReadSignIn(const Json& value);

// 1 to 253 bytes, at least one dot, labels of 1 to 63 lower-case letters, digits and inner hyphens.
//
//   login.example.org   true
//   Login.example.org   false: capitals are not folded
//   example             false: no dot
[[nodiscard]] bool IsSignInHost(std::string_view host);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_PORTAL_SIGN_IN_H_

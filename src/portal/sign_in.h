// The sign-in methods that the portal allows at the terminal.

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

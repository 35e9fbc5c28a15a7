// The reply to `status` as a person reads it.

#ifndef TARNVALE_KIOSKD_TOOLS_KIOSKCTL_STATUS_TEXT_H_
#define TARNVALE_KIOSKD_TOOLS_KIOSKCTL_STATUS_TEXT_H_

#include <string>

#include "json/json.h"

namespace Tarnvale::KioskService::Kioskctl {

// One line for each fact, each with its line feed. Texts that came from the portal are shown
// without their control characters, so that none of them can play tricks with the terminal.
[[nodiscard]] std::string StatusText(const Json& reply);

}  // namespace Tarnvale::KioskService::Kioskctl

#endif  // TARNVALE_KIOSKD_TOOLS_KIOSKCTL_STATUS_TEXT_H_

// The service loop: the thread that keeps the terminal in step with the portal.
//
// A pass every 30 s while the terminal is enrolled, fewer while the portal gives no usable answer
// (30, 60, 120, 240, 480, then every 600 s), and none at all while the terminal has no token: then
// the thread sleeps until a pairing wakes it. An unreachable portal changes nothing: the terminal
// goes on as it is.

#ifndef TARNVALE_KIOSKD_CORE_SERVICE_LOOP_H_
#define TARNVALE_KIOSKD_CORE_SERVICE_LOOP_H_

#include <cstdint>

namespace Tarnvale::KioskService {

// The thread's body: a first pass at once, then one whenever the last one asked for it. Returns on
// a stop, which waits for a pass that is under way.
void ServiceLoop();

// One pass: check in, take what must not be there from the kiosk account, provision what is not
// provisioned yet. Returns the milliseconds until the next pass; negative: none by itself. The
// loop's thread only; holds no lock across its steps. Logs the beginning and the end of an outage.
[[nodiscard]] std::int64_t ServicePass();

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CORE_SERVICE_LOOP_H_

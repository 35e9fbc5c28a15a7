// A table of platform operations that nobody has filled in.

#ifndef TARNVALE_KIOSKD_TESTS_SUPPORT_STRICT_OPS_H_
#define TARNVALE_KIOSKD_TESTS_SUPPORT_STRICT_OPS_H_

#include "core/ops.h"

namespace Tarnvale::KioskService {

// Every slot fails the test with its own name, and answers as a platform on which nothing works.
[[nodiscard]] Ops StrictOps();

// A table whose slots call those of `target` as they stand at the moment of the call, so that a
// test can change its platform after the service has copied the table. `target` must outlive the
// copy.
[[nodiscard]] Ops ForwardingOps(const Ops& target);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_SUPPORT_STRICT_OPS_H_

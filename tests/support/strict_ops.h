// A table of platform operations that nobody has filled in.

#ifndef TARNVALE_KIOSKD_TESTS_SUPPORT_STRICT_OPS_H_
#define TARNVALE_KIOSKD_TESTS_SUPPORT_STRICT_OPS_H_

#include <mutex>
#include <string>
#include <vector>

#include "core/ops.h"

namespace Tarnvale::KioskService {

// Every slot fails the test with its own name, and answers as a platform on which nothing works.
[[nodiscard]] Ops StrictOps();

// The names of the slots that were called, in order. Thread-safe.
class SlotCalls {
 public:
  void Add(const char* slot);
  [[nodiscard]] std::vector<std::string> Names() const;
  [[nodiscard]] int Count(const std::string& slot) const;
  void Clear();

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> names_;
};

// A table whose slots call those of `target` as they stand at the moment of the call, so that a
// test can change its platform after the service has copied the table. Each call is added to
// `calls`. Both must outlive the copy.
[[nodiscard]] Ops ForwardingOps(const Ops& target, SlotCalls& calls);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_SUPPORT_STRICT_OPS_H_

// A system bus of the test's own, on which everything is allowed.

#ifndef TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_PRIVATE_BUS_H_
#define TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_PRIVATE_BUS_H_

#include <memory>
#include <string>

#include "slots/support/child.h"
#include "support/temp_dir.h"

namespace Tarnvale::KioskService {

class PrivateBus {
 public:
  // Makes this process take a bus for the system's that does not run until Start.
  PrivateBus();

  void Start();

  [[nodiscard]] const std::string& Address() const {
    return address_;
  }

 private:
  TempDir directory_;
  std::string address_;
  std::unique_ptr<Child> daemon_;
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_PRIVATE_BUS_H_

// Running a part of a test without root's rights, which no file permission stops.

#ifndef TARNVALE_KIOSKD_TESTS_CORE_UNPRIVILEGED_H_
#define TARNVALE_KIOSKD_TESTS_CORE_UNPRIVILEGED_H_

#include <unistd.h>

#include <gtest/gtest.h>

namespace Tarnvale::KioskService {

inline constexpr uid_t kNobody = 65534;

// For as long as it lives the process acts as an ordinary user: nobody, or whoever runs the tests
// when that is not root.
class Unprivileged {
 public:
  Unprivileged() {
    if (!wasRoot_) return;
    EXPECT_EQ(::seteuid(kNobody), 0);
  }
  ~Unprivileged() {
    if (!wasRoot_) return;
    EXPECT_EQ(::seteuid(0), 0);
  }
  Unprivileged(const Unprivileged&) = delete;
  Unprivileged& operator=(const Unprivileged&) = delete;

 private:
  const bool wasRoot_ = ::geteuid() == 0;
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_CORE_UNPRIVILEGED_H_

// A system that has no thread left.

#ifndef TARNVALE_KIOSKD_TESTS_SUPPORT_DEFAULT_STACK_SIZE_H_
#define TARNVALE_KIOSKD_TESTS_SUPPORT_DEFAULT_STACK_SIZE_H_

#include <pthread.h>

#include <gtest/gtest.h>

#include <cstddef>

namespace Tarnvale::KioskService {

// The size of the stacks of threads that are started from now on, until the object ends.
class DefaultStackSize {
 public:
  explicit DefaultStackSize(std::size_t bytes) {
    EXPECT_EQ(::pthread_getattr_default_np(&before_), 0);
    pthread_attr_t changed;
    EXPECT_EQ(::pthread_getattr_default_np(&changed), 0);
    EXPECT_EQ(::pthread_attr_setstacksize(&changed, bytes), 0);
    EXPECT_EQ(::pthread_setattr_default_np(&changed), 0);
    (void)::pthread_attr_destroy(&changed);  // it holds nothing that could be lost
  }
  ~DefaultStackSize() {
    EXPECT_EQ(::pthread_setattr_default_np(&before_), 0);
    (void)::pthread_attr_destroy(&before_);  // it holds nothing that could be lost
  }
  DefaultStackSize(const DefaultStackSize&) = delete;
  DefaultStackSize& operator=(const DefaultStackSize&) = delete;

 private:
  pthread_attr_t before_ = {};
};

// More than there are addresses, so no thread can start.
inline constexpr std::size_t kImpossibleStackBytes = std::size_t{1} << 50;

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_SUPPORT_DEFAULT_STACK_SIZE_H_

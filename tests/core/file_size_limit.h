// A disk that is full, for tests: no file of the process grows beyond a size.

#ifndef TARNVALE_KIOSKD_TESTS_CORE_FILE_SIZE_LIMIT_H_
#define TARNVALE_KIOSKD_TESTS_CORE_FILE_SIZE_LIMIT_H_

#include <signal.h>
#include <sys/resource.h>

#include <gtest/gtest.h>

namespace Tarnvale::KioskService {

// For as long as it lives a write behind that size fails with "File too large".
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) {
    (void)::signal(SIGXFSZ, SIG_IGN);
    EXPECT_EQ(::getrlimit(RLIMIT_FSIZE, &before_), 0);
    const rlimit limit = {bytes, before_.rlim_max};
    EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
  }
  ~FileSizeLimit() {
    EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &before_), 0);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit before_ = {};
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_CORE_FILE_SIZE_LIMIT_H_

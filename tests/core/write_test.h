// What the tests of the two file writers share: a file of a test's own, a system that may fail
// under it, and its log.

#ifndef TARNVALE_KIOSKD_TESTS_CORE_WRITE_TEST_H_
#define TARNVALE_KIOSKD_TESTS_CORE_WRITE_TEST_H_

#include <sys/types.h>

#include <gtest/gtest.h>

#include <string>

#include "core/failing_calls.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace Tarnvale::KioskService {

class WriteTest : public ::testing::Test {
 protected:
  TempDir dir;
  const std::string path = dir.At("file");
  const std::string temporary = path + ".tmp";
  FailingCalls calls;
  LogCapture log;
};

// Under a FileSizeLimit: room for the log, which is a file as well.
inline constexpr std::size_t kRoomBytes = 4096;

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_CORE_WRITE_TEST_H_

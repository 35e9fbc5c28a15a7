// The fixture of tests that start tools: small shell scripts in a directory of the test's own.
//
// Nothing here waits for time to pass. The clock stands still until the test moves it; a tool and
// its test meet through named pipes.

#ifndef TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_TOOL_TEST_H_
#define TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_TOOL_TEST_H_

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "core/descriptor.h"
#include "device/process_linux.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace Tarnvale::KioskService {

// Looks again and again until the condition holds; false after 30 s.
[[nodiscard]] bool WaitFor(const std::function<bool()>& condition);

// How many descriptors this process has open.
[[nodiscard]] int CountDescriptors();

// A named pipe through which one side tells the other to go on. A tool waits with "read _ < PATH"
// and tells with "echo > PATH".
class Gate {
 public:
  explicit Gate(const std::string& path);
  void Tell() const;
  // False when nobody tells within 30 s.
  [[nodiscard]] bool Wait() const;

 private:
  Descriptor fifo_;
};

// A named pipe that tells when the last process that held it for writing is gone.
class LifeLine {
 public:
  explicit LifeLine(const std::string& path);
  // False when one is still there after 30 s.
  [[nodiscard]] bool WaitUntilAllAreGone() const;

 private:
  Descriptor fifo_;
};

class ToolTest : public ::testing::Test {
 protected:
  ToolTest();

  // Makes a shell script of these lines and returns its path. "$here" is the test's directory.
  std::string MakeTool(const std::string& name, const std::string& lines);

  // Runs a tool that says "ready" on its status pipe, and lets this much time pass then.
  ProcResult RunPastReady(const std::string& tool, std::int32_t timeoutMs, std::int64_t passingMs);

  TempDir directory;
  LogCapture log;
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_TOOL_TEST_H_

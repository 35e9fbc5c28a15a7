// Tools of the system, replaced in a sandbox by scripts that record how they were called.

#ifndef TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_RECORDER_H_
#define TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_RECORDER_H_

#include <string>
#include <thread>

#include "slots/support/tool_test.h"
#include "support/test_clock.h"

namespace Tarnvale::KioskService {

class RecordedToolTest : public ToolTest {
 protected:
  // Puts a tool in front of the system's own. It records its name and arguments and goes on with
  // these lines.
  void Replace(const std::string& name, const std::string& lines = "") {
    const std::string script = "#!/bin/sh\nhere='" + directory.Path() + "'\n( printf '" + name +
                               "'; printf ' [%s]' \"$@\"; echo ) >> $here/calls\n";
    WriteText("/usr/sbin/" + name, script + lines + "\n", 0755);
  }

  // All calls in their order, "NAME [ARGUMENT]..." each.
  [[nodiscard]] std::string Calls() {
    return Exists(directory.At("calls")) ? ReadText(directory.At("calls")) : "";
  }

  // A tool's lines that make it hang and tell PassDeadline of it.
  static constexpr char kHang[] = "echo > $here/hanging\nexec cat $here/never";

  // Runs something with tools that hang, and lets time pass as soon as one does, so that the
  // longest wait ends.
  template <typename Function>
  auto PassDeadline(std::int64_t passingMs, const Function& run) {
    const Gate hanging(directory.At("hanging"));
    const Gate never(directory.At("never"));
    std::thread clock([&hanging, passingMs] {
      EXPECT_TRUE(hanging.Wait());
      TestClock::AdvanceMs(passingMs);
    });
    auto result = run();
    clock.join();
    return result;
  }
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_RECORDER_H_

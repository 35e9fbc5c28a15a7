// A tool's input on a system that has no null device to give it.

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "core/descriptor.h"
#include "device/process_linux.h"
#include "slots/support/tool_test.h"

namespace Tarnvale::KioskService {
namespace {

using RunProcessWithoutNullDevice = ToolTest;

TEST_F(RunProcessWithoutNullDevice, LeavesTheServicesOwnInput) {
  WriteText(directory.At("input"), "the service's own");
  const Descriptor input(::open(directory.At("input").c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::dup2(input.Get(), STDIN_FILENO), STDIN_FILENO);
  ASSERT_EQ(::mount("tmpfs", "/dev", "tmpfs", 0, nullptr), 0);

  const ProcResult run = RunProcess({"/bin/cat"}, 10'000);

  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "the service's own");
  EXPECT_EQ(log.Text(), "");
}

}  // namespace
}  // namespace Tarnvale::KioskService

#include <stdlib.h>

#include <gtest/gtest.h>

#include "device/process_linux.h"
#include "slots/support/system_stand_ins.h"
#include "slots/support/tool_test.h"

namespace Tarnvale::KioskService {
namespace {

using FindToolTest = ToolTest;
using SystemctlMissing = ToolTest;
using Paths = std::vector<std::string>;

TEST_F(FindToolTest, TriesTheFourDirectoriesInTheirOrder) {
  StandIn::SetExecutables({});

  EXPECT_EQ(FindTool("tool"), "");
  EXPECT_EQ(StandIn::TriedExecutables(),
            (Paths{"/usr/sbin/tool", "/usr/bin/tool", "/sbin/tool", "/bin/tool"}));
}

TEST_F(FindToolTest, TakesTheFirstThatMayBeExecuted) {
  const Paths all = {"/usr/sbin/tool", "/usr/bin/tool", "/sbin/tool", "/bin/tool"};

  for (std::size_t first = 0; first < all.size(); ++first) {
    StandIn::SetExecutables({all.begin() + static_cast<std::ptrdiff_t>(first), all.end()});
    EXPECT_EQ(FindTool("tool"), all[first]);
  }
}

TEST_F(FindToolTest, NeverLooksAlongPath) {
  (void)MakeTool("a-tool-of-the-test", "exit 0");
  ASSERT_EQ(::setenv("PATH", directory.Path().c_str(), 1), 0);

  EXPECT_EQ(FindTool("a-tool-of-the-test"), "");
  EXPECT_EQ(FindTool("env"), "/usr/bin/env");
}

TEST_F(FindToolTest, FindsToolsWithoutPath) {
  ASSERT_EQ(::unsetenv("PATH"), 0);

  EXPECT_EQ(FindTool("env"), "/usr/bin/env");
}

TEST_F(SystemctlMissing, IsAFailureWithoutOutputAndWithoutALine) {
  StandIn::SetExecutables({});

  const ProcResult run = Systemctl({"daemon-reload"}, 10'000);

  EXPECT_EQ(run.status, -1);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(SystemctlMissing, LeavesEveryUnitInactive) {
  StandIn::SetExecutables({});

  EXPECT_FALSE(UnitActive("any.service"));
}

}  // namespace
}  // namespace Tarnvale::KioskService

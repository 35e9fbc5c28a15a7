// The status pipe: the one way in which a tool tells of its progress while it runs.

#include <gtest/gtest.h>

#include <thread>

#include "device/process_linux.h"
#include "slots/support/tool_test.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::int32_t kTimeoutMs = 10'000;

class RunProcessStatusPipe : public ToolTest {
 protected:
  // The status lines of a script.
  std::vector<std::string> Hear(const std::string& script, std::int32_t statusFd = 3) {
    std::vector<std::string> heard;
    const ProcResult run = RunProcess({MakeTool("tool", script)}, kTimeoutMs, {}, statusFd,
                                      [&heard](const std::string& line) { heard.push_back(line); });
    EXPECT_EQ(run.status, 0) << run.output;
    return heard;
  }

  using Lines = std::vector<std::string>;
};

TEST_F(RunProcessStatusPipe, DeliversEachLineWithoutItsLineFeed) {
  EXPECT_EQ(Hear("printf 'one\\n\\n two \\r\\n' >&3"), (Lines{"one", "", " two \r"}));
}

TEST_F(RunProcessStatusPipe, DeliversALineThatCameInTwoPiecesWhole) {
  const Gate gate(directory.At("gate"));
  const std::string tool =
      MakeTool("tool", "printf 'one\\nhal' >&3\nread _ < $here/gate\nprintf 'ves\\nlast\\n' >&3");
  Lines heard;

  const ProcResult run = RunProcess({tool}, kTimeoutMs, {}, 3, [&](const std::string& line) {
    heard.push_back(line);
    if (line == "one") gate.Tell();  // so the second piece is written after the first was read
  });

  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(heard, (Lines{"one", "halves", "last"}));
}

TEST_F(RunProcessStatusPipe, DeliversALineOfManyBlocksWhole) {
  const Lines heard = Hear("head -c 100000 /dev/zero | tr '\\0' x >&3\necho >&3");

  ASSERT_EQ(heard.size(), 1U);
  EXPECT_EQ(heard[0], std::string(100'000, 'x'));
}

TEST_F(RunProcessStatusPipe, DropsALastLineWithoutLineFeed) {
  EXPECT_EQ(Hear("printf 'one\\ntwo' >&3"), Lines{"one"});
  EXPECT_EQ(Hear("printf 'alone' >&3"), Lines{});
}

TEST_F(RunProcessStatusPipe, IsNoPartOfTheOutput) {
  const std::string tool = MakeTool("tool", "echo out\necho status >&3\necho err >&2");

  EXPECT_EQ(RunProcess({tool}, kTimeoutMs, {}, 3).output, "out\nerr\n");
}

TEST_F(RunProcessStatusPipe, IsReadToItsEndWithoutACallable) {
  const std::string tool = MakeTool("tool", "yes | head -c 1000000 >&3\nexit 5");

  EXPECT_EQ(RunProcess({tool}, kTimeoutMs, {}, 3).status, 5);
}

TEST_F(RunProcessStatusPipe, OutlivesTheOutput) {
  EXPECT_EQ(Hear("exec >&- 2>&-\necho still here >&3"), Lines{"still here"});
}

TEST_F(RunProcessStatusPipe, MayEndBeforeTheOutput) {
  const std::string tool = MakeTool("tool", "echo one >&3\nexec 3>&-\necho out");

  EXPECT_EQ(RunProcess({tool}, kTimeoutMs, {}, 3).output, "out\n");
}

TEST_F(RunProcessStatusPipe, IsHeardOnTheCallersThread) {
  const std::string tool = MakeTool("tool", "echo x >&3");
  std::thread::id heardOn;

  (void)RunProcess({tool}, kTimeoutMs, {}, 3,
                   [&heardOn](const std::string&) { heardOn = std::this_thread::get_id(); });

  EXPECT_EQ(heardOn, std::this_thread::get_id());
}

TEST_F(RunProcessStatusPipe, IsHeardWhileTheToolRuns) {
  const Gate gate(directory.At("gate"));
  const std::string tool = MakeTool("tool", "echo go >&3\nread _ < $here/gate\nexit 3");

  const ProcResult run =
      RunProcess({tool}, kTimeoutMs, {}, 3, [&gate](const std::string&) { gate.Tell(); });

  EXPECT_EQ(run.status, 3);
}

TEST_F(RunProcessStatusPipe, IsDescriptorThreeWhateverNumberAsksForIt) {
  for (const std::int32_t asked : {0, 1, 7, -2})
    EXPECT_EQ(Hear("echo x >&3", asked), Lines{"x"}) << asked;
}

TEST_F(RunProcessStatusPipe, IsMissingWhenNobodyAsks) {
  const std::string tool = MakeTool("tool", "if ( echo x >&3 ) 2>/dev/null; then exit 1; fi");
  bool heard = false;

  const ProcResult run = RunProcess({tool}, kTimeoutMs, {}, kNoStatusFd,
                                    [&heard](const std::string&) { heard = true; });

  EXPECT_EQ(run.status, 0);
  EXPECT_FALSE(heard);
}

}  // namespace
}  // namespace Tarnvale::KioskService

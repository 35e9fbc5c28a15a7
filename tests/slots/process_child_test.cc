// What a tool finds when it starts: its arguments, environment, descriptors and process group.

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <memory>
#include <thread>

#include "device/process_linux.h"
#include "portal/http_linux.h"
#include "slots/support/http_peer.h"
#include "slots/support/http_test.h"
#include "slots/support/tool_test.h"
#include "support/test_clock.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::int32_t kTimeoutMs = 10'000;

class RunProcessChild : public ToolTest {
 protected:
  static void SetOwnEnvironment(const std::vector<std::pair<std::string, std::string>>& entries) {
    ASSERT_EQ(::clearenv(), 0);
    for (const auto& [name, value] : entries)
      ASSERT_EQ(::setenv(name.c_str(), value.c_str(), 1), 0);
  }
};

TEST_F(RunProcessChild, GetsEachArgumentAsItStands) {
  const std::string tool = MakeTool("tool", "for each in \"$@\"; do printf '[%s]' \"$each\"; done");

  const ProcResult run =
      RunProcess({tool, "", "a b", "$HOME", "';exit 9;'", "*", "one\ntwo", "-x"}, kTimeoutMs);

  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "[][a b][$HOME][';exit 9;'][*][one\ntwo][-x]");
}

TEST_F(RunProcessChild, GetsTheFullPathAsItsName) {
  const ProcResult run = RunProcess({"/bin/cat", "/proc/self/cmdline"}, kTimeoutMs);

  EXPECT_EQ(run.output, std::string("/bin/cat\0/proc/self/cmdline\0", 28));
}

TEST_F(RunProcessChild, IsNeverFoundThroughPath) {
  (void)MakeTool("tool", "echo found");
  ASSERT_EQ(::setenv("PATH", directory.Path().c_str(), 1), 0);

  EXPECT_EQ(RunProcess({"tool"}, kTimeoutMs).status, 127);
}

TEST_F(RunProcessChild, GetsTheServicesEnvironmentThenTheExtraThenTheLocale) {
  SetOwnEnvironment({{"ZED", "1"}, {"ALPHA", "two words"}});

  const ProcResult run = RunProcess({"/usr/bin/env"}, kTimeoutMs, {"MORE=3", "ALPHA=again"});

  EXPECT_EQ(run.output, "ZED=1\nALPHA=two words\nMORE=3\nALPHA=again\nLC_ALL=C\n");
}

TEST_F(RunProcessChild, KeepsTheServicesOwnLocaleAheadOfTheLast) {
  SetOwnEnvironment({{"LC_ALL", "de_DE.UTF-8"}, {"A", "1"}});

  const ProcResult run = RunProcess({"/usr/bin/env"}, kTimeoutMs, {"LC_ALL=fr_FR.UTF-8"});

  EXPECT_EQ(run.output, "LC_ALL=de_DE.UTF-8\nA=1\nLC_ALL=fr_FR.UTF-8\nLC_ALL=C\n");
}

TEST_F(RunProcessChild, GetsTheLocaleAloneFromAnEmptyEnvironment) {
  SetOwnEnvironment({});

  EXPECT_EQ(RunProcess({"/usr/bin/env"}, kTimeoutMs).output, "LC_ALL=C\n");
}

TEST_F(RunProcessChild, InheritsNothingButTheThreeStreams) {
  Pipe other;
  Pipe another;
  ASSERT_TRUE(OpenPipe(other) && OpenPipe(another));

  // The fourth is the listing's own.
  EXPECT_EQ(RunProcess({"/bin/ls", "/proc/self/fd"}, kTimeoutMs).output, "0\n1\n2\n3\n");
}

TEST_F(RunProcessChild, InheritsNothingThatALibraryLeftOpenForIt) {
  Pipe other;
  ASSERT_TRUE(OpenPipe(other));
  ASSERT_EQ(::fcntl(other.writeEnd.Get(), F_SETFD, 0), 0);

  EXPECT_EQ(RunProcess({"/bin/ls", "/proc/self/fd"}, kTimeoutMs).output, "0\n1\n2\n3\n");
}

class RunProcessDuringAnExchange : public HttpTest {
 protected:
  RunProcessDuringAnExchange() {
    TestClock::WaitForReal();
  }
};

TEST_F(RunProcessDuringAnExchange, KeepsTheExchangeFromTheChild) {
  // The HTTP library opens its sockets for children too, so a tool that ran during a check-in held
  // the connection to the portal for as long as it lived.
  auto peer = std::make_unique<HttpPeer>("", HttpPeer::Ending::kHold);
  std::thread exchange([url = peer->Url()] { (void)HttpExchange("GET", url, "", "t", 10, "*/*"); });
  EXPECT_TRUE(WaitFor([&peer] { return !peer->Requests().empty(); }));

  EXPECT_EQ(RunProcess({"/bin/ls", "/proc/self/fd"}, kTimeoutMs).output, "0\n1\n2\n3\n");

  peer.reset();  // which ends the exchange
  exchange.join();
}

TEST_F(RunProcessChild, InheritsTheStatusPipeAsItsFourth) {
  Pipe other;
  ASSERT_TRUE(OpenPipe(other));

  const ProcResult run = RunProcess({"/bin/ls", "/proc/self/fd"}, kTimeoutMs, {}, 3);

  EXPECT_EQ(run.output, "0\n1\n2\n3\n4\n");
}

TEST_F(RunProcessChild, ReadsNullInput) {
  EXPECT_EQ(RunProcess({"/bin/readlink", "/proc/self/fd/0"}, kTimeoutMs).output, "/dev/null\n");
  EXPECT_EQ(RunProcess({"/bin/cat"}, kTimeoutMs).status, 0);
}

TEST_F(RunProcessChild, CannotWriteToItsInput) {
  const std::string tool = MakeTool("tool", "echo x 2>/dev/null >&0");

  EXPECT_NE(RunProcess({tool}, kTimeoutMs).status, 0);
}

TEST_F(RunProcessChild, HasBothStreamsOnOnePipe) {
  const std::string tool =
      MakeTool("tool", "readlink /proc/self/fd/1\nreadlink /proc/self/fd/2 | cat");

  const std::string output = RunProcess({tool}, kTimeoutMs).output;

  const std::string first = output.substr(0, output.find('\n') + 1);
  EXPECT_TRUE(first.starts_with("pipe:[")) << output;
  EXPECT_EQ(output, first + first);
}

TEST_F(RunProcessChild, LeadsAProcessGroupOfItsOwn) {
  // The first field is the process, the fifth its group.
  const ProcResult run =
      RunProcess({"/usr/bin/cut", "-d ", "-f1,5", "/proc/self/stat"}, kTimeoutMs);

  const std::string pid = run.output.substr(0, run.output.find(' '));
  EXPECT_FALSE(pid.empty());
  EXPECT_EQ(run.output, pid + " " + pid + "\n");
}

TEST_F(RunProcessChild, GoesOnIgnoringTheBrokenPipesThatTheServiceIgnores) {
  ASSERT_NE(::signal(SIGPIPE, SIG_IGN), SIG_ERR);

  const ProcResult run = RunProcess({"/bin/grep", "SigIgn", "/proc/self/status"}, kTimeoutMs);

  const unsigned long mask = std::stoul(run.output.substr(run.output.find('\t')), nullptr, 16);
  EXPECT_NE(mask & (1UL << (SIGPIPE - 1)), 0U) << run.output;
}

}  // namespace
}  // namespace Tarnvale::KioskService

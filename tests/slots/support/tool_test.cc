#include "slots/support/tool_test.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <iterator>

#include "support/test_clock.h"

namespace Tarnvale::KioskService {
namespace {

constexpr int kPatienceMs = 30'000;

Descriptor OpenFifo(const std::string& path, int flags) {
  EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0) << path;
  Descriptor fifo(::open(path.c_str(), flags | O_CLOEXEC));
  EXPECT_TRUE(fifo.IsOpen()) << path;
  return fifo;
}

bool WaitForEvent(const Descriptor& fifo, short events) {
  pollfd entry = {fifo.Get(), events, 0};
  return ::poll(&entry, 1, kPatienceMs) == 1;
}

}  // namespace

bool WaitFor(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatienceMs);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    (void)::poll(nullptr, 0, 1);  // only gives the processor away
  }
  return true;
}

int CountDescriptors() {
  const std::filesystem::directory_iterator listing("/proc/self/fd");
  return static_cast<int>(std::distance(begin(listing), end(listing)));
}

// Open for both directions, so that neither side waits for the other to open its end.
Gate::Gate(const std::string& path) : fifo_(OpenFifo(path, O_RDWR)) {}

void Gate::Tell() const {
  EXPECT_EQ(::write(fifo_.Get(), "\n", 1), 1);
}

bool Gate::Wait() const {
  char told = 0;
  return WaitForEvent(fifo_, POLLIN) && ::read(fifo_.Get(), &told, 1) == 1;
}

LifeLine::LifeLine(const std::string& path) : fifo_(OpenFifo(path, O_RDONLY | O_NONBLOCK)) {}

bool LifeLine::WaitUntilAllAreGone() const {
  return WaitForEvent(fifo_, 0);  // poll reports the hang-up unasked
}

ToolTest::ToolTest() {
  TestClock::WaitForReal();
  // What the test runner itself inherited is none of the service's.
  EXPECT_EQ(::close_range(3, ~0U, CLOSE_RANGE_CLOEXEC), 0);
  EXPECT_NE(::signal(SIGPIPE, SIG_DFL), SIG_ERR);
}

std::string ToolTest::MakeTool(const std::string& name, const std::string& lines) {
  const std::string path = directory.At(name);
  WriteText(path, "#!/bin/sh\nhere='" + directory.Path() + "'\n" + lines + "\n", 0755);
  return path;
}

ProcResult ToolTest::RunPastReady(const std::string& tool, std::int32_t timeoutMs,
                                  std::int64_t passingMs) {
  return RunProcess({tool}, timeoutMs, {}, 3, [passingMs](const std::string& line) {
    if (line == "ready") TestClock::AdvanceMs(passingMs);
  });
}

}  // namespace Tarnvale::KioskService

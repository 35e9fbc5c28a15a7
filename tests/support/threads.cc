#include "support/threads.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

namespace Tarnvale::KioskService {
namespace {

constexpr char kTasks[] = "/proc/self/task";
constexpr auto kLongestWait = std::chrono::seconds(20);

std::string TaskPath(pid_t thread) {
  return kTasks + ("/" + std::to_string(thread));
}

}  // namespace

bool Eventually(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + kLongestWait;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::yield();
  }
  return true;
}

pid_t ThreadId() {
  return static_cast<pid_t>(::syscall(SYS_gettid));
}

bool IsAsleep(pid_t thread) {
  std::ifstream file(TaskPath(thread) + "/stat");
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  // The state is the letter behind the name, which stands in brackets and may hold any byte.
  const std::size_t nameEnd = text.rfind(')');
  return nameEnd != std::string::npos && text.substr(nameEnd, 3) == ") S";
}

int ThreadCount() {
  const std::filesystem::directory_iterator tasks(kTasks);
  return static_cast<int>(std::distance(begin(tasks), end(tasks)));
}

int ThreadCountAtStart() {
  pid_t first = 0;
  std::thread([&first] { first = ThreadId(); }).join();
  // A thread that was joined may still be listed for a moment.
  EXPECT_TRUE(Eventually([first] { return !std::filesystem::exists(TaskPath(first)); }));
  return ThreadCount();
}

}  // namespace Tarnvale::KioskService

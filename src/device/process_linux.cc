#include "device/process_linux.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <string_view>

#include "core/clock.h"
#include "core/descriptor.h"
#include "core/log.h"
#include "core/units.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::size_t kMaxOutputBytes = 4 * kMiB;
constexpr std::size_t kReadBlockBytes = 4 * kKiB;
// The deadline is tested at least this often, whatever poll does.
constexpr std::int64_t kLongestPollMs = 1 * kSecondMs;
constexpr std::int32_t kUnitActiveTimeoutMs = 10 * kSecondMs;
constexpr int kChildStatusFd = 3;
constexpr int kExitNotExecuted = 127;

constexpr std::string_view kToolDirectories[] = {"/usr/sbin/", "/usr/bin/", "/sbin/", "/bin/"};

// Null-terminated pointers into `texts`, which must outlive them.
std::vector<char*> MakePointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts)
    pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// A name that occurs twice stays twice; the C locale comes last, since the output will be parsed.
std::vector<std::string> MakeEnvironment(const std::vector<std::string>& extraEnv) {
  std::vector<std::string> environment;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    environment.emplace_back(*entry);
  }
  environment.insert(environment.end(), extraEnv.begin(), extraEnv.end());
  environment.emplace_back("LC_ALL=C");
  return environment;
}

// Libraries open descriptors for children too: the HTTP library its connection to the portal, which
// a tool that ran meanwhile would hold for as long as it lives. One that is opened between this and
// the fork still slips through.
void KeepDescriptorsFromChildren() {
  // Fails on a kernel that cannot do it alone; the service's own are close-on-exec anyway.
  (void)::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
}

// All that the child needs, made before the fork: between fork and execve nothing may allocate,
// since another thread may have held the allocator's lock.
struct ChildPlan {
  int outputFd;
  int statusFd;  // kNoStatusFd for none
  char* const* argv;
  char* const* environment;
};

[[noreturn]] void BecomeTool(const ChildPlan& plan) {
  const int null = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (null >= 0) (void)::dup2(null, STDIN_FILENO);  // without it the service's own input stays
  (void)::dup2(plan.outputFd, STDOUT_FILENO);       // nobody is left to be told
  (void)::dup2(plan.outputFd, STDERR_FILENO);
  if (plan.statusFd != kNoStatusFd) (void)::dup2(plan.statusFd, kChildStatusFd);
  (void)::setpgid(0, 0);  // a session leader has a group of its own already
  ::execve(plan.argv[0], plan.argv, plan.environment);
  ::_exit(kExitNotExecuted);
}

// Reads one block. Closes the pipe and answers with nothing at its end, a failed read included.
std::string_view ReadBlock(Descriptor& pipe, std::array<char, kReadBlockBytes>& block) {
  const ssize_t count = ::read(pipe.Get(), block.data(), block.size());
  if (count > 0) return {block.data(), static_cast<std::size_t>(count)};
  (void)pipe.Close();  // a pipe's read end has nothing to lose
  return {};
}

// Cuts the complete lines off the front of `pending` and delivers them.
void DeliverLines(std::string& pending, const std::function<void(const std::string&)>& onLine) {
  for (std::size_t end = pending.find('\n'); end != std::string::npos; end = pending.find('\n')) {
    const std::string line = pending.substr(0, end);
    pending.erase(0, end + 1);
    if (onLine) onLine(line);
  }
}

bool HasInput(const pollfd& entry) {
  return (entry.revents & (POLLIN | POLLERR | POLLHUP)) != 0;
}

// Follows both pipes to their ends. False when the deadline passed first.
bool ReadUntilEnd(Descriptor& output, Descriptor& status, std::int64_t deadlineMs,
                  std::string& kept, const std::function<void(const std::string&)>& onStatusLine) {
  std::array<char, kReadBlockBytes> block;
  std::string pendingStatus;
  while (output.IsOpen() || status.IsOpen()) {
    const std::int64_t remainingMs = deadlineMs - SteadyNowMs();
    if (remainingMs < 1) return false;
    pollfd entries[] = {{output.Get(), POLLIN, 0}, {status.Get(), POLLIN, 0}};
    if (PollFor(entries, 2, std::min(remainingMs, kLongestPollMs)) < 0) {
      if (errno == EINTR) continue;
      return true;
    }
    if (HasInput(entries[0])) {
      const std::string_view bytes = ReadBlock(output, block);
      if (kept.size() < kMaxOutputBytes) kept += bytes;
    }
    if (HasInput(entries[1])) {
      pendingStatus += ReadBlock(status, block);
      DeliverLines(pendingStatus, onStatusLine);
    }
  }
  return true;
}

// The exit code of the child; -1 when it died on a signal, or when somebody else has waited for it.
std::int32_t WaitForExit(pid_t pid) {
  int waitStatus = 0;
  pid_t waited = 0;
  do {
    waited = ::waitpid(pid, &waitStatus, 0);
  } while (waited < 0 && errno == EINTR);
  return waited == pid && WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : -1;
}

}  // namespace

std::string FindTool(const std::string& name) {
  for (const std::string_view directory : kToolDirectories) {
    std::string path = std::string(directory) + name;
    if (::access(path.c_str(), X_OK) == 0) return path;
  }
  return {};
}

ProcResult RunProcess(const std::vector<std::string>& argv, std::int32_t timeoutMs,
                      const std::vector<std::string>& extraEnv, std::int32_t statusFd,
                      const std::function<void(const std::string&)>& onStatusLine) {
  ProcResult result;
  Pipe output;
  Pipe status;
  if (!OpenPipe(output)) return result;
  if (statusFd != kNoStatusFd && !OpenPipe(status)) return result;

  std::vector<std::string> arguments = argv;
  std::vector<std::string> environment = MakeEnvironment(extraEnv);
  const std::vector<char*> argumentPointers = MakePointers(arguments);
  const std::vector<char*> environmentPointers = MakePointers(environment);
  const ChildPlan plan = {output.writeEnd.Get(), status.writeEnd.Get(), argumentPointers.data(),
                          environmentPointers.data()};
  KeepDescriptorsFromChildren();
  const pid_t pid = ::fork();
  if (pid < 0) return result;
  if (pid == 0) BecomeTool(plan);

  (void)output.writeEnd.Close();  // the child has its own; without this the pipes would never end
  (void)status.writeEnd.Close();
  const std::int64_t deadlineMs = SteadyNowMs() + timeoutMs;
  const bool finished =
      ReadUntilEnd(output.readEnd, status.readEnd, deadlineMs, result.output, onStatusLine);
  if (!finished) {
    // The group is made by the child. One that has not come that far is not reached, and ends by
    // itself.
    (void)::kill(-pid, SIGTERM);
    Log("<3>%s did not finish in %d s; stopped\n", arguments[0].c_str(),
        static_cast<int>(timeoutMs / kSecondMs));
  }
  (void)output.readEnd.Close();  // a tool that goes on writing receives SIGPIPE
  (void)status.readEnd.Close();
  const std::int32_t exitCode = WaitForExit(pid);
  if (finished) result.status = exitCode;
  return result;
}

ProcResult Systemctl(const std::vector<std::string>& args, std::int32_t timeoutMs) {
  std::vector<std::string> argv = {FindTool("systemctl")};
  if (argv[0].empty()) return {};
  argv.insert(argv.end(), args.begin(), args.end());
  return RunProcess(argv, timeoutMs);
}

bool UnitActive(const std::string& unit) {
  return Systemctl({"is-active", "--quiet", unit}, kUnitActiveTimeoutMs).status == 0;
}

}  // namespace Tarnvale::KioskService

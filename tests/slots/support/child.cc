#include "slots/support/child.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <utility>

namespace Tarnvale::KioskService {

Child::Child(const std::vector<std::string>& argv) {
  Pipe output;
  EXPECT_TRUE(OpenPipe(output));
  std::vector<std::string> arguments = argv;
  std::vector<char*> pointers;
  for (std::string& argument : arguments)
    pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, output.writeEnd.Get(), STDOUT_FILENO);
  // Standard error may be the log that the test looks at.
  ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  EXPECT_EQ(::posix_spawn(&pid_, pointers[0], &actions, nullptr, pointers.data(), environ), 0)
      << "cannot start " << argv[0];
  ::posix_spawn_file_actions_destroy(&actions);
  output_ = std::move(output.readEnd);
}

Child::~Child() {
  End();
}

std::string Child::ReadLine() const {
  std::string line;
  for (char byte = 0; ::read(output_.Get(), &byte, 1) == 1 && byte != '\n';)
    line += byte;
  return line;
}

int Child::Wait() {
  int status = -1;
  const pid_t pid = std::exchange(pid_, -1);
  while (pid > 0 && ::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

void Child::End() {
  if (pid_ > 0) (void)::kill(pid_, SIGKILL);
  (void)Wait();
}

}  // namespace Tarnvale::KioskService

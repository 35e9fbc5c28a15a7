// One message, one write.

#include "core/log.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "core/descriptor.h"
#include "support/log_capture.h"
#include "support/threads.h"

namespace Tarnvale::KioskService {
namespace {

// Puts a descriptor in the place of standard error for as long as it lives.
class StandardError {
 public:
  explicit StandardError(int fd) : real_(::dup(STDERR_FILENO)) {
    EXPECT_EQ(::dup2(fd, STDERR_FILENO), STDERR_FILENO);
  }
  ~StandardError() {
    (void)::dup2(real_.Get(), STDERR_FILENO);
  }
  StandardError(const StandardError&) = delete;
  StandardError& operator=(const StandardError&) = delete;

 private:
  Descriptor real_;
};

// A channel that hands on each write as a message of its own.
struct Messages {
  Messages() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
    reader = Descriptor(ends[0]);
    writer = Descriptor(ends[1]);
  }

  std::string Next() const {
    std::string message(200000, '\0');
    const ssize_t length = ::recv(reader.Get(), message.data(), message.size(), MSG_DONTWAIT);
    return message.substr(0, length < 0 ? 0 : static_cast<std::size_t>(length));
  }

  Descriptor reader;
  Descriptor writer;
};

TEST(Log, WritesTheFormattedTextAndNothingElse) {
  const LogCapture log;

  Log("<6>power: %s in %d s\n", "restart", 10);
  Log("<4>100%% of %s\n", "%s%n");

  EXPECT_EQ(log.Text(), "<6>power: restart in 10 s\n<4>100% of %s%n\n");
}

TEST(Log, WritesALineInOneWrite) {
  const Messages messages;
  const StandardError redirected(messages.writer.Get());

  Log("<6>%s %d %s\n", "one", 2, "three\nfour");

  EXPECT_EQ(messages.Next(), "<6>one 2 three\nfour\n");
  EXPECT_EQ(messages.Next(), "");
}

TEST(Log, WritesALongLineInOneWriteToo) {
  const Messages messages;
  const StandardError redirected(messages.writer.Get());
  const std::string longText(100000, 'x');

  Log("<3>%s\n", longText.c_str());

  EXPECT_EQ(messages.Next(), "<3>" + longText + "\n");
  EXPECT_EQ(messages.Next(), "");
}

TEST(Log, KeepsTheLinesOfManyThreadsApart) {
  constexpr int kThreads = 8;
  constexpr int kLines = 200;
  const LogCapture log;

  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([thread] {
      for (int line = 0; line < kLines; ++line)
        Log("<6>%d %s %d\n", thread, "a text of some length", line);
    });
  }
  for (std::thread& thread : threads)
    thread.join();

  const std::vector<std::string> lines = log.Lines();
  std::set<std::string> expected;
  for (int thread = 0; thread < kThreads; ++thread) {
    for (int line = 0; line < kLines; ++line)
      expected.insert("<6>" + std::to_string(thread) + " a text of some length " +
                      std::to_string(line));
  }
  EXPECT_EQ(lines.size(), expected.size());
  EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()), expected);
}

TEST(Log, KeepsErrno) {
  const LogCapture log;

  errno = ENOSPC;
  Log("<3>a line\n");

  EXPECT_EQ(errno, ENOSPC);
}

TEST(Log, LosesALineThatStandardErrorRefuses) {
  Pipe pipe;
  ASSERT_TRUE(OpenPipe(pipe));
  const StandardError redirected(pipe.readEnd.Get());

  errno = ENOSPC;
  Log("<3>a line\n");

  EXPECT_EQ(errno, ENOSPC);
}

std::atomic<int> signalsTaken{0};

// A pipe of standard error's that is full, so that the next line waits for a reader.
class FullPipe {
 public:
  FullPipe() {
    EXPECT_TRUE(OpenPipe(pipe_));
    struct sigaction action = {};
    action.sa_handler = [](int) { signalsTaken.fetch_add(1); };
    EXPECT_EQ(::sigaction(SIGUSR1, &action, nullptr), 0);
    const std::string block(4096, '.');
    EXPECT_EQ(::fcntl(pipe_.writeEnd.Get(), F_SETFL, O_NONBLOCK), 0);
    while (::write(pipe_.writeEnd.Get(), block.data(), block.size()) > 0) {
    }
    EXPECT_EQ(::fcntl(pipe_.writeEnd.Get(), F_SETFL, 0), 0);
  }

  int WriteEnd() const {
    return pipe_.writeEnd.Get();
  }

  // Reads until the line feed that ends a line.
  std::string Drain() const {
    std::string text;
    char block[4096];
    while (text.empty() || text.back() != '\n') {
      const ssize_t count = ::read(pipe_.readEnd.Get(), block, sizeof block);
      if (count < 1) break;
      text.append(block, static_cast<std::size_t>(count));
    }
    return text.substr(text.find_first_not_of('.'));
  }

 private:
  Pipe pipe_;
};

TEST(Log, IsNotLostToASignal) {
  const FullPipe full;
  const StandardError redirected(full.WriteEnd());
  std::atomic<pid_t> id{0};
  std::thread logging([&id] {
    id = ThreadId();
    Log("<6>a line\n");
  });
  ASSERT_TRUE(Eventually([&id] { return id != 0 && IsAsleep(id); }));

  ASSERT_EQ(::pthread_kill(logging.native_handle(), SIGUSR1), 0);
  EXPECT_TRUE(Eventually([&id] { return signalsTaken == 1 && IsAsleep(id); }));

  EXPECT_EQ(full.Drain(), "<6>a line\n");
  logging.join();
}

}  // namespace
}  // namespace Tarnvale::KioskService

// Reading the service's own files with care.

#include "core/files.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "core/descriptor.h"
#include "core/failing_calls.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "support/threads.h"

namespace Tarnvale::KioskService {
namespace {

using std::string_literals::operator""s;

class ReadFileLimitedTest : public ::testing::Test {
 protected:
  TempDir dir;
  const std::string path = dir.At("file");
  std::string out = "as it was";
  LogCapture log;
};

TEST_F(ReadFileLimitedTest, GivesTheBytesAsTheyStand) {
  WriteText(path, "a\0b\n\xff"s);

  EXPECT_TRUE(ReadFileLimited(path, 100, out));

  EXPECT_EQ(out, "a\0b\n\xff"s);
}

TEST_F(ReadFileLimitedTest, OpensItsFileForNoChild) {
  WriteText(path, "text");
  const FailingCalls calls;
  int opened = 0;
  FailingCalls::WatchOpens([&](const std::string& name, int flags) {
    if (name != path) return;
    ++opened;
    EXPECT_NE(flags & O_CLOEXEC, 0);
  });

  EXPECT_TRUE(ReadFileLimited(path, 100, out));

  EXPECT_EQ(opened, 1);
}

TEST_F(ReadFileLimitedTest, ReadsAnEmptyFileWell) {
  WriteText(path, "");

  EXPECT_TRUE(ReadFileLimited(path, 0, out));

  EXPECT_EQ(out, "");
}

TEST_F(ReadFileLimitedTest, ReadsUpToTheLimitAndNotAByteMore) {
  WriteText(path, std::string(256, 'x'));
  EXPECT_TRUE(ReadFileLimited(path, 256, out));
  EXPECT_EQ(out, std::string(256, 'x'));

  EXPECT_FALSE(ReadFileLimited(path, 255, out));
  EXPECT_EQ(out, "");
}

TEST_F(ReadFileLimitedTest, ReadsAFileThatTakesManyReads) {
  const std::string text(8UL * 1024 * 1024, 'x');
  WriteText(path, text);

  EXPECT_TRUE(ReadFileLimited(path, text.size(), out));

  EXPECT_TRUE(out == text);
}

TEST_F(ReadFileLimitedTest, LeavesTheResultAloneWhenThereIsNoFile) {
  EXPECT_FALSE(ReadFileLimited(path, 100, out));
  EXPECT_EQ(out, "as it was");

  EXPECT_FALSE(ReadFileLimited("", 100, out));
  EXPECT_EQ(out, "as it was");
}

TEST_F(ReadFileLimitedTest, FollowsNoLink) {
  WriteText(dir.At("target"), "text");
  ASSERT_EQ(::symlink("target", path.c_str()), 0);

  EXPECT_FALSE(ReadFileLimited(path, 100, out));

  EXPECT_EQ(out, "as it was");
}

TEST_F(ReadFileLimitedTest, EmptiesTheResultForADirectory) {
  ASSERT_EQ(::mkdir(path.c_str(), 0755), 0);

  EXPECT_FALSE(ReadFileLimited(path, 1000000, out));

  EXPECT_EQ(out, "");
}

TEST_F(ReadFileLimitedTest, DoesNotWaitForTheWriterOfAFifo) {
  ASSERT_EQ(::mkfifo(path.c_str(), 0644), 0);

  EXPECT_FALSE(ReadFileLimited(path, 100, out));

  EXPECT_EQ(out, "");
}

TEST_F(ReadFileLimitedTest, RefusesAFileThatIsShorterThanItSays) {
  // The kernel's own files claim a page and hold a line.
  const std::string shorter = "/sys/kernel/uevent_seqnum";
  struct stat status = {};
  if (::stat(shorter.c_str(), &status) != 0 || status.st_size < 4096) {
    GTEST_SKIP() << "needs /sys";
  }

  EXPECT_FALSE(ReadFileLimited(shorter, 100000, out));
}

TEST_F(ReadFileLimitedTest, SaysNothing) {
  WriteText(path, "text");

  EXPECT_FALSE(ReadFileLimited(dir.At("absent"), 100, out));
  EXPECT_FALSE(ReadFileLimited(path, 3, out));

  EXPECT_EQ(log.Text(), "");
}

TEST(ReadWholeFile, GivesTheWholeText) {
  const TempDir dir;
  const std::string text = "a\0b\n"s + std::string(100000, 'x');
  WriteText(dir.At("file"), text);
  ASSERT_EQ(::symlink("file", dir.At("link").c_str()), 0);

  EXPECT_EQ(ReadWholeFile(dir.At("file")), text);
  EXPECT_EQ(ReadWholeFile(dir.At("link")), text);
}

TEST(ReadWholeFile, ReadsFilesThatTellNoSize) {
  EXPECT_EQ(ReadWholeFile("/proc/self/status").substr(0, 5), "Name:");
}

// The descriptors under which this process has the file open.
std::vector<int> DescriptorsOf(const std::string& path) {
  std::vector<int> descriptors;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    if (std::filesystem::read_symlink(entry.path(), gone) == path)
      descriptors.push_back(std::stoi(entry.path().filename()));
  }
  return descriptors;
}

// A file that is being read, because its text is still to come.
class ReadWholeFileUnderWay : public ::testing::Test {
 protected:
  ReadWholeFileUnderWay() {
    EXPECT_NE(::signal(SIGPIPE, SIG_IGN), SIG_ERR);  // a reader that gave up fails the test alone
    EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0);
    reader = std::thread([this] {
      readerId = ThreadId();
      text = ReadWholeFile(path);
    });
    writer = Descriptor(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
    EXPECT_TRUE(
        Eventually([this] { return DescriptorsOf(path).size() == 2 && IsAsleep(readerId); }));
  }

  // The text that is read, once all of it has come.
  std::string Finish(const std::string& last) {
    EXPECT_EQ(::write(writer.Get(), last.data(), last.size()), static_cast<ssize_t>(last.size()));
    EXPECT_TRUE(writer.Close());
    reader.join();
    return text;
  }

  TempDir dir;
  const std::string path = dir.At("fifo");
  std::atomic<pid_t> readerId{0};
  std::thread reader;
  Descriptor writer;
  std::string text;
};

TEST_F(ReadWholeFileUnderWay, KeepsItsDescriptorFromChildren) {
  for (const int fd : DescriptorsOf(path))
    EXPECT_EQ(::fcntl(fd, F_GETFD), FD_CLOEXEC);

  EXPECT_EQ(Finish("text"), "text");
}

TEST_F(ReadWholeFileUnderWay, GoesOnAfterASignal) {
  struct sigaction quiet = {};
  quiet.sa_handler = [](int) {};  // without SA_RESTART
  ASSERT_EQ(::sigaction(SIGUSR1, &quiet, nullptr), 0);

  for (int count = 0; count < 20; ++count)
    EXPECT_EQ(::pthread_kill(reader.native_handle(), SIGUSR1), 0);

  EXPECT_EQ(Finish("text"), "text");
}

TEST(ReadWholeFile, GivesNothingWhenThereIsNoFile) {
  const TempDir dir;
  WriteText(dir.At("empty"), "");

  EXPECT_EQ(ReadWholeFile(dir.At("absent")), "");
  EXPECT_EQ(ReadWholeFile(dir.At("empty")), "");
  EXPECT_EQ(ReadWholeFile(dir.Path()), "");
}

}  // namespace
}  // namespace Tarnvale::KioskService

// Replacing a file so that a crash at any moment leaves the old one or the new one.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "core/file_size_limit.h"
#include "core/files.h"
#include "core/write_test.h"

namespace Tarnvale::KioskService {
namespace {

using std::string_literals::operator""s;

class WriteFileAtomicTest : public WriteTest {
 protected:
  // A failure leaves the old file, takes its own temporary one away, and says one line.
  void ExpectRefused(const std::string& reason, const std::string& text = "new") {
    EXPECT_FALSE(WriteFileAtomic(path, text, 0600));
    EXPECT_EQ(log.Text(), "<3>cannot write " + path + " (" + reason + ")\n");
    EXPECT_EQ(ReadText(path), "old");
    EXPECT_FALSE(Exists(temporary));
  }
};

ino_t InodeOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status.st_ino;
}

TEST_F(WriteFileAtomicTest, WritesTheBytesAsTheyStand) {
  EXPECT_TRUE(WriteFileAtomic(path, "a\0b\n\xff"s, 0600));

  EXPECT_EQ(ReadText(path), "a\0b\n\xff"s);
  EXPECT_FALSE(Exists(temporary));
  EXPECT_EQ(log.Text(), "");
}

TEST_F(WriteFileAtomicTest, WritesNothingAsAnEmptyFile) {
  WriteText(path, "old");

  EXPECT_TRUE(WriteFileAtomic(path, "", 0600));

  EXPECT_EQ(ReadText(path), "");
}

TEST_F(WriteFileAtomicTest, GivesTheModeWhateverTheUmask) {
  for (const mode_t mask : {0000U, 0022U, 0077U, 0777U}) {
    ::umask(mask);
    for (const mode_t mode : {0600U, 0644U, 0666U}) {
      EXPECT_TRUE(WriteFileAtomic(path, "text", mode));
      EXPECT_EQ(ModeOf(path), mode) << "under umask " << mask;
    }
  }
}

TEST_F(WriteFileAtomicTest, ReplacesTheFileRatherThanItsContents) {
  WriteText(path, "a longer old text", 0644);
  const std::string reader = dir.At("reader");
  ASSERT_EQ(::link(path.c_str(), reader.c_str()), 0);

  EXPECT_TRUE(WriteFileAtomic(path, "new", 0600));

  EXPECT_EQ(ReadText(path), "new");
  EXPECT_EQ(ModeOf(path), 0600U);
  EXPECT_EQ(ReadText(reader), "a longer old text");
  EXPECT_NE(InodeOf(path), InodeOf(reader));
}

TEST_F(WriteFileAtomicTest, SyncsTheWholeFileBeforeItReplacesTheOldOne) {
  WriteText(path, "old");
  std::vector<std::string> order;
  FailingCalls::Watch([&](const std::string& call) {
    order.push_back(call);
    EXPECT_EQ(ReadText(temporary), "new") << call;
    EXPECT_EQ(ReadText(path), "old") << call;
  });

  EXPECT_TRUE(WriteFileAtomic(path, "new", 0640));

  EXPECT_EQ(order, (std::vector<std::string>{"fchmod", "fsync", "rename"}));
}

TEST_F(WriteFileAtomicTest, NeverShowsTheBytesToOthers) {
  ::umask(0);
  FailingCalls::Watch([&](const std::string& call) {
    if (call != "fchmod") return;
    EXPECT_EQ(ModeOf(temporary), 0600U);
  });

  EXPECT_TRUE(WriteFileAtomic(path, "new", 0600));
}

// A child that starts while the file is written must not keep it open.
TEST_F(WriteFileAtomicTest, OpensItsFileForNoChild) {
  int opened = 0;
  FailingCalls::WatchOpens([&](const std::string& name, int flags) {
    if (name != temporary) return;
    ++opened;
    EXPECT_NE(flags & O_CLOEXEC, 0);
  });

  EXPECT_TRUE(WriteFileAtomic(path, "new", 0600));

  EXPECT_EQ(opened, 1);
}

TEST_F(WriteFileAtomicTest, RemovesTheLeftoverOfACrash) {
  WriteText(temporary, "half a docum");

  EXPECT_TRUE(WriteFileAtomic(path, "new", 0600));

  EXPECT_EQ(ReadText(path), "new");
  EXPECT_FALSE(Exists(temporary));
}

TEST_F(WriteFileAtomicTest, FollowsNoLinkAtTheTemporaryName) {
  WriteText(dir.At("target"), "untouched");
  ASSERT_EQ(::symlink("target", temporary.c_str()), 0);

  EXPECT_TRUE(WriteFileAtomic(path, "new", 0600));

  EXPECT_EQ(ReadText(path), "new");
  EXPECT_EQ(ReadText(dir.At("target")), "untouched");
}

TEST_F(WriteFileAtomicTest, ReplacesALinkAtThePath) {
  WriteText(dir.At("target"), "untouched");
  ASSERT_EQ(::symlink("target", path.c_str()), 0);

  EXPECT_TRUE(WriteFileAtomic(path, "new", 0600));

  struct stat status = {};
  ASSERT_EQ(::lstat(path.c_str(), &status), 0);
  EXPECT_TRUE(S_ISREG(status.st_mode));
  EXPECT_EQ(ReadText(path), "new");
  EXPECT_EQ(ReadText(dir.At("target")), "untouched");
}

TEST_F(WriteFileAtomicTest, TellsThatTheTemporaryFileCannotBeMade) {
  EXPECT_FALSE(WriteFileAtomic(dir.At("absent/file"), "new", 0600));
  EXPECT_EQ(log.Text(),
            "<3>cannot create " + dir.At("absent/file.tmp") + " (No such file or directory)\n");
  log.Clear();

  WriteText(path, "old");
  ASSERT_EQ(::mkdir(temporary.c_str(), 0755), 0);
  EXPECT_FALSE(WriteFileAtomic(path, "new", 0600));
  EXPECT_EQ(log.Text(), "<3>cannot create " + temporary + " (File exists)\n");
  EXPECT_EQ(ReadText(path), "old");
}

TEST_F(WriteFileAtomicTest, TellsThatTheDiskIsFull) {
  WriteText(path, "old");
  const FileSizeLimit full(kRoomBytes);

  ExpectRefused("File too large", std::string(kRoomBytes + 1, 'x'));
}

TEST_F(WriteFileAtomicTest, TellsThatTheModeCannotBeSet) {
  WriteText(path, "old");
  FailingCalls::Fail("fchmod", EPERM);

  ExpectRefused("Operation not permitted");
}

TEST_F(WriteFileAtomicTest, TellsThatTheDiskDidNotTakeIt) {
  WriteText(path, "old");
  FailingCalls::Fail("fsync", EIO);

  ExpectRefused("Input/output error");
}

TEST_F(WriteFileAtomicTest, TellsThatTheFileCannotBeReplaced) {
  WriteText(path, "old");
  FailingCalls::Fail("rename", EACCES);

  ExpectRefused("Permission denied");
}

TEST_F(WriteFileAtomicTest, LeavesADirectoryAtThePathAlone) {
  ASSERT_EQ(::mkdir(path.c_str(), 0755), 0);

  EXPECT_FALSE(WriteFileAtomic(path, "new", 0600));

  EXPECT_EQ(log.Text(), "<3>cannot write " + path + " (Is a directory)\n");
  EXPECT_EQ(ModeOf(path), 0755U);
  EXPECT_FALSE(Exists(temporary));
}

// In every outcome the descriptor is closed: a service that saves for years must not run out of
// them.
TEST_F(WriteFileAtomicTest, ClosesItsFileInEveryOutcome) {
  const int before = ::dup(STDERR_FILENO);
  ::close(before);

  EXPECT_TRUE(WriteFileAtomic(path, "new", 0600));
  FailingCalls::Fail("fsync", EIO);
  EXPECT_FALSE(WriteFileAtomic(path, "new", 0600));
  FailingCalls::Fail("rename", EIO);
  EXPECT_FALSE(WriteFileAtomic(path, "new", 0600));

  const int after = ::dup(STDERR_FILENO);
  ::close(after);
  EXPECT_EQ(after, before);
}

}  // namespace
}  // namespace Tarnvale::KioskService

// The writer of small system files, which touches nothing that agrees already.

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

struct stat StatusOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status;
}

using WriteIfChangedTest = WriteTest;

TEST_F(WriteIfChangedTest, WritesAFileThatIsMissing) {
  EXPECT_TRUE(WriteIfChanged(path, "a\0b\n\xff"s));

  EXPECT_EQ(ReadText(path), "a\0b\n\xff"s);
  EXPECT_FALSE(Exists(temporary));
  EXPECT_EQ(log.Text(), "");
}

TEST_F(WriteIfChangedTest, WritesAnEmptyFileThatIsMissing) {
  EXPECT_TRUE(WriteIfChanged(path, ""));

  EXPECT_EQ(ReadText(path), "");
}

TEST_F(WriteIfChangedTest, ReplacesEveryOtherText) {
  for (const std::string& old : {""s, "ne"s, "new "s, "new\n"s, "New"s, "new\0"s}) {
    WriteText(path, old);

    EXPECT_TRUE(WriteIfChanged(path, "new")) << old;

    EXPECT_EQ(ReadText(path), "new");
    EXPECT_FALSE(WriteIfChanged(path, "new"));
  }
}

TEST_F(WriteIfChangedTest, ReplacesTheFileRatherThanItsContents) {
  WriteText(path, "a longer old text");
  const std::string reader = dir.At("reader");
  ASSERT_EQ(::link(path.c_str(), reader.c_str()), 0);

  EXPECT_TRUE(WriteIfChanged(path, "new"));

  EXPECT_EQ(ReadText(reader), "a longer old text");
  EXPECT_NE(StatusOf(path).st_ino, StatusOf(reader).st_ino);
}

TEST_F(WriteIfChangedTest, GivesMode0644WhateverTheUmask) {
  for (const mode_t mask : {0000U, 0022U, 0077U, 0777U}) {
    ::umask(mask);

    EXPECT_TRUE(WriteIfChanged(path, "text of " + std::to_string(mask)));

    EXPECT_EQ(ModeOf(path), 0644U) << "under umask " << mask;
  }
}

TEST_F(WriteIfChangedTest, DoesNotTouchAFileOfTheSameText) {
  WriteText(path, "same\n", 0600);
  const timespec old[] = {{1'000'000'000, 0}, {1'000'000'000, 7}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), old, 0), 0);
  const struct stat before = StatusOf(path);
  FailingCalls::Watch([](const std::string& call) { ADD_FAILURE() << call << " was called"; });

  EXPECT_FALSE(WriteIfChanged(path, "same\n"));

  const struct stat after = StatusOf(path);
  EXPECT_EQ(after.st_ino, before.st_ino);
  EXPECT_EQ(after.st_mtim.tv_sec, 1'000'000'000);
  EXPECT_EQ(after.st_mtim.tv_nsec, 7);
  EXPECT_EQ(after.st_ctim.tv_sec, before.st_ctim.tv_sec);
  EXPECT_EQ(after.st_ctim.tv_nsec, before.st_ctim.tv_nsec);
  EXPECT_EQ(ModeOf(path), 0600U);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(WriteIfChangedTest, LooksThroughALinkAndLeavesItWhenTheTextsAgree) {
  WriteText(dir.At("target"), "same");
  ASSERT_EQ(::symlink("target", path.c_str()), 0);

  EXPECT_FALSE(WriteIfChanged(path, "same"));

  EXPECT_TRUE(S_ISLNK(StatusOf(path).st_mode));
}

TEST_F(WriteIfChangedTest, ReplacesALinkWhenTheTextsDiffer) {
  WriteText(dir.At("target"), "untouched");
  ASSERT_EQ(::symlink("target", path.c_str()), 0);

  EXPECT_TRUE(WriteIfChanged(path, "new"));

  EXPECT_TRUE(S_ISREG(StatusOf(path).st_mode));
  EXPECT_EQ(ReadText(path), "new");
  EXPECT_EQ(ReadText(dir.At("target")), "untouched");
}

TEST_F(WriteIfChangedTest, ReplacesALinkThatLeadsNowhere) {
  ASSERT_EQ(::symlink("absent", path.c_str()), 0);

  EXPECT_TRUE(WriteIfChanged(path, ""));

  EXPECT_TRUE(S_ISREG(StatusOf(path).st_mode));
  EXPECT_FALSE(Exists(dir.At("absent")));
}

TEST_F(WriteIfChangedTest, OverwritesTheLeftoverOfACrash) {
  WriteText(temporary, "half of a much longer text", 0600);

  EXPECT_TRUE(WriteIfChanged(path, "new"));

  EXPECT_EQ(ReadText(path), "new");
  EXPECT_EQ(ModeOf(path), 0644U);
  EXPECT_FALSE(Exists(temporary));
}

TEST_F(WriteIfChangedTest, FollowsNoLinkAtTheTemporaryName) {
  WriteText(path, "old");
  WriteText(dir.At("target"), "untouched");
  ASSERT_EQ(::symlink("target", temporary.c_str()), 0);

  EXPECT_FALSE(WriteIfChanged(path, "new"));

  EXPECT_EQ(log.Text(), "<3>cannot write " + temporary + "\n");
  EXPECT_EQ(ReadText(path), "old");
  EXPECT_EQ(ReadText(dir.At("target")), "untouched");
}

TEST_F(WriteIfChangedTest, DoesNotWaitForTheReaderOfAFifoAtTheTemporaryName) {
  ASSERT_EQ(::mkfifo(temporary.c_str(), 0644), 0);

  EXPECT_FALSE(WriteIfChanged(path, "new"));

  EXPECT_EQ(log.Text(), "<3>cannot write " + temporary + "\n");
}

TEST_F(WriteIfChangedTest, TellsThatItsDirectoryIsMissing) {
  EXPECT_FALSE(WriteIfChanged(dir.At("absent/file"), "new"));

  EXPECT_EQ(log.Text(), "<3>cannot write " + dir.At("absent/file.tmp") + "\n");
}

TEST_F(WriteIfChangedTest, LeavesTheOldFileAndTheTemporaryOneWhenTheDiskIsFull) {
  WriteText(path, "old");
  const FileSizeLimit full(kRoomBytes);

  EXPECT_FALSE(WriteIfChanged(path, std::string(kRoomBytes + 1, 'x')));

  EXPECT_EQ(log.Text(), "<3>cannot write " + temporary + "\n");
  EXPECT_EQ(ReadText(path), "old");
  EXPECT_EQ(ReadText(temporary), std::string(kRoomBytes, 'x'));
}

TEST_F(WriteIfChangedTest, TellsThatTheFileCannotBeReplaced) {
  WriteText(path, "old");
  FailingCalls::Fail("rename", EACCES);

  EXPECT_FALSE(WriteIfChanged(path, "new"));

  EXPECT_EQ(log.Text(), "<3>cannot replace " + path + " (Permission denied)\n");
  EXPECT_EQ(ReadText(path), "old");
  EXPECT_FALSE(Exists(temporary));
}

TEST_F(WriteIfChangedTest, LeavesADirectoryAtThePathAlone) {
  ASSERT_EQ(::mkdir(path.c_str(), 0755), 0);

  EXPECT_FALSE(WriteIfChanged(path, "new"));

  EXPECT_EQ(log.Text(), "<3>cannot replace " + path + " (Is a directory)\n");
  EXPECT_EQ(ModeOf(path), 0755U);
  EXPECT_FALSE(Exists(temporary));
}

TEST_F(WriteIfChangedTest, HasTheWholeFileWithItsModeBeforeItReplacesTheOldOne) {
  WriteText(path, "old");
  std::vector<std::string> order;
  FailingCalls::Watch([&](const std::string& call) {
    order.push_back(call);
    EXPECT_EQ(ReadText(temporary), "new");
    EXPECT_EQ(ModeOf(temporary), 0644U);
    EXPECT_EQ(ReadText(path), "old");
  });

  EXPECT_TRUE(WriteIfChanged(path, "new"));

  EXPECT_EQ(order, std::vector<std::string>{"rename"}) << "this writer does not sync";
}

TEST_F(WriteIfChangedTest, ClosesItsFilesInEveryOutcome) {
  const int before = ::dup(STDERR_FILENO);
  ::close(before);

  EXPECT_TRUE(WriteIfChanged(path, "new"));
  EXPECT_FALSE(WriteIfChanged(path, "new"));
  FailingCalls::Fail("rename", EIO);
  EXPECT_FALSE(WriteIfChanged(path, "newer"));
  EXPECT_FALSE(WriteIfChanged(dir.At("absent/file"), "new"));

  const int after = ::dup(STDERR_FILENO);
  ::close(after);
  EXPECT_EQ(after, before);
}

}  // namespace
}  // namespace Tarnvale::KioskService

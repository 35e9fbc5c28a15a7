// Making the service's directories, and making sure of those that are there.

#include "core/directories.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "core/failing_calls.h"
#include "core/unprivileged.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace Tarnvale::KioskService {
namespace {

bool IsPlainDirectory(const std::string& path) {
  struct stat status = {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

struct stat StatusOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status;
}

TEST(ParentOf, IsWhatStandsBeforeTheLastSlash) {
  EXPECT_EQ(ParentOf("/var/lib/x"), "/var/lib");
  EXPECT_EQ(ParentOf("/x"), "");
  EXPECT_EQ(ParentOf("x"), "");
  EXPECT_EQ(ParentOf(""), "");
  EXPECT_EQ(ParentOf("/"), "");
  EXPECT_EQ(ParentOf("a/b"), "a");
  EXPECT_EQ(ParentOf("/a/"), "/a");
  EXPECT_EQ(ParentOf("//a"), "/");
}

class MakeParentDirectoriesTest : public ::testing::Test {
 protected:
  MakeParentDirectoriesTest() {
    ::umask(0);
  }

  TempDir dir;
  LogCapture log;
};

TEST_F(MakeParentDirectoriesTest, MakesEveryMissingOneWithMode0755) {
  MakeParentDirectories(dir.At("a/b/c"));

  for (const char* made : {"a", "a/b", "a/b/c"}) {
    EXPECT_TRUE(IsPlainDirectory(dir.At(made))) << made;
    EXPECT_EQ(ModeOf(dir.At(made)), 0755U) << made;
  }
}

TEST_F(MakeParentDirectoriesTest, LeavesThoseThatExistAlone) {
  ASSERT_EQ(::mkdir(dir.At("a").c_str(), 0700), 0);

  MakeParentDirectories(dir.At("a/b"));

  EXPECT_EQ(ModeOf(dir.At("a")), 0700U);
  EXPECT_TRUE(IsPlainDirectory(dir.At("a/b")));
}

TEST_F(MakeParentDirectoriesTest, SkipsEmptyComponents) {
  MakeParentDirectories("/" + dir.Path() + "//a///b//");

  EXPECT_TRUE(IsPlainDirectory(dir.At("a/b")));
}

TEST_F(MakeParentDirectoriesTest, StartsAtTheRootForARelativePathToo) {
  const TempDir elsewhere;
  ASSERT_EQ(::chdir(elsewhere.Path().c_str()), 0);

  MakeParentDirectories(dir.At("a/b").substr(1));

  EXPECT_TRUE(IsPlainDirectory(dir.At("a/b")));
  EXPECT_EQ(::rmdir(elsewhere.Path().c_str()), 0) << "something was made in it";
}

TEST_F(MakeParentDirectoriesTest, EndsSilentlyWhereOneCannotBeMade) {
  WriteText(dir.At("file"), "");

  MakeParentDirectories(dir.At("file/a/b"));
  MakeParentDirectories("");
  MakeParentDirectories("/");

  EXPECT_EQ(log.Text(), "");
}

class PrepareDirectoryTest : public ::testing::Test {
 protected:
  TempDir dir;
  const std::string path = dir.At("directory");
  FailingCalls calls;
  LogCapture log;
};

TEST_F(PrepareDirectoryTest, MakesADirectoryOfTheModeWhateverTheUmask) {
  for (const mode_t mask : {0000U, 0077U, 0777U}) {
    ::umask(mask);
    for (const mode_t mode : {0700U, 0755U}) {
      EXPECT_TRUE(PrepareDirectory(path, mode, false));
      EXPECT_EQ(ModeOf(path), mode) << "under umask " << mask;
      EXPECT_EQ(::rmdir(path.c_str()), 0);
    }
  }
  EXPECT_EQ(log.Text(), "");
}

TEST_F(PrepareDirectoryTest, SecuresAnExistingOneWhenAsked) {
  ASSERT_EQ(::mkdir(path.c_str(), 0777), 0);
  ASSERT_EQ(::chmod(path.c_str(), 0777), 0);

  EXPECT_TRUE(PrepareDirectory(path, 0700, true));

  EXPECT_EQ(ModeOf(path), 0700U);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(PrepareDirectoryTest, LeavesAnExistingOneAsItIsOtherwise) {
  ASSERT_EQ(::mkdir(path.c_str(), 0700), 0);
  FailingCalls::Watch([](const std::string& call) { ADD_FAILURE() << call << " was called"; });

  EXPECT_TRUE(PrepareDirectory(path, 0755, false));

  EXPECT_EQ(ModeOf(path), 0700U);
}

TEST_F(PrepareDirectoryTest, KeepsWhatAnExistingOneHolds) {
  ASSERT_EQ(::mkdir(path.c_str(), 0755), 0);
  WriteText(path + "/state.json", "{}");

  EXPECT_TRUE(PrepareDirectory(path, 0700, true));

  EXPECT_EQ(ReadText(path + "/state.json"), "{}");
}

TEST_F(PrepareDirectoryTest, OpensTheDirectoryForNoChild) {
  int opened = 0;
  FailingCalls::WatchOpens([&](const std::string& name, int flags) {
    if (name != path) return;
    ++opened;
    EXPECT_NE(flags & O_CLOEXEC, 0);
  });

  EXPECT_TRUE(PrepareDirectory(path, 0700, true));

  EXPECT_EQ(opened, 1);
}

// Somebody who may write to the parent has put a link there after the look at it.
TEST_F(PrepareDirectoryTest, FollowsNoLinkThatTookItsPlaceMeanwhile) {
  const std::string target = dir.At("target");
  ASSERT_EQ(::mkdir(target.c_str(), 0755), 0);
  FailingCalls::WatchOpens([&](const std::string& name, int) {
    if (name != path) return;
    EXPECT_EQ(::rmdir(path.c_str()), 0);
    EXPECT_EQ(::symlink(target.c_str(), path.c_str()), 0);
  });

  EXPECT_FALSE(PrepareDirectory(path, 0700, true));

  EXPECT_EQ(ModeOf(target), 0755U);
  EXPECT_TRUE(log.Text().starts_with("<3>cannot open " + path + " (")) << log.Text();
}

TEST_F(PrepareDirectoryTest, ReplacesAFileWithAWarning) {
  WriteText(path, "text");

  EXPECT_TRUE(PrepareDirectory(path, 0755, false));

  EXPECT_EQ(log.Text(), "<4>removing " + path + ": not a plain directory\n");
  EXPECT_TRUE(IsPlainDirectory(path));
  EXPECT_EQ(ModeOf(path), 0755U);
}

TEST_F(PrepareDirectoryTest, ReplacesALinkToADirectoryAndLeavesItsTargetAlone) {
  const std::string target = dir.At("target");
  ASSERT_EQ(::mkdir(target.c_str(), 0755), 0);
  ASSERT_EQ(::symlink(target.c_str(), path.c_str()), 0);

  EXPECT_TRUE(PrepareDirectory(path, 0700, true));

  EXPECT_EQ(log.Text(), "<4>removing " + path + ": not a plain directory\n");
  EXPECT_TRUE(IsPlainDirectory(path));
  EXPECT_EQ(ModeOf(target), 0755U);
}

TEST_F(PrepareDirectoryTest, GivesUpOnWhatItCannotRemoveWithoutAFurtherLine) {
  WriteText(path, "text");
  ASSERT_EQ(::chmod(dir.Path().c_str(), 0555), 0);
  {
    const Unprivileged user;
    EXPECT_FALSE(PrepareDirectory(path, 0700, true));
  }
  ASSERT_EQ(::chmod(dir.Path().c_str(), 0755), 0);

  EXPECT_EQ(log.Text(), "<4>removing " + path + ": not a plain directory\n");
  EXPECT_EQ(ReadText(path), "text");
}

TEST_F(PrepareDirectoryTest, TellsThatItCannotBeMade) {
  EXPECT_FALSE(PrepareDirectory(dir.At("absent/directory"), 0700, true));
  EXPECT_EQ(log.Text(),
            "<3>cannot create " + dir.At("absent/directory") + " (No such file or directory)\n");
  log.Clear();

  EXPECT_FALSE(PrepareDirectory("", 0700, true));
  EXPECT_EQ(log.Text(), "<3>cannot create  (No such file or directory)\n");
}

TEST_F(PrepareDirectoryTest, TellsThatItCannotBeOpened) {
  ASSERT_EQ(::chmod(dir.Path().c_str(), 0755), 0);
  ASSERT_EQ(::mkdir(path.c_str(), 0300), 0);
  const Unprivileged user;

  EXPECT_FALSE(PrepareDirectory(path, 0700, false));

  EXPECT_EQ(log.Text(), "<3>cannot open " + path + " (Permission denied)\n");
}

TEST_F(PrepareDirectoryTest, TellsThatItsModeCannotBeSet) {
  FailingCalls::Fail("fchmod", EPERM);

  EXPECT_FALSE(PrepareDirectory(path, 0700, true));

  EXPECT_EQ(log.Text(), "<3>cannot secure " + path + "\n");
}

class PrepareDirectoryAsRoot : public PrepareDirectoryTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  }
};

TEST_F(PrepareDirectoryAsRoot, TakesAnExistingOneBackFromItsOwner) {
  ASSERT_EQ(::mkdir(path.c_str(), 0777), 0);
  ASSERT_EQ(::chown(path.c_str(), kNobody, kNobody), 0);

  EXPECT_TRUE(PrepareDirectory(path, 0700, true));

  EXPECT_EQ(StatusOf(path).st_uid, 0U);
  EXPECT_EQ(StatusOf(path).st_gid, 0U);
  EXPECT_EQ(ModeOf(path), 0700U);
}

TEST_F(PrepareDirectoryAsRoot, LeavesTheOwnerOfAnExistingOneThatIsNotSecured) {
  ASSERT_EQ(::mkdir(path.c_str(), 0711), 0);
  ASSERT_EQ(::chown(path.c_str(), kNobody, kNobody), 0);

  EXPECT_TRUE(PrepareDirectory(path, 0755, false));

  EXPECT_EQ(StatusOf(path).st_uid, kNobody);
  EXPECT_EQ(ModeOf(path), 0711U);
}

TEST_F(PrepareDirectoryAsRoot, SetsTheModeAlsoWhenTheOwnerCannotBe) {
  ASSERT_EQ(::mkdir(path.c_str(), 0755), 0);
  FailingCalls::Fail("fchown", EPERM);

  EXPECT_FALSE(PrepareDirectory(path, 0700, true));

  EXPECT_EQ(log.Text(), "<3>cannot secure " + path + "\n");
  EXPECT_EQ(ModeOf(path), 0700U);
}

TEST_F(PrepareDirectoryAsRoot, OwnsWhatItMakes) {
  // A group that new entries of the directory would inherit.
  ASSERT_EQ(::chown(dir.Path().c_str(), 0, kNobody), 0);
  ASSERT_EQ(::chmod(dir.Path().c_str(), 02755), 0);

  EXPECT_TRUE(PrepareDirectory(path, 0755, false));

  EXPECT_EQ(StatusOf(path).st_uid, 0U);
  EXPECT_EQ(StatusOf(path).st_gid, 0U);
  EXPECT_EQ(ModeOf(path), 0755U);
}

TEST_F(PrepareDirectoryTest, GivesTheModeAndNoOwnerForAnOrdinaryUser) {
  ASSERT_EQ(::chmod(dir.Path().c_str(), 0777), 0);
  const Unprivileged user;
  FailingCalls::Watch([](const std::string& call) { EXPECT_EQ(call, "fchmod"); });

  EXPECT_TRUE(PrepareDirectory(path, 0700, true));
  ASSERT_EQ(::chmod(path.c_str(), 0755), 0);
  EXPECT_TRUE(PrepareDirectory(path, 0700, true));

  EXPECT_EQ(StatusOf(path).st_uid, ::geteuid());
  EXPECT_EQ(ModeOf(path), 0700U);
}

}  // namespace
}  // namespace Tarnvale::KioskService

#include "portal/branding_cache.h"

#include <unistd.h>

#include "core/locks.h"
#include "portal/branding_test.h"

namespace Tarnvale::KioskService {
namespace {

class BrandingCacheTest : public BrandingTest {
 protected:
  static void Sweep(const std::set<std::string>& keep) {
    const MutexLock lock(lifecycleLock);
    SweepBrandingDir(keep);
  }
  static void Remove(bool removeDir) {
    const MutexLock lock(lifecycleLock);
    RemoveBranding(removeDir);
  }
  static bool Prepare() {
    const MutexLock lock(lifecycleLock);
    return PrepareBrandingDirLocked();
  }
  void UseDirectory(const std::string& path) {
    config.brandingDir = path;
    UseConfig();
  }
  [[nodiscard]] std::string CannotRemove(const std::string& path) const {
    return "<4>cannot remove " + path + " (Directory not empty)";
  }
};

using PrepareBrandingDirTest = BrandingCacheTest;
using SweepBrandingDirTest = BrandingCacheTest;
using RemoveBrandingTest = BrandingCacheTest;

TEST_F(PrepareBrandingDirTest, MakesTheDirectoryWithItsParents) {
  EXPECT_TRUE(Prepare());

  EXPECT_EQ(ModeOf(dir.At("cache")), 0755U);
  EXPECT_EQ(ModeOf(dir.At("cache/kiosk")), 0755U);
  EXPECT_EQ(ModeOf(config.brandingDir), 0755U);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(PrepareBrandingDirTest, SecuresTheDirectoryAndTheOneAboveItAlone) {
  MakeDirectory();
  for (const std::string& path : {dir.At("cache"), dir.At("cache/kiosk"), config.brandingDir}) {
    ASSERT_EQ(::chmod(path.c_str(), 0777), 0);
  }

  EXPECT_TRUE(Prepare());

  EXPECT_EQ(ModeOf(config.brandingDir), 0755U);
  EXPECT_EQ(ModeOf(dir.At("cache/kiosk")), 0755U);
  EXPECT_EQ(ModeOf(dir.At("cache")), 0777U);
}

TEST_F(PrepareBrandingDirTest, ReplacesAFileOrALinkInItsPlace) {
  ASSERT_EQ(::mkdir(dir.At("target").c_str(), 0700), 0);
  for (const bool link : {false, true}) {
    std::filesystem::remove_all(dir.At("cache"));
    std::filesystem::create_directories(dir.At("cache/kiosk"));
    if (link) {
      std::filesystem::create_symlink(dir.At("target"), config.brandingDir);
    } else {
      WriteText(config.brandingDir, "");
    }

    EXPECT_TRUE(Prepare());

    EXPECT_EQ(log.Count("<4>removing " + config.brandingDir + ": not a plain directory"),
              link ? 2 : 1);
    EXPECT_EQ(ModeOf(dir.At("target")), 0700U);
  }
}

// What the link leads to may be anybody's; the cache is made beside it.
TEST_F(PrepareBrandingDirTest, ReplacesALinkInThePlaceOfItsParent) {
  std::filesystem::create_directories(dir.At("target/branding"));
  std::filesystem::create_directory(dir.At("cache"));
  std::filesystem::create_symlink(dir.At("target"), dir.At("cache/kiosk"));

  EXPECT_TRUE(Prepare());

  EXPECT_EQ(log.Text(), "<4>removing " + dir.At("cache/kiosk") + ": not a plain directory\n");
  EXPECT_FALSE(std::filesystem::is_symlink(dir.At("cache/kiosk")));
  EXPECT_TRUE(std::filesystem::is_directory(config.brandingDir));
  EXPECT_TRUE(Exists(dir.At("target/branding")));
}

TEST_F(PrepareBrandingDirTest, FailsBelowAFileThatIsNotItsParent) {
  WriteText(dir.At("cache"), "");

  EXPECT_FALSE(Prepare());

  EXPECT_EQ(log.Text(), "<3>cannot create " + dir.At("cache/kiosk") + " (Not a directory)\n");
}

TEST_F(PrepareBrandingDirTest, NeedsNoParentBelowTheRoot) {
  UseDirectory("/kioskd-branding-test-" + std::to_string(::getpid()));

  const bool made = Prepare();

  EXPECT_EQ(made, Exists(config.brandingDir));
  (void)::rmdir(config.brandingDir.c_str());  // not there for a test without root's rights
}

TEST_F(SweepBrandingDirTest, KeepsTheRegularFilesOfItsListAlone) {
  MakeDirectory();
  for (const char* const name : {"kept", "branding.json", "branding.json.tmp", "else", ".hidden"})
    WriteText(At(name), name);

  Sweep({"kept", "branding.json", "absent"});

  EXPECT_EQ(Files(), (Names{"branding.json", "kept"}));
  EXPECT_EQ(log.Text(), "");
}

TEST_F(SweepBrandingDirTest, RemovesWhatIsNoRegularFileWhateverItIsCalled) {
  MakeDirectory();
  WriteText(dir.At("target"), "untouched");
  std::filesystem::create_symlink(dir.At("target"), At("link"));
  std::filesystem::create_symlink("absent", At("dangling"));
  std::filesystem::create_directory(At("directory"));
  ASSERT_EQ(::mkfifo(At("fifo").c_str(), 0600), 0);

  Sweep({"link", "dangling", "directory", "fifo"});

  EXPECT_EQ(Files(), Names{});
  EXPECT_EQ(ReadText(dir.At("target")), "untouched");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(SweepBrandingDirTest, DoesNotEnterALinkToADirectory) {
  MakeDirectory();
  std::filesystem::create_directory(dir.At("target"));
  WriteText(dir.At("target/file"), "untouched");
  std::filesystem::create_symlink(dir.At("target"), At("link"));

  Sweep({});

  EXPECT_FALSE(Exists(At("link")));
  EXPECT_TRUE(Exists(dir.At("target/file")));
}

TEST_F(SweepBrandingDirTest, LeavesADirectoryThatIsNotEmptyAndSaysSoEachTime) {
  MakeDirectory();
  std::filesystem::create_directory(At("full"));
  WriteText(At("full/file"), "");
  WriteText(At("a"), "");
  WriteText(At("z"), "");

  Sweep({});
  Sweep({});

  EXPECT_EQ(Files(), Names{"full"});
  EXPECT_EQ(log.Lines(), (Names{CannotRemove(At("full")), CannotRemove(At("full"))}));
}

TEST_F(SweepBrandingDirTest, DoesNothingWithoutADirectory) {
  Sweep({});
  std::filesystem::create_directories(dir.At("cache/kiosk"));
  WriteText(config.brandingDir, "a file");

  Sweep({});

  EXPECT_EQ(ReadText(config.brandingDir), "a file");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(SweepBrandingDirTest, FollowsNoLinkInThePlaceOfTheDirectory) {
  std::filesystem::create_directories(dir.At("cache/kiosk"));
  std::filesystem::create_directory(dir.At("target"));
  WriteText(dir.At("target/file"), "untouched");
  std::filesystem::create_symlink(dir.At("target"), config.brandingDir);

  Sweep({});

  EXPECT_TRUE(Exists(dir.At("target/file")));
  EXPECT_TRUE(Exists(config.brandingDir));
}

TEST_F(RemoveBrandingTest, EmptiesTheDirectory) {
  MakeDirectory();
  WriteText(At("branding.json"), "{}");

  Remove(false);

  EXPECT_EQ(Files(), Names{});
}

TEST_F(RemoveBrandingTest, RemovesTheDirectoryTooWhenItShall) {
  MakeDirectory();
  WriteText(At("branding.json"), "{}");

  Remove(true);

  EXPECT_FALSE(Exists(config.brandingDir));
  EXPECT_TRUE(Exists(dir.At("cache/kiosk")));
  EXPECT_EQ(log.Text(), "");
}

TEST_F(RemoveBrandingTest, IsSilentWhenThereIsNothing) {
  Remove(true);
  Remove(false);

  EXPECT_EQ(log.Text(), "");
  EXPECT_FALSE(Exists(dir.At("cache")));
}

TEST_F(RemoveBrandingTest, RemovesAFileOrALinkInThePlaceOfTheDirectory) {
  std::filesystem::create_directories(dir.At("cache/kiosk"));
  std::filesystem::create_directory(dir.At("target"));
  WriteText(dir.At("target/file"), "untouched");
  for (const bool removeDir : {false, true}) {
    WriteText(config.brandingDir, "");
    Remove(removeDir);
    EXPECT_FALSE(Exists(config.brandingDir));

    std::filesystem::create_symlink(dir.At("target"), config.brandingDir);
    Remove(removeDir);
    EXPECT_FALSE(Exists(config.brandingDir));
  }
  EXPECT_TRUE(Exists(dir.At("target/file")));
  EXPECT_EQ(log.Text(), "");
}

TEST_F(RemoveBrandingTest, LeavesADirectoryWhoseContentCannotGo) {
  std::filesystem::create_directories(At("full/inner"));

  Remove(true);

  EXPECT_EQ(log.Lines(), (Names{CannotRemove(At("full")), CannotRemove(config.brandingDir)}));
}

}  // namespace
}  // namespace Tarnvale::KioskService

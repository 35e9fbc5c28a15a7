// The gate: who may talk at all.

#include "control/caller.h"

#include <sys/stat.h>
#include <unistd.h>

#include "core/service.h"
#include "core/state.h"
#include "support/service_test.h"

namespace Tarnvale::KioskService {
namespace {

constexpr int kPid = 4321;

// Files of root, which only root can make.
class FilesOfRoot : public ServiceTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "only root makes files of root";
  }
};

using RootOwnedNotWritableTest = FilesOfRoot;

struct ModeRow {
  const char* name;
  mode_t mode;
  bool accepted;
};

class RootOwnedNotWritableModes : public FilesOfRoot,
                                  public ::testing::WithParamInterface<ModeRow> {};

TEST_P(RootOwnedNotWritableModes, DependsOnTheWriteBitsOfGroupAndOthers) {
  const std::string path = dir.At("file");

  WriteText(path, "", GetParam().mode);

  EXPECT_EQ(RootOwnedNotWritable(path), GetParam().accepted) << std::oct << GetParam().mode;
}

INSTANTIATE_TEST_SUITE_P(Rows, RootOwnedNotWritableModes,
                         ::testing::Values(ModeRow{"Program", 0755, true},
                                           ModeRow{"Text", 0644, true}, ModeRow{"Nothing", 0, true},
                                           ModeRow{"SetUid", 06755, true},
                                           ModeRow{"GroupWritableProgram", 0775, false},
                                           ModeRow{"WorldWritableProgram", 0757, false},
                                           ModeRow{"GroupMayWriteOnly", 0020, false},
                                           ModeRow{"OthersMayWriteOnly", 0002, false}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(RootOwnedNotWritableTest, RefusesAnotherOwner) {
  const std::string path = dir.At("file");
  WriteText(path, "", 0755);

  ASSERT_EQ(::chown(path.c_str(), kTestPersonUid, 0), 0);

  EXPECT_FALSE(RootOwnedNotWritable(path));
}

TEST_F(RootOwnedNotWritableTest, LooksAtWhatALinkPointsTo) {
  WriteText(dir.At("safe"), "", 0755);
  WriteText(dir.At("writable"), "", 0775);

  ASSERT_EQ(::symlink("safe", dir.At("toSafe").c_str()), 0);
  ASSERT_EQ(::symlink("writable", dir.At("toWritable").c_str()), 0);
  ASSERT_EQ(::symlink("nothing", dir.At("toNothing").c_str()), 0);
  ASSERT_EQ(::lchown(dir.At("toSafe").c_str(), kTestPersonUid, 0), 0);

  EXPECT_TRUE(RootOwnedNotWritable(dir.At("toSafe")));
  EXPECT_FALSE(RootOwnedNotWritable(dir.At("toWritable")));
  EXPECT_FALSE(RootOwnedNotWritable(dir.At("toNothing")));
}

TEST(RootOwnedNotWritable, RefusesWhatIsNotThere) {
  EXPECT_FALSE(RootOwnedNotWritable(""));
  EXPECT_FALSE(RootOwnedNotWritable("/nonexistent/program"));
}

TEST(IsInstalledPath, HoldsBelowUsr) {
  EXPECT_TRUE(IsInstalledPath("/usr/bin/env"));
  EXPECT_TRUE(IsInstalledPath("/usr/"));
}

TEST(IsInstalledPath, FailsElsewhereAndForWhatIsNotThere) {
  EXPECT_FALSE(IsInstalledPath("/usr"));
  EXPECT_FALSE(IsInstalledPath("/etc/passwd"));
  EXPECT_FALSE(IsInstalledPath("/usr/bin/nonexistent"));
  EXPECT_FALSE(IsInstalledPath(""));
}

TEST_F(RootOwnedNotWritableTest, DoesNotMakeAFileOutsideUsrAnInstalledOne) {
  WriteText(dir.At("file"), "", 0755);

  EXPECT_TRUE(RootOwnedNotWritable(dir.At("file")));
  EXPECT_FALSE(IsInstalledPath(dir.At("file")));
}

// The gate, with the reason of the refusal in `reason`.
class CheckCallerImageTest : public ServiceTest {
 protected:
  bool Admits(int pid, std::uint32_t uid) {
    reason = "untouched";
    return CheckCallerImage(pid, uid, reason);
  }
  void ImageIs(const std::string& path) {
    ops.exePathOfPid = [path](int pid) {
      EXPECT_EQ(pid, kPid);
      return path;
    };
  }

  std::string reason;
};

TEST_F(CheckCallerImageTest, RefusesAnUnknownProcessBeforeItLooksAtTheUid) {
  for (const int pid : {0, -1}) {
    EXPECT_FALSE(Admits(pid, 0)) << pid;
    EXPECT_EQ(reason, "caller process unknown");
    EXPECT_FALSE(Admits(pid, kTestPersonUid)) << pid;
    EXPECT_EQ(reason, "caller process unknown");
  }
}

TEST_F(CheckCallerImageTest, AdmitsRootWithoutATestOfItsImage) {
  for (const bool installed : {false, true}) {
    SetServiceInstalled(installed);
    EXPECT_TRUE(Admits(1, 0));
    EXPECT_EQ(reason, "untouched");
  }
  EXPECT_TRUE(calls.Names().empty());
}

TEST_F(CheckCallerImageTest, RefusesADevelopmentBuildsCallerWithoutTheWordInTheState) {
  EXPECT_FALSE(Admits(kPid, kTestPersonUid));

  EXPECT_EQ(reason, "this service is not installed and DevAllowAnyCaller is not set");
  EXPECT_TRUE(calls.Names().empty());
}

TEST_F(CheckCallerImageTest, AdmitsADevelopmentBuildsCallerWithTheWordInTheState) {
  StateSetInt(StateKey::kDevAllowAnyCaller, 1);

  EXPECT_TRUE(Admits(kPid, kTestPersonUid));
  EXPECT_EQ(reason, "untouched");
  EXPECT_TRUE(calls.Names().empty());
}

TEST_F(CheckCallerImageTest, TakesNothingButTheNumberOneForTheWordInTheState) {
  for (const char* value : {"2", "0", "-1", "true", "\"1\"", "null"}) {
    StateSet(StateKey::kDevAllowAnyCaller, Json::Parse(value).value());
    EXPECT_FALSE(Admits(kPid, kTestPersonUid)) << value;
  }
}

class InstalledCheckCallerImage : public CheckCallerImageTest {
 protected:
  void SetUp() override {
    // A file of root's whoever runs the tests.
    config.client = "/usr/bin/env";
    UseConfig();
    SetServiceInstalled(true);
  }
};

TEST_F(InstalledCheckCallerImage, AdmitsTheClient) {
  ImageIs(config.client);

  EXPECT_TRUE(Admits(kPid, kTestPersonUid));
  EXPECT_EQ(reason, "untouched");
}

TEST_F(InstalledCheckCallerImage, RefusesAProcessWithoutAnImage) {
  ImageIs("");

  EXPECT_FALSE(Admits(kPid, kTestPersonUid));
  EXPECT_EQ(reason, "caller image unknown");
}

TEST_F(InstalledCheckCallerImage, RefusesEveryOtherPathByteForByte) {
  const char* paths[] = {"/usr/bin/envy",          "/usr/bin/en",     "/usr/bin/Env",
                         "/usr/bin/env (deleted)", "/usr/bin//env",   "/usr/bin/../bin/env",
                         "/usr/bin/printf",        "/nonexistent/env"};
  for (const char* path : paths) {
    ImageIs(path);
    EXPECT_FALSE(Admits(kPid, kTestPersonUid)) << path;
    EXPECT_EQ(reason, std::string(path) + " is not /usr/bin/env");
  }
}

TEST_F(InstalledCheckCallerImage, IgnoresTheWordInTheState) {
  StateSetInt(StateKey::kDevAllowAnyCaller, 1);
  ImageIs("/usr/bin/printf");

  EXPECT_FALSE(Admits(kPid, kTestPersonUid));
}

TEST_F(InstalledCheckCallerImage, RefusesAClientThatSomebodyElseMayWrite) {
  const std::string client = dir.At("client");
  WriteText(client, "", 0775);
  config.client = client;
  UseConfig();
  ImageIs(client);

  EXPECT_FALSE(Admits(kPid, kTestPersonUid));
  EXPECT_EQ(reason, client + " is writable by someone other than root");
}

TEST_F(InstalledCheckCallerImage, ComparesThePathBeforeItLooksAtTheFile) {
  const std::string copy = dir.At("copy");
  WriteText(copy, "", 0777);
  ImageIs(copy);

  EXPECT_FALSE(Admits(kPid, kTestPersonUid));
  EXPECT_EQ(reason, copy + " is not /usr/bin/env");
}

}  // namespace
}  // namespace Tarnvale::KioskService

// The package tools of the system themselves, on a system of one package and a repository of two.

#include <gtest/gtest.h>

#include <filesystem>

#include "device/updates_linux.h"
#include "slots/support/tool_test.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kSettings[] = "/etc/kiosk-sample/settings";
constexpr char kVersion[] = "/usr/lib/kiosk-sample/version";

// Makes an empty package database and the repository, in which each package has one version:
// kiosk-sample 2.0 and kiosk-extra 1.0, on which it depends. Installs kiosk-sample 1.0.
constexpr char kPrepare[] = R"sh(
set -e
umask 022
repository=/run/repository
mkdir -p $repository /var/lib/dpkg/info /var/lib/dpkg/updates /var/lib/apt/lists/partial
mkdir -p /var/cache/apt/archives/partial /var/log/apt
: > /var/lib/dpkg/status
: > /var/lib/dpkg/available
rm -rf /etc/apt/sources.list.d /etc/apt/apt.conf.d /etc/apt/preferences.d
mkdir -p /etc/apt/apt.conf.d
echo "deb [trusted=yes] file:$repository ./" > /etc/apt/sources.list

make_package() { # make_package NAME VERSION DEPENDS FOLDER [POSTINST]
  root=/run/build/$1-$2
  mkdir -p $root/DEBIAN $root/etc/$1 $root/usr/lib/$1
  {
    echo "Package: $1"; echo "Version: $2"; echo "Architecture: all"
    echo "Maintainer: Nobody <nobody@example.com>"
    [ -z "$3" ] || echo "Depends: $3"
    echo "Description: sample"
  } > $root/DEBIAN/control
  echo "/etc/$1/settings" > $root/DEBIAN/conffiles
  echo "of version $2" > $root/etc/$1/settings
  echo "$2" > $root/usr/lib/$1/version
  if [ -e "$5" ]; then cp "$5" $root/DEBIAN/postinst; fi
  dpkg-deb --root-owner-group --build $root $4/$1.deb
}
publish() { # publish NAME
  dpkg-deb --field $repository/$1.deb
  echo "Filename: ./$1.deb"
  echo "Size: $(stat -c %s $repository/$1.deb)"
  echo "SHA256: $(sha256sum < $repository/$1.deb | cut -d ' ' -f 1)"
  echo
}

make_package kiosk-sample 1.0 "" /run
dpkg --install /run/kiosk-sample.deb
make_package kiosk-sample 2.0 kiosk-extra $repository $here/postinst
make_package kiosk-extra 1.0 "" $repository
{ publish kiosk-sample; publish kiosk-extra; } > $repository/Packages
)sh";

class AptUpgradeTest : public ToolTest {
 protected:
  void SetUp() override {
    for (const char* const tool : {"apt-get", "apt-cache", "dpkg", "dpkg-deb"}) {
      if (FindTool(tool).empty()) GTEST_SKIP() << "this is no Debian: it has no " << tool;
    }
    const ProcResult prepared = RunProcess({MakeTool("prepare", kPrepare)}, 60'000);
    ASSERT_EQ(prepared.status, 0) << prepared.output;
    ASSERT_EQ(ReadText(kVersion), "1.0\n");
  }

  std::vector<OsUpdate> updates;
  std::atomic<int> progress{0};
};

TEST_F(AptUpgradeTest, FindsWhatIsPending) {
  const WuRun run = RunApt(false, &updates, &progress);

  EXPECT_EQ(run.result, kWuDone) << log.Text();
  EXPECT_EQ(run.pending, 2);
  ASSERT_EQ(updates.size(), 2U);
  EXPECT_EQ(updates[0].title, "kiosk-extra 1.0");
  EXPECT_EQ(updates[1].title, "kiosk-sample 2.0");
  EXPECT_EQ(updates[0].sizeBytes, std::filesystem::file_size("/run/repository/kiosk-extra.deb"));
  EXPECT_EQ(updates[1].sizeBytes, std::filesystem::file_size("/run/repository/kiosk-sample.deb"));
  EXPECT_EQ(ReadText(kVersion), "1.0\n");
}

TEST_F(AptUpgradeTest, InstallsItAndKeepsTheTerminalsOwnSettings) {
  WriteText(kSettings, "of the terminal\n");

  const WuRun run = RunApt(true, &updates, &progress);

  EXPECT_EQ(run.result, kWuDone) << log.Text();
  EXPECT_EQ(run.pending, 0);
  EXPECT_EQ(run.error, "");
  EXPECT_TRUE(updates.empty());
  EXPECT_EQ(ReadText(kVersion), "2.0\n");
  EXPECT_EQ(ReadText(kSettings), "of the terminal\n");
  EXPECT_EQ(ReadText("/usr/lib/kiosk-extra/version"), "1.0\n");
  EXPECT_GT(progress.load(), 50);
  EXPECT_EQ(RunApt(true, &updates, &progress).result, kWuNothingToDo);
}

TEST_F(AptUpgradeTest, FailsWhenTheRepositoryIsGone) {
  std::filesystem::remove_all("/run/repository");

  const WuRun run = RunApt(false, &updates, &progress);

  EXPECT_EQ(run.error, "search_failed");
  EXPECT_TRUE(log.Text().starts_with("<3>os updates: apt-get update failed: ")) << log.Text();
}

class AptBrokenUpgradeTest : public AptUpgradeTest {
 protected:
  AptBrokenUpgradeTest() {
    WriteText(directory.At("postinst"), "#!/bin/sh\necho 'cannot be configured'\nexit 3\n", 0755);
  }
};

TEST_F(AptBrokenUpgradeTest, FailsWithTheStatusOfApt) {
  const WuRun run = RunApt(true, &updates, &progress);

  EXPECT_EQ(run.result, kWuFailed);
  EXPECT_EQ(run.error, "install_failed 100");
  EXPECT_TRUE(log.Text().starts_with("<3>os updates: apt-get upgrade failed: ")) << log.Text();
}

}  // namespace
}  // namespace Tarnvale::KioskService

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "core/ops_linux.h"
#include "kiosk/account_linux.h"
#include "slots/support/recorder.h"

namespace Tarnvale::KioskService {
namespace {

class DropAdminGroupsTest : public RecordedToolTest {
 protected:
  DropAdminGroupsTest() {
    WriteText("/etc/nsswitch.conf", "passwd: files\ngroup: files\n");
    Replace("gpasswd");
  }

  static void SetGroups(const std::string& lines) {
    WriteText("/etc/group", "root:x:0:\n" + lines);
  }
};

TEST_F(DropAdminGroupsTest, TakesTheAccountOutOfAllTenInTheirOrder) {
  // In another order here, so that the order is the service's own.
  SetGroups(
      "shadow:x:10:kiosk\ndisk:x:9:kiosk\nlibvirt:x:8:kiosk\ndocker:x:7:kiosk\nlxd:x:6:kiosk\n"
      "lpadmin:x:5:kiosk\nadm:x:4:kiosk\nadmin:x:3:kiosk\nwheel:x:2:kiosk\nsudo:x:1:kiosk\n");

  DropAdminGroups("kiosk");

  std::string calls;
  std::string lines;
  for (const std::string group :
       {"sudo", "wheel", "admin", "adm", "lpadmin", "lxd", "docker", "libvirt", "disk", "shadow"}) {
    calls += "gpasswd [-d] [kiosk] [" + group + "]\n";
    lines += "<4>removed kiosk from " + group + "\n";
  }
  EXPECT_EQ(Calls(), calls);
  EXPECT_EQ(log.Text(), lines);
}

TEST_F(DropAdminGroupsTest, TouchesNoGroupThatDoesNotListTheAccount) {
  SetGroups("sudo:x:1:anna,kiosk2,kios,Kiosk\nadm:x:4:\ndisk:x:9:anna\n");

  DropAdminGroups("kiosk");

  EXPECT_EQ(Calls(), "");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(DropAdminGroupsTest, FindsTheAccountAnywhereInTheList) {
  SetGroups("sudo:x:1:kiosk,anna\nadm:x:4:anna,kiosk\ndisk:x:9:anna,kiosk,bert\n");

  DropAdminGroups("kiosk");

  EXPECT_EQ(Calls(),
            "gpasswd [-d] [kiosk] [sudo]\ngpasswd [-d] [kiosk] [adm]\ngpasswd [-d] [kiosk] "
            "[disk]\n");
}

TEST_F(DropAdminGroupsTest, LeavesOtherGroupsAlone) {
  SetGroups("audio:x:29:kiosk\nvideo:x:44:kiosk\nusers:x:100:kiosk\n");

  DropAdminGroups("kiosk");

  EXPECT_EQ(Calls(), "");
}

TEST_F(DropAdminGroupsTest, LogsAFailureAndGoesOn) {
  SetGroups("sudo:x:1:kiosk\nadm:x:4:kiosk\n");
  Replace("gpasswd", "[ \"$3\" = sudo ] || exit 0\necho; echo 'cannot lock /etc/group'; exit 1");

  DropAdminGroups("kiosk");

  EXPECT_EQ(log.Text(),
            "<3>cannot remove kiosk from sudo: cannot lock /etc/group\n"
            "<4>removed kiosk from adm\n");
}

TEST_F(DropAdminGroupsTest, FailsWithoutGpasswd) {
  SetGroups("sudo:x:1:kiosk\n");
  std::filesystem::remove("/usr/sbin/gpasswd");
  std::filesystem::remove("/usr/bin/gpasswd");

  DropAdminGroups("kiosk");

  EXPECT_EQ(log.Text(), "<3>cannot remove kiosk from sudo: \n");
}

TEST_F(DropAdminGroupsTest, GivesGpasswdFifteenSeconds) {
  SetGroups("sudo:x:1:kiosk\n");
  Replace("gpasswd", kHang);

  PassDeadline(15'000, [] {
    DropAdminGroups("kiosk");
    return true;
  });

  EXPECT_EQ(log.Text(),
            "<3>/usr/sbin/gpasswd did not finish in 15 s; stopped\n"
            "<3>cannot remove kiosk from sudo: \n");
}

TEST_F(DropAdminGroupsTest, ReadsAGroupThatFitsTheBuffer) {
  SetGroups("sudo:x:1:" + std::string(64'000, 'm') + ",kiosk\n");

  DropAdminGroups("kiosk");

  EXPECT_EQ(Calls(), "gpasswd [-d] [kiosk] [sudo]\n");
}

TEST_F(DropAdminGroupsTest, PassesOverAGroupThatCannotBeRead) {
  // In this order, because no line behind such a long one can be read either.
  SetGroups("adm:x:4:kiosk\nsudo:x:1:" + std::string(66'000, 'm') + ",kiosk\n");

  DropAdminGroups("kiosk");

  EXPECT_EQ(Calls(), "gpasswd [-d] [kiosk] [adm]\n");
  EXPECT_EQ(log.Text(), "<4>removed kiosk from adm\n");
}

TEST_F(DropAdminGroupsTest, TakesTheAccountOfTheConfigurationThatTheTableHolds) {
  SetGroups("sudo:x:1:kiosk,other\n");
  auto config = std::make_unique<Config>();
  config->kioskUser = "other";
  const Ops ops = LinuxOps(*config);
  config.reset();

  ops.dropAdminGroups();

  EXPECT_EQ(Calls(), "gpasswd [-d] [other] [sudo]\n");
}

TEST_F(DropAdminGroupsTest, WorksWithTheRealTool) {
  std::filesystem::remove("/usr/sbin/gpasswd");
  WriteText("/etc/passwd", "root:x:0:0::/root:/bin/sh\nkiosk:x:1501:100::/home/kiosk:/bin/sh\n");
  SetGroups("sudo:x:1:anna,kiosk\nusers:x:100:kiosk\n");
  WriteText("/etc/gshadow", "root:*::\nsudo:*::anna,kiosk\nusers:*::kiosk\n", 0640);

  DropAdminGroups("kiosk");

  EXPECT_EQ(ReadText("/etc/group"), "root:x:0:\nsudo:x:1:anna\nusers:x:100:kiosk\n");
  EXPECT_EQ(log.Text(), "<4>removed kiosk from sudo\n");
}

}  // namespace
}  // namespace Tarnvale::KioskService

#include "device/facts_linux.h"

#include <sys/mount.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>

#include "slots/support/system_stand_ins.h"
#include "support/temp_dir.h"

namespace Tarnvale::KioskService {
namespace {

class BootTimeTest : public ::testing::Test {
 protected:
  void SetProcStat(const std::string& text) {
    WriteText(file_.At("stat"), text);
    ASSERT_EQ(::mount(file_.At("stat").c_str(), "/proc/stat", nullptr, MS_BIND, nullptr), 0);
  }

 private:
  TempDir file_;
};

TEST_F(BootTimeTest, IsTheKernelsInMilliseconds) {
  const std::string stat = ReadText("/proc/stat");
  const std::string seconds = stat.substr(stat.find("\nbtime ") + 7);

  EXPECT_EQ(BootTime(), std::stol(seconds) * 1000);
}

TEST_F(BootTimeTest, IsReadAnewEachTime) {
  SetProcStat("cpu  1 2 3\nintr 4\nbtime 1700000000\nprocesses 5\n");
  EXPECT_EQ(BootTime(), 1'700'000'000'000);
  SetProcStat("btime 12\nbtime 13\n");
  EXPECT_EQ(BootTime(), 12'000);
}

TEST_F(BootTimeTest, IsNothingWithoutItsLine) {
  SetProcStat("cpu  1 2 3\nxbtime 7\nbtime\n");

  EXPECT_EQ(BootTime(), 0);
}

class ScreenCountTest : public ::testing::Test {
 protected:
  static void AddConnector(const std::string& name, const std::string& status) {
    const std::string directory = "/sys/class/drm/" + name;
    std::filesystem::create_directories(directory);
    WriteText(directory + "/status", status);
  }
};

TEST_F(ScreenCountTest, IsOneWithoutADisplaySystem) {
  ASSERT_FALSE(Exists("/sys/class/drm"));

  EXPECT_EQ(ScreenCount(), 1);
}

TEST_F(ScreenCountTest, CountsTheConnectedOutputs) {
  AddConnector("card0-HDMI-A-1", "connected\n");
  AddConnector("card0-HDMI-A-2", "disconnected\n");
  AddConnector("card0-DP-1", "connected\n");

  EXPECT_EQ(ScreenCount(), 2);
}

TEST_F(ScreenCountTest, CountsTheOutputsOfAllCards) {
  AddConnector("card0-eDP-1", "connected\n");
  AddConnector("card1-DP-1", "connected\n");
  AddConnector("card12-DP-1", "connected\n");

  EXPECT_EQ(ScreenCount(), 3);
}

TEST_F(ScreenCountTest, IsOneWhenNothingIsConnected) {
  AddConnector("card0-HDMI-A-1", "disconnected\n");
  AddConnector("card0-DP-1", "unknown\n");

  EXPECT_EQ(ScreenCount(), 1);
}

TEST_F(ScreenCountTest, LeavesCardsAndOtherDevicesOut) {
  AddConnector("card0", "connected\n");
  AddConnector("card1", "connected\n");
  AddConnector("renderD128", "connected\n");
  AddConnector("xcard0-DP-1", "connected\n");
  AddConnector("card0-DP-1", "connected\n");
  AddConnector("card0-DP-2", "connected\n");

  EXPECT_EQ(ScreenCount(), 2);
}

TEST_F(ScreenCountTest, TakesTheWordAloneWithSpaceAroundIt) {
  AddConnector("card0-DP-1", " connected\r\n\n");
  AddConnector("card0-DP-2", "connected");
  AddConnector("card0-DP-3", "Connected\n");
  AddConnector("card0-DP-4", "connected now\n");
  AddConnector("card0-DP-5", "");
  std::filesystem::create_directories("/sys/class/drm/card0-DP-6");

  EXPECT_EQ(ScreenCount(), 2);
}

class OsVersionTest : public ::testing::Test {
 protected:
  OsVersionTest() {
    std::filesystem::remove("/etc/os-release");  // a link into /usr/lib on most systems
  }
};

TEST_F(OsVersionTest, IsTheDisplayNameWithoutItsQuotes) {
  WriteText("/etc/os-release",
            "NAME=\"Debian GNU/Linux\"\nPRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n");

  EXPECT_EQ(OsVersion(), "Debian GNU/Linux 12 (bookworm)");
}

TEST_F(OsVersionTest, IsABareValueAsItStands) {
  WriteText("/etc/os-release", "PRETTY_NAME=Plain Name 1\nVERSION=1\n");

  EXPECT_EQ(OsVersion(), "Plain Name 1");
}

TEST_F(OsVersionTest, IsEmptyForAnEmptyName) {
  WriteText("/etc/os-release", "PRETTY_NAME=\n");

  EXPECT_EQ(OsVersion(), "");
}

TEST_F(OsVersionTest, KeepsAQuoteThatStandsAlone) {
  WriteText("/etc/os-release", "PRETTY_NAME=\"\n");

  EXPECT_EQ(OsVersion(), "\"");
}

TEST_F(OsVersionTest, IsLinuxWithoutANameOrAFile) {
  EXPECT_EQ(OsVersion(), "Linux");
  WriteText("/etc/os-release", "NAME=Debian\n");
  EXPECT_EQ(OsVersion(), "Linux");
}

TEST(HostNameTest, IsTheSystems) {
  const std::string longest(64, 'h');  // the kernel takes no longer one

  for (const std::string& name : {std::string("kiosk-7.example"), longest}) {
    ASSERT_EQ(::sethostname(name.data(), name.size()), 0);
    EXPECT_EQ(HostName(), name);
  }
}

TEST(HostNameTest, IsCutAfter255Bytes) {
  StandIn::SetHostName(std::string(255, 'h'));
  EXPECT_EQ(HostName(), std::string(255, 'h'));
  StandIn::SetHostName(std::string(300, 'h'));
  EXPECT_EQ(HostName(), std::string(255, 'h'));
}

TEST(HostNameTest, IsEmptyWhenTheSystemDoesNotTell) {
  StandIn::FailHostName();

  EXPECT_EQ(HostName(), "");
}

}  // namespace
}  // namespace Tarnvale::KioskService

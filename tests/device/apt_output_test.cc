#include "device/apt_output.h"

#include <gtest/gtest.h>

#include <limits>

#include "device/mutations.h"

namespace Tarnvale::KioskService {
namespace {

using Specs = std::vector<std::string>;

// apt 2.6.1 of Debian 12: apt-get -s -q -o Debug::NoLocking=1 upgrade --with-new-pkgs, shortened.
constexpr char kSimulation[] =
    "NOTE: This is only a simulation!\n"
    "      apt-get needs root privileges for real execution.\n"
    "Reading package lists...\n"
    "Building dependency tree...\n"
    "Reading state information...\n"
    "Calculating upgrade...\n"
    "The following NEW packages will be installed:\n"
    "  linux-image-6.1.0-18-amd64\n"
    "The following packages will be upgraded:\n"
    "  curl libc6 tzdata\n"
    "3 upgraded, 1 newly installed, 0 to remove and 0 not upgraded.\n"
    "Inst libc6 [2.36-9+deb12u3] (2.36-9+deb12u4 Debian:12.5/stable [amd64])\n"
    "Conf libc6 (2.36-9+deb12u4 Debian:12.5/stable [amd64])\n"
    "Inst curl [7.88.1-10+deb12u4] (7.88.1-10+deb12u5 Debian:12.5/stable [amd64]) []\n"
    "Inst linux-image-6.1.0-18-amd64 (6.1.76-1 Debian-Security:12/stable-security [amd64])\n"
    "Inst tzdata [2024a-0+deb12u1] (2025b-0+deb12u2 Debian:12-updates/stable [all])\n"
    "Conf curl (7.88.1-10+deb12u5 Debian:12.5/stable [amd64])\n";

// apt 2.6.1 of Debian 12: apt-cache show --no-all-versions curl=7.88.1-10+deb12u5 tzdata=...,
// shortened.
constexpr char kShow[] =
    "Package: curl\n"
    "Version: 7.88.1-10+deb12u5\n"
    "Installed-Size: 500\n"
    "Depends: libc6 (>= 2.34), libcurl4 (= 7.88.1-10+deb12u5), zlib1g (>= 1:1.1.4)\n"
    "Description-en: command line tool for transferring data with URL syntax\n"
    " curl is a command line tool for transferring data with URL syntax.\n"
    "Filename: pool/main/c/curl/curl_7.88.1-10+deb12u5_amd64.deb\n"
    "Size: 315752\n"
    "SHA256: 0f9e2f7b\n"
    "\n"
    "Package: tzdata\n"
    "Version: 2025b-0+deb12u2\n"
    "Size: 261452\n"
    "\n";

struct Simulated {
  std::vector<OsUpdate> updates;
  Specs specs;
};

Simulated Parse(const std::string& output) {
  Simulated simulated;
  simulated.updates = ParseSimulation(output, simulated.specs);
  return simulated;
}

Specs Titles(const Simulated& simulated) {
  Specs titles;
  for (const OsUpdate& update : simulated.updates)
    titles.push_back(update.id + "|" + update.title + (update.restartRequired ? "|restart" : ""));
  return titles;
}

struct SimulationRow {
  std::string output;
  Specs titles;
  Specs specs;
};

TEST(ParseSimulationTest, ReadsAsItsHeaderShows) {
  const SimulationRow rows[] = {
      {"Inst curl [7.88.1-1] (7.88.1-2 Debian:12 [amd64])",
       {"curl|curl 7.88.1-2"},
       {"curl=7.88.1-2"}},
      {"Inst linux-image-amd64", {"linux-image-amd64|linux-image-amd64|restart"}, {}},
      {"Conf curl (7.88.1-2 Debian:12 [amd64])", {}, {}},
      {"Inst curl (1)\n", {"curl|curl 1)"}, {"curl=1)"}},
      {"Inst curl:i386 (1 x)", {"curl:i386|curl:i386 1"}, {"curl:i386=1"}},
      {"Inst \t curl\t[0]\t(\t1\tx)\r\n", {"curl|curl 1"}, {"curl=1"}},
      {"Inst a (1 b) (2 c)", {"a|a 1"}, {"a=1"}},
      {"Inst a(1 b", {"a(1|a(1 1"}, {"a(1=1"}},
      {"Inst (1 b)", {"(1|(1 1"}, {"(1=1"}},
      {"Inst a (", {"a|a"}, {}},
      {"Inst a (  \n", {"a|a"}, {}},
      {"Inst a 1)", {"a|a"}, {}},
      {"Inst ", {"|"}, {}},
      {"Inst", {}, {}},
      {"Inst\ta (1 x)", {}, {}},
      {" Inst a (1 x)", {}, {}},
      {"inst a (1 x)", {}, {}},
      {"Instead of a (1 x)", {}, {}},
      {"Remv a [1]", {}, {}},
      {"", {}, {}},
      {"\n\n", {}, {}},
      {"Inst a (1 x)\nInst a (1 x)", {"a|a 1", "a|a 1"}, {"a=1", "a=1"}},
      {"Inst \xFF\xC3 (\x80 x)", {"\xFF\xC3|\xFF\xC3 \x80"}, {"\xFF\xC3=\x80"}},
      {std::string("Inst a\0b (1 x)", 14),
       {std::string("a\0b|a\0b 1", 9)},
       {std::string("a\0b=1", 5)}},
  };
  for (const SimulationRow& row : rows) {
    const Simulated simulated = Parse(row.output);
    EXPECT_EQ(Titles(simulated), row.titles) << row.output;
    EXPECT_EQ(simulated.specs, row.specs) << row.output;
  }
}

TEST(ParseSimulationTest, TakesThePackagesInTheirOrder) {
  const Simulated simulated = Parse(kSimulation);

  const Specs titles = {"libc6|libc6 2.36-9+deb12u4|restart", "curl|curl 7.88.1-10+deb12u5",
                        "linux-image-6.1.0-18-amd64|linux-image-6.1.0-18-amd64 6.1.76-1|restart",
                        "tzdata|tzdata 2025b-0+deb12u2"};
  const Specs specs = {"libc6=2.36-9+deb12u4", "curl=7.88.1-10+deb12u5",
                       "linux-image-6.1.0-18-amd64=6.1.76-1", "tzdata=2025b-0+deb12u2"};
  EXPECT_EQ(Titles(simulated), titles);
  EXPECT_EQ(simulated.specs, specs);
  for (const OsUpdate& update : simulated.updates)
    EXPECT_EQ(update.sizeBytes, 0U);
}

TEST(ParseSimulationTest, AddsToTheSpecsThatAreThere) {
  Specs specs = {"before=1"};

  (void)ParseSimulation("Inst a (1 x)", specs);  // the specs are looked at

  const Specs expected = {"before=1", "a=1"};
  EXPECT_EQ(specs, expected);
}

TEST(ParseSimulationTest, MarksWhatNeedsARestartByItsName) {
  const char* const marked[] = {
      "linux-image-amd64", "linux-modules-6.1",
      "linux-firmware",    "linux-generic",
      "linux-headers-6.1", "libc6",
      "systemd",           "dbus",
      "linux-rockchip64",  "armbian-bsp-cli-board",
      "armbian-firmware",  "u-boot-tools",
      "systemd-timesyncd", "libc6-dev",
      "dbus-x11",          "libc6:i386",
  };
  const char* const others[] = {
      "linux-imag", "linux-libc-dev", "libc",   "xsystemd", "libsystemd0",
      "udev",       "u-boo",          "Dbus-x", "armbian-", "linux-base",
  };
  for (const char* const name : marked)
    EXPECT_TRUE(Parse(std::string("Inst ") + name + " (1 x)").updates[0].restartRequired) << name;
  for (const char* const name : others)
    EXPECT_FALSE(Parse(std::string("Inst ") + name + " (1 x)").updates[0].restartRequired) << name;
}

TEST(ParseSimulationTest, TakesAnyBytes) {
  ForEachMutation(kSimulation, 3000, [](const std::string& output) {
    const Simulated simulated = Parse(output);
    EXPECT_GE(simulated.updates.size(), simulated.specs.size());
  });
}

// The size of `name` after this output, when it was `before`.
std::uint64_t SizeAfter(const std::string& output, const std::string& name = "curl",
                        std::uint64_t before = 0) {
  std::vector<OsUpdate> updates = {{.id = name, .title = name, .sizeBytes = before}};
  ReadSizes(output, updates);
  return updates[0].sizeBytes;
}

struct SizeRow {
  std::string output;
  std::uint64_t size;
};

TEST(ReadSizesTest, ReadsAsItsHeaderShows) {
  const SizeRow rows[] = {
      {"Package: curl\nSize: 315840\n", 315840},
      {"Package: curl:amd64\nSize: 315840\n", 0},
      {"Package: curl\nSize: 1\nSize: 2\n", 1},
      {"Package: curl\nSize: 7", 7},
      {"Package: curl\nSize: 0\nSize: 2\n", 2},
      {"Package:  curl \r\nSize: 7\r\n", 7},
      {"Package: curl\n\nSize: 7\n", 7},
      {"Package: other\nSize: 7\nPackage: curl\nSize: 8\n", 8},
      {"Package: curl\nPackage: other\nSize: 7\n", 0},
      {"Package: curl\nInstalled-Size: 7\n", 0},
      {"Package: curl\n Size: 7\n", 0},
      {"Package: curl\nSize:7\n", 0},
      {"Package: curl\nsize: 7\n", 0},
      {"Package:curl\nSize: 7\n", 0},
      {" Package: curl\nSize: 7\n", 0},
      {"Package: Curl\nSize: 7\n", 0},
      {"Package: curl2\nSize: 7\n", 0},
      {"Package: cur\nSize: 7\n", 0},
      {"Size: 7\n", 0},
      {"Package: curl\nSize: \n", 0},
      {"Package: curl\nSize: many\n", 0},
      {"Package: curl\nSize: -5\n", 0},
      {"Package: curl\nSize: 12 kB\n", 12},
      {"Package: curl\nSize: 0x10\n", 0},
      {"Package: curl\nSize: 4294967296\n", 4294967296},
      {"Package: curl\nSize: 18446744073709551615\n", std::numeric_limits<std::uint64_t>::max()},
      {"Package: curl\nSize: 18446744073709551616\n", 0},
      {"Package: curl\nSize: 99999999999999999999\n", 0},
      {"Package: curl\nSize: 000000000000000000000000000007\n", 7},
      {std::string("Package: cu\0rl\nSize: 7\n", 23), 0},
      {"", 0},
  };
  for (const SizeRow& row : rows)
    EXPECT_EQ(SizeAfter(row.output), row.size) << row.output;
}

TEST(ReadSizesTest, LeavesAKnownSizeAlone) {
  EXPECT_EQ(SizeAfter("Package: curl\nSize: 7\n", "curl", 5), 5U);
}

TEST(ReadSizesTest, KnowsNoSizeOfAPackageWithAnArchitecture) {
  EXPECT_EQ(SizeAfter("Package: curl\nSize: 7\n", "curl:i386"), 0U);
  EXPECT_EQ(SizeAfter("Package: curl:i386\nSize: 7\n", "curl:i386"), 7U);
}

TEST(ReadSizesTest, GivesASizeWithoutANameToThePackageWithoutOne) {
  EXPECT_EQ(SizeAfter("Size: 7\n", ""), 7U);
}

TEST(ReadSizesTest, ReachesEveryPackageOfTheName) {
  std::vector<OsUpdate> updates = {{.id = "tzdata", .title = {}},
                                   {.id = "curl", .title = {}},
                                   {.id = "libc6", .title = {}},
                                   {.id = "curl", .title = {}}};

  ReadSizes(kShow, updates);

  EXPECT_EQ(updates[0].sizeBytes, 261452U);
  EXPECT_EQ(updates[1].sizeBytes, 315752U);
  EXPECT_EQ(updates[2].sizeBytes, 0U);
  EXPECT_EQ(updates[3].sizeBytes, 315752U);
}

TEST(ReadSizesTest, TakesAnyBytes) {
  ForEachMutation(kShow, 3000, [](const std::string& output) {
    std::vector<OsUpdate> updates = {{.id = "tzdata", .title = {}}};
    ReadSizes(output, updates);
    EXPECT_EQ(updates[0].id, "tzdata");
  });
}

// Work that grew with the square of the output would run into the time limit of every test.
TEST(ReadSizesTest, TakesManyPackagesAtOnce) {
  constexpr std::size_t kCount = 50'000;
  std::string simulation;
  std::string show;
  for (std::size_t count = 0; count < kCount; ++count) {
    simulation += "Inst p" + std::to_string(count) + " (1 x)\n";
    show += "Package: p" + std::to_string(count) + "\nSize: 0\nSize: 9\n";
  }

  Simulated simulated = Parse(simulation);
  ReadSizes(show, simulated.updates);

  ASSERT_EQ(simulated.updates.size(), kCount);
  for (const OsUpdate& update : simulated.updates)
    ASSERT_EQ(update.sizeBytes, 9U);
}

constexpr int kAsBefore = -1;

struct ProgressRow {
  std::string line;
  int progress;
};

TEST(AptProgressLineTest, ReadsAsItsHeaderShows) {
  const ProgressRow rows[] = {
      {"dlstatus:1:50.0000:Retrieving file 1 of 2", 25},
      {"pmstatus:curl:50.0000:Installing curl", 75},
      {"pmerror:curl:50.0000:broken", kAsBefore},
      {"dlstatus:1:0:x", 0},
      {"dlstatus:1:100:x", 50},
      {"pmstatus:curl:0.0000:x", 50},
      {"pmstatus:curl:100.0000:x", 100},
      {"dlstatus:1:1.9999:x", 0},
      {"dlstatus:1:2:x", 1},
      {"dlstatus:1:99.9999:x", 49},
      {"pmstatus:dpkg-exec:14.2857:Running dpkg", 57},
      {"dlstatus:1:150:x", 50},
      {"pmstatus:a:150:x", 100},
      {"dlstatus:1:-5:x", 0},
      {"pmstatus:a:-5:x", 50},
      {"dlstatus:1:nan:x", 0},
      {"pmstatus:a:nan:x", 50},
      {"pmstatus:a:-nan:x", 50},
      {"dlstatus:1:inf:x", 50},
      {"pmstatus:a:-inf:x", 50},
      {"dlstatus:1:1e400:x", 50},
      {"dlstatus:1:1e-400:x", 0},
      {"dlstatus:1::x", 0},
      {"dlstatus:1:half:x", 0},
      {"dlstatus:1: 50:x", 25},
      {"dlstatus:1:50 %:x", 25},
      {"dlstatus:1:50,9:x", 25},
      {"dlstatus:1:50", 25},
      {"dlstatus::50", 25},
      {"pmstatus:a\\:b:50:x", 75},
      {"pmstatus:a\\:50:x", 50},
      {"pmstatus:libc6\\:amd64:20.0000:x", 60},
      {"pmstatus:a:5\\0:x", 75},
      {"dlstatus:50", kAsBefore},
      {"dlstatus:1\\:50:x", 0},
      {"dlstatus:1\\:50", kAsBefore},
      {"dlstatus:", kAsBefore},
      {"dlstatus", kAsBefore},
      {"pmstatus", kAsBefore},
      {"pmconffile:/etc/a:50:'a' 'b' 1 1", kAsBefore},
      {"media-change:disc:50:x", kAsBefore},
      {"xdlstatus:1:50:x", kAsBefore},
      {"DLSTATUS:1:50:x", kAsBefore},
      {"", kAsBefore},
      {std::string("dlstatus:1:50\0:x", 16), 25},
      {"dlstatus:\xFF:50:\xFE", 25},
  };
  for (const ProgressRow& row : rows) {
    std::atomic<int> progress{kAsBefore};
    AptProgressLine(row.line, progress);
    EXPECT_EQ(progress.load(), row.progress) << row.line;
  }
}

TEST(AptProgressLineTest, GoesBackWhenAptDoes) {
  std::atomic<int> progress{80};

  AptProgressLine("dlstatus:1:10:x", progress);

  EXPECT_EQ(progress.load(), 5);
}

TEST(AptProgressLineTest, StaysBetweenNothingAndAll) {
  ForEachMutation("pmstatus:curl:50.0000:Installing curl (amd64)", 20'000,
                  [](const std::string& line) {
                    std::atomic<int> progress{50};
                    AptProgressLine(line, progress);
                    EXPECT_GE(progress.load(), 0) << line;
                    EXPECT_LE(progress.load(), 100) << line;
                  });
}

}  // namespace
}  // namespace Tarnvale::KioskService

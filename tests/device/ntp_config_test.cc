#include "device/ntp_config.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "device/mutations.h"

namespace Tarnvale::KioskService {
namespace {

using Hosts = std::vector<std::string>;

// chrony 4.3 of Debian 12, /etc/chrony/chrony.conf, shortened.
constexpr char kChronyConf[] =
    "# Welcome to the chrony configuration file. See chrony.conf(5) for more\n"
    "# information about usable directives.\n"
    "\n"
    "# Include configuration files found in /etc/chrony/conf.d.\n"
    "confdir /etc/chrony/conf.d\n"
    "\n"
    "# Use Debian vendor zone.\n"
    "pool 2.debian.pool.ntp.org iburst\n"
    "\n"
    "# Use time sources from DHCP.\n"
    "sourcedir /run/chrony-dhcp\n"
    "driftfile /var/lib/chrony/chrony.drift\n"
    "makestep 1 3\n";

// systemd 252 of Debian 12, /etc/systemd/timesyncd.conf, with one line filled in.
constexpr char kTimesyncdConf[] =
    "#  This file is part of systemd.\n"
    "[Time]\n"
    "NTP=ntp1.example 10.1.2.3\n"
    "#FallbackNTP=0.debian.pool.ntp.org 1.debian.pool.ntp.org\n"
    "#RootDistanceMaxSec=5\n"
    "#PollIntervalMinSec=32\n";

struct HostRow {
  std::string name;
  bool valid;
};

TEST(ValidNtpHostTest, KnowsNamesAndAddresses) {
  const HostRow rows[] = {
      {"ntp-1.example", true},
      {"-v", false},
      {"fe80::1", false},
      {"10.0.0.1", true},
      {"a", true},
      {"7", true},
      {"A.Z-", true},
      {"a..b", true},
      {"", false},
      {".", false},
      {".a", false},
      {"-", false},
      {"a_b", false},
      {"a b", false},
      {"a/b", false},
      {"a%b", false},
      {"a\n", false},
      {std::string("a\0b", 3), false},
      {"caf\xC3\xA9", false},
      {"\xE9", false},
      {std::string(253, 'a'), true},
      {std::string(254, 'a'), false},
  };
  for (const HostRow& row : rows)
    EXPECT_EQ(ValidNtpHost(row.name), row.valid) << '"' << row.name << '"';
}

TEST(ValidNtpHostTest, AdmitsNoOtherByte) {
  for (int byte = 0; byte < 256; ++byte) {
    const char value = static_cast<char>(byte);
    const bool letter = (value >= 'a' && value <= 'z') || (value >= 'A' && value <= 'Z');
    const bool inside = letter || (value >= '0' && value <= '9') || value == '-' || value == '.';
    EXPECT_EQ(ValidNtpHost(std::string("a") + value), inside) << byte;
  }
}

struct FileRow {
  std::string text;
  Hosts hosts;
};

TEST(ChronyHostsTest, ReadsAsItsHeaderShows) {
  const FileRow rows[] = {
      {" server 10.0.0.1 iburst", {"10.0.0.1"}},
      {"pool -x\npool b.example", {"b.example"}},
      {"#server a.example", {}},
      {"server 10.0.0.1 iburst", {"10.0.0.1"}},
      {kChronyConf, {"2.debian.pool.ntp.org"}},
      {"server a\npool b\nserver c\n", {"a", "b", "c"}},
      {"server a b", {"a"}},
      {"\t server \t a\r\n", {"a"}},
      {"server a\nserver a", {"a", "a"}},
      {"", {}},
      {"\n\n", {}},
      {"server", {}},
      {"server\na", {}},
      {"server #a", {}},
      {"Server a", {}},
      {"servers a", {}},
      {"xserver a", {}},
      {"peer a", {}},
      {"! server a", {}},
      {"server fe80::1", {}},
      {"server a_b\nserver c", {"c"}},
      {std::string("server a\0b", 10), {}},
      {std::string("\0server a", 9), {}},
  };
  for (const FileRow& row : rows)
    EXPECT_EQ(ChronyHosts(row.text), row.hosts) << row.text;
}

TEST(TimesyncdHostsTest, ReadsAsItsHeaderShows) {
  const FileRow rows[] = {
      {"[Time]\nNTP=a.example b.example", {"a.example", "b.example"}},
      {"NTP = a.example", {}},
      {"FallbackNTP=a.example", {}},
      {kTimesyncdConf, {"ntp1.example", "10.1.2.3"}},
      {"  NTP=a  \n", {"a"}},
      {"NTP= \t a\tb \r\n", {"a", "b"}},
      {"NTP=a -b c_d e", {"a", "e"}},
      {"NTP=b\n[Other]\nNTP=a", {"b", "a"}},
      {"NTP=", {}},
      {"NTP=\na", {}},
      {"#NTP=a", {}},
      {"ntp=a", {}},
      {"NTP", {}},
      {"", {}},
      {"NTP=#a", {}},
      {std::string("NTP=a\0 b", 8), {"b"}},
  };
  for (const FileRow& row : rows)
    EXPECT_EQ(TimesyncdHosts(row.text), row.hosts) << row.text;
}

TEST(NtpHostsTest, AreValidWhateverTheFilesHold) {
  const auto expectValid = [](const Hosts& hosts) {
    EXPECT_TRUE(std::all_of(hosts.begin(), hosts.end(), ValidNtpHost));
  };
  ForEachMutation(kChronyConf, 3000,
                  [&](const std::string& text) { expectValid(ChronyHosts(text)); });
  ForEachMutation(kTimesyncdConf, 3000,
                  [&](const std::string& text) { expectValid(TimesyncdHosts(text)); });
}

// Work that grew with the square of the text would run into the time limit of every test.
TEST(NtpHostsTest, AreFoundInLargeFiles) {
  constexpr std::size_t kCount = 200'000;
  std::string lines;
  std::string words = "NTP=";
  for (std::size_t count = 0; count < kCount; ++count) {
    lines += "server a\n";
    words += "a ";
  }

  EXPECT_EQ(ChronyHosts(lines).size(), kCount);
  EXPECT_EQ(TimesyncdHosts(words).size(), kCount);
  EXPECT_EQ(ChronyHosts(words).size(), 0U);
}

}  // namespace
}  // namespace Tarnvale::KioskService

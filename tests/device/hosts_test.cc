#include "device/hosts.h"

#include <gtest/gtest.h>

#include <string>

namespace Tarnvale::KioskService {
namespace {

std::string LabelOf(std::size_t bytes) {
  return std::string(bytes, 'a');
}

// A name of this many bytes, at least 200, in labels of up to 63.
std::string NameOf(std::size_t bytes) {
  const std::string three = LabelOf(63) + "." + LabelOf(63) + "." + LabelOf(63) + ".";
  return three + LabelOf(bytes - three.size());
}

TEST(ValidHost, AcceptsNamesAndIpv4Addresses) {
  const std::string rows[] = {
      "proxy.example",
      "10.0.0.7",
      "255.255.255.255",
      "0.0.0.0",
      "a",
      "localhost",
      "a-b.c--d.e",
      "1a.2b",
      "10.0.0.7a",
      "1.2.3.a",
      "xn--bcher-kva.example",
      LabelOf(63),
      LabelOf(63) + ".b",
      NameOf(253),
  };

  for (const std::string& row : rows)
    EXPECT_TRUE(ValidHost(row, false)) << row;
}

TEST(ValidHost, RefusesEveryOtherName) {
  const std::string rows[] = {
      "10.0.0.256",
      "7",
      "1.2.3",
      "1.2.3.4.5",
      "010.0.0.1",
      "1234567",
      ".",
      "..",
      "1..2",
      "",
      ".a",
      "a.",
      "a..b",
      "-a",
      "a-",
      "a.-b",
      "a-.b",
      "-",
      "Proxy.example",
      "a_b",
      "a b",
      "a/b",
      "a:b",
      "a@b",
      "a\"b",
      "a\nb",
      "a;b",
      "b\xC3\xBC"
      "cher",
      "*.example",
      "::1",
      "[::1]",
      LabelOf(64),
      "a." + LabelOf(64),
      NameOf(254),
      std::string("a\0b", 3),
      std::string("10.0.0.7\0", 9),
  };

  for (const std::string& row : rows)
    EXPECT_FALSE(ValidHost(row, false)) << row;
}

TEST(ValidHost, AcceptsIpv6AddressesFromBetweenBrackets) {
  const std::string rows[] = {
      "::1",
      "::",
      "2001:db8::7",
      "fe80::1",
      "1:2:3:4:5:6:7:8",
      "::ffff:10.0.0.7",
      "ffff:ffff:ffff:ffff:ffff:ffff:255.255.255.255",  // the longest, 45 bytes
  };

  for (const std::string& row : rows)
    EXPECT_TRUE(ValidHost(row, true)) << row;
}

TEST(ValidHost, RefusesEverythingElseFromBetweenBrackets) {
  const std::string rows[] = {
      "",
      "proxy.example",
      "10.0.0.7",
      "::FF",
      ":",
      ":::",
      "1:2:3:4:5:6:7",
      "1:2:3:4:5:6:7:8:9",
      "12345::",
      "fe80::1%eth0",
      "::1 ",
      "[::1]",
      "::ffff:10.0.0.256",
      "0ffff:ffff:ffff:ffff:ffff:ffff:255.255.255.255",  // 46 bytes
      std::string("::1\0", 4),
  };

  for (const std::string& row : rows)
    EXPECT_FALSE(ValidHost(row, true)) << row;
}

TEST(ParsePort, ReadsPortsUpToBothLimits) {
  struct Row {
    const char* text;
    std::int32_t expected;
  };
  for (const Row& row :
       {Row{"3128", 3128}, {"1", 1}, {"9", 9}, {"80", 80}, {"10000", 10000}, {"65535", 65535}}) {
    std::int32_t port = -77;

    EXPECT_TRUE(ParsePort(row.text, port)) << row.text;
    EXPECT_EQ(port, row.expected);
  }
}

TEST(ParsePort, RefusesEverythingElse) {
  const std::string rows[] = {
      "080",  "65536", "",    "0",      "00",   "99999", "100000",   "000080",
      "-1",   "+80",   " 80", "80 ",    "8 0",  "8a",    "a8",       "0x50",
      "80\n", "8.0",   "1e3", "655350", "8:80", "80/a",  "\xD9\xA1", std::string("80\0", 3),
  };

  for (const std::string& row : rows) {
    std::int32_t port = -77;

    EXPECT_FALSE(ParsePort(row, port)) << row;
    EXPECT_EQ(port, -77) << row;
  }
}

}  // namespace
}  // namespace Tarnvale::KioskService

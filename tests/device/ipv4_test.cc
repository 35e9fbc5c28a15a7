#include "device/ipv4.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>

namespace Tarnvale::KioskService {
namespace {

constexpr std::uint32_t kUntouched = 0xDEADBEEF;

TEST(ParseIpv4, ReadsFourOctets) {
  struct Row {
    const char* text;
    std::uint32_t expected;
  };
  const Row rows[] = {{"192.168.0.7", 0xC0A80007},     {"0.0.0.0", 0},
                      {"255.255.255.255", 0xFFFFFFFF}, {"1.2.3.4", 0x01020304},
                      {"10.0.0.255", 0x0A0000FF},      {"127.0.0.1", 0x7F000001},
                      {"224.0.0.1", 0xE0000001},       {"100.10.0.200", 0x640A00C8}};

  for (const Row& row : rows) {
    std::uint32_t address = kUntouched;

    EXPECT_TRUE(ParseIpv4(Json(row.text), address)) << row.text;
    EXPECT_EQ(address, row.expected) << row.text;
  }
}

TEST(ParseIpv4, RefusesEveryOtherText) {
  const std::string rows[] = {
      "192.168.010.7",
      "192.168.0.256",
      "",
      "1",
      "1.2",
      "1.2.3",
      "1.2.3.",
      ".1.2.3",
      "1.2.3.4.",
      "1.2.3.4.5",
      "1..2.3",
      "1.2..3.4",
      "1.2.3.4 ",
      " 1.2.3.4",
      "1.2.3.4\n",
      "1.2.3.4/24",
      "1.2.3.4:80",
      "1,2,3,4",
      "00.0.0.0",
      "01.2.3.4",
      "1.2.3.04",
      "1.2.3.000",
      "256.1.1.1",
      "1.999.1.1",
      "1.2.3.1000",
      "0001.2.3.4",
      "111.111.111.1111",
      "111.111.111.111.",
      "+1.2.3.4",
      "-1.2.3.4",
      "0x1.2.3.4",
      "a.b.c.d",
      "1.2.3.4a",
      "::1",
      "16909060",
      std::string("1.2.3.4\0", 8),
      std::string("1.2\0.3.4", 8),
      "\xD9\xA1.2.3.4",
  };

  for (const std::string& row : rows) {
    std::uint32_t address = kUntouched;

    EXPECT_FALSE(ParseIpv4(Json(row), address)) << row;
    EXPECT_EQ(address, kUntouched) << row;
  }
}

TEST(ParseIpv4, RefusesEveryOtherKind) {
  Json list = Json::Array();
  list.Append("1.2.3.4");
  for (const Json& value : {Json(), Json(true), Json(1.2), Json(16909060), list, Json::Object()}) {
    std::uint32_t address = kUntouched;

    EXPECT_FALSE(ParseIpv4(value, address)) << value.Dump();
    EXPECT_EQ(address, kUntouched);
  }
}

TEST(FormatIpv4, WritesDottedDecimal) {
  EXPECT_EQ(FormatIpv4(0xC0A80007), "192.168.0.7");
  EXPECT_EQ(FormatIpv4(0), "0.0.0.0");
  EXPECT_EQ(FormatIpv4(0xFFFFFFFF), "255.255.255.255");
}

TEST(FormatIpv4, WritesWhatParseIpv4Reads) {
  std::mt19937 generator(4);
  for (int round = 0; round < 20'000; ++round) {
    const auto written = static_cast<std::uint32_t>(generator());
    std::uint32_t read = kUntouched;

    ASSERT_TRUE(ParseIpv4(Json(FormatIpv4(written)), read)) << written;
    ASSERT_EQ(read, written);
  }
}

TEST(JoinIpv4, PutsTheSeparatorBetweenEachTwo) {
  EXPECT_EQ(JoinIpv4({}, ","), "");
  EXPECT_EQ(JoinIpv4({0x01010101}, ","), "1.1.1.1");
  EXPECT_EQ(JoinIpv4({0x01010101, 0x08080404}, " "), "1.1.1.1 8.8.4.4");
}

}  // namespace
}  // namespace Tarnvale::KioskService

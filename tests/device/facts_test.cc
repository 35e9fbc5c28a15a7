#include "device/facts.h"

#include <gtest/gtest.h>

#include <string>

namespace Tarnvale::KioskService {
namespace {

struct BootTimeRow {
  std::string text;
  long expected = 0;
};

TEST(ParseBootTimeMs, ReadsTheFirstLineThatBeginsWithItsWord) {
  const BootTimeRow rows[] = {
      {"cpu 1 2\nbtime 1700000000\n", 1700000000000},
      {"btime \n", 0},
      {"", 0},
      {"btime 5", 5000},
      {"btime 1\nbtime 2\n", 1000},
      {"btime x\nbtime 3\n", 0},
      {"\n\nbtime 4\n", 4000},
      {"cpu 1 2\nintr 3\n", 0},
      {"btime\n", 0},
      {"btime\nbtime 6\n", 6000},
      {" btime 5\n", 0},
      {"xbtime 5\n", 0},
      {"btime\t5\n", 0},
      {"Btime 5\n", 0},
  };

  for (const BootTimeRow& row : rows)
    EXPECT_EQ(ParseBootTimeMs(row.text), row.expected) << row.text;
}

TEST(ParseBootTimeMs, TakesTheNumberAsTheCLibraryReadsIt) {
  const BootTimeRow rows[] = {
      {"btime  7\n", 7000},    {"btime 12abc\n", 12000},
      {"btime 5\r\n", 5000},   {"btime -5\n", -5000},
      {"btime +9\n", 9000},    {"btime 1.9\n", 1000},
      {"btime 0x10\n", 0},     {std::string("btime 1\0002\n", 10), 1000},
      {"btime \xFF\xFE\n", 0}, {"btime 9007199254740991\n", 9007199254740991000},
  };

  for (const BootTimeRow& row : rows)
    EXPECT_EQ(ParseBootTimeMs(row.text), row.expected) << row.text;
}

TEST(ParseBootTimeMs, WrapsANumberThatNoClockWillEverShow) {
  EXPECT_EQ(ParseBootTimeMs("btime 99999999999999999999\n"), -1000);
  EXPECT_EQ(ParseBootTimeMs("btime -99999999999999999999\n"), 0);
}

struct NameRow {
  std::string text;
  std::string expected;
};

TEST(ParseDisplayName, ReadsTheFirstLineThatBeginsWithItsWord) {
  const NameRow rows[] = {
      {"PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"", "Debian GNU/Linux 12 (bookworm)"},
      {"PRETTY_NAME=", ""},
      {"NAME=Debian", "Linux"},
      {"", "Linux"},
      {"NAME=Debian\nPRETTY_NAME=Trixie\nID=debian\n", "Trixie"},
      {"PRETTY_NAME=One\nPRETTY_NAME=Two\n", "One"},
      {"PRETTY_NAME=\nPRETTY_NAME=Two\n", ""},
      {"PRETTY_NAME\n", "Linux"},
      {" PRETTY_NAME=Indented\n", "Linux"},
      {"export PRETTY_NAME=Exported\n", "Linux"},
      {"pretty_name=Small\n", "Linux"},
  };

  for (const NameRow& row : rows)
    EXPECT_EQ(ParseDisplayName(row.text), row.expected) << row.text;
}

TEST(ParseDisplayName, TakesOnePairOfQuotesAndUnquotesNothingElse) {
  const NameRow rows[] = {
      {"PRETTY_NAME='Single'", "Single"},
      {"PRETTY_NAME=\"\"", ""},
      {"PRETTY_NAME=\"", "\""},
      {"PRETTY_NAME='", "'"},
      {"PRETTY_NAME=x", "x"},
      {"PRETTY_NAME=\"Open", "Ope"},
      {"PRETTY_NAME=\"Mixed'", "Mixed"},
      {"PRETTY_NAME=\"\"Twice\"\"", "\"Twice\""},
      {"PRETTY_NAME=Closed\"", "Closed\""},
      {R"(PRETTY_NAME="a \"b\" \$c")", R"(a \"b\" \$c)"},
      {"PRETTY_NAME= \"Spaced\"", " \"Spaced\""},
      {"PRETTY_NAME=\"Carriage\"\r\n", "Carriage\""},
  };

  for (const NameRow& row : rows)
    EXPECT_EQ(ParseDisplayName(row.text), row.expected) << row.text;
}

TEST(ParseDisplayName, KeepsAnyByteOfTheValue) {
  const std::string value("a\0\x01\x7F\xC3\xFF", 6);

  EXPECT_EQ(ParseDisplayName("PRETTY_NAME=" + value + "\n"), value);
  EXPECT_EQ(ParseDisplayName("PRETTY_NAME=\"" + value + "\"\n"), value);
}

TEST(Facts, ReadNothingFromTextsOfAnySingleByte) {
  for (int byte = 0; byte < 256; ++byte) {
    const std::string text(64, static_cast<char>(byte));

    EXPECT_EQ(ParseBootTimeMs(text), 0) << byte;
    EXPECT_EQ(ParseDisplayName(text), "Linux") << byte;
  }
}

TEST(Facts, FindTheirLineBehindAMillionOthers) {
  const std::string others(1'000'000, '\n');

  EXPECT_EQ(ParseBootTimeMs(others + "btime 8"), 8000);
  EXPECT_EQ(ParseDisplayName(others + "PRETTY_NAME=Far"), "Far");
}

}  // namespace
}  // namespace Tarnvale::KioskService

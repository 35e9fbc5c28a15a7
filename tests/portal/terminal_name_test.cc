#include "portal/terminal_name.h"

#include <gtest/gtest.h>

#include <string>

namespace Tarnvale::KioskService {
namespace {

std::string Repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i)
    all += text;
  return all;
}

struct Row {
  std::string text;
  std::string expected;
};

TEST(CleanTerminalName, TakesControlCharactersAndOuterSpaceAway) {
  const Row rows[] = {
      {" Hall\x07way \n", "Hallway"},
      {"Caf\xC3\xA9", "Caf\xC3\xA9"},
      {"\x01\x02", ""},
      {"", ""},
      {" \t\r\n\v\f ", ""},
      {"a\tb\nc", "abc"},
      {"a b  c", "a b  c"},
      {std::string("\0a\0b\x1F\x7F", 6), "ab"},
      {"~\x7F!", "~!"},
      {"Hall \x01", "Hall"},
      {"Hall \x7F \x02\x01", "Hall"},
      {"\x1F x", " x"},  // what is outer space counts before control characters go
  };

  for (const Row& row : rows)
    EXPECT_EQ(CleanTerminalName(row.text), row.expected) << row.text;
}

TEST(CleanTerminalName, Keeps80CharactersAndNoneAbove) {
  EXPECT_EQ(CleanTerminalName(std::string(80, 'x')), std::string(80, 'x'));
  EXPECT_EQ(CleanTerminalName(std::string(81, 'x')), std::string(80, 'x'));
  EXPECT_EQ(CleanTerminalName(std::string(200, 'x')), std::string(80, 'x'));
}

TEST(CleanTerminalName, CountsCharactersAndNotBytes) {
  for (const char* const character : {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x9A\xAA"}) {
    EXPECT_EQ(CleanTerminalName(Repeated(character, 80)), Repeated(character, 80)) << character;
    EXPECT_EQ(CleanTerminalName(Repeated(character, 200)), Repeated(character, 80)) << character;
    EXPECT_EQ(CleanTerminalName(Repeated(character, 79) + "xy"), Repeated(character, 79) + "x");
  }
}

TEST(CleanTerminalName, DoesNotCountControlCharacters) {
  EXPECT_EQ(CleanTerminalName(Repeated("x\x01\x7F", 81)), std::string(80, 'x'));
}

TEST(CleanTerminalName, DropsASequenceThatTheTextBreaksOff) {
  const Row rows[] = {
      {"ab\xC3", "ab"},     {"ab\xE2", "ab"},
      {"ab\xE2\x82", "ab"}, {"ab\xF0\x9F\x9A", "ab"},
      {"\xE2\x82", ""},     {"ab \xE2\x82", "ab"},
      {"ab\xE2x", "ab"},    {std::string(79, 'x') + "\xE2\x82", std::string(79, 'x')},
  };

  for (const Row& row : rows)
    EXPECT_EQ(CleanTerminalName(row.text), row.expected) << row.text;
}

TEST(CleanTerminalName, KeepsContinuationBytesAsTheyAre) {
  const Row rows[] = {
      {"\xE2xy", "\xE2xy"},
      {"\xE2\x01\x02z", "\xE2\x01\x02z"},
      {"\xC3\xC3z", "\xC3\xC3z"},
      {"\x80"
       "a",
       "\x80"
       "a"},
      {"\xBF\xBF", "\xBF\xBF"},
      {"\xFF\xF8z", "\xFF\xF8z"},
      {"\xF7\x01\x02\x03", "\xF7\x01\x02\x03"},
  };

  for (const Row& row : rows)
    EXPECT_EQ(CleanTerminalName(row.text), row.expected) << row.text;
}

TEST(CleanTerminalName, TakesAByteThatBeginsNoSequenceAsOneCharacter) {
  for (const char* const byte : {"\x80", "\xBF", "\xF8", "\xFF"})
    EXPECT_EQ(CleanTerminalName(Repeated(byte, 81)), Repeated(byte, 80)) << byte;
}

TEST(CleanTerminalName, RemovesTheSpaceThatACutLeavesAtTheEnd) {
  EXPECT_EQ(CleanTerminalName(std::string(78, 'x') + "  tail"), std::string(78, 'x'));
  EXPECT_EQ(CleanTerminalName(std::string(79, 'x') + " tail"), std::string(79, 'x'));
}

}  // namespace
}  // namespace Tarnvale::KioskService

// Small helpers on text.

#include "core/text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace Tarnvale::KioskService {
namespace {

using std::string_literals::operator""s;

TEST(Trim, TakesSpaceFromBothEnds) {
  EXPECT_EQ(Trim(" a b\n"), "a b");
  EXPECT_EQ(Trim(" \t\r\n"), "");
  EXPECT_EQ(Trim(""), "");
  EXPECT_EQ(Trim("a"), "a");
  EXPECT_EQ(Trim(" \t\n\v\f\ra\r\f\v\n\t "), "a");
}

TEST(Trim, LeavesAllOtherBytesAlone) {
  EXPECT_EQ(Trim("\0a\0"s), "\0a\0"s);
  EXPECT_EQ(Trim("\x1f"
                 "a\x7f"),
            "\x1f"
            "a\x7f");
  EXPECT_EQ(Trim("\xC2\xA0"
                 "a\x85"),
            "\xC2\xA0"
            "a\x85");
}

TEST(OneLine, ReplacesControlCharacters) {
  EXPECT_EQ(OneLine("/usr/bin/a b"), "/usr/bin/a b");
  EXPECT_EQ(OneLine("/a\n<3>b"), "/a?<3>b");
  EXPECT_EQ(OneLine(""), "");
  EXPECT_EQ(OneLine("\0\r\t\x1b\x1f\x7f"s), "??????");
}

TEST(OneLine, LeavesAllOtherBytesAlone) {
  EXPECT_EQ(OneLine(" ~?\x80\x85\xC3\xA9\xff"), " ~?\x80\x85\xC3\xA9\xff");
}

using Texts = std::vector<std::string>;

TEST(ToLower, TakesEveryAsciiLetterAndNothingElse) {
  EXPECT_EQ(ToLower("Proxy.EXAMPLE:3128"), "proxy.example:3128");
  EXPECT_EQ(ToLower("@AZ[`az{"), "@az[`az{");
  EXPECT_EQ(ToLower("\0A\xC4\xFF"s), "\0a\xC4\xFF"s);
  EXPECT_EQ(ToLower(""), "");
}

TEST(SplitLines, GivesThePartsBetweenLineFeeds) {
  EXPECT_EQ(SplitLines("a\nb\n"), (Texts{"a", "b"}));
  EXPECT_EQ(SplitLines("a\n\nb"), (Texts{"a", "", "b"}));
  EXPECT_EQ(SplitLines(""), Texts{});
  EXPECT_EQ(SplitLines("a"), Texts{"a"});
  EXPECT_EQ(SplitLines("\n"), Texts{""});
  EXPECT_EQ(SplitLines("\n\na\n\n"), (Texts{"", "", "a", ""}));
  EXPECT_EQ(SplitLines("a\r\n b\0c\n"s), (Texts{"a\r", " b\0c"s}));
}

TEST(ParseNumber, TakesAWholeDecimalNumberWithinItsBounds) {
  const struct {
    const char* text;
    std::uint32_t lowest;
    std::uint32_t highest;
    bool taken;
  } rows[] = {{"16", 1, 16, true},
              {"17", 1, 16, false},
              {"+1", 1, 16, false},
              {"1", 1, 16, true},
              {"0", 1, 16, false},
              {"007", 1, 16, true},
              {"", 0, 16, false},
              {" 1", 1, 16, false},
              {"1 ", 1, 16, false},
              {"-1", 0, 16, false},
              {"0x1", 0, 16, false},
              {"4294967295", 0, 4294967295, true},
              {"4294967296", 0, 4294967295, false}};

  for (const auto& row : rows) {
    std::uint32_t number = 99;
    EXPECT_EQ(ParseNumber(row.text, row.lowest, row.highest, number), row.taken) << row.text;
    EXPECT_EQ(number == 99, !row.taken) << row.text;
  }
}

TEST(SplitWords, GivesTheWordsBetweenWhiteSpace) {
  EXPECT_EQ(SplitWords(" a  b\t"), (Texts{"a", "b"}));
  EXPECT_EQ(SplitWords(""), Texts{});
  EXPECT_EQ(SplitWords(" \t\n\v\f\r"), Texts{});
  EXPECT_EQ(SplitWords("a\tb\nc\vd\fe\rf g"), (Texts{"a", "b", "c", "d", "e", "f", "g"}));
  EXPECT_EQ(SplitWords("a,b \0 \x85"s), (Texts{"a,b", "\0"s, "\x85"}));
}

TEST(Join, PutsTheSeparatorBetweenEachTwo) {
  EXPECT_EQ(Join({}, ";"), "");
  EXPECT_EQ(Join({"a"}, ";"), "a");
  EXPECT_EQ(Join({"a", "b", "c"}, ";"), "a;b;c");
  EXPECT_EQ(Join({"", ""}, ", "), ", ");
  EXPECT_EQ(Join({"a", "b"}, ""), "ab");
}

TEST(FormatText, FormatsLikePrintf) {
  EXPECT_EQ(FormatText("plain"), "plain");
  EXPECT_EQ(FormatText("%s=%03d%%", "a", 7), "a=007%");
  EXPECT_EQ(FormatText("%s", ""), "");
}

TEST(FormatText, TakesWhateverLengthComes) {
  const std::string longText(100000, 'x');

  EXPECT_EQ(FormatText("<%s>", longText.c_str()), "<" + longText + ">");
}

TEST(WipeText, OverwritesEveryByteThatTheTextHasRoomFor) {
  std::string secret(100, 's');
  secret.resize(40);  // The tail still stands behind the end.
  const char* const bytes = secret.data();
  const std::size_t room = secret.capacity();

  WipeText(secret);

  EXPECT_EQ(secret, "");
  ASSERT_EQ(secret.data(), bytes);
  EXPECT_TRUE(std::all_of(bytes, bytes + room, [](char byte) { return byte == '\0'; }));
}

TEST(WipeText, OverwritesAShortText) {
  std::string secret = "secret";
  const char* const bytes = secret.data();

  WipeText(secret);

  EXPECT_EQ(secret, "");
  EXPECT_EQ(std::string(bytes, 6), std::string(6, '\0'));
}

TEST(WipeTexts, OverwritesTheTextsOfAllMembers) {
  Json request = Json::Object();
  request.Set("password", "secret");
  request.Set("count", 7);
  request.Set("unlockToken", std::string(32, 'f'));
  const char* const password = request.values[0].text.data();
  const char* const token = request.values[2].text.data();

  WipeTexts(request);

  EXPECT_EQ(request.Dump(), R"({"password":"","count":7,"unlockToken":""})");
  EXPECT_EQ(std::string(password, 6), std::string(6, '\0'));
  EXPECT_EQ(std::string(token, 32), std::string(32, '\0'));
}

TEST(WipeTexts, LeavesWhatIsNoObject) {
  Json text = "text";

  WipeTexts(text);

  EXPECT_EQ(text.Dump(), "\"text\"");
}

}  // namespace
}  // namespace Tarnvale::KioskService

// Small helpers on text.

#include "core/text.h"

#include <gtest/gtest.h>

#include <algorithm>

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

}  // namespace
}  // namespace Tarnvale::KioskService

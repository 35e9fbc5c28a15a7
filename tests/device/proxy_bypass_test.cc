// What goes direct, in `proxy.set`.

#include <gtest/gtest.h>

#include <string>

#include "core/text.h"
#include "device/proxy_requests.h"

namespace Tarnvale::KioskService {
namespace {

using std::string_literals::operator""s;

TEST(ParseProxyChangeBypass, MayBeMissing) {
  EXPECT_EQ(Parsed(Manual(kServer)).bypass, Texts{});
  EXPECT_EQ(Parsed(ManualWith(Json())).bypass, Texts{});
  EXPECT_EQ(Parsed(ManualWith("")).bypass, Texts{});
  EXPECT_EQ(Parsed(ManualWith(" ;, ;")).bypass, Texts{});
  EXPECT_EQ(Parsed(ManualWith(Json::Array())).bypass, Texts{});
  EXPECT_EQ(Parsed(ManualWith(ArrayOf({"", " "}))).bypass, Texts{});
}

TEST(ParseProxyChangeBypass, GivesTheSameForBothForms) {
  const Texts expected = {"<local>", "intranet", "*.example", "10.*", "*"};

  EXPECT_EQ(Parsed(ManualWith("<LOCAL>;Intranet,*.example 10.*;,\t\n *")).bypass, expected);
  EXPECT_EQ(
      Parsed(ManualWith(ArrayOf({" <local> ", "intranet", "", "*.Example\n", "10.*", "*"}))).bypass,
      expected);
}

TEST(ParseProxyChangeBypass, CutsATextAtEveryWhiteSpaceByte) {
  EXPECT_EQ(Parsed(ManualWith("a b\tc\nd\ve\ff\rg;h,i")).bypass,
            (Texts{"a", "b", "c", "d", "e", "f", "g", "h", "i"}));
}

TEST(ParseProxyChangeBypass, CutsNoElementOfAnArray) {
  for (const char* const element : {"a b", "a;b", "a,b"})
    EXPECT_EQ(RefusedMember(ManualWith(ArrayOf({element}))), "bypass") << element;
}

TEST(ParseProxyChangeBypass, AcceptsEntriesOfItsBytes) {
  for (const std::string& entry : {"a"s, "*"s, "*.example"s, "a-"s, "a."s, "7"s, "10.0.0.0"s,
                                   "*-*"s, "**"s, "a.b-c*9"s, std::string(253, 'a')}) {
    EXPECT_EQ(Parsed(ManualWith(entry)).bypass, Texts{entry}) << entry;
    EXPECT_EQ(Parsed(ManualWith(ArrayOf({entry}))).bypass, Texts{entry}) << entry;
  }
}

TEST(ParseProxyChangeBypass, RefusesEveryOtherEntry) {
  for (const std::string& entry : {".a"s,         "."s,
                                   "-a"s,         "-"s,
                                   ".."s,         "a..b"s,
                                   "a.."s,        "*..*"s,
                                   "<local"s,     "<locals>"s,
                                   "local>"s,     "a_b"s,
                                   "a/b"s,        "a:80"s,
                                   "::1"s,        "[::1]"s,
                                   "10.0.0.0/8"s, "a\"b"s,
                                   "a'b"s,        "a$b"s,
                                   "a=b"s,        "a%b"s,
                                   "a\0"s,        "\x7f"s,
                                   "\xC3\xBC"s,   std::string(254, 'a')}) {
    EXPECT_EQ(RefusedMember(ManualWith(entry)), "bypass") << entry;
    EXPECT_EQ(RefusedMember(ManualWith(ArrayOf({"a", entry}))), "bypass") << entry;
  }
}

TEST(ParseProxyChangeBypass, RefusesEveryOtherKind) {
  for (const char* const bypass : {"true", "false", "0", "5", "{}", R"({"0":"a"})", "[5]", "[null]",
                                   R"([["a"]])", R"(["a",true])", R"([{},"a"])"}) {
    EXPECT_EQ(RefusedMember(ManualWith(Value(bypass))), "bypass") << bypass;
  }
}

TEST(ParseProxyChangeBypass, TakesATextUpToItsLimit) {
  EXPECT_EQ(Parsed(ManualWith(std::string(2047, ' ') + "a")).bypass, Texts{"a"});
  EXPECT_EQ(RefusedMember(ManualWith(std::string(2048, ' ') + "a")), "bypass");
  EXPECT_EQ(RefusedMember(ManualWith(std::string(2049, ' '))), "bypass");
}

Texts EntriesOf(int count) {
  Texts entries;
  for (int number = 0; number < count; ++number)
    entries.push_back("host-" + std::to_string(number));
  return entries;
}

TEST(ParseProxyChangeBypass, TakesSixtyFourDifferentEntries) {
  EXPECT_EQ(Parsed(ManualWith(ArrayOf(EntriesOf(64)))).bypass, EntriesOf(64));
  EXPECT_EQ(Parsed(ManualWith(Join(EntriesOf(64), ";"))).bypass, EntriesOf(64));
  EXPECT_EQ(RefusedMember(ManualWith(ArrayOf(EntriesOf(65)))), "bypass");
  EXPECT_EQ(RefusedMember(ManualWith(Join(EntriesOf(65), ","))), "bypass");
}

TEST(ParseProxyChangeBypass, CountsAnEntryOnceHoweverItIsWritten) {
  EXPECT_EQ(Parsed(ManualWith("Host;host,HOST other hOST")).bypass, (Texts{"host", "other"}));

  Texts twice = EntriesOf(64);
  twice.emplace_back("HOST-7");
  twice.emplace_back("");
  EXPECT_EQ(Parsed(ManualWith(ArrayOf(twice))).bypass, EntriesOf(64));
  twice.emplace_back("<local>");
  EXPECT_EQ(RefusedMember(ManualWith(ArrayOf(twice))), "bypass");
}

}  // namespace
}  // namespace Tarnvale::KioskService

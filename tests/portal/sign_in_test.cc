#include "portal/sign_in.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace Tarnvale::KioskService {
namespace {

std::string Normalised(const std::string& text) {
  const std::optional<Json> value = Json::Parse(text);
  EXPECT_TRUE(value.has_value()) << text;
  return ReadSignIn(value.value_or(Json())).Dump();
}

std::string WithHosts(const std::string& hosts) {
  return R"({"microsoft":true,"email":false,"extraHosts":)" + hosts + "}";
}

// The names of `count` distinct hosts from h<first>.test on, as elements of an array.
std::string Hosts(int first, int count) {
  std::string text;
  for (int host = first; host < first + count; ++host)
    text += (host == first ? "\"h" : ",\"h") + std::to_string(host) + ".test\"";
  return text;
}

TEST(IsSignInHost, AcceptsHostNames) {
  for (const char* const host : {"login.example.org", "a.b", "1.2", "127.0.0.1", "a-b.c", "a--b.c",
                                 "a.b-c.d", "0a.1b", "xn--bcher-kva.example"})
    EXPECT_TRUE(IsSignInHost(host)) << host;
}

TEST(IsSignInHost, RefusesEverythingElse) {
  const std::string rows[] = {
      "Login.example.org",
      "example",
      "",
      ".",
      "..",
      ".a.b",
      "a.b.",
      "a..b",
      "-a.b",
      "a-.b",
      "a.-b",
      "a.b-",
      "a.b-.c",
      "-.a",
      "a_b.c",
      "a b.c",
      " a.b",
      "a.b ",
      "a.b\n",
      "a.B",
      "*.a.b",
      "a.b:80",
      "a.b/c",
      "https://a.b",
      "b\xC3\xBC"
      "cher.example",
      std::string("a\0.b", 4),
      "a.b@c",
      "localhost",
  };

  for (const std::string& row : rows)
    EXPECT_FALSE(IsSignInHost(row)) << row;
}

TEST(IsSignInHost, TakesLabelsOf63CharactersAndNoneAbove) {
  const std::string longest(63, 'a');

  EXPECT_TRUE(IsSignInHost(longest + ".b"));
  EXPECT_TRUE(IsSignInHost("b." + longest));
  EXPECT_FALSE(IsSignInHost("a" + longest + ".b"));
  EXPECT_FALSE(IsSignInHost("b.a" + longest));
}

TEST(IsSignInHost, Takes253BytesAndNoneAbove) {
  const std::string label = std::string(63, 'a') + ".";
  const std::string head = label + label + label;

  EXPECT_TRUE(IsSignInHost(head + std::string(61, 'b')));
  EXPECT_FALSE(IsSignInHost(head + std::string(62, 'b')));
}

TEST(ReadSignIn, TakesWhatIsGoodAndSkipsTheRest) {
  EXPECT_EQ(Normalised(R"({"email":true,"extraHosts":["a.example","A.example"]})"),
            R"({"microsoft":true,"email":true,"extraHosts":["a.example"]})");
  EXPECT_EQ(Normalised(R"({"microsoft":"false"})"), WithHosts("[]"));
  EXPECT_EQ(Normalised("7"), WithHosts("[]"));
}

TEST(ReadSignIn, GivesTheDefaultsForWhatIsNoObject) {
  for (const char* const value : {"null", "true", "5", "\"text\"", "[]", "[true,true]", "{}"})
    EXPECT_EQ(Normalised(value), WithHosts("[]")) << value;
}

TEST(ReadSignIn, TakesTheSwitchesWhenTheyAreBools) {
  EXPECT_EQ(Normalised(R"({"microsoft":false,"email":true})"),
            R"({"microsoft":false,"email":true,"extraHosts":[]})");
  EXPECT_EQ(Normalised(R"({"email":false,"microsoft":true})"), WithHosts("[]"));
}

TEST(ReadSignIn, KeepsTheDefaultsOfSwitchesThatAreNoBools) {
  for (const char* const value : {"\"false\"", "\"true\"", "0", "1", "null", "[]", "{}"}) {
    EXPECT_EQ(Normalised(std::string(R"({"microsoft":)") + value + R"(,"email":)" + value + "}"),
              WithHosts("[]"))
        << value;
  }
}

TEST(ReadSignIn, WritesItsMembersInOrderAndNoOthers) {
  EXPECT_EQ(Normalised(R"({"extraHosts":["a.b"],"other":1,"email":true,"microsoft":false})"),
            R"({"microsoft":false,"email":true,"extraHosts":["a.b"]})");
}

TEST(ReadSignIn, KeepsTheHostsInTheirOrder) {
  EXPECT_EQ(Normalised(R"({"extraHosts":["z.test","a.test","m.test"]})"),
            WithHosts(R"(["z.test","a.test","m.test"])"));
}

TEST(ReadSignIn, ReadsHostsFromAnArrayOnly) {
  for (const char* const value : {"null", "true", "1", "\"a.b\"", "{\"0\":\"a.b\"}"})
    EXPECT_EQ(Normalised(std::string(R"({"extraHosts":)") + value + "}"), WithHosts("[]")) << value;
}

TEST(ReadSignIn, SkipsWhatIsNoHostName) {
  EXPECT_EQ(Normalised(R"({"extraHosts":[1,"A.test",null,"a.test",["b.test"],{},true,"b..test",)"
                       R"("nodot","c.test"]})"),
            WithHosts(R"(["a.test","c.test"])"));
}

TEST(ReadSignIn, KeepsTheFirstOfEqualHosts) {
  EXPECT_EQ(Normalised(R"({"extraHosts":["a.test","b.test","a.test","b.test","c.test"]})"),
            WithHosts(R"(["a.test","b.test","c.test"])"));
}

TEST(ReadSignIn, KeepsTheFirstTenOfTwelveHosts) {
  EXPECT_EQ(Normalised(R"({"extraHosts":[)" + Hosts(1, 10) + "]}"),
            WithHosts("[" + Hosts(1, 10) + "]"));
  EXPECT_EQ(Normalised(R"({"extraHosts":[)" + Hosts(1, 11) + "]}"),
            WithHosts("[" + Hosts(1, 10) + "]"));
  EXPECT_EQ(Normalised(R"({"extraHosts":[)" + Hosts(1, 12) + "]}"),
            WithHosts("[" + Hosts(1, 10) + "]"));
}

TEST(ReadSignIn, CountsOnlyTheHostsThatItKeeps) {
  EXPECT_EQ(Normalised(R"({"extraHosts":[)" + Hosts(1, 9) +
                       R"(,"-bad.test",7,"h1.test","h9.test",)" + Hosts(10, 2) + "]}"),
            WithHosts("[" + Hosts(1, 10) + "]"));
}

}  // namespace
}  // namespace Tarnvale::KioskService

#include "kioskctl/members.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Tarnvale::KioskService::Kioskctl {
namespace {

// The member's name and its value as JSON; what was refused is "refused".
std::string Read(const std::string& typed) {
  Member member;
  if (!ParseMember(typed, member)) return "refused";
  return member.name + " " + (member.fromInput ? "from input" : member.value.Dump());
}

bool NothingTyped(const std::string& /*name*/, std::string& /*value*/) {
  return false;
}

TEST(ParseMember, ReadsTextAndJson) {
  const struct {
    const char* typed;
    const char* read;
  } rows[] = {
      {"code=ABCD2345", R"(code "ABCD2345")"},
      {"signedIn:=true", "signedIn true"},
      {"password=-", "password from input"},
      {"live:=yes", "refused"},
      {"empty=", R"(empty "")"},
      {"a=true", R"(a "true")"},
      {"a=b=c", R"(a "b=c")"},
      {"a=:=c", R"(a ":=c")"},
      {"a=--", R"(a "--")"},
      {"a:=\"-\"", R"(a "-")"},
      {"a:={\"b\":[1,null]}", R"(a {"b":[1,null]})"},
      {"a:= 7 ", "a 7"},
      {"a:=-", "refused"},
      {"a:=", "refused"},
      {"a:=1,2", "refused"},
      {"a:=1 2", "refused"},
      {"a", "refused"},
      {"", "refused"},
      {"=a", "refused"},
      {":=1", "refused"},
      {"cmd=status", "refused"},
      {"cmd:=1", "refused"},
  };

  for (const auto& row : rows)
    EXPECT_EQ(Read(row.typed), row.read) << row.typed;
}

TEST(MakeRequest, PutsTheCommandFirstAndTheMembersInTheirOrder) {
  std::string request;
  std::string problem;

  ASSERT_TRUE(MakeRequest("net.set", {"b:=1", "a=x"}, NothingTyped, request, problem));

  EXPECT_EQ(request, R"({"cmd":"net.set","b":1,"a":"x"})");
}

TEST(MakeRequest, KeepsTheLastOfMembersWithOneName) {
  std::string request;
  std::string problem;

  ASSERT_TRUE(MakeRequest("unlock", {"a=1", "a=2"}, NothingTyped, request, problem));

  EXPECT_EQ(request, R"({"cmd":"unlock","a":"2"})");
}

TEST(MakeRequest, ReadsADashFromTheInput) {
  const ReadTypedValue typeIt = [](const std::string& name, std::string& value) {
    value = "typed for " + name;
    return true;
  };
  std::string request;
  std::string problem;

  ASSERT_TRUE(MakeRequest("unlock", {"password=-"}, typeIt, request, problem));

  EXPECT_EQ(request, R"({"cmd":"unlock","password":"typed for password"})");
}

TEST(MakeRequest, FailsWhenTheInputHasNoLine) {
  std::string request;
  std::string problem;

  EXPECT_FALSE(MakeRequest("unlock", {"password=-"}, NothingTyped, request, problem));

  EXPECT_EQ(problem, "member 1 got no line from the standard input");
}

TEST(MakeRequest, NamesARefusedMemberByItsPlaceAlone) {
  std::string request;
  std::string problem;

  EXPECT_FALSE(MakeRequest("unlock", {"a=1", "swordfish"}, NothingTyped, request, problem));

  EXPECT_EQ(problem, "member 2 is neither NAME=TEXT nor NAME:=JSON");
}

}  // namespace
}  // namespace Tarnvale::KioskService::Kioskctl

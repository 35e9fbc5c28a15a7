#include "device/updates_policy_json.h"

#include <string>

#include "core/state.h"
#include "support/service_test.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kDefaultText[] =
    R"({"automatic":false,"window":{"start":"02:00","end":"05:00","days":[0,1,2,3,4,5,6]}})";

// A policy that differs from the default in every field, to see what a refusal leaves alone.
UpdatesPolicy Earlier() {
  return {.automatic = true, .windowStart = 1, .windowEnd = 2, .days = 0x41};
}

Json Value(const std::string& text) {
  const std::optional<Json> value = Json::Parse(text);
  EXPECT_TRUE(value.has_value()) << text;
  return value.value_or(Json());
}

std::string WithWindow(const std::string& start, const std::string& end, const std::string& days) {
  return R"({"automatic":false,"window":{"start":)" + start + R"(,"end":)" + end + R"(,"days":)" +
         days + "}}";
}

void ExpectRefused(const Json& value) {
  UpdatesPolicy policy = Earlier();

  EXPECT_FALSE(UpdatesPolicyFromJson(value, policy)) << value.Dump();
  EXPECT_EQ(policy, Earlier()) << value.Dump();
}

void ExpectRoundTrip(const UpdatesPolicy& policy) {
  const std::string text = UpdatesPolicyToJson(policy).Dump();
  UpdatesPolicy read = Earlier();

  EXPECT_TRUE(UpdatesPolicyFromJson(Value(text), read)) << text;
  EXPECT_EQ(read, policy) << text;
}

TEST(UpdatesPolicyRecord, BeginsWithTheDefaults) {
  const UpdatesPolicy policy;

  EXPECT_FALSE(policy.automatic);
  EXPECT_EQ(policy.windowStart, 2 * 60);
  EXPECT_EQ(policy.windowEnd, 5 * 60);
  EXPECT_EQ(policy.days, 127U);
}

TEST(UpdatesPolicyToJson, WritesItsMembersInOrder) {
  EXPECT_EQ(UpdatesPolicyToJson(UpdatesPolicy()).Dump(), kDefaultText);
  EXPECT_EQ(UpdatesPolicyToJson(Earlier()).Dump(),
            R"({"automatic":true,"window":{"start":"00:01","end":"00:02","days":[0,6]}})");
}

TEST(UpdatesPolicyFromJson, AcceptsAPolicyThatIsWholeAndNoOther) {
  UpdatesPolicy policy;

  EXPECT_TRUE(UpdatesPolicyFromJson(
      Value(R"({"automatic":true,"window":{"start":"22:00","end":"04:00","days":[1]}})"), policy));
  EXPECT_EQ(policy, (UpdatesPolicy{
                        .automatic = true, .windowStart = 1320, .windowEnd = 240, .days = 0x02}));
  ExpectRefused(Value(R"({"automatic":true,"window":{"start":"22:00","end":"22:00","days":[1]}})"));
  ExpectRefused(Value(R"({"automatic":true})"));
}

TEST(UpdatesPolicyFromJson, ReadsEveryMember) {
  UpdatesPolicy policy;

  EXPECT_TRUE(UpdatesPolicyFromJson(
      Value(R"({"window":{"days":[6,0],"end":"04:00","start":"23:59","x":1},"automatic":true})"),
      policy));
  EXPECT_EQ(policy, (UpdatesPolicy{
                        .automatic = true, .windowStart = 1439, .windowEnd = 240, .days = 0x41}));
}

TEST(UpdatesPolicyFromJson, RefusesWhatIsNoObject) {
  for (const char* const text : {"null", "true", "15", "\"{}\"", "[]", "{}"})
    ExpectRefused(Value(text));
}

TEST(UpdatesPolicyFromJson, RequiresABoolForAutomatic) {
  Json value = Value(kDefaultText);
  for (const char* const refused : {"0", "1", "\"true\"", "null", "[]", "{}"}) {
    value.Set("automatic", Value(refused));
    ExpectRefused(value);
  }
  ExpectRefused(Value(R"({"window":{"start":"02:00","end":"05:00","days":[0]}})"));
}

TEST(UpdatesPolicyFromJson, RequiresAWindowWhetherAutomaticOrNot) {
  ExpectRefused(Value(R"({"automatic":true})"));
  ExpectRefused(Value(R"({"automatic":false})"));
  Json value = Value(kDefaultText);
  for (const char* const refused : {"null", "true", "1", "\"02:00\"", "[]", "{}"}) {
    value.Set("window", Value(refused));
    ExpectRefused(value);
  }
}

TEST(UpdatesPolicyFromJson, RequiresEveryMemberOfTheWindow) {
  ExpectRefused(Value(R"({"automatic":true,"window":{"end":"05:00","days":[0]}})"));
  ExpectRefused(Value(R"({"automatic":true,"window":{"start":"02:00","days":[0]}})"));
  ExpectRefused(Value(R"({"automatic":true,"window":{"start":"02:00","end":"05:00"}})"));
}

TEST(UpdatesPolicyFromJson, RefusesClockTimesThatAreNone) {
  for (const char* const time :
       {"\"24:00\"", "\"2:00\"", "\"02:60\"", "\"02:00 \"", "\"\"", "120", "null"}) {
    ExpectRefused(Value(WithWindow(time, "\"05:00\"", "[0]")));
    ExpectRefused(Value(WithWindow("\"02:00\"", time, "[0]")));
  }
}

TEST(UpdatesPolicyFromJson, RefusesAWindowThatEndsWhenItBegins) {
  ExpectRefused(Value(WithWindow("\"02:00\"", "\"02:00\"", "[0]")));
}

TEST(UpdatesPolicyFromJson, RefusesDaysThatAreNone) {
  for (const char* const days : {"[]", "[1,1]", "[7]", "[-1]", "[2.5]", "[1e300]", "[1e999]",
                                 "[\"1\"]", "[true]", "[0,1,2,3,4,5,6,6]", "null", "1", "{}"})
    ExpectRefused(Value(WithWindow("\"02:00\"", "\"05:00\"", days)));
}

TEST(UpdatesPolicyFromJson, AcceptsOneDayAndSeven) {
  UpdatesPolicy policy;

  EXPECT_TRUE(UpdatesPolicyFromJson(Value(WithWindow("\"02:00\"", "\"05:00\"", "[6]")), policy));
  EXPECT_EQ(policy.days, 0x40U);
  EXPECT_TRUE(UpdatesPolicyFromJson(Value(WithWindow("\"02:00\"", "\"05:00\"", "[6,5,4,3,2,1,0]")),
                                    policy));
  EXPECT_EQ(policy.days, 0x7FU);
}

TEST(UpdatesPolicyToJson, WritesEveryPolicyAsItsReaderReadsIt) {
  for (std::uint32_t days = 1; days < 128; ++days) {
    ExpectRoundTrip({.automatic = false, .days = days});
    ExpectRoundTrip({.automatic = true, .days = days});
  }
  for (std::int32_t minute = 0; minute < 1440; ++minute)
    ExpectRoundTrip({.windowStart = minute, .windowEnd = (minute + 1) % 1440});
}

using LoadUpdatesPolicyTest = ServiceTest;

TEST_F(LoadUpdatesPolicyTest, ReadsThePolicyOfTheState) {
  UpdatesPolicy policy;
  StateSetString(StateKey::kUpdatesPolicy, UpdatesPolicyToJson(Earlier()).Dump());

  EXPECT_TRUE(LoadUpdatesPolicy(policy));
  EXPECT_EQ(policy, Earlier());
}

TEST_F(LoadUpdatesPolicyTest, FindsNoneWithoutTheKey) {
  UpdatesPolicy policy = Earlier();

  EXPECT_FALSE(LoadUpdatesPolicy(policy));
  EXPECT_EQ(policy, Earlier());
}

TEST_F(LoadUpdatesPolicyTest, FindsNoneInAnyOtherText) {
  for (const char* const text :
       {"", "{", "garbage", "null", "[]", "{}", "15", "{\"automatic\":true}"}) {
    UpdatesPolicy policy = Earlier();
    StateSetString(StateKey::kUpdatesPolicy, text);

    EXPECT_FALSE(LoadUpdatesPolicy(policy)) << text;
    EXPECT_EQ(policy, Earlier()) << text;
  }
}

TEST_F(LoadUpdatesPolicyTest, FindsNoneInAValueThatIsNoText) {
  UpdatesPolicy policy = Earlier();
  StateSet(StateKey::kUpdatesPolicy, UpdatesPolicyToJson(UpdatesPolicy()));

  EXPECT_FALSE(LoadUpdatesPolicy(policy));
  EXPECT_EQ(policy, Earlier());
}

}  // namespace
}  // namespace Tarnvale::KioskService

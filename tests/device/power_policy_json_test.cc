#include "device/power_policy_json.h"

#include <limits>
#include <string>

#include "core/state.h"
#include "support/service_test.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kDefaultText[] =
    R"({"screenOffMinutes":15,"sleepMinutes":0,"schedule":)"
    R"({"enabled":false,"sleepAt":"22:00","wakeAt":"07:00","days":[1,2,3,4,5]}})";

// A policy that differs from the default in every field, to see what a refusal leaves alone.
PowerPolicy Earlier() {
  return {.screenOffMinutes = 33,
          .sleepMinutes = 44,
          .schedule = {.enabled = true, .sleepAt = 1, .wakeAt = 2, .days = 0x41}};
}

Json Value(const std::string& text) {
  const std::optional<Json> value = Json::Parse(text);
  EXPECT_TRUE(value.has_value()) << text;
  return value.value_or(Json());
}

std::string WithSchedule(const std::string& schedule) {
  return R"({"screenOffMinutes":15,"sleepMinutes":0,"schedule":)" + schedule + "}";
}

Json WithMinutes(const Json& screenOff, const Json& sleep) {
  Json value = Value(kDefaultText);
  value.Set("screenOffMinutes", screenOff);
  value.Set("sleepMinutes", sleep);
  return value;
}

void ExpectRefused(const Json& value) {
  PowerPolicy policy = Earlier();

  EXPECT_FALSE(ReadPowerPolicy(value, policy)) << value.Dump();
  EXPECT_EQ(policy, Earlier()) << value.Dump();
}

void ExpectScheduleRefused(const std::string& schedule) {
  PowerSchedule kept = Earlier().schedule;

  EXPECT_FALSE(ReadSchedule(Value(schedule), kept)) << schedule;
  EXPECT_EQ(kept, Earlier().schedule) << schedule;
  ExpectRefused(Value(WithSchedule(schedule)));
}

void ExpectRoundTrip(const PowerPolicy& policy) {
  const std::string text = PowerPolicyToJson(policy).Dump();
  PowerPolicy read = Earlier();

  EXPECT_TRUE(ReadPowerPolicy(Value(text), read)) << text;
  EXPECT_EQ(read, policy) << text;
}

TEST(PowerPolicyRecord, BeginsWithTheDefaults) {
  const PowerPolicy policy;

  EXPECT_EQ(policy.screenOffMinutes, 15);
  EXPECT_EQ(policy.sleepMinutes, 0);
  EXPECT_FALSE(policy.schedule.enabled);
  EXPECT_EQ(policy.schedule.sleepAt, 22 * 60);
  EXPECT_EQ(policy.schedule.wakeAt, 7 * 60);
  EXPECT_EQ(policy.schedule.days, 0x3EU);
}

TEST(PowerPolicyToJson, WritesItsMembersInOrder) {
  EXPECT_EQ(PowerPolicyToJson(PowerPolicy()).Dump(), kDefaultText);
  EXPECT_EQ(PowerPolicyToJson(Earlier()).Dump(),
            R"({"screenOffMinutes":33,"sleepMinutes":44,"schedule":)"
            R"({"enabled":true,"sleepAt":"00:01","wakeAt":"00:02","days":[0,6]}})");
}

TEST(ReadPowerPolicy, AcceptsAPolicyThatIsWholeAndNoOther) {
  const std::string schedule = R"({"enabled":false,"sleepAt":"22:00","wakeAt":"07:00","days":[]})";
  PowerPolicy policy = Earlier();

  EXPECT_TRUE(ReadPowerPolicy(Value(WithSchedule(schedule)), policy));
  EXPECT_EQ(policy, (PowerPolicy{.schedule = {.days = 0}}));
  ExpectRefused(Value(R"({"screenOffMinutes":15,"sleepMinutes":241,"schedule":)" + schedule + "}"));
  ExpectRefused(Value(R"({"screenOffMinutes":15,"sleepMinutes":0})"));
}

TEST(ReadPowerPolicy, ReadsEveryMember) {
  PowerPolicy policy = Earlier();

  EXPECT_TRUE(ReadPowerPolicy(
      Value(R"({"schedule":{"days":[6,0],"wakeAt":"06:30","sleepAt":"23:59","enabled":true},)"
            R"("sleepMinutes":240,"more":1,"screenOffMinutes":1})"),
      policy));
  EXPECT_EQ(
      policy,
      (PowerPolicy{.screenOffMinutes = 1,
                   .sleepMinutes = 240,
                   .schedule = {.enabled = true, .sleepAt = 1439, .wakeAt = 390, .days = 0x41}}));
}

TEST(ReadPowerPolicy, RefusesWhatIsNoObject) {
  for (const char* const text : {"null", "true", "15", "\"{}\"", "[]", "{}"})
    ExpectRefused(Value(text));
}

TEST(ReadPowerPolicy, RequiresEveryMember) {
  ExpectRefused(Value(R"({"sleepMinutes":0,"schedule":{"enabled":false,"sleepAt":"22:00",)"
                      R"("wakeAt":"07:00","days":[]}})"));
  ExpectRefused(Value(R"({"screenOffMinutes":15,"schedule":{"enabled":false,"sleepAt":"22:00",)"
                      R"("wakeAt":"07:00","days":[]}})"));
  ExpectRefused(Value(R"({"screenOffMinutes":15,"sleepMinutes":0})"));
}

TEST(ReadPowerPolicy, AcceptsMinutesUpToBothLimits) {
  for (const int minutes : {0, 1, 239, 240}) {
    PowerPolicy policy;

    EXPECT_TRUE(ReadPowerPolicy(WithMinutes(minutes, 240 - minutes), policy)) << minutes;
    EXPECT_EQ(policy.screenOffMinutes, minutes);
    EXPECT_EQ(policy.sleepMinutes, 240 - minutes);
  }
}

TEST(ReadPowerPolicy, RefusesMinutesThatAreNoWholeNumberInRange) {
  const double infinity = std::numeric_limits<double>::infinity();
  const Json refused[] = {Json(-1),
                          Json(241),
                          Json(0.5),
                          Json(1e300),
                          Json(infinity),
                          Json(-infinity),
                          Json(std::numeric_limits<double>::quiet_NaN()),
                          Json("15"),
                          Json(true),
                          Json(),
                          Json::Array(),
                          Json::Object()};

  for (const Json& minutes : refused) {
    ExpectRefused(WithMinutes(minutes, 0));
    ExpectRefused(WithMinutes(15, minutes));
  }
}

TEST(ReadSchedule, RefusesWhatIsNoObject) {
  for (const char* const schedule : {"null", "true", "1", "\"22:00\"", "[]", "{}"})
    ExpectScheduleRefused(schedule);
}

TEST(ReadSchedule, RequiresABoolForEnabled) {
  for (const char* const enabled : {"0", "1", "\"true\"", "null", "[]"}) {
    ExpectScheduleRefused(std::string(R"({"enabled":)") + enabled +
                          R"(,"sleepAt":"22:00","wakeAt":"07:00","days":[1]})");
  }
  ExpectScheduleRefused(R"({"sleepAt":"22:00","wakeAt":"07:00","days":[1]})");
}

TEST(ReadSchedule, RefusesClockTimesThatAreNone) {
  for (const char* const time : {"\"24:00\"", "\"7:00\"", "\"07:60\"", "420", "null", "\"\""}) {
    ExpectScheduleRefused(std::string(R"({"enabled":false,"sleepAt":)") + time +
                          R"(,"wakeAt":"07:00","days":[1]})");
    ExpectScheduleRefused(std::string(R"({"enabled":false,"sleepAt":"22:00","wakeAt":)") + time +
                          R"(,"days":[1]})");
  }
  ExpectScheduleRefused(R"({"enabled":false,"wakeAt":"07:00","days":[1]})");
  ExpectScheduleRefused(R"({"enabled":false,"sleepAt":"22:00","days":[1]})");
}

TEST(ReadSchedule, RefusesASleepThatEndsWhenItBegins) {
  ExpectScheduleRefused(R"({"enabled":false,"sleepAt":"22:00","wakeAt":"22:00","days":[1]})");
  ExpectScheduleRefused(R"({"enabled":true,"sleepAt":"00:00","wakeAt":"00:00","days":[1]})");
}

TEST(ReadSchedule, RefusesDaysThatAreNone) {
  for (const char* const days : {"[1,1]", "[7]", "[-1]", "[2.5]", "[\"1\"]", "[0,1,2,3,4,5,6,6]",
                                 "null", "1", "{}", "\"[1]\""}) {
    for (const char* const enabled : {"false", "true"}) {
      ExpectScheduleRefused(std::string(R"({"enabled":)") + enabled +
                            R"(,"sleepAt":"22:00","wakeAt":"07:00","days":)" + days + "}");
    }
  }
  ExpectScheduleRefused(R"({"enabled":false,"sleepAt":"22:00","wakeAt":"07:00"})");
}

TEST(ReadSchedule, NeedsADayOnlyWhenItIsEnabled) {
  PowerSchedule schedule = Earlier().schedule;

  ExpectScheduleRefused(R"({"enabled":true,"sleepAt":"22:00","wakeAt":"07:00","days":[]})");
  EXPECT_TRUE(ReadSchedule(
      Value(R"({"enabled":false,"sleepAt":"22:00","wakeAt":"07:00","days":[]})"), schedule));
  EXPECT_EQ(schedule.days, 0U);
}

TEST(PowerPolicyToJson, WritesEveryPolicyAsItsReaderReadsIt) {
  for (std::int32_t minutes = 0; minutes <= 240; ++minutes)
    ExpectRoundTrip({.screenOffMinutes = minutes, .sleepMinutes = 240 - minutes, .schedule = {}});
  for (std::uint32_t days = 0; days < 128; ++days) {
    ExpectRoundTrip({.schedule = {.enabled = false, .days = days}});
    if (days != 0) ExpectRoundTrip({.schedule = {.enabled = true, .days = days}});
  }
  for (std::int32_t minute = 0; minute < 1440; ++minute)
    ExpectRoundTrip({.schedule = {.sleepAt = minute, .wakeAt = (minute + 1) % 1440}});
}

using LoadPowerPolicyTest = ServiceTest;

TEST_F(LoadPowerPolicyTest, ReadsThePolicyUnderTheKey) {
  PowerPolicy policy;
  StateSetString(StateKey::kPowerLocal, PowerPolicyToJson(Earlier()).Dump());

  EXPECT_TRUE(LoadPowerPolicy(StateKey::kPowerLocal, policy));
  EXPECT_EQ(policy, Earlier());
  EXPECT_FALSE(LoadPowerPolicy(StateKey::kPowerPolicy, policy));
}

TEST_F(LoadPowerPolicyTest, FindsNoneInAnyOtherText) {
  for (const char* const text :
       {"", "{", "garbage", "null", "[]", "{}", "15", "{\"screenOffMinutes\":241}"}) {
    PowerPolicy policy = Earlier();
    StateSetString(StateKey::kPowerPolicy, text);

    EXPECT_FALSE(LoadPowerPolicy(StateKey::kPowerPolicy, policy)) << text;
    EXPECT_EQ(policy, Earlier()) << text;
  }
}

TEST_F(LoadPowerPolicyTest, FindsNoneInAValueThatIsNoText) {
  PowerPolicy policy = Earlier();
  StateSet(StateKey::kPowerPolicy, PowerPolicyToJson(PowerPolicy()));

  EXPECT_FALSE(LoadPowerPolicy(StateKey::kPowerPolicy, policy));
  EXPECT_EQ(policy, Earlier());
}

}  // namespace
}  // namespace Tarnvale::KioskService

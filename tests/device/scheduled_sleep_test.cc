// `--sleep-now`, and when the terminal wakes.

#include "device/scheduled_sleep.h"

#include <stdlib.h>
#include <time.h>

#include <filesystem>

#include "device/power_test.h"
#include "support/save_counter.h"
#include "support/test_clock.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kNoScheduleLine[] = "<4>power: scheduled sleep with no schedule in force; skipped\n";
constexpr char kLiveLine[] = "<4>power: scheduled sleep skipped, a stream session is live\n";
constexpr char kWorkdays[] =
    R"({"enabled":true,"sleepAt":"22:00","wakeAt":"07:00","days":[1,2,3,4,5]})";

// The rules themselves, so that no database of time zones is needed.
constexpr char kCentralEurope[] = "CET-1CEST,M3.5.0,M10.5.0/3";

void UseTimeZone(const char* zone) {
  ASSERT_EQ(::setenv("TZ", zone, 1), 0);
  ::tzset();
}

// "2024-03-29 22:00:00" in the time zone of the test.
std::int64_t At(const std::string& text) {
  tm local = {};
  EXPECT_NE(::strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &local), nullptr) << text;
  local.tm_isdst = -1;
  return ::mktime(&local);
}

std::string LocalText(std::int64_t seconds) {
  const time_t moment = seconds;
  tm local = {};
  char text[40] = {};
  EXPECT_NE(::localtime_r(&moment, &local), nullptr);
  EXPECT_NE(::strftime(text, sizeof text, "%a %Y-%m-%d %H:%M:%S", &local), 0U);
  return text;
}

// What main hands over; the slots of the test behind it.
const Ops* opsOfTest = nullptr;
std::string runDirOfOps;

Ops MakeOps(const Config& config) {
  runDirOfOps = config.runDir;
  return *opsOfTest;
}

class ScheduledSleepTest : public ServiceTest {
 protected:
  ScheduledSleepTest() {
    opsOfTest = &ops;
    UseTimeZone("UTC0");
    TestClock::SetWallMs(At("2024-05-31 22:00:00") * 1000);  // a Friday
    SuspendingGives(true);
  }

  void SuspendingGives(bool result) {
    ops.suspendUntil = [this, result](long wakeAt) {
      wakeTimes.push_back(wakeAt);
      return result;
    };
  }

  void StateIs(const std::string& local, const std::string& portals) {
    Json state = Json::Object();
    if (!local.empty()) state.Set("PowerLocal", local);
    if (!portals.empty()) state.Set("PowerPolicy", portals);
    WriteState(state.Dump());
  }

  void PresenceIs(const std::string& text) {
    WriteText(config.runDir + "/kiosk-presence.json", text, 0600);
  }
  void LiveSince(std::int64_t ageMs) {
    PresenceIs(R"({"signedIn":true,"live":true,"at":)" + std::to_string(WallMs() - ageMs) + "}");
  }
  static std::int64_t WallMs() {
    return At("2024-05-31 22:00:00") * 1000;
  }

  int Run() {
    log.Clear();
    wakeTimes.clear();
    return ScheduledSleep(config, MakeOps);
  }

  std::vector<long> wakeTimes;
};

TEST_F(ScheduledSleepTest, SleepsFromFridayToMondayUnderTheDefaultDays) {
  StateIs("", PolicyText(15, 0, kWorkdays));

  EXPECT_EQ(Run(), 0);

  const long monday = At("2024-06-03 07:00:00");
  EXPECT_EQ(wakeTimes, std::vector<long>{monday});
  EXPECT_EQ(log.Text(), "<6>power: scheduled sleep, waking at " + std::to_string(monday) + "\n");
}

TEST_F(ScheduledSleepTest, LogsBeforeItSuspends) {
  StateIs("", PolicyText(15, 0, kWorkdays));
  std::size_t lines = 0;
  ops.suspendUntil = [&](long) {
    lines = log.Lines().size();
    return true;
  };

  EXPECT_EQ(Run(), 0);

  EXPECT_EQ(lines, 1U);
}

TEST_F(ScheduledSleepTest, ExitsWithOneWhenTheTerminalCannotBeSuspended) {
  StateIs("", PolicyText(15, 0, kWorkdays));
  SuspendingGives(false);

  EXPECT_EQ(Run(), 1);

  EXPECT_EQ(wakeTimes.size(), 1U);
  EXPECT_EQ(log.Lines().size(), 1U);
}

TEST_F(ScheduledSleepTest, WorksOnTheConfigurationThatItIsGiven) {
  const TempDir other;
  config.stateDir = other.Path();
  config.runDir = other.Path();
  StateIs("", PolicyText(15, 0, kWorkdays));

  EXPECT_EQ(Run(), 0);

  EXPECT_EQ(wakeTimes.size(), 1U);
  EXPECT_EQ(runDirOfOps, other.Path());
}

TEST_F(ScheduledSleepTest, SleepsOnATerminalThatHoldsNoToken) {
  StateIs(PolicyText(15, 0, kWorkdays), "");

  EXPECT_EQ(Run(), 0);

  EXPECT_EQ(wakeTimes.size(), 1U);
}

TEST_F(ScheduledSleepTest, SkipsWithoutAnyPolicy) {
  for (const std::string& text :
       {std::string(), std::string("{}"), std::string("no JSON"),
        std::string(R"({"PowerPolicy":"garbage"})"),
        std::string(R"({"PowerPolicy":{"schedule":{"enabled":true}}})")}) {
    WriteState(text);

    EXPECT_EQ(Run(), 0) << text;
    EXPECT_EQ(log.Lines().back() + "\n", kNoScheduleLine) << text;
    EXPECT_TRUE(wakeTimes.empty()) << text;
  }
}

TEST_F(ScheduledSleepTest, SkipsWithoutAStateFile) {
  std::filesystem::remove(config.stateDir + "/state.json");

  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(log.Text(), kNoScheduleLine);
}

TEST_F(ScheduledSleepTest, SkipsWithTheScheduleOfThePortalDisabled) {
  StateIs("", DefaultPolicyText());

  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(log.Text(), kNoScheduleLine);
}

TEST_F(ScheduledSleepTest, LetsALocalOverrideDecideAlone) {
  StateIs(DefaultPolicyText(), PolicyText(15, 0, kWorkdays));
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(log.Text(), kNoScheduleLine);
  EXPECT_TRUE(wakeTimes.empty());

  StateIs(PolicyText(15, 0, kWeekendSchedule), PolicyText(15, 0, kWorkdays));
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(wakeTimes, std::vector<long>{At("2024-06-01 08:15:00")});
}

TEST_F(ScheduledSleepTest, TurnsToThePortalWhenTheOverrideCannotBeRead) {
  StateIs(PolicyText(241, 0), PolicyText(15, 0, kWorkdays));

  EXPECT_EQ(Run(), 0);

  EXPECT_EQ(wakeTimes.size(), 1U);
}

TEST_F(ScheduledSleepTest, IsHeldOffByALiveStreamForTheLifeOfItsReport) {
  StateIs("", PolicyText(15, 0, kWorkdays));
  const struct {
    std::int64_t ageMs;
    bool holdsOff;
  } rows[] = {{0, true},        {149'999, true}, {150'000, false},
              {600'000, false}, {-60'000, true}, {-100'000'000, true}};
  for (const auto& row : rows) {
    LiveSince(row.ageMs);

    EXPECT_EQ(Run(), 0) << row.ageMs;
    EXPECT_EQ(wakeTimes.empty(), row.holdsOff) << row.ageMs;
    EXPECT_EQ(log.Text() == kLiveLine, row.holdsOff) << row.ageMs;
  }
}

TEST_F(ScheduledSleepTest, AsksForALiveStreamFirst) {
  LiveSince(0);

  EXPECT_EQ(Run(), 0);

  EXPECT_EQ(log.Text(), kLiveLine);
}

TEST_F(ScheduledSleepTest, TakesAnyOtherRecordForNoStream) {
  StateIs("", PolicyText(15, 0, kWorkdays));
  const std::string now = std::to_string(WallMs());
  const std::string rows[] = {
      "",
      "garbage",
      "null",
      "[]",
      "true",
      R"({"live":true})",
      R"({"live":true,"at":null})",
      R"({"live":true,"at":[]})",
      R"({"live":true,"at":-1e300})",
      R"({"live":true,"at":1e999})",
      R"({"live":true,"at":)" + now,
      R"({"live":false,"at":)" + now + "}",
      R"({"live":null,"at":)" + now + "}",
      R"({"live":0,"at":)" + now + "}",
      R"({"live":"yes","at":)" + now + "}",
      R"({"signedIn":true,"at":)" + now + "}",
  };
  for (const std::string& row : rows) {
    PresenceIs(row);

    EXPECT_EQ(Run(), 0) << row;
    EXPECT_EQ(wakeTimes.size(), 1U) << row;
  }
}

TEST_F(ScheduledSleepTest, ReadsTheMembersAsTheirKindsConvert) {
  StateIs("", PolicyText(15, 0, kWorkdays));
  const std::string now = std::to_string(WallMs());
  for (const std::string& row :
       {R"({"live":1,"at":)" + now + "}", R"({"live":"true","at":")" + now + R"("})"}) {
    PresenceIs(row);
    EXPECT_EQ(Run(), 0) << row;
    EXPECT_EQ(log.Text(), kLiveLine) << row;
  }
}

TEST_F(ScheduledSleepTest, ReadsARecordOfAtMost4096Bytes) {
  StateIs("", PolicyText(15, 0, kWorkdays));
  LiveSince(0);
  const std::string record = ReadText(config.runDir + "/kiosk-presence.json");

  PresenceIs(record + std::string(4096 - record.size(), ' '));
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(log.Text(), kLiveLine);

  PresenceIs(record + std::string(4097 - record.size(), ' '));
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(wakeTimes.size(), 1U);
}

TEST_F(ScheduledSleepTest, FollowsNoLinkToARecord) {
  StateIs("", PolicyText(15, 0, kWorkdays));
  LiveSince(0);
  const std::string path = config.runDir + "/kiosk-presence.json";
  std::filesystem::rename(path, dir.At("elsewhere"));
  std::filesystem::create_symlink(dir.At("elsewhere"), path);

  EXPECT_EQ(Run(), 0);

  EXPECT_EQ(wakeTimes.size(), 1U);
}

TEST_F(ScheduledSleepTest, WritesNothing) {
  StateIs("", PolicyText(15, 0, kWorkdays));
  LiveSince(150'000);
  SaveCounter saves(config.stateDir, "state.json");
  SaveCounter reports(config.runDir, "kiosk-presence.json");

  EXPECT_EQ(Run(), 0);

  EXPECT_EQ(saves.Count(), 0);
  EXPECT_EQ(reports.Count(), 0);
}

// Workdays at 07:00.
constexpr PowerSchedule kDefaults = {.enabled = true};

struct WakeRow {
  const char* now;
  const char* wake;
};

void ExpectWakes(const PowerSchedule& schedule, const std::vector<WakeRow>& rows) {
  for (const WakeRow& row : rows)
    EXPECT_EQ(LocalText(FindWakeTime(schedule, At(row.now))), row.wake) << row.now;
}

TEST(FindWakeTimeTest, TakesTheNextTimeOnOneOfTheDays) {
  UseTimeZone("UTC0");
  ExpectWakes(kDefaults, {
                             {"2024-05-31 22:00:00", "Mon 2024-06-03 07:00:00"},
                             {"2024-05-28 06:58:59", "Tue 2024-05-28 07:00:00"},
                             {"2024-05-28 06:59:00", "Wed 2024-05-29 07:00:00"},
                             {"2024-05-28 06:59:30", "Wed 2024-05-29 07:00:00"},
                             {"2024-05-28 07:00:00", "Wed 2024-05-29 07:00:00"},
                             {"2024-05-27 22:00:00", "Tue 2024-05-28 07:00:00"},
                             {"2024-05-28 00:30:00", "Tue 2024-05-28 07:00:00"},
                             {"2024-05-31 06:59:30", "Mon 2024-06-03 07:00:00"},
                             {"2024-06-01 12:00:00", "Mon 2024-06-03 07:00:00"},
                             {"2024-06-02 23:59:59", "Mon 2024-06-03 07:00:00"},
                             {"2024-02-28 22:00:00", "Thu 2024-02-29 07:00:00"},
                             {"2024-12-31 22:00:00", "Wed 2025-01-01 07:00:00"},
                         });
}

TEST(FindWakeTimeTest, WaitsAWeekForTheOnlyDay) {
  UseTimeZone("UTC0");
  const PowerSchedule tuesdays = {.enabled = true, .sleepAt = 60, .wakeAt = 420, .days = 0x04};
  ExpectWakes(tuesdays, {
                            {"2024-05-28 06:58:59", "Tue 2024-05-28 07:00:00"},
                            {"2024-05-28 06:59:00", "Tue 2024-06-04 07:00:00"},
                            {"2024-05-28 22:00:00", "Tue 2024-06-04 07:00:00"},
                            {"2024-05-29 06:00:00", "Tue 2024-06-04 07:00:00"},
                        });
}

TEST(FindWakeTimeTest, KnowsEveryDayOfTheWeek) {
  UseTimeZone("UTC0");
  const char* const expected[] = {"Sun 2024-06-02", "Mon 2024-06-03", "Tue 2024-06-04",
                                  "Wed 2024-06-05", "Thu 2024-06-06", "Fri 2024-06-07",
                                  "Sat 2024-06-08"};
  for (unsigned day = 0; day < 7; ++day) {
    const PowerSchedule schedule = {
        .enabled = true, .sleepAt = 0, .wakeAt = 1439, .days = 1U << day};
    EXPECT_EQ(LocalText(FindWakeTime(schedule, At("2024-06-02 00:00:00"))),
              std::string(expected[day]) + " 23:59:00");
  }
}

TEST(FindWakeTimeTest, IsZeroWithoutADay) {
  UseTimeZone("UTC0");
  const PowerSchedule none = {.enabled = true, .sleepAt = 1320, .wakeAt = 420, .days = 0};

  EXPECT_EQ(FindWakeTime(none, At("2024-05-31 22:00:00")), 0);
}

TEST(FindWakeTimeTest, KeepsToTheClockOnTheWallWhenSummerTimeBegins) {
  UseTimeZone(kCentralEurope);
  const PowerSchedule daily = {.enabled = true, .sleepAt = 1320, .wakeAt = 420, .days = 0x7F};
  const std::int64_t now = At("2024-03-30 22:00:00");

  const std::int64_t wake = FindWakeTime(daily, now);

  EXPECT_EQ(LocalText(wake), "Sun 2024-03-31 07:00:00");
  EXPECT_EQ(wake - now, 8 * 3600);
}

TEST(FindWakeTimeTest, KeepsToTheClockOnTheWallWhenSummerTimeEnds) {
  UseTimeZone(kCentralEurope);
  const PowerSchedule daily = {.enabled = true, .sleepAt = 1320, .wakeAt = 420, .days = 0x7F};
  const std::int64_t now = At("2024-10-26 22:00:00");

  const std::int64_t wake = FindWakeTime(daily, now);

  EXPECT_EQ(LocalText(wake), "Sun 2024-10-27 07:00:00");
  EXPECT_EQ(wake - now, 10 * 3600);
}

TEST(FindWakeTimeTest, KeepsToTheClockOnTheWallInTheNightOfTheChangeItself) {
  UseTimeZone(kCentralEurope);
  const PowerSchedule daily = {.enabled = true, .sleepAt = 30, .wakeAt = 420, .days = 0x7F};
  ExpectWakes(daily, {
                         {"2024-03-31 00:30:00", "Sun 2024-03-31 07:00:00"},
                         {"2024-10-27 00:30:00", "Sun 2024-10-27 07:00:00"},
                     });
}

TEST(FindWakeTimeTest, CountsTheDaysAcrossAChangeOfTheClocks) {
  UseTimeZone(kCentralEurope);
  ExpectWakes(kDefaults, {
                             {"2024-03-29 22:00:00", "Mon 2024-04-01 07:00:00"},
                             {"2024-10-25 22:00:00", "Mon 2024-10-28 07:00:00"},
                             {"2024-10-27 00:30:00", "Mon 2024-10-28 07:00:00"},
                         });
}

// The days ahead are counted in spans of 24 hours, and the last hour of the Saturday plus one span
// is the Monday already.
TEST(FindWakeTimeTest, PassesOverTheShortSundayForASleepInTheLastHourBeforeIt) {
  UseTimeZone(kCentralEurope);
  const PowerSchedule daily = {.enabled = true, .sleepAt = 1410, .wakeAt = 420, .days = 0x7F};
  ExpectWakes(daily, {
                         {"2024-03-30 22:59:59", "Sun 2024-03-31 07:00:00"},
                         {"2024-03-30 23:00:00", "Mon 2024-04-01 07:00:00"},
                     });
}

TEST(FindWakeTimeTest, StillWakesAtATimeThatTheClocksLeaveOut) {
  UseTimeZone(kCentralEurope);
  const PowerSchedule daily = {.enabled = true, .sleepAt = 1320, .wakeAt = 150, .days = 0x7F};

  const std::int64_t wake = FindWakeTime(daily, At("2024-03-30 22:00:00"));

  // 02:30 does not exist on that night; the C library takes an hour before or behind it.
  EXPECT_TRUE(LocalText(wake) == "Sun 2024-03-31 03:30:00" ||
              LocalText(wake) == "Sun 2024-03-31 01:30:00")
      << LocalText(wake);
}

TEST(FindWakeTimeTest, FollowsTheTimeZone) {
  UseTimeZone("EST5EDT,M3.2.0,M11.1.0");
  EXPECT_EQ(FindWakeTime(kDefaults, 1'717'207'200), 1'717'412'400);  // Friday 22:00, Monday 07:00
  UseTimeZone("IST-5:30");
  EXPECT_EQ(FindWakeTime(kDefaults, 1'717'173'000), 1'717'378'200);
}

}  // namespace
}  // namespace Tarnvale::KioskService

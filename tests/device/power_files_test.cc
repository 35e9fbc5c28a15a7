// The files that carry a power policy, byte for byte.

#include "device/power_files.h"

#include <gtest/gtest.h>

namespace Tarnvale::KioskService {
namespace {

PowerPolicy IdlePolicy(int screenOffMinutes, int sleepMinutes) {
  PowerPolicy policy;
  policy.screenOffMinutes = screenOffMinutes;
  policy.sleepMinutes = sleepMinutes;
  return policy;
}

PowerSchedule ScheduleOf(std::uint32_t days, int sleepAt) {
  return {.enabled = true, .sleepAt = sleepAt, .wakeAt = 420, .days = days};
}

TEST(PowerEnvTextTest, GivesBothTimesInSeconds) {
  const struct {
    int screenOffMinutes;
    int sleepMinutes;
    const char* expected;
  } rows[] = {
      {15, 0, "SCREEN_OFF_SECONDS=900\nSLEEP_SECONDS=0\n"},
      {0, 240, "SCREEN_OFF_SECONDS=0\nSLEEP_SECONDS=14400\n"},
      {0, 0, "SCREEN_OFF_SECONDS=0\nSLEEP_SECONDS=0\n"},
      {1, 2, "SCREEN_OFF_SECONDS=60\nSLEEP_SECONDS=120\n"},
      {240, 17, "SCREEN_OFF_SECONDS=14400\nSLEEP_SECONDS=1020\n"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(PowerEnvText(IdlePolicy(row.screenOffMinutes, row.sleepMinutes)), row.expected);
}

TEST(PowerEnvTextTest, SaysNothingOfTheSchedule) {
  PowerPolicy policy = IdlePolicy(15, 0);
  policy.schedule = ScheduleOf(0x7F, 0);

  EXPECT_EQ(PowerEnvText(policy), PowerEnvText(IdlePolicy(15, 0)));
}

TEST(IdleDropInTextTest, GivesTheTimeInMinutes) {
  EXPECT_EQ(IdleDropInText(IdlePolicy(15, 1)), "[Login]\nIdleAction=suspend\nIdleActionSec=1min\n");
  EXPECT_EQ(IdleDropInText(IdlePolicy(0, 240)),
            "[Login]\nIdleAction=suspend\nIdleActionSec=240min\n");
}

TEST(SleepServiceTextTest, StartsTheInstalledExecutable) {
  EXPECT_EQ(SleepServiceText(),
            "[Unit]\nDescription=Tarnvale kiosk scheduled sleep\n\n"
            "[Service]\nType=oneshot\n"
            "ExecStart=/usr/lib/tarnvale-stream/tarnvale-kioskd --sleep-now\n");
}

TEST(SleepTimerTextTest, HoldsTheCalendarText) {
  EXPECT_EQ(SleepTimerText(PowerSchedule()),
            "[Unit]\nDescription=Tarnvale kiosk scheduled sleep\n\n"
            "[Timer]\nOnCalendar=Mon,Tue,Wed,Thu,Fri 22:00:00\nPersistent=false\n"
            "AccuracySec=1s\n\n"
            "[Install]\nWantedBy=timers.target\n");
}

TEST(CalendarTextTest, NamesTheDaysFromSundayOn) {
  const struct {
    std::uint32_t days;
    int sleepAt;
    const char* expected;
  } rows[] = {
      {0x3E, 1320, "Mon,Tue,Wed,Thu,Fri 22:00:00"},
      {0x41, 5, "Sun,Sat 00:05:00"},
      {0x7F, 0, "Sun,Mon,Tue,Wed,Thu,Fri,Sat 00:00:00"},
      {0x01, 1439, "Sun 23:59:00"},
      {0x02, 60, "Mon 01:00:00"},
      {0x04, 59, "Tue 00:59:00"},
      {0x08, 600, "Wed 10:00:00"},
      {0x10, 720, "Thu 12:00:00"},
      {0x20, 785, "Fri 13:05:00"},
      {0x40, 1200, "Sat 20:00:00"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(CalendarText(ScheduleOf(row.days, row.sleepAt)), row.expected);
}

}  // namespace
}  // namespace Tarnvale::KioskService

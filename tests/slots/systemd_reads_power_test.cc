// What the real systemd makes of the files that are written for it.

#include <gtest/gtest.h>

#include "device/power_files.h"
#include "slots/support/power_terminal.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::int32_t kPatienceMs = 30'000;

class SystemdReadsPower : public PowerTerminalTest {
 protected:
  void SetUp() override {
    if (FindTool("systemd-analyze").empty()) GTEST_SKIP() << "systemd-analyze is not installed";
    std::filesystem::create_directories("/usr/lib/tarnvale-stream");
    WriteText("/usr/lib/tarnvale-stream/tarnvale-kioskd", "#!/bin/sh\n", 0755);
  }

  static ProcResult Analyze(const std::vector<std::string>& arguments) {
    std::vector<std::string> argv = {FindTool("systemd-analyze")};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    return RunProcess(argv, kPatienceMs);
  }

  static PowerSchedule ScheduleOf(std::uint32_t days, int sleepAt) {
    return {.enabled = true, .sleepAt = sleepAt, .wakeAt = 425, .days = days};
  }
};

TEST_F(SystemdReadsPower, AndAcceptsBothUnits) {
  ASSERT_EQ(Apply(Nightly()), "");

  const ProcResult run = Analyze({"verify", kTimerPath, kServicePath});

  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "");
}

TEST_F(SystemdReadsPower, AndWouldNotAcceptJustAnyUnit) {
  ASSERT_EQ(Apply(Nightly()), "");
  WriteText(kTimerPath, "[Timer]\nOnCalendar=Mon 25:00:00\n");

  EXPECT_NE(Analyze({"verify", kTimerPath}).status, 0);
}

TEST_F(SystemdReadsPower, AndUnderstandsTheCalendarText) {
  const struct {
    std::uint32_t days;
    int sleepAt;
    const char* normalized;
  } rows[] = {
      {0x3E, 1320, "Mon..Fri *-*-* 22:00:00"}, {0x41, 5, "Sat,Sun *-*-* 00:05:00"},
      {0x01, 0, "Sun *-*-* 00:00:00"},         {0x2A, 1439, "Mon,Wed,Fri *-*-* 23:59:00"},
      {0x40, 600, "Sat *-*-* 10:00:00"},
  };
  for (const auto& row : rows) {
    const std::string text = CalendarText(ScheduleOf(row.days, row.sleepAt));
    const ProcResult run = Analyze({"calendar", text});

    EXPECT_EQ(run.status, 0) << text;
    EXPECT_NE(run.output.find(std::string("Normalized form: ") + row.normalized + "\n"),
              std::string::npos)
        << text << "\n"
        << run.output;
  }
}

TEST_F(SystemdReadsPower, AndUnderstandsEveryDay) {
  const std::string text = CalendarText(ScheduleOf(0x7F, 1320));

  EXPECT_EQ(Analyze({"calendar", text}).status, 0) << text;
}

TEST_F(SystemdReadsPower, AndFindsTheDropInOfLogind) {
  ASSERT_EQ(Apply(Idle(15, 240)), "");
  // The main file may stand below /etc or /usr/lib, or not be there at all.
  WriteText("/etc/systemd/logind.conf", "[Login]\n");

  const ProcResult run = Analyze({"--no-pager", "cat-config", "systemd/logind.conf"});

  EXPECT_EQ(run.status, 0);
  EXPECT_NE(run.output.find("# " + std::string(kDropInPath) + "\n" + ReadText(kDropInPath)),
            std::string::npos)
      << run.output;
}

TEST_F(SystemdReadsPower, AndTakesTheTimeOfTheDropInForMinutes) {
  EXPECT_NE(Analyze({"timespan", "240min"}).output.find("Human: 4h"), std::string::npos);
}

}  // namespace
}  // namespace Tarnvale::KioskService

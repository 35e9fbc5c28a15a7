#include "device/updates_report.h"

#include <algorithm>
#include <optional>
#include <string>

#include "core/state.h"
#include "support/save_counter.h"
#include "support/service_test.h"
#include "support/test_clock.h"

namespace Tarnvale::KioskService {
namespace {

// What the tests' clock shows when a test begins.
constexpr char kStart[] = "2027-01-15T08:00:00Z";

class UpdatesReportTest : public ServiceTest {
 protected:
  static std::string Report() {
    return StateGetString(StateKey::kOsUpdatesReport);
  }
  static void ReportIs(const std::string& text) {
    StateSetString(StateKey::kOsUpdatesReport, text);
  }
};

TEST(UpdatesVerdict, IsFailedForEveryResultButTwo) {
  EXPECT_EQ(UpdatesVerdict({.result = 0, .error = {}}), "ok");
  EXPECT_EQ(UpdatesVerdict({.result = 1, .error = {}}), "nothing");
  for (const std::int32_t result : {2, 3, -1, 1000})
    EXPECT_EQ(UpdatesVerdict({.result = result, .error = {}}), "failed") << result;
}

TEST_F(UpdatesReportTest, TellsHowARunWent) {
  WriteUpdatesReport("ok", WuRun{.result = 0, .pending = 3, .restartRequired = true, .error = {}});

  EXPECT_EQ(Report(),
            std::string(R"({"lastRunAt":")") + kStart +
                R"(","lastResult":"ok","error":null,"pending":3,"restartRequired":true})");
}

TEST_F(UpdatesReportTest, TellsADeferralWithoutARun) {
  WriteUpdatesReport("deferred", std::nullopt);

  EXPECT_EQ(Report(),
            std::string(R"({"lastRunAt":")") + kStart +
                R"(","lastResult":"deferred","error":null,"pending":0,"restartRequired":false})");
}

TEST_F(UpdatesReportTest, TellsARunWithoutAVerdict) {
  WriteUpdatesReport(std::nullopt,
                     WuRun{.result = 2, .pending = 4, .restartRequired = true, .error = "x"});

  EXPECT_EQ(Report(), R"({"pending":4,"restartRequired":true,"lastRunAt":null,)"
                      R"("lastResult":null,"error":null})");
}

TEST_F(UpdatesReportTest, IsCompleteWithNothingToTell) {
  WriteUpdatesReport(std::nullopt, std::nullopt);

  EXPECT_EQ(Report(), R"({"pending":0,"restartRequired":false,"lastRunAt":null,)"
                      R"("lastResult":null,"error":null})");
}

TEST_F(UpdatesReportTest, KeepsWhatACheckDoesNotTell) {
  ReportIs(R"({"lastRunAt":"T","lastResult":"failed","error":"E","pending":9,)"
           R"("restartRequired":true})");

  WriteUpdatesReport(std::nullopt, WuRun{.result = 0, .pending = 2, .error = {}});

  EXPECT_EQ(Report(), R"({"lastRunAt":"T","lastResult":"failed","error":"E","pending":2,)"
                      R"("restartRequired":false})");
}

TEST_F(UpdatesReportTest, KeepsWhatADeferralDoesNotTell) {
  ReportIs(R"({"lastRunAt":"T","lastResult":"failed","error":"E","pending":9,)"
           R"("restartRequired":true})");

  WriteUpdatesReport("deferred", std::nullopt);

  EXPECT_EQ(Report(), std::string(R"({"lastRunAt":")") + kStart +
                          R"(","lastResult":"deferred","error":null,"pending":9,)"
                          R"("restartRequired":true})");
}

TEST_F(UpdatesReportTest, TellsTheErrorOfAFailedRun) {
  WriteUpdatesReport("failed", WuRun{.result = 2, .error = "install_failed 100"});

  const Json report = Json::Parse(Report()).value_or(Json());
  EXPECT_EQ(report.Get("lastResult").text, "failed");
  EXPECT_EQ(report.Get("error").text, "install_failed 100");
}

TEST_F(UpdatesReportTest, CutsTheErrorAt80Bytes) {
  const std::string most = std::string(78, 'x') + "\xC3\xA9";

  for (const std::string& error : {most, most + "y", most + std::string(5000, 'z')}) {
    WriteUpdatesReport("failed", WuRun{.result = 2, .error = error});

    EXPECT_EQ(Json::Parse(Report())->Get("error").text, most);
  }
}

TEST_F(UpdatesReportTest, CutsWithinACharacterToo) {
  WriteUpdatesReport("failed", WuRun{.result = 2, .error = std::string(79, 'x') + "\xC3\xA9"});

  EXPECT_EQ(Json::Parse(Report())->Get("error").text, std::string(79, 'x') + "\xC3");
}

TEST_F(UpdatesReportTest, CapsWhatIsPendingAt500) {
  for (const std::int32_t pending : {0, 1, 499, 500, 501, 900}) {
    WriteUpdatesReport(std::nullopt, WuRun{.result = 0, .pending = pending, .error = {}});

    EXPECT_EQ(Json::Parse(Report())->Get("pending").AsInt(-1), std::min(pending, 500));
  }
}

TEST_F(UpdatesReportTest, CompletesAReportAndKeepsWhatItHolds) {
  ReportIs(R"({"extra":[1],"pending":null,"lastResult":7})");

  WriteUpdatesReport(std::nullopt, std::nullopt);

  EXPECT_EQ(Report(), R"({"extra":[1],"pending":null,"lastResult":7,"restartRequired":false,)"
                      R"("lastRunAt":null,"error":null})");
}

TEST_F(UpdatesReportTest, ReplacesATextThatIsNoObject) {
  for (const char* const text : {"garbage", "[]", "5", "null", "\"x\"", "{"}) {
    ReportIs(text);

    WriteUpdatesReport(std::nullopt, std::nullopt);

    EXPECT_EQ(Report(), R"({"pending":0,"restartRequired":false,"lastRunAt":null,)"
                        R"("lastResult":null,"error":null})")
        << text;
  }
}

TEST_F(UpdatesReportTest, CostsAWriteOnlyWhenItChanges) {
  SaveCounter saves(config.stateDir, "state.json");
  const WuRun run = {.result = 1, .pending = 0, .error = {}};

  WriteUpdatesReport("nothing", run);
  EXPECT_EQ(saves.Count(), 1);
  WriteUpdatesReport("nothing", run);
  EXPECT_EQ(saves.Count(), 1);
  TestClock::AdvanceMs(1000);
  WriteUpdatesReport("nothing", run);
  EXPECT_EQ(saves.Count(), 2);
}

TEST_F(UpdatesReportTest, SaysNothing) {
  WriteUpdatesReport("failed", WuRun{.result = 2, .error = "search_failed"});

  EXPECT_EQ(log.Text(), "");
}

TEST_F(UpdatesReportTest, RequiresARestartByItsOwnWordOnly) {
  for (const char* const text : {R"({"restartRequired":true})", R"({"restartRequired":1})",
                                 R"({"restartRequired":"true"})"}) {
    ReportIs(text);
    EXPECT_TRUE(ReportsRestartRequired()) << text;
  }
  for (const char* const text :
       {"", "garbage", "[true]", "true", "{}", R"({"restartRequired":false})",
        R"({"restartRequired":null})", R"({"restartRequired":"yes"})"}) {
    ReportIs(text);
    EXPECT_FALSE(ReportsRestartRequired()) << text;
  }
}

}  // namespace
}  // namespace Tarnvale::KioskService

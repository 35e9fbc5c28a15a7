// What a good reply hands to the caller, and what stays out of sight.

#include <array>
#include <cstddef>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "core/state.h"
#include "portal/check_in_test.h"

namespace Tarnvale::KioskService {
namespace {

using CheckInResultTest = CheckInTest;

TEST_F(CheckInResultTest, TakesTheExitPasswordByItsTextView) {
  struct Row {
    const char* member;
    const char* expected;
  };
  for (const Row& row :
       {Row{"", ""}, Row{R"("exitPassword":null)", ""}, Row{R"("exitPassword":"")", ""},
        Row{R"("exitPassword":" p w ")", " p w "}, Row{R"("exitPassword":1234)", "1234"},
        Row{R"("exitPassword":true)", "true"}, Row{R"("exitPassword":["p"])", ""},
        Row{R"("exitPassword":{})", ""}}) {
    EXPECT_EQ(Enrolled(row.member).exitPassword, row.expected) << row.member;
  }
}

TEST_F(CheckInResultTest, CopiesTheBrandingAsItStands) {
  for (const char* const branding :
       {R"({"name":"N","photos":[1,{"a":null}]})", "[1]", "\"text\"", "5", "true", "null", "{}"})
    EXPECT_EQ(Enrolled(std::string(R"("branding":)") + branding).branding.Dump(), branding);

  EXPECT_TRUE(Enrolled().branding.IsNull());
}

TEST_F(CheckInResultTest, TakesTheTenantOnlyFromAString) {
  EXPECT_EQ(Enrolled(R"("tenantId":"tenant-5")").tenantId, "tenant-5");
  for (const char* const member :
       {"", R"("tenantId":5)", R"("tenantId":null)", R"("tenantId":true)", R"("tenantId":["t"])"})
    EXPECT_EQ(Enrolled(member).tenantId, "") << member;
}

TEST_F(CheckInResultTest, HasNoErrorWhenEnrolled) {
  EXPECT_EQ(Enrolled().error, "");
}

TEST_F(CheckInResultTest, KeepsSecretsOutOfStateAndLog) {
  const CheckInResult result = Enrolled(R"("exitPassword":"open-sesame","name":"Hall",)"
                                        R"("signIn":{"exitPassword":"open-sesame"})");

  EXPECT_EQ(result.exitPassword, "open-sesame");
  const std::string seen = ReadText(config.stateDir + "/state.json") + log.Text();
  EXPECT_EQ(seen.find("open-sesame"), std::string::npos);
  EXPECT_EQ(seen.find(kTestToken), std::string::npos);
}

// Memory that outlives the record in it, so that a test can look at what the record leaves behind.
class Remains {
 public:
  CheckInResult* Make() {
    return ::new (bytes_.data()) CheckInResult();
  }
  [[nodiscard]] bool Hold(std::string_view text) const {
    const auto* const begin = reinterpret_cast<const char*>(bytes_.data());
    return std::string_view(begin, bytes_.size()).find(text) != std::string_view::npos;
  }

 private:
  alignas(CheckInResult) std::array<std::byte, sizeof(CheckInResult)> bytes_{};
};

TEST(CheckInResultRecord, WipesTheExitPasswordWhenItEnds) {
  const std::string password = "short-secret";  // short enough to stand in the record itself
  Remains remains;
  CheckInResult* const result = remains.Make();
  result->exitPassword = password;
  ASSERT_TRUE(remains.Hold(password));

  std::destroy_at(result);

  EXPECT_FALSE(remains.Hold(password));
  EXPECT_FALSE(remains.Hold(password.substr(1)));
}

TEST(CheckInResultRecord, LeavesNoExitPasswordInARecordThatWasMovedFrom) {
  const std::string password = "short-secret";
  Remains remains;
  CheckInResult* const result = remains.Make();
  result->exitPassword = password;

  const CheckInResult moved = std::move(*result);
  std::destroy_at(result);

  EXPECT_EQ(moved.exitPassword, password);
  EXPECT_FALSE(remains.Hold(password.substr(1)));
}

TEST_F(CheckInResultTest, HoldsNoLockAcrossTheExchange) {
  bool nested = false;
  portal.AnswersWith(kCheckInPath, [&](const PortalCall&) {
    if (!std::exchange(nested, true)) {
      EXPECT_EQ(CheckIn("another token").outcome, CheckInOutcome::kEnrolled);
    }
    return Http{.ok = true, .status = 200, .body = R"({"status":"enrolled"})", .error = {}};
  });

  EXPECT_EQ(CheckIn(kTestToken).outcome, CheckInOutcome::kEnrolled);
  EXPECT_EQ(portal.Calls().size(), 2U);
}

TEST_F(CheckInResultTest, IsGoodForTwoThreadsAtTheSameTime) {
  portal.Answers(kCheckInPath, 200,
                 std::string(R"({"status":"enrolled","name":"Hall","power":)") + kPowerText +
                     R"(,"powerSource":"tenant"})");
  std::thread other([] {
    for (int i = 0; i < 20; ++i)
      EXPECT_EQ(CheckIn("another token").outcome, CheckInOutcome::kEnrolled);
  });
  for (int i = 0; i < 20; ++i)
    EXPECT_EQ(CheckIn(kTestToken).outcome, CheckInOutcome::kEnrolled);
  other.join();

  EXPECT_EQ(StateFile().Get("TerminalName").text, "Hall");
  EXPECT_EQ(StateFile().Get("PowerPolicy").text, kPowerText);
  EXPECT_EQ(StateFile().Get("PowerSource").text, "tenant");
}

}  // namespace
}  // namespace Tarnvale::KioskService

// Which answers of the portal are good, and what becomes of those that are not.

#include <string>

#include "core/state.h"
#include "portal/check_in_test.h"
#include "support/save_counter.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kFullReply[] =
    R"({"status":"enrolled","signIn":{"email":true},"name":"New","powerSource":"tenant",)"
    R"("exitPassword":"secret","branding":{"a":1},"tenantId":"t"})";

// The same text up to a size that no reader can tell from a longer one.
std::string PaddedTo(std::size_t bytes, const std::string& reply) {
  return reply.substr(0, reply.size() - 1) + std::string(bytes - reply.size(), ' ') + "}";
}

class CheckInAnswerTest : public CheckInTest {
 protected:
  CheckInAnswerTest() {
    StateSetString(StateKey::kTerminalName, "Old");
    StateSetString(StateKey::kPowerPolicy, kPowerText);
    StateSetString(StateKey::kPowerSource, "device");
    StateSetInt(StateKey::kUnknownSince, 7);
    state = ReadText(config.stateDir + "/state.json");
    savesBefore = saves.Count();
  }

  // The answer leaves the terminal as it is, whatever else it carries.
  void ExpectNotApplied(const CheckInResult& result, CheckInOutcome outcome,
                        const std::string& error) {
    EXPECT_EQ(result.outcome, outcome) << error;
    EXPECT_EQ(result.error, error);
    EXPECT_EQ(result.exitPassword, "");
    EXPECT_TRUE(result.branding.IsNull());
    EXPECT_EQ(result.tenantId, "");
    EXPECT_EQ(ReadText(config.stateDir + "/state.json"), state);
    EXPECT_EQ(saves.Count(), savesBefore) << error;
    EXPECT_EQ(log.Text(), "");
  }

  std::string state;  // The file as it stood before.
  SaveCounter saves{config.stateDir, "state.json"};
  int savesBefore = 0;
};

TEST(CheckInResultRecord, BeginsAsAFailure) {
  const CheckInResult result;

  EXPECT_EQ(result.outcome, CheckInOutcome::kFailed);
  EXPECT_TRUE(result.branding.IsNull());
  EXPECT_EQ(static_cast<int>(CheckInOutcome::kEnrolled), 0);
  EXPECT_EQ(static_cast<int>(CheckInOutcome::kRevoked), 1);
  EXPECT_EQ(static_cast<int>(CheckInOutcome::kUnknown), 2);
  EXPECT_EQ(static_cast<int>(CheckInOutcome::kFailed), 3);
}

TEST_F(CheckInAnswerTest, FailsWithTheReasonOfTheTransport) {
  portal.IsUnreachable(kCheckInPath, "Timeout was reached");

  ExpectNotApplied(CheckIn(kTestToken), CheckInOutcome::kFailed, "Timeout was reached");
}

TEST_F(CheckInAnswerTest, FailsWithEveryStatusButTwo) {
  for (const int status : {100, 201, 202, 204, 301, 302, 400, 402, 403, 404, 410, 429, 500, 503}) {
    ExpectNotApplied(AnsweredWith(status, kFullReply), CheckInOutcome::kFailed,
                     "HTTP " + std::to_string(status));
    ExpectNotApplied(AnsweredWith(status, R"({"status":"revoked"})"), CheckInOutcome::kFailed,
                     "HTTP " + std::to_string(status));
  }
}

TEST_F(CheckInAnswerTest, TellsARevokedDevice) {
  ExpectNotApplied(AnsweredWith(401, R"({"status":"revoked","name":"New"})"),
                   CheckInOutcome::kRevoked, "HTTP 401, status revoked");
}

TEST_F(CheckInAnswerTest, TellsAnUnknownDevice) {
  ExpectNotApplied(AnsweredWith(401, R"({"name":"New","status":"unknown"})"),
                   CheckInOutcome::kUnknown, "HTTP 401, status unknown");
}

TEST_F(CheckInAnswerTest, FailsWithEveryOtherDeviceStatus) {
  struct Row {
    const char* status;
    const char* text;
  };
  for (const Row& row : {Row{R"("suspended")", "suspended"}, Row{R"("enrolled")", "enrolled"},
                         Row{R"("Revoked")", "Revoked"}, Row{R"(" unknown")", " unknown"},
                         Row{R"("revoked ")", "revoked "}, Row{"7", "7"}, Row{"0.5", "0.5"},
                         Row{"true", "true"}, Row{"false", "false"}}) {
    ExpectNotApplied(AnsweredWith(401, std::string(R"({"status":)") + row.status + "}"),
                     CheckInOutcome::kFailed, std::string("HTTP 401, status ") + row.text);
  }
}

TEST_F(CheckInAnswerTest, FailsWithoutADeviceStatus) {
  for (const std::string& body :
       {std::string(), std::string("<html>401</html>"), std::string("{}"), std::string("[]"),
        std::string(R"("revoked")"), std::string(R"(["revoked"])"),
        std::string(R"({"status":null})"), std::string(R"({"status":["revoked"]})"),
        std::string(R"({"status":{"status":"revoked"}})"), std::string(R"({"status":"revoked")"),
        std::string(65'537, '[')}) {
    ExpectNotApplied(AnsweredWith(401, body), CheckInOutcome::kFailed,
                     "HTTP 401 without a device status");
  }
}

TEST_F(CheckInAnswerTest, FailsUnlessTheReplySaysEnrolled) {
  for (const char* const body :
       {"", "garbage", "null", "true", "\"enrolled\"", "[]", R"([{"status":"enrolled"}])", "{}",
        R"({"status":"revoked"})", R"({"status":"unknown"})", R"({"status":"Enrolled"})",
        R"({"status":" enrolled"})", R"({"status":""})", R"({"status":null})", R"({"status":true})",
        R"({"status":["enrolled"]})", R"({"name":"New","exitPassword":"secret"})",
        R"({"status":"enrolled")", R"({"status":"enrolled","name":"New)"}) {
    ExpectNotApplied(AnsweredWith(200, body), CheckInOutcome::kFailed, "unexpected check-in reply");
  }
}

TEST_F(CheckInAnswerTest, FailsWithAReplyThatWasCutAtTheLimit) {
  const std::string cut = PaddedTo(65'538, kFullReply).substr(0, 65'537);

  ExpectNotApplied(AnsweredWith(200, cut), CheckInOutcome::kFailed, "unexpected check-in reply");
}

TEST_F(CheckInAnswerTest, FailsWithAReplyThatOnlyNests) {
  std::string objects;
  while (objects.size() + 5 <= 65'537)
    objects += "{\"a\":";

  for (const std::string& body : {std::string(65'537, '['), objects}) {
    ExpectNotApplied(AnsweredWith(200, body), CheckInOutcome::kFailed, "unexpected check-in reply");
  }
}

TEST_F(CheckInAnswerTest, HasNoSizeTestOfItsOwn) {
  for (const std::size_t bytes : {65'536U, 65'537U}) {
    const CheckInResult result = AnsweredWith(200, PaddedTo(bytes, kFullReply));

    EXPECT_EQ(result.outcome, CheckInOutcome::kEnrolled) << bytes;
    EXPECT_EQ(result.exitPassword, "secret");
  }
}

TEST_F(CheckInAnswerTest, LooksAtNothingBehindTheReply) {
  const CheckInResult result = AnsweredWith(200, std::string(kFullReply) + " and more");

  EXPECT_EQ(result.outcome, CheckInOutcome::kEnrolled);
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(StateGetString(StateKey::kTerminalName), "New");
}

TEST_F(CheckInAnswerTest, CarriesBrandingThatNestsAsDeepAsTheLimitAllows) {
  const std::string branding = std::string(32'700, '[') + std::string(32'700, ']');

  const CheckInResult result = Enrolled(R"("branding":)" + branding);

  EXPECT_EQ(result.branding.Dump(), branding);
}

}  // namespace
}  // namespace Tarnvale::KioskService

// The verdict of the portal that a terminal was removed, and every verdict that ends nothing.

#include <string>
#include <vector>

#include "core/state.h"
#include "portal/check_in_test.h"
#include "portal/identity.h"
#include "support/save_counter.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kToldRemoved[] =
    "<4>check-in: the portal says this terminal was removed (HTTP 401, status revoked)";
constexpr char kRemoving[] = "<4>removing kiosk mode: removed in the portal (401, status revoked)";

class ApplyDeviceStatusTest : public CheckInTest {
 protected:
  ApplyDeviceStatusTest() {
    Enrol();
    RemovalWorks();
  }

  // One check-in with the token of the test, and its verdict.
  bool AnsweredAndApplied(int status, const std::string& body) {
    return ApplyDeviceStatus(AnsweredWith(status, body), kTestToken);
  }
};

TEST_F(ApplyDeviceStatusTest, RemovesARevokedTerminalAtOnce) {
  EXPECT_TRUE(AnsweredAndApplied(401, R"({"status":"revoked"})"));

  EXPECT_EQ(log.Lines(), (std::vector<std::string>{kToldRemoved, kRemoving}));
  EXPECT_EQ(CurrentDeviceToken(), "");
}

TEST_F(ApplyDeviceStatusTest, DeletesTheAccountOfARevokedTerminal) {
  Provision();

  EXPECT_TRUE(AnsweredAndApplied(401, R"({"status":"revoked"})"));

  EXPECT_EQ(calls.Count("deleteKioskAccount"), 1);
}

TEST_F(ApplyDeviceStatusTest, RemovesNothingThatWasPairedAnewMeanwhile) {
  const CheckInResult result = AnsweredWith(401, R"({"status":"revoked"})");
  StateSetString(StateKey::kDeviceToken, "token of a new pairing");
  calls.Clear();

  EXPECT_TRUE(ApplyDeviceStatus(result, kTestToken));

  EXPECT_EQ(CurrentDeviceToken(), "token of a new pairing");
  EXPECT_EQ(log.Text(), std::string(kToldRemoved) + "\n");
  EXPECT_TRUE(calls.Names().empty());
}

TEST_F(ApplyDeviceStatusTest, RemovesNothingThatIsRemovedAlready) {
  const CheckInResult result = AnsweredWith(401, R"({"status":"revoked"})");
  StateClear(StateKey::kDeviceToken);

  EXPECT_TRUE(ApplyDeviceStatus(result, kTestToken));

  EXPECT_FALSE(log.Has(kRemoving));
}

TEST_F(ApplyDeviceStatusTest, RemovesNothingOfAnotherMachine) {
  const CheckInResult result = AnsweredWith(401, R"({"status":"revoked"})");
  WriteText(config.machineIdPath, "another\n");

  EXPECT_TRUE(ApplyDeviceStatus(result, kTestToken));

  EXPECT_FALSE(log.Has(kRemoving));
}

TEST_F(ApplyDeviceStatusTest, EndsNothingForAnyOtherVerdict) {
  struct Row {
    int status;
    const char* body;
  };
  for (const Row& row : {Row{200, R"({"status":"revoked"})"}, Row{403, R"({"status":"revoked"})"},
                         Row{401, R"({"status":"Revoked"})"}, Row{401, "{}"}, Row{401, ""},
                         Row{404, "{}"}, Row{500, "{}"}, Row{410, "{}"}}) {
    SaveCounter saves(config.stateDir, "state.json");

    EXPECT_FALSE(AnsweredAndApplied(row.status, row.body)) << row.status << row.body;

    EXPECT_EQ(saves.Count(), 0) << row.status << row.body;
  }
  EXPECT_EQ(log.Text(), "");
  EXPECT_EQ(CurrentDeviceToken(), kTestToken);
}

TEST_F(ApplyDeviceStatusTest, EndsNothingForAGoodCheckIn) {
  const CheckInResult result = Enrolled();
  log.Clear();

  EXPECT_FALSE(ApplyDeviceStatus(result, kTestToken));

  EXPECT_EQ(log.Text(), "");
}

TEST_F(ApplyDeviceStatusTest, EndsNothingForAPortalThatIsGone) {
  portal.IsUnreachable(kCheckInPath);

  EXPECT_FALSE(ApplyDeviceStatus(CheckIn(kTestToken), kTestToken));

  EXPECT_EQ(log.Text(), "");
}

}  // namespace
}  // namespace Tarnvale::KioskService

// The removal that stands pending, because the account could not be deleted at once.

#include <string>
#include <vector>

#include "core/state.h"
#include "kiosk/removal.h"
#include "support/save_counter.h"
#include "support/service_test.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kFinished[] = "<6>the pending removal of tarnvale-kiosk finished";
constexpr char kLeftAlone[] =
    "<4>the local tarnvale-kiosk is not the account tarnvale-kiosk-setup made (1501); left alone";

using Names = std::vector<std::string>;

// An unenrolled terminal whose account could not be deleted yet.
class FinishPendingRemovalTest : public ServiceTest {
 protected:
  FinishPendingRemovalTest() {
    WriteState(R"({"AccountUid":"1501","TeardownPending":1})");
    LoadState();
    AccountIs(kTestKioskUid);
    RemovalWorks();
  }
};

TEST_F(FinishPendingRemovalTest, DoesNothingWhenNothingIsPending) {
  for (const char* const state :
       {"{}", R"({"AccountUid":"1501"})", R"({"AccountUid":"1501","TeardownPending":true})",
        R"({"AccountUid":"1501","TeardownPending":"1"})",
        R"({"AccountUid":"1501","TeardownPending":2})"}) {
    WriteState(state);
    LoadState();
    SaveCounter saves(config.stateDir, "state.json");

    FinishPendingRemoval();

    EXPECT_EQ(saves.Count(), 0) << state;
  }
  EXPECT_TRUE(calls.Names().empty());
  EXPECT_EQ(log.Text(), "");
}

TEST_F(FinishPendingRemovalTest, DeletesTheAccount) {
  FinishPendingRemoval();

  EXPECT_EQ(calls.Names(), (Names{"lookupKioskAccount", "endKioskSessions", "deleteKioskAccount"}));
  EXPECT_EQ(log.Lines(), (Names{"<6>deleted tarnvale-kiosk", kFinished}));
  EXPECT_EQ(StateFile().Dump(), R"({"AccountUid":null,"TeardownPending":null})");
}

TEST_F(FinishPendingRemovalTest, IsDoneWhenTheAccountIsGoneAlready) {
  AccountIsMissing();

  FinishPendingRemoval();

  EXPECT_EQ(calls.Names(), Names{"lookupKioskAccount"});
  EXPECT_EQ(log.Text(), std::string(kFinished) + "\n");
}

TEST_F(FinishPendingRemovalTest, IsDoneWhenNoAccountIsRecorded) {
  StateClear(StateKey::kAccountUid);

  FinishPendingRemoval();

  EXPECT_TRUE(calls.Names().empty());
  EXPECT_EQ(log.Text(), std::string(kFinished) + "\n");
  EXPECT_EQ(StateGetInt(StateKey::kTeardownPending), 0);
}

TEST_F(FinishPendingRemovalTest, IsDoneWhenTheAccountIsNotOurs) {
  AccountIs(kTestKioskUid, "Lobby");

  FinishPendingRemoval();

  EXPECT_EQ(calls.Names(), Names{"lookupKioskAccount"});
  EXPECT_EQ(log.Lines(), (Names{kLeftAlone, kFinished}));
  EXPECT_EQ(StateGetString(StateKey::kAccountUid), "");
}

TEST_F(FinishPendingRemovalTest, StaysPendingWithoutAWordOfItsOwnWhenTheLookupFails) {
  AccountLookupFails();
  const std::string before = ReadText(config.stateDir + "/state.json");

  FinishPendingRemoval();

  EXPECT_EQ(ReadText(config.stateDir + "/state.json"), before);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(FinishPendingRemovalTest, TriesAgainEachTimeUntilItWorks) {
  AccountCannotBeDeleted();
  for (int attempt = 1; attempt <= 3; ++attempt) {
    FinishPendingRemoval();
    EXPECT_EQ(calls.Count("endKioskSessions"), attempt);
  }
  EXPECT_EQ(log.Count("<3>cannot delete tarnvale-kiosk"), 3);
  EXPECT_FALSE(log.Has(kFinished));

  RemovalWorks();
  FinishPendingRemoval();
  FinishPendingRemoval();

  EXPECT_EQ(calls.Count("deleteKioskAccount"), 4);
  EXPECT_EQ(log.Count(kFinished), 1);
}

}  // namespace
}  // namespace Tarnvale::KioskService

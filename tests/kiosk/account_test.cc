#include "kiosk/account.h"

#include "core/state.h"
#include "support/service_test.h"

namespace Tarnvale::KioskService {
namespace {

TEST(IsSetupToolComment, TakesTheEightBytesOfTheMark) {
  EXPECT_TRUE(IsSetupToolComment("Tarnvale kiosk"));
  EXPECT_TRUE(IsSetupToolComment("Tarnvale"));
  EXPECT_TRUE(IsSetupToolComment("Tarnvales"));
}

TEST(IsSetupToolComment, TakesNothingElse) {
  for (const char* comment : {"Tarnval", "", "tarnvale kiosk", " Tarnvale", "Kiosk,Tarnvale"})
    EXPECT_FALSE(IsSetupToolComment(comment)) << comment;
}

TEST(UidText, IsDecimal) {
  EXPECT_EQ(UidText(0), "0");
  EXPECT_EQ(UidText(1501), "1501");
  EXPECT_EQ(UidText(4294967295), "4294967295");
}

class KioskAccountIntactTest : public ServiceTest {
 protected:
  void SetUp() override {
    Provision();
  }
};

TEST_F(KioskAccountIntactTest, TellsTheUidOfTheRecordedAccountAndWhoMadeIt) {
  std::uint32_t uid = 0;
  bool ours = false;

  EXPECT_TRUE(KioskAccountIntact(&uid, &ours));
  EXPECT_EQ(uid, kTestKioskUid);
  EXPECT_TRUE(ours);
}

TEST_F(KioskAccountIntactTest, HoldsForAnAccountOfSomebodyElsesMaking) {
  for (const char* comment : {"Tarnval", "", "Lobby"}) {
    AccountIs(kTestKioskUid, comment);
    bool ours = true;
    EXPECT_TRUE(KioskAccountIntact(nullptr, &ours));
    EXPECT_FALSE(ours) << comment;
  }
}

TEST_F(KioskAccountIntactTest, NeedsNeitherResult) {
  EXPECT_TRUE(KioskAccountIntact(nullptr, nullptr));
}

TEST_F(KioskAccountIntactTest, LooksNothingUpWithoutARecordedUid) {
  StateClear(StateKey::kAccountUid);
  EXPECT_FALSE(KioskAccountIntact(nullptr, nullptr));
  StateSetInt(StateKey::kAccountUid, kTestKioskUid);
  EXPECT_FALSE(KioskAccountIntact(nullptr, nullptr)) << "a number is not the recorded text";

  EXPECT_TRUE(calls.Names().empty());
}

class NotIntact : public KioskAccountIntactTest {
 protected:
  // False, and with both results as they were.
  static void ExpectNotIntact() {
    std::uint32_t uid = 7;
    bool ours = true;
    EXPECT_FALSE(KioskAccountIntact(&uid, &ours));
    EXPECT_EQ(uid, 7U);
    EXPECT_TRUE(ours);
  }
};

TEST_F(NotIntact, WhenThereIsNoSuchAccount) {
  AccountIsMissing();

  ExpectNotIntact();
}

TEST_F(NotIntact, WhenTheLookupFails) {
  ops.lookupKioskAccount = [](unsigned* uid, std::string*) {
    *uid = kTestKioskUid;
    return 2;
  };

  ExpectNotIntact();
}

TEST_F(NotIntact, WhenTheAccountHasAnotherUid) {
  AccountIs(kTestKioskUid + 1, "another");

  ExpectNotIntact();
}

TEST_F(NotIntact, WhenTheRecordedTextIsNotTheDecimalUid) {
  for (const char* recorded : {"01501", "1501 ", "+1501", "0x5dd", "150", "15011"}) {
    StateSetString(StateKey::kAccountUid, recorded);
    ExpectNotIntact();
  }
}

using IsProvisionedTest = KioskAccountIntactTest;

TEST_F(IsProvisionedTest, HoldsForTheNumberOneAndAnIntactAccount) {
  EXPECT_TRUE(IsProvisioned());
}

TEST_F(IsProvisionedTest, FailsWhenTheAccountWasDeletedBehindTheServicesBack) {
  AccountIsMissing();

  EXPECT_FALSE(IsProvisioned());
}

TEST_F(IsProvisionedTest, LooksNothingUpForAnotherValue) {
  for (const char* value : {"null", "0", "2", "true", "\"1\""}) {
    StateSet(StateKey::kProvisioned, Json::Parse(value).value());
    EXPECT_FALSE(IsProvisioned()) << value;
  }

  EXPECT_TRUE(calls.Names().empty());
}

class DropKioskAdminGroupsTest : public KioskAccountIntactTest {
 protected:
  void SetUp() override {
    KioskAccountIntactTest::SetUp();
    ops.dropAdminGroups = [] {};
  }
};

TEST_F(DropKioskAdminGroupsTest, ActsOnTheAccountThatTheToolMade) {
  DropKioskAdminGroups();

  EXPECT_EQ(calls.Count("dropAdminGroups"), 1);
}

TEST_F(DropKioskAdminGroupsTest, ActsBeforeProvisioningIsComplete) {
  StateClear(StateKey::kProvisioned);

  DropKioskAdminGroups();

  EXPECT_EQ(calls.Count("dropAdminGroups"), 1);
}

TEST_F(DropKioskAdminGroupsTest, LeavesEveryOtherAccountAlone) {
  AccountIs(kTestKioskUid, "Tarnval");
  DropKioskAdminGroups();
  AccountIs(kTestKioskUid + 1);
  DropKioskAdminGroups();
  AccountIsMissing();
  DropKioskAdminGroups();
  AccountLookupFails();
  DropKioskAdminGroups();
  StateClear(StateKey::kAccountUid);
  DropKioskAdminGroups();

  EXPECT_EQ(calls.Count("dropAdminGroups"), 0);
}

}  // namespace
}  // namespace Tarnvale::KioskService

// Removal while another thread is in the middle of something that the same locks protect.

#include <memory>
#include <string>

#include "core/locks.h"
#include "core/state.h"
#include "kiosk/provisioning.h"
#include "kiosk/removal.h"
#include "portal/identity.h"
#include "portal/pairing.h"
#include "support/other_thread.h"
#include "support/service_test.h"
#include "support/threads.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kRemoving[] = "<4>removing kiosk mode: a test";
constexpr char kCodePath[] = "/api/kiosk/pair/ABCD1234";

class RemovalThreadsTest : public ServiceTest {
 protected:
  RemovalThreadsTest() {
    Enrol();
    Provision();
    RemovalWorks();
  }

  void StartRemoval() {
    removal = std::make_unique<OtherThread>([] {
      RemoveKioskMode("a test");
      return std::string();
    });
  }

  std::unique_ptr<OtherThread> removal;
};

// A removal that comes while somebody pairs has everything down, and waits with the code alone.
class RemovalDuringPairCheck : public RemovalThreadsTest {
 protected:
  RemovalDuringPairCheck() {
    StateClear(StateKey::kDeviceToken);
    ops.hostName = ops.osVersion = [] { return std::string("x"); };
    ops.screenCount = [] { return 1; };
    portal.Answers(kPairPath, 200, R"({"pairingCode":"ABCD1234"})");
    (void)PairBegin();
  }

  // The portal answers the check so, after the removal has come as far as it can.
  void PortalAnswersAfterTheRemoval(int status, const std::string& body) {
    portal.AnswersWith(kCodePath, [this, status, body](const PortalCall&) {
      StartRemoval();
      EXPECT_TRUE(Eventually([this] {
        return log.Has("<6>deleted tarnvale-kiosk") &&
               StateGetString(StateKey::kAccountUid).empty() && removal->IsAtRest();
      }));
      EXPECT_FALSE(removal->IsDone());
      ExpectLifecycleLockIsFree();
      return Http{.ok = true, .status = status, .body = body, .error = {}};
    });
  }
  static void ExpectLifecycleLockIsFree() {
    OtherThread other([] {
      const MutexLock lock(lifecycleLock);
      return std::string();
    });
    EXPECT_TRUE(Eventually([&other] { return other.IsDone(); }));
  }
  static std::string Check() {
    return PairCheck(*Json::Parse(R"({"code":"ABCD1234"})"));
  }
};

TEST_F(RemovalDuringPairCheck, TakesTheCodeAwayBehindIt) {
  PortalAnswersAfterTheRemoval(202, "{}");

  EXPECT_EQ(Check(), R"({"ok":true,"paired":false})");
  (void)removal->Result();

  EXPECT_EQ(Check(), R"({"ok":false,"error":"unknown_code"})");
  EXPECT_EQ(portal.CallsTo(kCodePath), 1);
}

TEST_F(RemovalDuringPairCheck, LeavesTheIdentityThatComesAfterIt) {
  PortalAnswersAfterTheRemoval(200, R"({"deviceToken":"token-from-the-portal"})");
  portal.IsUnreachable(kCheckInPath);

  EXPECT_EQ(Check(), R"({"ok":true,"paired":true,"provisioned":false,"error":"unreachable"})");
  (void)removal->Result();

  EXPECT_EQ(CurrentDeviceToken(), "token-from-the-portal");
}

TEST_F(RemovalThreadsTest, WaitsForTheSetupToolOfAProvisioning) {
  SetupToolMakes(kTestKioskUid);
  ops.dropAdminGroups = [] {};
  const auto enable = ops.runSetupTool;
  ops.runSetupTool = [this, enable](bool on, std::string* detail) {
    if (!on) return true;
    StartRemoval();
    EXPECT_TRUE(Eventually([this] { return removal->IsAtRest(); }));
    EXPECT_FALSE(log.Has(kRemoving));
    return enable(on, detail);
  };

  EXPECT_EQ(ProvisionKiosk(), "");
  (void)removal->Result();

  EXPECT_TRUE(log.Has(kRemoving));
  EXPECT_EQ(calls.Count("deleteKioskAccount"), 1);
  EXPECT_EQ(CurrentDeviceToken(), "");
  EXPECT_EQ(StateGetInt(StateKey::kProvisioned), 0);
  EXPECT_EQ(StateGetString(StateKey::kAccountUid), "");
}

TEST_F(RemovalThreadsTest, LetsNobodyAtThePowerBetweenItsRemovalAndItsKeys) {
  StateSetString(StateKey::kPowerPolicy, "p");
  StateSetString(StateKey::kPowerError, "e");
  std::unique_ptr<OtherThread> change;
  ops.removePower = [&change] {
    change = std::make_unique<OtherThread>([] {
      const MutexLock lock(powerLock);
      return StateGetString(StateKey::kPowerPolicy) + StateGetString(StateKey::kPowerError);
    });
    EXPECT_TRUE(Eventually([&] { return change->IsAtRest(); }));
    EXPECT_FALSE(change->IsDone());
  };

  RemoveKioskMode("a test");

  EXPECT_EQ(change->Result(), "");
}

TEST_F(RemovalThreadsTest, LetsThePowerGoBeforeItDealsWithTheAccount) {
  ops.endKioskSessions = [](bool) {
    OtherThread change([] {
      const MutexLock lock(powerLock);
      return std::string();
    });
    EXPECT_TRUE(Eventually([&] { return change.IsDone(); }));
  };

  RemoveKioskMode("a test");

  EXPECT_EQ(calls.Count("endKioskSessions"), 1);
}

// A terminal that was paired anew has taken the account back.
TEST_F(RemovalThreadsTest, FinishesNoRemovalThatAProvisioningOvertook) {
  StateSetInt(StateKey::kTeardownPending, 1);
  std::unique_ptr<OtherThread> finishing;
  {
    const MutexLock lock(lifecycleLock);
    finishing = std::make_unique<OtherThread>([] {
      FinishPendingRemoval();
      return std::string();
    });
    EXPECT_TRUE(Eventually([&] { return finishing->IsAtRest(); }));
    EXPECT_FALSE(finishing->IsDone());
    StateClear(StateKey::kTeardownPending);
  }
  (void)finishing->Result();

  EXPECT_EQ(calls.Count("deleteKioskAccount"), 0);
  EXPECT_EQ(StateGetString(StateKey::kAccountUid), "1501");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(RemovalThreadsTest, RunsOneByOne) {
  ops.deleteKioskAccount = [this] {
    StartRemoval();
    EXPECT_TRUE(Eventually([this] { return removal->IsAtRest(); }));
    EXPECT_EQ(calls.Count("runSetupTool"), 1);
    AccountIsMissing();
    return true;
  };

  RemoveKioskMode("first");
  (void)removal->Result();

  EXPECT_EQ(calls.Count("runSetupTool"), 2);
  EXPECT_EQ(calls.Count("deleteKioskAccount"), 1);
}

}  // namespace
}  // namespace Tarnvale::KioskService

// What a start finds of an earlier life and takes down: a removal that did not finish, the state of
// another machine, the branding of a tenant.

#include <sys/stat.h>

#include <functional>
#include <string>
#include <vector>

#include "core/failing_calls.h"
#include "core/start.h"
#include "core/state.h"
#include "portal/identity.h"
#include "support/service_test.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kOtherMachine[] =
    "<4>the device token was issued to another machine-id; ignoring it";
constexpr char kRemoving[] =
    "<4>removing kiosk mode: the state belongs to another machine-id (a copied image)";
constexpr char kDeleted[] = "<6>deleted tarnvale-kiosk";
constexpr char kNotDeleted[] = "<3>cannot delete tarnvale-kiosk";
constexpr char kFinished[] = "<6>the pending removal of tarnvale-kiosk finished";
constexpr char kSummary[] = "<6>enrolled=0 provisioned=0 maintenance=0";

using Names = std::vector<std::string>;

class RunRemoval : public ServiceTest {
 protected:
  RunRemoval() {
    ops.exePathOfPid = [](int) { return std::string("/usr/bin/env"); };
    ops.bootTime = [] { return 0L; };
    ops.rebootRequired = [] { return false; };
    ops.dropAdminGroups = [] {};
    SessionsAre({});
    AccountIs(kTestKioskUid);
    RemovalWorks();
  }

  bool Start() {
    return KioskService::Run(config, ForwardingOps(ops, calls));
  }
  // The state of a terminal that was enrolled and provisioned on another machine.
  void StateIsOfAnotherMachine(const std::string& more = "") {
    WriteState(R"({"DeviceToken":"t","DeviceId":"of another","AccountUid":"1501","Provisioned":1)" +
               more + "}");
  }
  void MakeBranding() {
    ASSERT_EQ(::mkdir(config.brandingDir.c_str(), 0755), 0);
    WriteText(config.brandingDir + "/branding.json", "{}");
  }
  [[nodiscard]] bool AccountIsThere() const {
    return ops.lookupKioskAccount(nullptr, nullptr) == 1;
  }
  // The slots that were called up to the first look at the sessions, without the lookups.
  [[nodiscard]] Names Steps() const {
    Names steps;
    for (const std::string& slot : calls.Names()) {
      if (slot != "lookupKioskAccount") steps.push_back(slot);
      if (slot == "listSessions") break;
    }
    return steps;
  }
};

using RunPendingRemoval = RunRemoval;
using RunCopiedImage = RunRemoval;
using RunBranding = RunRemoval;

TEST_F(RunPendingRemoval, IsFinished) {
  WriteState(R"({"AccountUid":"1501","TeardownPending":1})");

  EXPECT_TRUE(Start());

  EXPECT_EQ(log.Lines(), (Names{kDeleted, kFinished, kSummary}));
  EXPECT_FALSE(AccountIsThere());
  EXPECT_EQ(StateGetInt(StateKey::kTeardownPending), 0);
}

TEST_F(RunPendingRemoval, IsFinishedWithoutADeletionWhenTheAccountIsGone) {
  WriteState(R"({"AccountUid":"1501","TeardownPending":1})");
  AccountIsMissing();

  EXPECT_TRUE(Start());

  EXPECT_EQ(log.Lines(), (Names{kFinished, kSummary}));
  EXPECT_EQ(calls.Count("deleteKioskAccount"), 0);
}

TEST_F(RunPendingRemoval, HoldsUpNoStartWhenItFails) {
  WriteState(R"({"AccountUid":"1501","TeardownPending":1})");
  AccountCannotBeDeleted();

  EXPECT_TRUE(Start());
  EXPECT_EQ(log.Lines(), (Names{kNotDeleted, kSummary}));
  EXPECT_EQ(StateGetInt(StateKey::kTeardownPending), 1);

  RemovalWorks();
  EXPECT_TRUE(Start());
  EXPECT_TRUE(log.Has(kFinished));
}

TEST_F(RunPendingRemoval, ComesBeforeTheLookAtTheMachine) {
  StateIsOfAnotherMachine(R"(,"TeardownPending":1)");

  EXPECT_TRUE(Start());

  EXPECT_EQ(Steps(), (Names{"exePathOfPid", "endKioskSessions", "deleteKioskAccount",
                            "runSetupTool", "removePower", "listSessions"}));
  EXPECT_EQ(log.Lines(), (Names{kDeleted, kFinished, kOtherMachine, kRemoving, kSummary}));
}

TEST_F(RunCopiedImage, IsTakenDownWithoutThePortal) {
  StateIsOfAnotherMachine();
  MakeBranding();

  EXPECT_TRUE(Start());

  EXPECT_EQ(log.Lines(), (Names{kOtherMachine, kRemoving, kDeleted, kSummary}));
  EXPECT_EQ(StateFile().Dump(),
            R"({"DeviceToken":null,"DeviceId":null,"AccountUid":null,"Provisioned":null})");
  EXPECT_FALSE(AccountIsThere());
  EXPECT_FALSE(Exists(config.brandingDir));
  EXPECT_EQ(calls.Count("http"), 0);
}

TEST_F(RunCopiedImage, IsTakenDownBeforeAnySessionIsLookedAt) {
  StateIsOfAnotherMachine();

  EXPECT_TRUE(Start());

  EXPECT_EQ(Steps(), (Names{"exePathOfPid", "runSetupTool", "removePower", "endKioskSessions",
                            "deleteKioskAccount", "listSessions"}));
}

TEST_F(RunCopiedImage, LosesItsMaintenanceWithoutALookAtTheBoot) {
  StateIsOfAnotherMachine(R"(,"Maintenance":1,"MaintenanceAt":5)");
  ops.bootTime = [] { return 1000L; };

  EXPECT_TRUE(Start());

  EXPECT_EQ(calls.Count("bootTime"), 0);
  EXPECT_EQ(log.Lines().back(), kSummary);
}

TEST_F(RunCopiedImage, StandsPendingWhenItsAccountCannotBeDeleted) {
  StateIsOfAnotherMachine();
  AccountCannotBeDeleted();

  EXPECT_TRUE(Start());
  EXPECT_EQ(StateGetInt(StateKey::kTeardownPending), 1);
  EXPECT_EQ(StateGetString(StateKey::kAccountUid), "1501");
  EXPECT_EQ(log.Lines().back(), kSummary);

  RemovalWorks();
  log.Clear();
  EXPECT_TRUE(Start());
  EXPECT_EQ(log.Lines(), (Names{kDeleted, kFinished, kSummary}));
}

TEST_F(RunCopiedImage, IsNoStateOfThisMachine) {
  Enrol();
  Provision();
  MakeBranding();

  EXPECT_TRUE(Start());

  EXPECT_EQ(log.Text(), "<6>enrolled=1 provisioned=1 maintenance=0\n");
  EXPECT_TRUE(Exists(config.brandingDir + "/branding.json"));
  EXPECT_EQ(calls.Count("runSetupTool"), 0);
}

TEST_F(RunBranding, IsForgottenByATerminalThatIsNotEnrolled) {
  MakeBranding();
  WriteText(config.brandingDir + "/photo", "");

  EXPECT_TRUE(Start());

  EXPECT_FALSE(Exists(config.brandingDir));
  EXPECT_EQ(log.Text(), std::string(kSummary) + "\n");
}

// At each of these moments the power may go. What the disk holds then is what the next start finds.
class RunAfterACrash : public RunRemoval {
 protected:
  struct Moment {
    std::string state;
    bool accountIsThere = true;
  };

  // The moments before and after each save during a start.
  std::vector<Moment> MomentsOfAStart() {
    std::vector<Moment> moments;
    const auto take = [&] {
      moments.push_back({ReadText(config.stateDir + "/state.json"), AccountIsThere()});
    };
    {
      const FailingCalls saves;
      FailingCalls::Watch([&](const std::string& call) {
        if (call == "rename") take();
      });
      EXPECT_TRUE(Start());
    }
    take();
    return moments;
  }

  // A start that finds this, with everything in order again.
  void StartFrom(const Moment& moment) {
    WriteState(moment.state);
    if (moment.accountIsThere) {
      AccountIs(kTestKioskUid);
    } else {
      AccountIsMissing();
    }
    RemovalWorks();
    EXPECT_TRUE(Start());
  }
};

TEST_F(RunAfterACrash, FinishesTheRemovalOfACopiedImage) {
  StateIsOfAnotherMachine(R"(,"PowerPolicy":"p","UpdatesPolicy":"u","OwnsWuPolicy":1)");
  const std::vector<Moment> moments = MomentsOfAStart();
  ASSERT_EQ(moments.size(), 8U);

  for (const Moment& moment : moments) {
    StartFrom(moment);

    EXPECT_EQ(CurrentDeviceToken(), "") << moment.state;
    EXPECT_FALSE(AccountIsThere()) << moment.state;
    for (const char* const key :
         {"PowerPolicy", "UpdatesPolicy", "OwnsWuPolicy", "TeardownPending", "DeviceToken"})
      EXPECT_TRUE(StateFile().Get(key).IsNull()) << key << " after " << moment.state;
  }
}

TEST_F(RunAfterACrash, FinishesTheRemovalOfAnAccountThatCouldNotBeDeleted) {
  StateIsOfAnotherMachine();
  AccountCannotBeDeleted();
  const std::vector<Moment> moments = MomentsOfAStart();

  for (const Moment& moment : moments) {
    StartFrom(moment);

    const Json state = *Json::Parse(moment.state);
    const bool identityIsThere = state.Get("DeviceToken").IsString();
    const bool isPending = state.Get("TeardownPending").AsInt(0) == 1;
    EXPECT_EQ(AccountIsThere(), !identityIsThere && !isPending) << moment.state;
    // Between the loss of the identity and the pending mark nothing asks for the deletion. The uid
    // stays, so that the next enrolment takes the account for its own.
    EXPECT_EQ(StateGetString(StateKey::kAccountUid), AccountIsThere() ? "1501" : "");
  }
}

}  // namespace
}  // namespace Tarnvale::KioskService

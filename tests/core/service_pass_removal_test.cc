// The passes of the service loop around a removal, and what each pass does last: the branding and
// the power policy.

#include <string>
#include <vector>

#include "core/clock.h"
#include "core/service_loop.h"
#include "core/state.h"
#include "core/units.h"
#include "portal/identity.h"
#include "support/service_test.h"
#include "support/test_clock.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kPowerText[] = R"({"screenOffMinutes":20,"sleepMinutes":60,"schedule":)"
                              R"({"enabled":false,"sleepAt":"21:00","wakeAt":"06:30","days":[1]}})";
constexpr char kReachableAgain[] = "<6>check-in: AuthSystem reachable again";
constexpr char kFinished[] = "<6>the pending removal of tarnvale-kiosk finished";

using Names = std::vector<std::string>;
using Delays = std::vector<std::int64_t>;

class ServicePassRemoval : public ServiceTest {
 protected:
  ServicePassRemoval() {
    Enrol();
    Provision();
    RemovalWorks();
    ops.dropAdminGroups = [] {};
  }

  void PortalSays(const std::string& status) {
    portal.Answers(kCheckInPath, status == "enrolled" ? 200 : 401,
                   R"({"status":")" + status + "\"}");
  }
  static Delays Passes(int count) {
    Delays delaysMs;
    for (int pass = 0; pass < count; ++pass)
      delaysMs.push_back(ServicePass());
    return delaysMs;
  }
};

using ServicePassPendingRemoval = ServicePassRemoval;
using ServicePassBranding = ServicePassRemoval;
using ServicePassPower = ServicePassRemoval;

TEST_F(ServicePassRemoval, EndsThePassAndLetsTheNextOneFallIdle) {
  PortalSays("revoked");

  EXPECT_EQ(Passes(3), (Delays{30000, -1, -1}));

  EXPECT_EQ(calls.Names(), (Names{"http", "runSetupTool", "removePower", "lookupKioskAccount",
                                  "endKioskSessions", "deleteKioskAccount"}));
}

TEST_F(ServicePassRemoval, EndsThePassOfATerminalThatIsUnknownForADay) {
  PortalSays("unknown");
  EXPECT_EQ(Passes(2), (Delays{30000, 60000}));
  TestClock::AdvanceMs(24 * kHourMs);

  EXPECT_EQ(Passes(2), (Delays{30000, -1}));

  EXPECT_EQ(calls.Count("deleteKioskAccount"), 1);
}

TEST_F(ServicePassRemoval, IsNoAnswerThatCannotBeUsed) {
  PortalSays("revoked");

  (void)ServicePass();

  EXPECT_EQ(log.Text().find("no usable answer"), std::string::npos);
}

TEST_F(ServicePassRemoval, EndsAPassWithoutChangesWhenTheTokenWasReplacedMeanwhile) {
  portal.AnswersWith(kCheckInPath, [](const PortalCall&) {
    StateSetString(StateKey::kDeviceToken, "token of a new pairing");
    return Http{.ok = true, .status = 401, .body = R"({"status":"revoked"})", .error = {}};
  });

  EXPECT_EQ(ServicePass(), 30000);

  EXPECT_EQ(calls.Names(), Names{"http"});
  EXPECT_EQ(CurrentDeviceToken(), "token of a new pairing");
}

TEST_F(ServicePassRemoval, StartsTheBackOffOver) {
  portal.IsUnreachable(kCheckInPath);
  (void)Passes(4);
  PortalSays("revoked");
  EXPECT_EQ(Passes(2), (Delays{30000, -1}));
  EXPECT_FALSE(log.Has(kReachableAgain));

  Enrol();
  portal.IsUnreachable(kCheckInPath);
  EXPECT_EQ(Passes(2), (Delays{30000, 60000}));
}

TEST_F(ServicePassPendingRemoval, IsTriedEvery30SecondsWithoutTheSetupTool) {
  PortalSays("revoked");
  AccountCannotBeDeleted();
  EXPECT_EQ(Passes(3), (Delays{30000, 30000, 30000}));
  EXPECT_EQ(calls.Count("endKioskSessions"), 3);
  EXPECT_EQ(calls.Count("deleteKioskAccount"), 3);
  EXPECT_EQ(calls.Count("runSetupTool"), 1);
  EXPECT_EQ(calls.Count("http"), 1);

  RemovalWorks();
  EXPECT_EQ(Passes(2), (Delays{-1, -1}));
  EXPECT_EQ(log.Count(kFinished), 1);
}

TEST_F(ServicePassPendingRemoval, ComesBeforeTheCheckInOfATerminalThatWasPairedAgain) {
  StateSetInt(StateKey::kTeardownPending, 1);
  portal.IsUnreachable(kCheckInPath);

  EXPECT_EQ(ServicePass(), 30000);

  EXPECT_EQ(calls.Names(),
            (Names{"lookupKioskAccount", "endKioskSessions", "deleteKioskAccount", "http"}));
}

TEST_F(ServicePassPendingRemoval, EndsWithTheProvisioningOfATerminalThatWasPairedAgain) {
  PortalSays("enrolled");
  StateClear(StateKey::kProvisioned);
  StateSetInt(StateKey::kTeardownPending, 1);
  ops.deleteKioskAccount = [] { return false; };
  SetupToolMakes(kTestKioskUid);

  EXPECT_EQ(Passes(2), (Delays{30000, 30000}));

  EXPECT_EQ(calls.Count("deleteKioskAccount"), 1);
  EXPECT_EQ(StateGetInt(StateKey::kProvisioned), 1);
  EXPECT_EQ(StateGetInt(StateKey::kTeardownPending), 0);
}

TEST_F(ServicePassBranding, FollowsAGoodCheckIn) {
  portal.Answers(kCheckInPath, 200,
                 R"({"status":"enrolled","branding":{"displayName":"Lobby"},"tenantId":"t1"})");

  EXPECT_EQ(ServicePass(), 30000);

  EXPECT_EQ(ReadText(config.brandingDir + "/branding.json"),
            R"({"displayName":"Lobby","signInSubtitle":"","photos":[],"tenantId":"t1"})");
}

TEST_F(ServicePassBranding, StaysWhileThePortalIsGone) {
  portal.Answers(kCheckInPath, 200, R"({"status":"enrolled","branding":{"displayName":"Lobby"}})");
  (void)ServicePass();
  portal.Answers(kCheckInPath, 500);

  (void)ServicePass();

  EXPECT_TRUE(Exists(config.brandingDir + "/branding.json"));
}

// A pass whose photo downloads; `action` runs meanwhile.
class ServicePassWithPhoto : public ServicePassRemoval {
 protected:
  void PassWhile(const std::function<void()>& action) {
    const std::string photo = Sha256Hex("a photo");
    portal.Answers(
        kCheckInPath, 200,
        R"({"status":"enrolled","branding":{"displayName":"Lobby","photos":[{"sha256":")" + photo +
            R"("}]},"power":)" + kPowerText + "}");
    portal.AnswersWith("/api/kiosk/branding/photos/" + photo, [&action](const PortalCall&) {
      action();
      return Http{.ok = true, .status = 200, .body = "a photo", .error = {}};
    });
    ops.applyPower = [](const PowerPolicy&) { return std::string(); };
    EXPECT_EQ(ServicePass(), 30000);
  }
};

TEST_F(ServicePassWithPhoto, ProvisionsFirstAndAppliesThePowerPolicyLast) {
  StateClear(StateKey::kProvisioned);
  SetupToolMakes(kTestKioskUid);

  PassWhile([this] {
    EXPECT_EQ(calls.Count("runSetupTool"), 1);
    EXPECT_EQ(calls.Count("applyPower"), 0);
  });

  EXPECT_EQ(calls.Count("applyPower"), 1);
}

TEST_F(ServicePassWithPhoto, LeavesThePowerOfATerminalThatWasRemovedMeanwhile) {
  PassWhile([] { StateClear(StateKey::kDeviceToken); });

  EXPECT_EQ(calls.Count("applyPower"), 0);
}

TEST_F(ServicePassWithPhoto, LeavesThePowerOfATerminalThatWasPairedAnewMeanwhile) {
  PassWhile([] { StateSetString(StateKey::kDeviceToken, "token of a new pairing"); });

  EXPECT_EQ(calls.Count("applyPower"), 0);
}

}  // namespace
}  // namespace Tarnvale::KioskService

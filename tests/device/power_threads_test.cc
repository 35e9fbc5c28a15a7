// The power lock: what stores and applies a policy, one after another.

#include <functional>
#include <memory>

#include "core/mutex.h"
#include "device/power_policy_json.h"
#include "device/power_test.h"
#include "support/other_thread.h"

namespace Tarnvale::KioskService {
namespace {

using Lines = std::vector<std::string>;

class PowerThreads : public PowerTest {
 protected:
  PowerThreads() {
    PortalPolicyIs(PolicyText(5, 30));
  }

  // The first application runs until the other connection, which begins meanwhile, goes no further.
  void MeetsDuringTheFirstApplication(std::function<std::string()> request) {
    ops.applyPower = [this, request](const PowerPolicy& policy) {
      Keep(PowerPolicyToJson(policy).Dump());
      if (other == nullptr) {
        other = std::make_unique<OtherThread>(request);
        EXPECT_TRUE(Eventually([this] { return other->IsAtRest(); }));
        EXPECT_FALSE(other->IsDone());
        stateMeanwhile = StateGetString(StateKey::kPowerLocal);
        whileTheOtherWaits();
        Keep("done");
      }
      return std::string();
    };
  }

  void Keep(const std::string& step) {
    const MutexLock lock(stepsLock);
    steps.push_back(step);
  }
  Lines Steps() {
    const MutexLock lock(stepsLock);
    return steps;
  }

  Mutex stepsLock;
  Lines steps GUARDED_BY(stepsLock);
  std::string stateMeanwhile;
  std::function<void()> whileTheOtherWaits = [] {};
  std::unique_ptr<OtherThread> other;  // Last: its thread uses the others.
};

std::string ReapplyOnce() {
  ReapplyPower();
  return "reapplied";
}

TEST_F(PowerThreads, ReapplyingWaitsBehindASetAndAppliesTheNewOverride) {
  MeetsDuringTheFirstApplication(ReapplyOnce);

  (void)Set(R"({"screenOffMinutes":10,"sleepMinutes":20})");

  EXPECT_EQ(other->Result(), "reapplied");
  EXPECT_EQ(Steps(), (Lines{PolicyText(10, 20), "done", PolicyText(10, 20)}));
}

TEST_F(PowerThreads, ReapplyingLooksForThePolicyWhenItsTurnHasCome) {
  MeetsDuringTheFirstApplication(ReapplyOnce);
  whileTheOtherWaits = [] { PortalPolicyIs(PolicyText(6, 60)); };  // as a check-in does

  ReapplyPower();

  EXPECT_EQ(other->Result(), "reapplied");
  EXPECT_EQ(Steps(), (Lines{PolicyText(5, 30), "done", PolicyText(6, 60)}));
}

TEST_F(PowerThreads, SetWaitsBehindReapplyingAndStoresNothingMeanwhile) {
  MeetsDuringTheFirstApplication(
      [] { return Set(R"({"screenOffMinutes":10,"sleepMinutes":20})"); });

  ReapplyPower();

  EXPECT_TRUE(other->Result().starts_with(R"({"ok":true,)"));
  EXPECT_EQ(stateMeanwhile, "");
  EXPECT_EQ(Steps(), (Lines{PolicyText(5, 30), "done", PolicyText(10, 20)}));
}

TEST_F(PowerThreads, TheSetThatIsStoredLastIsAppliedLast) {
  MeetsDuringTheFirstApplication([] { return Set(R"({"screenOffMinutes":2,"sleepMinutes":2})"); });

  (void)Set(R"({"screenOffMinutes":1,"sleepMinutes":1})");

  EXPECT_TRUE(other->Result().starts_with(R"({"ok":true,)"));
  EXPECT_EQ(stateMeanwhile, PolicyText(1, 1));
  EXPECT_EQ(Steps(), (Lines{PolicyText(1, 1), "done", PolicyText(2, 2)}));
  EXPECT_EQ(StateGetString(StateKey::kPowerLocal), PolicyText(2, 2));
}

TEST_F(PowerThreads, DroppingTheOverrideWaitsBehindASet) {
  MeetsDuringTheFirstApplication([] { return Set(R"({"useOrganisation":true})"); });

  (void)Set(R"({"screenOffMinutes":1,"sleepMinutes":1})");

  EXPECT_TRUE(other->Result().starts_with(R"({"ok":true,)"));
  EXPECT_EQ(stateMeanwhile, PolicyText(1, 1));
  EXPECT_EQ(Steps(), (Lines{PolicyText(1, 1), "done", PolicyText(5, 30)}));
}

TEST_F(PowerThreads, GetIsAnsweredWhileAPolicyIsApplied) {
  std::string document;
  ops.applyPower = [&](const PowerPolicy&) {
    OtherThread get(HandlePowerGet);
    EXPECT_TRUE(Eventually([&] { return get.IsDone(); }));
    document = get.Result();
    return std::string();
  };

  ReapplyPower();

  EXPECT_TRUE(document.starts_with(R"({"ok":true,)")) << document;
}

}  // namespace
}  // namespace Tarnvale::KioskService

#include "device/power_linux.h"

#include <gtest/gtest.h>

#include "slots/support/private_bus.h"
#include "slots/support/recorder.h"
#include "slots/support/stand_in_logind.h"
#include "slots/support/system_stand_ins.h"

namespace Tarnvale::KioskService {
namespace {

class RebootTest : public RecordedToolTest {
 protected:
  RebootTest() {
    Replace("systemctl");
  }

  PrivateBus bus;
};

class RebootWithLogind : public RebootTest {
 protected:
  StandInLogind logind{bus};
};

TEST_F(RebootWithLogind, IsAcceptedWithoutAskingAnyoneElse) {
  logind.Answer("Reboot", "()");

  EXPECT_TRUE(Reboot());

  EXPECT_EQ(logind.Calls(),
            std::vector<std::string>{
                "/org/freedesktop/login1 org.freedesktop.login1.Manager.Reboot (false,)"});
  EXPECT_EQ(StandIn::DbusTimeoutsMs(), std::vector<int>{20'000});
  EXPECT_EQ(Calls(), "");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(RebootWithLogind, IsAcceptedWithAnyReply) {
  logind.Answer("Reboot", "('soon', uint32 5)");

  EXPECT_TRUE(Reboot());
}

TEST_F(RebootWithLogind, FallsBackToSystemctlWhenRefused) {
  logind.Refuse("Reboot", "inhibited");

  EXPECT_TRUE(Reboot());

  EXPECT_EQ(log.Text(),
            "<4>logind Reboot failed (GDBus.Error:org.freedesktop.login1.Refused: inhibited); "
            "using systemctl\n");
  EXPECT_EQ(Calls(), "systemctl [reboot]\n");
}

TEST_F(RebootWithLogind, FailsWhenSystemctlFailsToo) {
  logind.Refuse("Reboot", "inhibited");
  Replace("systemctl", "exit 1");

  EXPECT_FALSE(Reboot());

  EXPECT_EQ(log.Lines().size(), 1U);
}

TEST_F(RebootTest, NamesNoReasonWithoutABus) {
  EXPECT_TRUE(Reboot());

  ASSERT_EQ(log.Lines().size(), 2U);
  EXPECT_EQ(log.Lines()[1], "<4>logind Reboot failed (); using systemctl");
  EXPECT_EQ(Calls(), "systemctl [reboot]\n");
}

TEST_F(RebootTest, GivesSystemctlTwentySeconds) {
  Replace("systemctl", kHang);

  EXPECT_FALSE(PassDeadline(20'000, [] { return Reboot(); }));

  EXPECT_TRUE(log.Has("<3>/usr/sbin/systemctl did not finish in 20 s; stopped"));
}

}  // namespace
}  // namespace Tarnvale::KioskService

#include "kiosk/removal_linux.h"

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "core/clock.h"
#include "core/ops_linux.h"
#include "slots/support/private_bus.h"
#include "slots/support/recorder.h"
#include "slots/support/stand_in_logind.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kGettyCall[] = "systemctl [start] [--no-block] [getty@tty1.service]\n";
constexpr char kTerminateCall[] = "loginctl [terminate-user] [kiosk]\n";

class EndKioskSessionsTest : public RecordedToolTest {
 protected:
  EndKioskSessionsTest() {
    WriteText("/etc/nsswitch.conf", "passwd: files\ngroup: files\n");
    WriteText("/etc/passwd", "root:x:0:0::/root:/bin/sh\nkiosk:x:1501:100::/home/kiosk:/bin/sh\n");
    Replace("systemctl");
    Replace("loginctl");
  }
};

TEST_F(EndKioskSessionsTest, OffersALoginPromptAndEndsTheSessions) {
  EndKioskSessions("kiosk", false);

  EXPECT_EQ(Calls(), std::string(kGettyCall) + kTerminateCall);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(EndKioskSessionsTest, GoesOnWhenItsToolsFail) {
  Replace("systemctl", "echo 'no such unit' >&2; exit 5");
  Replace("loginctl", "echo 'no such user' >&2; exit 1");

  EndKioskSessions("kiosk", false);

  EXPECT_EQ(Calls(), std::string(kGettyCall) + kTerminateCall);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(EndKioskSessionsTest, GoesOnWithoutItsTools) {
  for (const char* const tool : {"systemctl", "loginctl"}) {
    std::filesystem::remove(std::string("/usr/sbin/") + tool);
    std::filesystem::remove(std::string("/usr/bin/") + tool);
  }

  EndKioskSessions("kiosk", false);

  EXPECT_EQ(Calls(), "");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(EndKioskSessionsTest, GivesSystemctlSixtySeconds) {
  Replace("systemctl", kHang);

  PassDeadline(60'000, [] {
    EndKioskSessions("kiosk", false);
    return true;
  });

  EXPECT_EQ(log.Text(), "<3>/usr/sbin/systemctl did not finish in 60 s; stopped\n");
  EXPECT_EQ(Calls(), std::string(kGettyCall) + kTerminateCall);
}

TEST_F(EndKioskSessionsTest, GivesLoginctlTwentySeconds) {
  Replace("loginctl", kHang);

  PassDeadline(20'000, [] {
    EndKioskSessions("kiosk", false);
    return true;
  });

  EXPECT_EQ(log.Text(), "<3>/usr/sbin/loginctl did not finish in 20 s; stopped\n");
}

TEST_F(EndKioskSessionsTest, TakesTheAccountOfTheConfigurationThatTheTableHolds) {
  auto config = std::make_unique<Config>();
  config->kioskUser = "other";
  const Ops ops = LinuxOps(*config);
  config.reset();

  ops.endKioskSessions(false);

  EXPECT_EQ(Calls(), std::string(kGettyCall) + "loginctl [terminate-user] [other]\n");
}

// With a logind that tells of sessions.
class WaitForSessionsTest : public EndKioskSessionsTest {
 protected:
  // logind lists one session of each of these users.
  void SessionsOf(const std::vector<unsigned>& uids) {
    std::string list;
    for (const unsigned uid : uids) {
      const std::string id = "c" + std::to_string(uid);
      const std::string path = "/org/freedesktop/login1/session/" + id;
      list += (list.empty() ? "('" : ", ('") + id + "', uint32 " + std::to_string(uid) +
              ", 'name', '', objectpath '" + path + "')";
      logind.Answer(path + " GetAll", "({'Id': <'" + id + "'>, 'User': <(uint32 " +
                                          std::to_string(uid) +
                                          ", objectpath '/org/freedesktop/login1/user/_1')>},)");
    }
    logind.Answer("ListSessions", "(@a(susso) [" + list + "],)");
  }
  // How long it waits, on the tests' clock.
  std::int64_t WaitMs() {
    const std::int64_t startMs = SteadyNowMs();
    EndKioskSessions("kiosk", true);
    return SteadyNowMs() - startMs;
  }
  [[nodiscard]] int Looks() {
    int looks = 0;
    for (const std::string& call : logind.Calls())
      looks += call.find(".ListSessions ") != std::string::npos ? 1 : 0;
    return looks;
  }

  PrivateBus bus;
  StandInLogind logind{bus};
};

TEST_F(WaitForSessionsTest, LooksAtNoSessionUnlessItShallWait) {
  SessionsOf({1501});

  EndKioskSessions("kiosk", false);

  EXPECT_EQ(logind.Calls().size(), 0U);
}

TEST_F(WaitForSessionsTest, RunsItsToolsFirst) {
  SessionsOf({1501});
  TestClock::BeforeWaits([this](std::int64_t milliseconds) {
    if (milliseconds != 250) return;
    EXPECT_EQ(Calls(), std::string(kGettyCall) + kTerminateCall);
    SessionsOf({});
  });

  EXPECT_EQ(WaitMs(), 250);
}

TEST_F(WaitForSessionsTest, EndsAtOnceWhenTheAccountHasNone) {
  for (const std::vector<unsigned>& uids :
       {std::vector<unsigned>{}, std::vector<unsigned>{0, 1000, 1502}}) {
    SessionsOf(uids);

    EXPECT_EQ(WaitMs(), 0);
  }
  EXPECT_EQ(Looks(), 2);
}

TEST_F(WaitForSessionsTest, EndsAtOnceWithoutALogind) {
  logind.Refuse("ListSessions", "not now");

  EXPECT_EQ(WaitMs(), 0);
}

TEST_F(WaitForSessionsTest, LooksForNothingWithoutTheAccount) {
  SessionsOf({1501});
  WriteText("/etc/passwd", "root:x:0:0::/root:/bin/sh\n");

  EXPECT_EQ(WaitMs(), 0);

  EXPECT_EQ(Looks(), 0);
  EXPECT_EQ(Calls(), std::string(kGettyCall) + kTerminateCall);
}

TEST_F(WaitForSessionsTest, LooksEvery250MillisecondsUntilTheLastOneIsGone) {
  SessionsOf({1000, 1501});
  int pauses = 0;
  TestClock::BeforeWaits([&](std::int64_t milliseconds) {
    if (milliseconds == 250 && ++pauses == 3) SessionsOf({1000});
  });

  EXPECT_EQ(WaitMs(), 750);

  EXPECT_EQ(Looks(), 4);
}

TEST_F(WaitForSessionsTest, GivesUpAfterTenSeconds) {
  SessionsOf({1501});

  EXPECT_EQ(WaitMs(), 10'000);

  EXPECT_EQ(Looks(), 40);
  EXPECT_EQ(log.Text(), "");
}

class DeleteKioskAccountTest : public RecordedToolTest {};

TEST_F(DeleteKioskAccountTest, DeletesTheHomeDirectoryToo) {
  Replace("userdel");

  EXPECT_TRUE(DeleteKioskAccount("kiosk"));

  EXPECT_EQ(Calls(), "userdel [-r] [kiosk]\n");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(DeleteKioskAccountTest, IsTrueForTheStatusesThatLeaveNoAccount) {
  const std::pair<int, bool> rows[] = {{0, true},   {6, true},   {12, true},  {1, false},
                                       {2, false},  {5, false},  {7, false},  {8, false},
                                       {10, false}, {11, false}, {13, false}, {127, false}};
  for (const auto& [status, deleted] : rows) {
    Replace("userdel", "exit " + std::to_string(status));

    EXPECT_EQ(DeleteKioskAccount("kiosk"), deleted) << status;
  }
}

TEST_F(DeleteKioskAccountTest, FailsOnASignal) {
  Replace("userdel", "kill -KILL $$");

  EXPECT_FALSE(DeleteKioskAccount("kiosk"));
}

TEST_F(DeleteKioskAccountTest, FailsWithoutUserdel) {
  std::filesystem::remove("/usr/sbin/userdel");
  std::filesystem::remove("/usr/bin/userdel");

  EXPECT_FALSE(DeleteKioskAccount("kiosk"));
}

TEST_F(DeleteKioskAccountTest, FailsAfterSixtySeconds) {
  Replace("userdel", kHang);

  EXPECT_FALSE(PassDeadline(60'000, [] { return DeleteKioskAccount("kiosk"); }));

  EXPECT_EQ(log.Text(), "<3>/usr/sbin/userdel did not finish in 60 s; stopped\n");
}

TEST_F(DeleteKioskAccountTest, TakesTheAccountOfTheConfigurationThatTheTableHolds) {
  Replace("userdel");
  auto config = std::make_unique<Config>();
  config->kioskUser = "other";
  const Ops ops = LinuxOps(*config);
  config.reset();

  EXPECT_TRUE(ops.deleteKioskAccount());

  EXPECT_EQ(Calls(), "userdel [-r] [other]\n");
}

TEST_F(DeleteKioskAccountTest, WorksWithTheRealTool) {
  const std::string home = directory.At("home");
  ASSERT_EQ(::mkdir(home.c_str(), 0700), 0);
  ASSERT_EQ(::chown(home.c_str(), 1501, 1501), 0);
  WriteText(home + "/file", "");
  WriteText("/etc/nsswitch.conf", "passwd: files\ngroup: files\nshadow: files\n");
  WriteText("/etc/passwd", "root:x:0:0::/root:/bin/sh\nkiosk:x:1501:1501::" + home + ":/bin/sh\n");
  WriteText("/etc/shadow", "root:*:1::::::\nkiosk:*:1::::::\n", 0640);
  WriteText("/etc/group", "root:x:0:\nkiosk:x:1501:\n");
  WriteText("/etc/gshadow", "root:*::\nkiosk:!::\n", 0640);

  EXPECT_TRUE(DeleteKioskAccount("kiosk"));

  EXPECT_EQ(ReadText("/etc/passwd"), "root:x:0:0::/root:/bin/sh\n");
  EXPECT_FALSE(Exists(home));
  // A second time there is no such account, which is as good.
  EXPECT_TRUE(DeleteKioskAccount("kiosk"));
}

}  // namespace
}  // namespace Tarnvale::KioskService

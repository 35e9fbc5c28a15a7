// Ending the idle watchers of the kiosk session, which here are real processes of that name.

#include "device/idle_watcher_linux.h"

#include <signal.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include "core/files.h"
#include "slots/support/child.h"
#include "slots/support/power_terminal.h"

namespace Tarnvale::KioskService {
namespace {

constexpr unsigned kOtherUid = 1502;

// A process of this user that runs under this name until it is ended.
class NamedProcess {
 public:
  NamedProcess(const std::string& name, unsigned uid) : child_(Argv(MakeProgram(name), uid)) {
    const std::string comm = "/proc/" + std::to_string(child_.Pid()) + "/comm";
    EXPECT_TRUE(WaitFor([&] { return ReadWholeFile(comm) == name + "\n"; }));
  }

  // The signal that ended it, or ends it now. One that was sent before SIGKILL comes first.
  int EndingSignal() {
    EXPECT_EQ(::kill(child_.Pid(), SIGKILL), 0);
    const int status = child_.Wait();
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  }

 private:
  static std::string MakeProgram(const std::string& name) {
    std::string path = "/usr/bin/" + name;
    std::filesystem::copy_file("/usr/bin/sleep", path,
                               std::filesystem::copy_options::skip_existing);
    return path;
  }
  static std::vector<std::string> Argv(const std::string& program, unsigned uid) {
    const std::string id = std::to_string(uid);
    return {"/usr/bin/setpriv", "--reuid", id, "--regid", id, "--clear-groups", program, "1000"};
  }

  Child child_;
};

using StopIdleWatchersTest = PowerTerminalTest;

TEST_F(StopIdleWatchersTest, EndsEachOfTheUserPolitely) {
  NamedProcess first("swayidle", kWatchedUid);
  NamedProcess second("swayidle", kWatchedUid);

  StopIdleWatchers("tarnvale-kiosk");

  EXPECT_EQ(first.EndingSignal(), SIGTERM);
  EXPECT_EQ(second.EndingSignal(), SIGTERM);
  EXPECT_EQ(log.Text(), "");
  EXPECT_EQ(Calls(), "");
}

TEST_F(StopIdleWatchersTest, LeavesOtherUsersAlone) {
  NamedProcess others("swayidle", kOtherUid);
  NamedProcess roots("swayidle", 0);

  StopIdleWatchers("tarnvale-kiosk");

  EXPECT_EQ(others.EndingSignal(), SIGKILL);
  EXPECT_EQ(roots.EndingSignal(), SIGKILL);
}

TEST_F(StopIdleWatchersTest, LeavesOtherNamesAlone) {
  for (const char* const name : {"swayidle2", "swayidl", "Swayidle", "xswayidle", "sway idle"}) {
    NamedProcess process(name, kWatchedUid);

    StopIdleWatchers("tarnvale-kiosk");

    EXPECT_EQ(process.EndingSignal(), SIGKILL) << name;
  }
}

TEST_F(StopIdleWatchersTest, EndsNobodyForAnAccountThatIsMissing) {
  NamedProcess process("swayidle", kWatchedUid);
  NamedProcess roots("swayidle", 0);

  StopIdleWatchers("nobody-of-that-name");

  EXPECT_EQ(process.EndingSignal(), SIGKILL);
  EXPECT_EQ(roots.EndingSignal(), SIGKILL);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(StopIdleWatchersTest, EndsNobodyWhenTheAccountCannotBeLookedUp) {
  NamedProcess process("swayidle", kWatchedUid);
  NamedProcess roots("swayidle", 0);
  WriteText("/etc/passwd",
            "tarnvale-kiosk:x:1501:1501:" + std::string(20'000, 'c') + ":/:/bin/sh\n");

  StopIdleWatchers("tarnvale-kiosk");

  EXPECT_EQ(process.EndingSignal(), SIGKILL);
  EXPECT_EQ(roots.EndingSignal(), SIGKILL);
  EXPECT_EQ(log.Lines().size(), 1U);
}

TEST_F(StopIdleWatchersTest, HappensWhenTheTimesChangeAndOnlyThen) {
  NamedProcess before("swayidle", kWatchedUid);
  (void)Apply(Idle(15, 0));
  EXPECT_EQ(before.EndingSignal(), SIGTERM);

  NamedProcess after("swayidle", kWatchedUid);
  (void)Apply(Idle(15, 0));
  (void)Apply(Nightly());
  EXPECT_EQ(after.EndingSignal(), SIGKILL);
}

TEST_F(StopIdleWatchersTest, IsForTheConfiguredAccount) {
  WriteText("/etc/passwd", "tarnvale-kiosk:x:1501:1501::/:/bin/sh\nlobby:x:1502:1502::/:/bin/sh\n");
  config.kioskUser = "lobby";
  NamedProcess kiosk("swayidle", kWatchedUid);
  NamedProcess lobby("swayidle", kOtherUid);

  (void)Apply(Idle(15, 0));

  EXPECT_EQ(kiosk.EndingSignal(), SIGKILL);
  EXPECT_EQ(lobby.EndingSignal(), SIGTERM);
}

TEST_F(StopIdleWatchersTest, DoesNotHappenForAFileThatCouldNotBeWritten) {
  WriteText(directory.At("file"), "");
  config.etcDir = directory.At("file/etc");
  NamedProcess process("swayidle", kWatchedUid);

  (void)Apply(Idle(15, 0));

  EXPECT_EQ(process.EndingSignal(), SIGKILL);
}

TEST_F(StopIdleWatchersTest, HappensAtTheRemovalInAnyCase) {
  NamedProcess process("swayidle", kWatchedUid);

  RemovePower(config);

  EXPECT_EQ(process.EndingSignal(), SIGTERM);
}

}  // namespace
}  // namespace Tarnvale::KioskService

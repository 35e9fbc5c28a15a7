#include "device/updates_linux.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "core/text.h"
#include "slots/support/recorder.h"
#include "slots/support/system_stand_ins.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kRefresh[] = "apt-get [update] [-q]\n";
constexpr char kSimulate[] =
    "apt-get [-s] [-q] [-o] [Debug::NoLocking=1] [upgrade] [--with-new-pkgs]\n";
constexpr char kUpgrade[] =
    "apt-get [-y] [-q] [-o] [Dpkg::Options::=--force-confdef] [-o] "
    "[Dpkg::Options::=--force-confold] [-o] [APT::Status-Fd=3] [upgrade] [--with-new-pkgs]\n";
constexpr char kShowCurl[] = "apt-cache [show] [--no-all-versions] [curl=7.88.1-2]\n";

constexpr char kInstCurl[] = "Inst curl [7.88.1-1] (7.88.1-2 Debian:12 [amd64])\n";
constexpr char kCurlStanza[] = "Package: curl\\nSize: 315840\\n";

class RunAptTest : public RecordedToolTest {
 protected:
  RunAptTest() {
    // apt-get goes on with the lines that a test gave to this one of its commands.
    Replace("apt-get",
            "tr '\\0' '\\n' < /proc/$$/environ > $here/environment$1\n"
            "[ -e /proc/$$/fd/3 ] && echo > $here/status$1\n"
            ". $here/apt-get$1");
    Replace("apt-cache",
            "tr '\\0' '\\n' < /proc/$$/environ > $here/environment$1\n"
            "printf '" +
                std::string(kCurlStanza) + "'");
    Apt("update", "");
    Apt("-s", "cat $here/simulation");
    Apt("-y", "");
    Pending("");
  }

  void Apt(const std::string& command, const std::string& lines) {
    WriteText(directory.At("apt-get" + command), lines + "\n");
  }
  // What simulations print from now on.
  void Pending(const std::string& simulation) {
    WriteText(directory.At("simulation"), simulation);
  }
  // The upgrade leaves this for the simulation after it, and goes on with these lines.
  void UpgradeLeaves(const std::string& simulation, const std::string& lines = "") {
    WriteText(directory.At("after"), simulation);
    Apt("-y", "cp $here/after $here/simulation\n" + lines);
  }
  WuRun Run(bool install) {
    return RunApt(install, &updates, &progress);
  }
  WuRun Check() {
    return Run(false);
  }
  WuRun Install() {
    return Run(true);
  }
  // How a command's environment ends.
  [[nodiscard]] bool HasAptEnvironment(const std::string& command) const {
    return ReadText(directory.At("environment" + command))
        .ends_with("\nDEBIAN_FRONTEND=noninteractive\nAPT_LISTCHANGES_FRONTEND=none\nLC_ALL=C\n");
  }

  std::vector<OsUpdate> updates = {{.id = "as-it-was", .title = {}}};
  std::atomic<int> progress{77};
};

using RunAptCheck = RunAptTest;
using RunAptInstall = RunAptTest;

TEST_F(RunAptCheck, TellsWhatIsPending) {
  Pending(kInstCurl);

  const WuRun run = Check();

  EXPECT_EQ(run.result, kWuDone);
  EXPECT_EQ(run.pending, 1);
  EXPECT_FALSE(run.restartRequired);
  EXPECT_EQ(run.error, "");
  ASSERT_EQ(updates.size(), 1U);
  EXPECT_EQ(updates[0].id, "curl");
  EXPECT_EQ(updates[0].title, "curl 7.88.1-2");
  EXPECT_EQ(updates[0].sizeBytes, 315840U);
  EXPECT_FALSE(updates[0].restartRequired);
  EXPECT_EQ(Calls(), std::string(kRefresh) + kSimulate + kShowCurl);
  EXPECT_EQ(progress.load(), 77);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(RunAptCheck, HasNothingToDoWithoutPendingPackages) {
  const WuRun run = Check();

  EXPECT_EQ(run.result, kWuNothingToDo);
  EXPECT_EQ(run.pending, 0);
  EXPECT_EQ(run.error, "");
  EXPECT_TRUE(updates.empty());
  EXPECT_EQ(Calls(), std::string(kRefresh) + kSimulate);
}

TEST_F(RunAptCheck, SpeaksToToolsThatAskNobodyAnything) {
  Pending(kInstCurl);

  EXPECT_EQ(Check().result, kWuDone);

  EXPECT_TRUE(HasAptEnvironment("update"));
  EXPECT_TRUE(HasAptEnvironment("-s"));
  EXPECT_TRUE(HasAptEnvironment("show"));
}

TEST_F(RunAptCheck, AsksForTheSizesOfAHundredPackagesAtATime) {
  std::string simulation;
  std::vector<std::string> specs;
  for (int number = 0; number < 250; ++number) {
    const std::string name = "p" + std::to_string(number);
    simulation += "Inst " + name + " (" + std::to_string(number) + ".0 Debian:12 [all])\n";
    specs.push_back("[" + name + "=" + std::to_string(number) + ".0]");
  }
  Pending(simulation);
  const auto show = [&specs](std::ptrdiff_t begin, std::ptrdiff_t end) {
    const std::vector<std::string> batch(specs.begin() + begin, specs.begin() + end);
    return "apt-cache [show] [--no-all-versions] " + Join(batch, " ") + "\n";
  };

  EXPECT_EQ(Check().pending, 250);

  EXPECT_EQ(Calls(),
            std::string(kRefresh) + kSimulate + show(0, 100) + show(100, 200) + show(200, 250));
}

TEST_F(RunAptCheck, AsksOnceForTheSizesOfAHundredPackages) {
  std::string simulation;
  for (int number = 0; number < 100; ++number)
    simulation += "Inst p" + std::to_string(number) + " (1 x)\n";
  Pending(simulation);

  EXPECT_EQ(Check().pending, 100);

  EXPECT_EQ(SplitLines(Calls()).size(), 3U);
}

TEST_F(RunAptCheck, KeepsTheSizesOfEveryBatch) {
  std::string simulation = kInstCurl;
  for (int number = 0; number < 100; ++number)
    simulation += "Inst p" + std::to_string(number) + " (1 x)\n";
  Pending(simulation);
  Replace("apt-cache",
          "case \"$*\" in *p99=1*) printf 'Package: p99\\nSize: 9\\nPackage: curl\\nSize: 5\\n';;\n"
          "*) printf 'Package: curl\\nSize: 7\\n';; esac");

  EXPECT_EQ(Check().pending, 101);

  EXPECT_EQ(updates[0].sizeBytes, 7U);
  EXPECT_EQ(updates[50].sizeBytes, 0U);
  EXPECT_EQ(updates[100].sizeBytes, 9U);
}

TEST_F(RunAptCheck, AsksForNoSizeOfAPackageWithoutAVersion) {
  Pending("Inst first\n" + std::string(kInstCurl));

  EXPECT_EQ(Check().pending, 2);

  EXPECT_EQ(Calls(), std::string(kRefresh) + kSimulate + kShowCurl);
  EXPECT_EQ(updates[0].title, "first");
  EXPECT_EQ(updates[0].sizeBytes, 0U);
}

TEST_F(RunAptCheck, TakesTheSizesOfAShowThatFails) {
  Pending(kInstCurl);
  Replace("apt-cache", "printf '" + std::string(kCurlStanza) + "'; exit 100");

  EXPECT_EQ(Check().result, kWuDone);

  EXPECT_EQ(updates[0].sizeBytes, 315840U);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(RunAptCheck, DoesWithoutSizesWhenNobodyTellsThem) {
  Pending(kInstCurl);
  StandIn::SetExecutables({"/usr/sbin/apt-get"});

  EXPECT_EQ(Check().result, kWuDone);

  EXPECT_EQ(updates[0].sizeBytes, 0U);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(RunAptCheck, FailsWithoutApt) {
  StandIn::SetExecutables({"/usr/sbin/apt-cache"});

  const WuRun run = Check();

  EXPECT_EQ(run.result, kWuFailed);
  EXPECT_EQ(run.error, "apt_missing");
  EXPECT_EQ(updates[0].id, "as-it-was");
  EXPECT_EQ(Calls(), "");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(RunAptCheck, FailsWhenTheListsCannotBeRefreshed) {
  WriteText("/run/reboot-required", "");
  Apt("update", "echo; echo 'Get:1 lists'; echo 'E: no route ' >&2; exit 100");

  const WuRun run = Check();

  EXPECT_EQ(run.result, kWuFailed);
  EXPECT_EQ(run.pending, 0);
  EXPECT_FALSE(run.restartRequired);
  EXPECT_EQ(run.error, "search_failed");
  EXPECT_EQ(updates[0].id, "as-it-was");
  EXPECT_EQ(Calls(), kRefresh);
  EXPECT_EQ(log.Text(), "<3>os updates: apt-get update failed: Get:1 lists\nE: no route\n");
}

TEST_F(RunAptCheck, LogsFourHundredBytesOfAFailedRefresh) {
  Apt("update", "printf '\\n%0400d' 7 | tr 0 x; printf 'y\\n'; exit 1");

  EXPECT_EQ(Check().error, "search_failed");

  EXPECT_EQ(log.Text(), "<3>os updates: apt-get update failed: " + std::string(399, 'x') + "7\n");
}

TEST_F(RunAptCheck, FailsWhenTheSimulationDoes) {
  WriteText("/run/reboot-required", "");
  Pending(kInstCurl);
  Apt("-s", "cat $here/simulation; exit 100");

  const WuRun run = Check();

  EXPECT_EQ(run.result, kWuFailed);
  EXPECT_EQ(run.pending, 0);
  EXPECT_FALSE(run.restartRequired);
  EXPECT_EQ(run.error, "search_failed");
  EXPECT_EQ(updates[0].id, "as-it-was");
  EXPECT_EQ(Calls(), std::string(kRefresh) + kSimulate);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(RunAptCheck, TellsThatARestartIsRequired) {
  WriteText("/run/reboot-required", "");
  EXPECT_TRUE(Check().restartRequired);
  EXPECT_EQ(Check().result, kWuNothingToDo);

  Pending(kInstCurl);
  EXPECT_TRUE(Check().restartRequired);
}

TEST_F(RunAptCheck, AsksTheMarkerAndNotThePackagesForTheRestart) {
  Pending("Inst linux-image-amd64 (6.1 Debian:12 [amd64])\n");

  const WuRun run = Check();

  EXPECT_FALSE(run.restartRequired);
  EXPECT_TRUE(updates[0].restartRequired);
}

TEST_F(RunAptCheck, GivesTheRefreshFifteenMinutes) {
  Apt("update", kHang);

  EXPECT_EQ(PassDeadline(900'000, [this] { return Check(); }).error, "search_failed");

  EXPECT_EQ(log.Text(),
            "<3>/usr/sbin/apt-get did not finish in 900 s; stopped\n"
            "<3>os updates: apt-get update failed: \n");
}

TEST_F(RunAptCheck, GivesTheSimulationTwoMinutes) {
  Apt("-s", kHang);

  EXPECT_EQ(PassDeadline(120'000, [this] { return Check(); }).error, "search_failed");

  EXPECT_EQ(log.Text(), "<3>/usr/sbin/apt-get did not finish in 120 s; stopped\n");
}

TEST_F(RunAptCheck, GivesTheSizesAMinute) {
  Pending(kInstCurl);
  Replace("apt-cache", kHang);

  EXPECT_EQ(PassDeadline(60'000, [this] { return Check(); }).result, kWuDone);

  EXPECT_EQ(log.Text(), "<3>/usr/sbin/apt-cache did not finish in 60 s; stopped\n");
}

TEST_F(RunAptInstall, UpgradesAndLooksAgain) {
  Pending(kInstCurl);
  UpgradeLeaves("", "echo 'dlstatus:1:50.0000:x' >&3; echo 'pmstatus:curl:50.0000:x' >&3");

  const WuRun run = Install();

  EXPECT_EQ(run.result, kWuDone);
  EXPECT_EQ(run.pending, 0);
  EXPECT_FALSE(run.restartRequired);
  EXPECT_EQ(run.error, "");
  EXPECT_TRUE(updates.empty());
  EXPECT_EQ(Calls(), std::string(kRefresh) + kSimulate + kShowCurl + kUpgrade + kSimulate);
  EXPECT_EQ(progress.load(), 75);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(RunAptInstall, TellsWhatIsStillPending) {
  Pending("Inst first (1 x)\n" + std::string(kInstCurl));
  UpgradeLeaves(kInstCurl);

  const WuRun run = Install();

  EXPECT_EQ(run.result, kWuDone);
  EXPECT_EQ(run.pending, 1);
  ASSERT_EQ(updates.size(), 1U);
  EXPECT_EQ(updates[0].id, "curl");
  EXPECT_EQ(updates[0].sizeBytes, 315840U);
}

TEST_F(RunAptInstall, DoesNotUpgradeWithNothingPending) {
  WriteText("/run/reboot-required", "");

  const WuRun run = Install();

  EXPECT_EQ(run.result, kWuNothingToDo);
  EXPECT_EQ(run.pending, 0);
  EXPECT_TRUE(run.restartRequired);
  EXPECT_TRUE(updates.empty());
  EXPECT_EQ(Calls(), std::string(kRefresh) + kSimulate);
  EXPECT_EQ(progress.load(), 77);
}

TEST_F(RunAptInstall, BeginsItsProgressAnew) {
  Pending(kInstCurl);

  EXPECT_EQ(Install().result, kWuDone);

  EXPECT_EQ(progress.load(), 0);
}

TEST_F(RunAptInstall, HasAStatusPipeForTheUpgradeAlone) {
  Pending(kInstCurl);

  EXPECT_EQ(Install().result, kWuDone);

  EXPECT_TRUE(Exists(directory.At("status-y")));
  EXPECT_FALSE(Exists(directory.At("status-s")));
  EXPECT_FALSE(Exists(directory.At("statusupdate")));
  EXPECT_TRUE(HasAptEnvironment("-y"));
}

TEST_F(RunAptInstall, ShowsItsProgressWhileItRuns) {
  Pending(kInstCurl);
  const Gate goOn(directory.At("go-on"));
  Apt("-y", "echo 'dlstatus:1:20.0000:x' >&3\nread _ < $here/go-on");

  std::thread reader([this, &goOn] {
    EXPECT_TRUE(WaitFor([this] { return progress.load() == 10; }));
    goOn.Tell();
  });
  EXPECT_EQ(Install().result, kWuDone);
  reader.join();
}

TEST_F(RunAptInstall, TellsTheSystemAfterAFailedUpgrade) {
  Pending("Inst first (1 x)\n" + std::string(kInstCurl));
  UpgradeLeaves(kInstCurl,
                "echo > /run/reboot-required; echo; echo 'E: broken' >&2; echo; exit 100");

  const WuRun run = Install();

  EXPECT_EQ(run.result, kWuFailed);
  EXPECT_EQ(run.pending, 1);
  EXPECT_TRUE(run.restartRequired);
  EXPECT_EQ(run.error, "install_failed 100");
  ASSERT_EQ(updates.size(), 1U);
  EXPECT_EQ(updates[0].id, "curl");
  EXPECT_EQ(Calls(), std::string(kRefresh) + kSimulate +
                         "apt-cache [show] [--no-all-versions] [first=1] [curl=7.88.1-2]\n" +
                         kUpgrade + kSimulate + kShowCurl);
  EXPECT_EQ(log.Text(), "<3>os updates: apt-get upgrade failed: E: broken\n");
}

TEST_F(RunAptInstall, LogsEightHundredBytesOfAFailedUpgrade) {
  Pending(kInstCurl);
  Apt("-y", "printf '\\n%0800d' 7 | tr 0 x; printf 'y\\n'; exit 1");

  EXPECT_EQ(Install().error, "install_failed 1");

  EXPECT_EQ(log.Text(), "<3>os updates: apt-get upgrade failed: " + std::string(799, 'x') + "7\n");
}

TEST_F(RunAptInstall, TellsOfNothingPendingWhenTheSecondSimulationFails) {
  Pending(kInstCurl);
  Apt("-y", "echo 'exit 1' > $here/apt-get-s");

  const WuRun run = Install();

  EXPECT_EQ(run.result, kWuDone);
  EXPECT_EQ(run.pending, 0);
  EXPECT_EQ(run.error, "");
  EXPECT_TRUE(updates.empty());
  EXPECT_EQ(log.Text(), "");
}

TEST_F(RunAptInstall, KeepsTheUpgradesErrorWhenTheSecondSimulationFailsToo) {
  Pending(kInstCurl);
  Apt("-y", "echo 'exit 1' > $here/apt-get-s; exit 2");

  const WuRun run = Install();

  EXPECT_EQ(run.result, kWuFailed);
  EXPECT_EQ(run.error, "install_failed 2");
  EXPECT_EQ(run.pending, 0);
}

TEST_F(RunAptInstall, FailsWhenTheListsCannotBeRefreshed) {
  Pending(kInstCurl);
  Apt("update", "exit 1");

  EXPECT_EQ(Install().error, "search_failed");

  EXPECT_EQ(Calls(), kRefresh);
  EXPECT_EQ(progress.load(), 77);
}

TEST_F(RunAptInstall, FailsWhenTheSimulationDoes) {
  Apt("-s", "exit 1");

  EXPECT_EQ(Install().error, "search_failed");

  EXPECT_EQ(Calls(), std::string(kRefresh) + kSimulate);
}

TEST_F(RunAptInstall, GivesTheUpgradeTwoHours) {
  Pending(kInstCurl);
  Apt("-y", kHang);

  const WuRun run = PassDeadline(7'200'000, [this] { return Install(); });

  EXPECT_EQ(run.result, kWuFailed);
  EXPECT_EQ(run.error, "install_failed -1");
  EXPECT_EQ(run.pending, 1);
  EXPECT_EQ(log.Text(),
            "<3>/usr/sbin/apt-get did not finish in 7200 s; stopped\n"
            "<3>os updates: apt-get upgrade failed: \n");
}

TEST_F(RunAptInstall, TellsOfAnUpgradeThatDiedOnASignal) {
  Pending(kInstCurl);
  Apt("-y", "kill -9 $$");

  EXPECT_EQ(Install().error, "install_failed -1");
}

}  // namespace
}  // namespace Tarnvale::KioskService

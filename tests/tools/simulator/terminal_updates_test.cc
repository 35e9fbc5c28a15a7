#include "simulator/terminal_updates.h"

#include <gtest/gtest.h>

#include <vector>

namespace Tarnvale::KioskService::Simulator {
namespace {

std::vector<OsUpdate> Earlier() {
  return {{.id = "earlier", .title = "earlier"}};
}

TEST(SimulatedPackages, TellWhatIsPending) {
  std::vector<OsUpdate> updates;

  const WuRun run = SearchUpdates({}, updates);

  EXPECT_EQ(run.result, kWuDone);
  EXPECT_EQ(run.pending, 2);
  EXPECT_FALSE(run.restartRequired);
  ASSERT_EQ(updates.size(), 2U);
  EXPECT_FALSE(updates[0].restartRequired);
  EXPECT_TRUE(updates[1].restartRequired);
}

TEST(SimulatedPackages, TellThatThereIsNothingToDo) {
  std::vector<OsUpdate> updates = Earlier();

  const WuRun run = SearchUpdates({.pending = {}, .restartRequired = true}, updates);

  EXPECT_EQ(run.result, kWuNothingToDo);
  EXPECT_EQ(run.pending, 0);
  EXPECT_TRUE(run.restartRequired);
  EXPECT_TRUE(updates.empty());
}

TEST(SimulatedPackages, AreNotFoundWhenTheSearchFails) {
  for (const char* const failure : {"search_failed", "apt_missing"}) {
    std::vector<OsUpdate> updates = Earlier();

    const WuRun run = SearchUpdates({.restartRequired = true, .failure = failure}, updates);

    EXPECT_EQ(run.result, kWuFailed);
    EXPECT_EQ(run.error, failure);
    EXPECT_EQ(run.pending, 0);
    EXPECT_FALSE(run.restartRequired);
    EXPECT_EQ(updates.size(), 1U);
  }
}

TEST(SimulatedPackages, AreInstalledAllTogether) {
  PackageManager packages;
  std::vector<OsUpdate> updates = packages.pending;

  const WuRun run = InstallUpdates(packages, updates);

  EXPECT_EQ(run.result, kWuDone);
  EXPECT_EQ(run.error, "");
  EXPECT_EQ(run.pending, 0);
  EXPECT_TRUE(run.restartRequired);
  EXPECT_TRUE(packages.restartRequired);
  EXPECT_TRUE(packages.pending.empty());
  EXPECT_TRUE(updates.empty());
}

TEST(SimulatedPackages, WantNoRestartWhenNoneOfThemDoes) {
  PackageManager packages = {.pending = Earlier()};
  std::vector<OsUpdate> updates;

  EXPECT_FALSE(InstallUpdates(packages, updates).restartRequired);
  EXPECT_FALSE(packages.restartRequired);
}

TEST(SimulatedPackages, StayPendingWhenTheInstallFails) {
  PackageManager packages = {.failure = "install_failed 100"};
  std::vector<OsUpdate> updates;

  EXPECT_EQ(SearchUpdates(packages, updates).result, kWuDone);
  const WuRun run = InstallUpdates(packages, updates);

  EXPECT_EQ(run.result, kWuFailed);
  EXPECT_EQ(run.error, "install_failed 100");
  EXPECT_EQ(run.pending, 2);
  EXPECT_EQ(updates.size(), 2U);
  EXPECT_FALSE(run.restartRequired);
}

}  // namespace
}  // namespace Tarnvale::KioskService::Simulator

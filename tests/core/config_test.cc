// The defaults.

#include "core/config.h"

#include <gtest/gtest.h>

namespace Tarnvale::KioskService {
namespace {

TEST(ConfigDefaults, AreThoseOfAnInstalledTerminal) {
  const Config config;

  EXPECT_EQ(config.stateDir, "/var/lib/tarnvale-kiosk");
  EXPECT_EQ(config.runDir, "/run/tarnvale");
  EXPECT_EQ(config.socket, "/run/tarnvale/kiosk.sock");
  EXPECT_EQ(config.brandingDir, "/var/cache/tarnvale-kiosk/branding");
  EXPECT_EQ(config.etcDir, "/etc/tarnvale-kiosk");
  EXPECT_EQ(config.authBase, "");
  EXPECT_EQ(config.kioskUser, "tarnvale-kiosk");
  EXPECT_EQ(config.client, "/usr/bin/tarnvale-stream");
  EXPECT_EQ(config.setupTool, "/usr/sbin/tarnvale-kiosk-setup");
  EXPECT_EQ(config.machineIdPath, "/etc/machine-id");
  EXPECT_TRUE(config.localSession);
}

}  // namespace
}  // namespace Tarnvale::KioskService

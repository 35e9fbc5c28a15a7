#include "simulator/terminal_network.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Tarnvale::KioskService::Simulator {
namespace {

constexpr std::uint32_t kAddress = 0xC0000205;  // 192.0.2.5
constexpr std::uint32_t kGateway = 0xC0000201;  // 192.0.2.1

NetChange Fixed(const std::string& adapter) {
  NetChange change = {.adapter = adapter, .dhcp = false, .dns = {}};
  change.ip = kAddress;
  change.prefix = 24;
  change.hasGateway = true;
  change.gateway = kGateway;
  return change;
}

NetChange Automatic(const std::string& adapter) {
  return {.adapter = adapter, .dhcp = true, .dns = {}};
}

TEST(SimulatedNetwork, GivesAnAdapterAFixedAddress) {
  std::vector<Adapter> adapters = FirstAdapters();
  NetChange change = Fixed("eth0");
  change.dns = {kGateway, kAddress};

  EXPECT_EQ(ChangeAdapter(adapters, change), "");

  const Adapter* const adapter = FindAdapter(adapters, "eth0");
  ASSERT_NE(adapter, nullptr);
  EXPECT_EQ(adapter->method, "manual");
  EXPECT_EQ(adapter->address, "192.0.2.5/24");
  EXPECT_EQ(adapter->gateway, "192.0.2.1");
  EXPECT_EQ(adapter->dns, "192.0.2.1 192.0.2.5");
  EXPECT_EQ(DescribeSettings(*adapter),
            "manual, 192.0.2.5/24, gateway 192.0.2.1, DNS 192.0.2.1 192.0.2.5");
}

TEST(SimulatedNetwork, TakesAFixedAddressBack) {
  std::vector<Adapter> adapters = FirstAdapters();
  ASSERT_EQ(ChangeAdapter(adapters, Fixed("eth0")), "");

  EXPECT_EQ(ChangeAdapter(adapters, Automatic("eth0")), "");

  EXPECT_EQ(adapters, FirstAdapters());
  EXPECT_EQ(DescribeSettings(adapters[0]), "auto, DNS automatic");
}

TEST(SimulatedNetwork, ClearsAGatewayThatIsNotWantedAnyMore) {
  std::vector<Adapter> adapters = FirstAdapters();
  ASSERT_EQ(ChangeAdapter(adapters, Fixed("eth0")), "");
  NetChange change = Fixed("eth0");
  change.hasGateway = false;

  EXPECT_EQ(ChangeAdapter(adapters, change), "");

  EXPECT_EQ(adapters[0].gateway, "");
}

TEST(SimulatedNetwork, DoesNotKnowWhatTheNetworkManagerDoesNotHave) {
  const struct {
    const char* reason;
    Adapter adapter;
  } rows[] = {
      {"another name", {.name = "eth1", .profile = "p"}},
      {"another kind", {.name = "eth0", .type = "bridge", .profile = "p"}},
      {"not managed", {.name = "eth0", .managed = false, .profile = "p"}},
  };

  for (const auto& row : rows) {
    std::vector<Adapter> adapters = {row.adapter};
    EXPECT_EQ(ChangeAdapter(adapters, Fixed("eth0")), "unknown_adapter") << row.reason;
    EXPECT_EQ(adapters, std::vector<Adapter>{row.adapter}) << row.reason;
  }
}

TEST(SimulatedNetwork, MakesNoProfileForAWirelessAdapter) {
  std::vector<Adapter> adapters = FirstAdapters();

  EXPECT_EQ(ChangeAdapter(adapters, Fixed("wlan0")), "failed");

  EXPECT_EQ(adapters, FirstAdapters());
}

TEST(SimulatedNetwork, ChangesAWirelessAdapterThatHasAProfile) {
  std::vector<Adapter> adapters = {{.name = "wlan0", .type = "wifi", .profile = "lobby"}};

  EXPECT_EQ(ChangeAdapter(adapters, Fixed("wlan0")), "");

  EXPECT_EQ(adapters[0].method, "manual");
}

TEST(SimulatedNetwork, MakesAProfileForAWiredAdapter) {
  std::vector<Adapter> adapters = {{.name = "eth0"}};

  EXPECT_EQ(ChangeAdapter(adapters, Automatic("eth0")), "");

  EXPECT_EQ(adapters[0].profile, "Tarnvale eth0");
}

TEST(SimulatedNetwork, KeepsTheNewSettingsOfAnAdapterThatDoesNotConnect) {
  std::vector<Adapter> adapters = FirstAdapters();
  adapters[0].connects = false;

  EXPECT_EQ(ChangeAdapter(adapters, Fixed("eth0")), "failed");

  EXPECT_EQ(adapters[0].method, "manual");
}

}  // namespace
}  // namespace Tarnvale::KioskService::Simulator

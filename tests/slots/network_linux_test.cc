#include "device/network_linux.h"

#include <stdlib.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "slots/support/recorder.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kId[] = "5f2f6b1e-3c1d-4f4b-9a53-5d6f1f6a2c11";

constexpr char kAsk[] = "systemctl [is-active] [--quiet] [NetworkManager.service]\n";
constexpr char kQuery[] =
    "nmcli [-t] [-f] [GENERAL.TYPE,GENERAL.STATE,GENERAL.CON-UUID] [device] [show] [eth0]\n";
constexpr char kAdd[] =
    "nmcli [-t] [-g] [connection.uuid] [connection] [add] [type] [ethernet] [ifname] [eth0] "
    "[con-name] [Tarnvale eth0]\n";
constexpr char kLookup[] =
    "nmcli [-t] [-g] [connection.uuid] [connection] [show] [Tarnvale eth0]\n";
constexpr char kModifyAutomatic[] =
    "nmcli [connection] [modify] [5f2f6b1e-3c1d-4f4b-9a53-5d6f1f6a2c11] [ipv4.method] [auto] "
    "[ipv4.addresses] [] [ipv4.gateway] [] [ipv4.dns] [] [ipv4.ignore-auto-dns] [no]\n";
constexpr char kUp[] =
    "nmcli [connection] [up] [5f2f6b1e-3c1d-4f4b-9a53-5d6f1f6a2c11] [ifname] [eth0]\n";

// The shell lines with which an adapter tells what it is.
std::string Shows(const std::string& type, const std::string& state, const std::string& id) {
  return "echo 'GENERAL.TYPE:" + type + "'; echo 'GENERAL.STATE:" + state +
         "'; echo 'GENERAL.CON-UUID:" + id + "'";
}

// What each nmcli does, in shell lines. A wired adapter with an active profile, when nothing else
// is said.
struct Nmcli {
  std::string query = Shows("ethernet", "100 (connected)", kId);
  std::string add = ":";
  std::string lookup = "echo " + std::string(kId);
  std::string modify = ":";
  std::string up = ":";
};

class ApplyNetworkTest : public RecordedToolTest {
 protected:
  ApplyNetworkTest() {
    Replace("systemctl");
    ReplaceNmcli({});
  }

  void ReplaceNmcli(const Nmcli& nmcli) {
    Replace("nmcli", "case \"$*\" in\n*'device show'*)\n" + nmcli.query +
                         "\n;;\n*'connection add'*)\n" + nmcli.add +
                         "\n;;\n*'connection show'*)\n" + nmcli.lookup +
                         "\n;;\n*'connection modify'*)\n" + nmcli.modify +
                         "\n;;\n*'connection up'*)\n" + nmcli.up + "\n;;\nesac");
  }

  // Lets an nmcli that hangs run into its time-out.
  std::string ApplyPastDeadline(std::int64_t passingMs, const Nmcli& nmcli) {
    ReplaceNmcli(nmcli);
    return PassDeadline(passingMs, [this] { return ApplyNetwork(change); });
  }

  // One line of all calls, the first being 0.
  std::string CallAt(std::size_t number) {
    std::string calls = Calls();
    for (; number > 0; --number)
      calls.erase(0, calls.find('\n') + 1);
    return calls.substr(0, calls.find('\n') + 1);
  }

  NetChange change = [] {
    NetChange automatic;
    automatic.adapter = "eth0";
    return automatic;
  }();
};

NetChange Fixed() {
  return {.adapter = "eth0",
          .dhcp = false,
          .ip = 0x0A000007,
          .netmask = 0xFFFFFF00,
          .prefix = 24,
          .hasGateway = true,
          .gateway = 0x0A000001,
          .dns = {0x09090909, 0x01010101}};
}

TEST_F(ApplyNetworkTest, ChangesAndActivatesTheProfileOfTheAdapter) {
  EXPECT_EQ(ApplyNetwork(change), "");

  EXPECT_EQ(Calls(), std::string(kAsk) + kQuery + kModifyAutomatic + kUp);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(ApplyNetworkTest, ChangesAWirelessAdapterWithAProfileToo) {
  ReplaceNmcli({.query = Shows("wifi", "100 (connected)", kId)});

  EXPECT_EQ(ApplyNetwork(change), "");

  EXPECT_EQ(Calls(), std::string(kAsk) + kQuery + kModifyAutomatic + kUp);
}

TEST_F(ApplyNetworkTest, SetsAFixedAddress) {
  change = Fixed();

  EXPECT_EQ(ApplyNetwork(change), "");

  EXPECT_EQ(CallAt(2), std::string("nmcli [connection] [modify] [") + kId +
                           "] [ipv4.method] [manual] [ipv4.addresses] [10.0.0.7/24] "
                           "[ipv4.gateway] [10.0.0.1] [ipv4.dns] [9.9.9.9 1.1.1.1] "
                           "[ipv4.ignore-auto-dns] [yes]\n");
}

TEST_F(ApplyNetworkTest, ClearsTheGatewayAndTheServersThatAFixedAddressLacks) {
  change = Fixed();
  change.prefix = 32;
  change.hasGateway = false;
  change.dns.clear();

  EXPECT_EQ(ApplyNetwork(change), "");

  EXPECT_EQ(CallAt(2), std::string("nmcli [connection] [modify] [") + kId +
                           "] [ipv4.method] [manual] [ipv4.addresses] [10.0.0.7/32] "
                           "[ipv4.gateway] [] [ipv4.dns] [] [ipv4.ignore-auto-dns] [no]\n");
}

TEST_F(ApplyNetworkTest, SetsNameServersWithAutomaticAddressing) {
  change.dns = {0x09090909};
  // Fields that count for a fixed address alone.
  change.ip = 0x0A000007;
  change.prefix = 24;
  change.hasGateway = true;
  change.gateway = 0x0A000001;

  EXPECT_EQ(ApplyNetwork(change), "");

  EXPECT_EQ(CallAt(2), std::string("nmcli [connection] [modify] [") + kId +
                           "] [ipv4.method] [auto] [ipv4.addresses] [] [ipv4.gateway] [] "
                           "[ipv4.dns] [9.9.9.9] [ipv4.ignore-auto-dns] [yes]\n");
}

TEST_F(ApplyNetworkTest, MakesAProfileForAWiredAdapterWithoutOne) {
  ReplaceNmcli({.query = Shows("ethernet", "30 (disconnected)", ""),
                .add = "echo 'Connection added.'",
                .lookup = "echo; echo ' " + std::string(kId) + " '"});

  EXPECT_EQ(ApplyNetwork(change), "");

  EXPECT_EQ(Calls(), std::string(kAsk) + kQuery + kAdd + kLookup + kModifyAutomatic + kUp);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(ApplyNetworkTest, MakesAProfileWhenTheAdapterTellsNone) {
  ReplaceNmcli({.query = "echo GENERAL.TYPE:ethernet"});

  EXPECT_EQ(ApplyNetwork(change), "");

  EXPECT_EQ(Calls(), std::string(kAsk) + kQuery + kAdd + kLookup + kModifyAutomatic + kUp);
}

TEST_F(ApplyNetworkTest, TakesTheIdOfANewProfileWhateverTheStatusOfTheLookup) {
  ReplaceNmcli({.query = Shows("ethernet", "30 (disconnected)", ""),
                .lookup = "echo " + std::string(kId) + "; exit 10"});

  EXPECT_EQ(ApplyNetwork(change), "");

  EXPECT_EQ(Calls(), std::string(kAsk) + kQuery + kAdd + kLookup + kModifyAutomatic + kUp);
}

TEST_F(ApplyNetworkTest, GivesNmcliNothingButTheLocale) {
  ASSERT_EQ(::clearenv(), 0);
  ASSERT_EQ(::setenv("OWN", "1", 1), 0);
  const std::string look =
      "cat /proc/$$/environ >> $here/environ; [ -e /proc/$$/fd/3 ] && echo open >> $here/status\n";
  ReplaceNmcli({.query = look + Shows("ethernet", "30 (disconnected)", ""),
                .add = look + ":",
                .lookup = look + "echo " + kId,
                .modify = look + ":",
                .up = look + ":"});

  EXPECT_EQ(ApplyNetwork(change), "");

  const std::string one("OWN=1\0LC_ALL=C\0", 15);
  EXPECT_EQ(ReadText(directory.At("environ")), one + one + one + one + one);
  EXPECT_FALSE(Exists(directory.At("status")));
}

constexpr char kNotRunning[] =
    "<4>net: NetworkManager is not running; eth0 cannot be changed from the terminal\n";

TEST_F(ApplyNetworkTest, NeedsNmcli) {
  std::filesystem::remove("/usr/sbin/nmcli");
  std::filesystem::remove("/usr/bin/nmcli");

  EXPECT_EQ(ApplyNetwork(change), "unknown_adapter");

  EXPECT_EQ(log.Text(), kNotRunning);
  EXPECT_EQ(Calls(), "");
}

TEST_F(ApplyNetworkTest, NeedsARunningNetworkManager) {
  Replace("systemctl", "exit 3");

  EXPECT_EQ(ApplyNetwork(change), "unknown_adapter");

  EXPECT_EQ(log.Text(), kNotRunning);
  EXPECT_EQ(Calls(), kAsk);
}

TEST_F(ApplyNetworkTest, KnowsNoAdapterThatNmcliDoesNotKnow) {
  ReplaceNmcli({.query = Shows("ethernet", "100 (connected)", kId) + "; exit 10"});

  EXPECT_EQ(ApplyNetwork(change), "unknown_adapter");

  EXPECT_EQ(Calls(), std::string(kAsk) + kQuery);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(ApplyNetworkTest, KnowsNoAdapterOfAnotherType) {
  for (const std::string type :
       {"", "bridge", "loopback", "802-3-ethernet", "Ethernet", "ethernet ", "wifi-p2p", "gsm"}) {
    ReplaceNmcli({.query = Shows(type, "10 (unmanaged)", kId)});

    EXPECT_EQ(ApplyNetwork(change), "unknown_adapter") << type;
  }
  ReplaceNmcli({.query = ":"});
  EXPECT_EQ(ApplyNetwork(change), "unknown_adapter");

  EXPECT_EQ(log.Text(), "");
  EXPECT_EQ(Calls().find("[connection]"), std::string::npos);
}

TEST_F(ApplyNetworkTest, LeavesAnUnmanagedAdapterAlone) {
  for (const std::string state : {"10 (unmanaged)", "unmanaged", "10 (externally-unmanaged) x"}) {
    for (const std::string type : {"ethernet", "wifi"}) {
      ReplaceNmcli({.query = Shows(type, state, kId)});
      log.Clear();

      EXPECT_EQ(ApplyNetwork(change), "unknown_adapter") << state;

      EXPECT_EQ(log.Text(), "<4>net: eth0 is not managed by NetworkManager\n");
    }
  }
  EXPECT_EQ(Calls().find("[connection]"), std::string::npos);
}

TEST_F(ApplyNetworkTest, MakesNoProfileForAWirelessAdapter) {
  ReplaceNmcli({.query = Shows("wifi", "30 (disconnected)", "")});

  EXPECT_EQ(ApplyNetwork(change), "failed");

  EXPECT_EQ(Calls(), std::string(kAsk) + kQuery);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(ApplyNetworkTest, EndsWhenNoProfileCanBeMade) {
  ReplaceNmcli({.query = Shows("ethernet", "30 (disconnected)", ""),
                .add = "echo 'Error: no room' >&2; echo; exit 1"});

  EXPECT_EQ(ApplyNetwork(change), "failed");

  EXPECT_EQ(Calls(), std::string(kAsk) + kQuery + kAdd);
  EXPECT_EQ(log.Text(), "<3>net: cannot create a connection for eth0: Error: no room\n");
}

TEST_F(ApplyNetworkTest, EndsSilentlyWhenTheNewProfileIsNotFound) {
  ReplaceNmcli({.query = Shows("ethernet", "30 (disconnected)", ""), .lookup = "echo ' '"});

  EXPECT_EQ(ApplyNetwork(change), "failed");

  EXPECT_EQ(Calls(), std::string(kAsk) + kQuery + kAdd + kLookup);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(ApplyNetworkTest, DoesNotActivateWhatItCouldNotChange) {
  ReplaceNmcli({.modify = "echo; echo 'Error: bad value' >&2; exit 2"});

  EXPECT_EQ(ApplyNetwork(change), "failed");

  EXPECT_EQ(Calls(), std::string(kAsk) + kQuery + kModifyAutomatic);
  EXPECT_EQ(log.Text(), "<3>net: nmcli modify failed: Error: bad value\n");
}

TEST_F(ApplyNetworkTest, TellsThatTheProfileCannotBeActivated) {
  ReplaceNmcli({.up = "echo 'Error: no carrier'; exit 4"});

  EXPECT_EQ(ApplyNetwork(change), "failed");

  EXPECT_EQ(Calls(), std::string(kAsk) + kQuery + kModifyAutomatic + kUp);
  EXPECT_EQ(log.Text(), "<3>net: nmcli up failed: Error: no carrier\n");
}

TEST_F(ApplyNetworkTest, CountsADeathBySignalAsAFailure) {
  ReplaceNmcli({.up = "kill -KILL $$"});

  EXPECT_EQ(ApplyNetwork(change), "failed");

  EXPECT_EQ(log.Text(), "<3>net: nmcli up failed: \n");
}

std::string Stopped(const std::string& tool, const std::string& seconds) {
  return "<3>/usr/sbin/" + tool + " did not finish in " + seconds + " s; stopped\n";
}

TEST_F(ApplyNetworkTest, AsksForTheNetworkManagerForTenSeconds) {
  Replace("systemctl", kHang);

  EXPECT_EQ(PassDeadline(10'000, [this] { return ApplyNetwork(change); }), "unknown_adapter");

  EXPECT_EQ(log.Text(), Stopped("systemctl", "10") + kNotRunning);
}

TEST_F(ApplyNetworkTest, AsksForTheAdapterForFifteenSeconds) {
  EXPECT_EQ(ApplyPastDeadline(15'000, {.query = kHang}), "unknown_adapter");

  EXPECT_EQ(log.Text(), Stopped("nmcli", "15"));
}

TEST_F(ApplyNetworkTest, GivesANewProfileThirtySeconds) {
  EXPECT_EQ(ApplyPastDeadline(30'000,
                              {.query = Shows("ethernet", "30 (disconnected)", ""), .add = kHang}),
            "failed");

  EXPECT_EQ(log.Text(), Stopped("nmcli", "30") + "<3>net: cannot create a connection for eth0: \n");
}

TEST_F(ApplyNetworkTest, LooksANewProfileUpForFifteenSeconds) {
  EXPECT_EQ(ApplyPastDeadline(
                15'000, {.query = Shows("ethernet", "30 (disconnected)", ""), .lookup = kHang}),
            "failed");

  EXPECT_EQ(log.Text(), Stopped("nmcli", "15"));
}

TEST_F(ApplyNetworkTest, GivesAChangeThirtySeconds) {
  EXPECT_EQ(ApplyPastDeadline(30'000, {.modify = kHang}), "failed");

  EXPECT_EQ(log.Text(), Stopped("nmcli", "30") + "<3>net: nmcli modify failed: \n");
}

TEST_F(ApplyNetworkTest, GivesAnActivationNinetySeconds) {
  EXPECT_EQ(ApplyPastDeadline(90'000, {.up = kHang}), "failed");

  EXPECT_EQ(log.Text(), Stopped("nmcli", "90") + "<3>net: nmcli up failed: \n");
}

TEST_F(ApplyNetworkTest, PassesAnAdapterOnAsOneArgumentWhateverItsBytes) {
  change.adapter = "-a.b@c_d";
  ReplaceNmcli({.query = Shows("ethernet", "30 (disconnected)", "")});

  EXPECT_EQ(ApplyNetwork(change), "");

  EXPECT_NE(Calls().find("[device] [show] [-a.b@c_d]\n"), std::string::npos);
  EXPECT_NE(Calls().find("[ifname] [-a.b@c_d] [con-name] [Tarnvale -a.b@c_d]\n"),
            std::string::npos);
  EXPECT_NE(Calls().find("] [ifname] [-a.b@c_d]\n"), std::string::npos);
}

}  // namespace
}  // namespace Tarnvale::KioskService

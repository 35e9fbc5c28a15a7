#include "device/nmcli_output.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace Tarnvale::KioskService {
namespace {

using std::string_literals::operator""s;

struct Row {
  std::string output;
  std::string type;
  std::string state;
  std::string connectionId;
};

void ExpectRows(const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    const DeviceState device = ParseDeviceState(row.output);

    EXPECT_EQ(device.type, row.type) << row.output;
    EXPECT_EQ(device.state, row.state) << row.output;
    EXPECT_EQ(device.connectionId, row.connectionId) << row.output;
  }
}

constexpr char kId[] = "5f2f6b1e-3c1d-4f4b-9a53-5d6f1f6a2c11";

TEST(ParseDeviceState, ReadsItsThreeFields) {
  ExpectRows({
      {"GENERAL.TYPE:ethernet\n", "ethernet", "", ""},
      {"GENERAL.STATE:a\\:b:c\n", "", "a:b", ""},
      {"Error: no such device\n", "", "", ""},
      {"", "", "", ""},
      {"GENERAL.CON-UUID:"s + kId, "", "", kId},
      {"GENERAL.TYPE:wifi\nGENERAL.STATE:30 (disconnected)\nGENERAL.CON-UUID:\n", "wifi",
       "30 (disconnected)", ""},
  });
}

// Written by hand in the shape of nmcli's terse output, which leaves a value empty where its long
// output has "--".
TEST(ParseDeviceState, ReadsWhatAdaptersOfAllSortsShow) {
  ExpectRows({
      {"GENERAL.TYPE:ethernet\nGENERAL.STATE:100 (connected)\nGENERAL.CON-UUID:"s + kId + "\n",
       "ethernet", "100 (connected)", kId},
      {"GENERAL.TYPE:ethernet\nGENERAL.STATE:20 (unavailable)\nGENERAL.CON-UUID:\n", "ethernet",
       "20 (unavailable)", ""},
      {"GENERAL.TYPE:ethernet\nGENERAL.STATE:10 (unmanaged)\nGENERAL.CON-UUID:\n", "ethernet",
       "10 (unmanaged)", ""},
      {"GENERAL.TYPE:loopback\nGENERAL.STATE:100 (connected (externally))\nGENERAL.CON-UUID:"s +
           kId + "\n",
       "loopback", "100 (connected (externally))", kId},
  });
}

TEST(ParseDeviceState, PassesOverEverythingElse) {
  ExpectRows({
      {"GENERAL.TYPE\nGENERAL.STATE\nGENERAL.CON-UUID\n", "", "", ""},
      {" GENERAL.TYPE:ethernet\n", "", "", ""},
      {"general.type:ethernet\n", "", "", ""},
      {"GENERAL.TYPE2:ethernet\nXGENERAL.TYPE:ethernet\n", "", "", ""},
      {"GENERAL.DEVICE:eth0\nGENERAL.TYPE:ethernet\nIP4.ADDRESS[1]:10.0.0.7/24\n", "ethernet", "",
       ""},
      {"Warning: something\n\n\nGENERAL.TYPE:ethernet", "ethernet", "", ""},
      {"\nGENERAL.TYPE\\:x:wifi\n", "", "", ""},
  });
}

TEST(ParseDeviceState, KeepsAValueAsItStands) {
  ExpectRows({
      {"GENERAL.TYPE: ethernet \n", " ethernet ", "", ""},
      {"GENERAL.TYPE:ethernet\r\n", "ethernet\r", "", ""},
      {"GENERAL.TYPE:ethernet:more\n", "ethernet", "", ""},
      {"GENERAL.TYPE:e\0t\xff\n"s, "e\0t\xff"s, "", ""},
      {"GENERAL\\.TYPE:ethernet\n", "ethernet", "", ""},
  });
}

TEST(ParseDeviceState, LetsTheLastOfTwoStand) {
  ExpectRows({
      {"GENERAL.TYPE:ethernet\nGENERAL.TYPE:wifi\n", "wifi", "", ""},
      {"GENERAL.TYPE:ethernet\nGENERAL.TYPE:\n", "", "", ""},
  });
}

TEST(ParseDeviceState, TakesAnyBytes) {
  const std::string real =
      "GENERAL.TYPE:ethernet\nGENERAL.STATE:100 (connected)\nGENERAL.CON-UUID:"s + kId + "\n";
  constexpr std::string_view kBytes = ":\\\n.G";
  std::mt19937 generator(3);

  for (int round = 0; round < 20'000; ++round) {
    std::string output = real.substr(generator() % real.size());
    for (int change = 0; change < 8 && !output.empty(); ++change) {
      const std::size_t place = generator() % output.size();
      switch (generator() % 3) {
        case 0:
          output[place] = static_cast<char>(generator());
          break;
        case 1:
          output.insert(place, 1, kBytes[generator() % kBytes.size()]);
          break;
        default:
          output.erase(place, 1 + generator() % 4);
          break;
      }
    }
    const DeviceState device = ParseDeviceState(output);

    // Nothing is made up, and no value reaches beyond its line.
    for (const std::string& value : {device.type, device.state, device.connectionId}) {
      ASSERT_LE(value.size(), output.size()) << output;
      ASSERT_EQ(value.find('\n'), std::string::npos) << output;
    }
  }
}

TEST(ParseDeviceState, TakesLongOutput) {
  constexpr std::size_t kBytes = 1'000'000;

  EXPECT_EQ(ParseDeviceState(std::string(kBytes, '\n') + "GENERAL.TYPE:wifi").type, "wifi");
  EXPECT_EQ(ParseDeviceState("GENERAL.TYPE:" + std::string(kBytes, 'x')).type.size(), kBytes);
}

}  // namespace
}  // namespace Tarnvale::KioskService

#include "device/network.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/other_thread.h"
#include "support/service_test.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kAutomatic[] = R"({"adapter":"eth0","mode":"dhcp"})";
constexpr char kFixed[] =
    R"({"adapter":"eth0","mode":"static","ip":"10.0.0.7","prefix":24,"gateway":"10.0.0.1"})";
constexpr char kFixedWithoutGateway[] =
    R"({"adapter":"eth0","mode":"static","ip":"10.0.0.7","prefix":24})";

Json Value(const std::string& text) {
  const std::optional<Json> value = Json::Parse(text);
  EXPECT_TRUE(value.has_value()) << text;
  return value.value_or(Json());
}

// The request with one member more, or another one in its place.
Json With(const std::string& request, const std::string& member, const std::string& value) {
  Json changed = Value(request);
  changed.Set(member, Value(value));
  return changed;
}

Json Without(const std::string& request, const std::string& member) {
  const Json whole = Value(request);
  Json rest = Json::Object();
  for (const std::string& key : whole.keys) {
    if (key != member) rest.Set(key, whole.Get(key));
  }
  return rest;
}

// The member that is refused; empty when none is.
std::string RefusedMember(const Json& request) {
  NetChange change;
  std::string field;
  return ParseNetChange(request, change, field) ? "" : field;
}

NetChange Parsed(const Json& request) {
  NetChange change;
  std::string field;
  EXPECT_TRUE(ParseNetChange(request, change, field)) << field;
  return change;
}

struct MemberTable {
  std::string request;
  std::string member;
  std::vector<std::string> accepted;
  std::vector<std::string> refused;
};

void ExpectMember(const MemberTable& table) {
  for (const std::string& value : table.accepted) {
    EXPECT_EQ(RefusedMember(With(table.request, table.member, value)), "") << value;
  }
  for (const std::string& value : table.refused) {
    EXPECT_EQ(RefusedMember(With(table.request, table.member, value)), table.member) << value;
  }
}

TEST(ParseNetChange, ReadsAutomaticAndFixedAddressing) {
  EXPECT_EQ(RefusedMember(Value(R"({"adapter":"eth0","mode":"dhcp"})")), "");
  EXPECT_EQ(
      RefusedMember(Value(R"({"adapter":"eth0","mode":"static","ip":"10.0.0.255","prefix":24})")),
      "ip");
  EXPECT_EQ(
      RefusedMember(Value(R"({"adapter":"eth0","mode":"static","ip":"10.0.0.7","prefix":"24"})")),
      "prefix");
}

TEST(ParseNetChange, TakesNamesThatTheKernelMayGiveAdapters) {
  ExpectMember({.request = kAutomatic,
                .member = "adapter",
                .accepted = {R"("e")", R"("eth0")", R"("enp0s31f6")", R"("abcdefghijklmno")",
                             R"("eth0.100")", R"("veth@if2")", R"("wl_1-x")", R"("AZaz09")",
                             R"("...")", R"("..a")", R"(".a")", R"("-")"},
                .refused = {R"("")",          R"("abcdefghijklmnop")",
                            R"(".")",         R"("..")",
                            R"("a/b")",       R"("/")",
                            R"("a b")",       R"(" eth0")",
                            R"("eth0\n")",    R"("a:b")",
                            R"("a;b")",       R"("a\\b")",
                            R"("a\"b")",      R"("$a")",
                            R"("\u0000")",    R"("eth0\u0000")",
                            R"("\u00e9th0")", R"("a+b")",
                            "null",           "5",
                            "true",           R"(["eth0"])",
                            R"({"a":"eth0"})"}});
  EXPECT_EQ(RefusedMember(Without(kAutomatic, "adapter")), "adapter");
}

TEST(ParseNetChange, KnowsTwoModes) {
  ExpectMember({.request = kFixed,
                .member = "mode",
                .accepted = {R"("dhcp")", R"("static")"},
                .refused = {R"("")", R"("DHCP")", R"("Static")", R"("static ")", R"(" dhcp")",
                            R"("dhcp\u0000")", R"("manual")", R"("auto")", "null", "0", "1", "true",
                            R"(["dhcp"])", "{}"}});
  EXPECT_EQ(RefusedMember(Without(kFixed, "mode")), "mode");
}

TEST(ParseNetChange, TakesUpToFourNameServersInBothModes) {
  for (const char* const request : {kAutomatic, kFixed}) {
    ExpectMember(
        {.request = request,
         .member = "dns",
         .accepted = {"null", "[]", R"(["1.0.0.0"])", R"(["223.255.255.255"])",
                      R"(["126.255.255.255","128.0.0.0"])", R"(["1.1.1.1","1.1.1.2","1.1.1.3"])",
                      R"(["4.4.4.4","3.3.3.3","2.2.2.2","1.1.1.1"])"},
         .refused = {R"(["1.1.1.1","1.1.1.2","1.1.1.3","1.1.1.4","1.1.1.5"])",
                     R"(["1.1.1.1","1.1.1.1"])",
                     R"(["1.1.1.1","1.1.1.2","1.1.1.1"])",
                     R"(["127.0.0.1"])",
                     R"(["127.255.255.255"])",
                     R"(["0.1.2.3"])",
                     R"(["0.255.255.255"])",
                     R"(["224.0.0.1"])",
                     R"(["240.0.0.1"])",
                     R"(["255.255.255.255"])",
                     R"(["1.1.010.1"])",
                     R"([""])",
                     R"([" 1.1.1.1"])",
                     R"(["1.1.1.1 1.1.1.2"])",
                     R"(["::1"])",
                     "[null]",
                     "[16843009]",
                     "[true]",
                     R"([["1.1.1.1"]])",
                     R"(["1.1.1.1",null])",
                     R"("1.1.1.1")",
                     R"("")",
                     "5",
                     "true",
                     "false",
                     "{}",
                     R"({"0":"1.1.1.1"})"}});
  }
}

TEST(ParseNetChange, TakesAPlainAddress) {
  ExpectMember(
      {.request = kFixedWithoutGateway,
       .member = "ip",
       .accepted = {R"("10.0.0.1")", R"("10.0.0.254")", R"("1.0.0.1")", R"("223.255.255.254")",
                    R"("126.0.0.1")", R"("128.0.0.1")", R"("192.168.0.7")"},
       .refused = {R"("")", R"("127.0.0.1")", R"("0.1.2.3")", R"("224.0.0.1")", R"("255.0.0.1")",
                   R"("10.0.0.0")", R"("10.0.0.255")", R"("10.0.010.7")", R"("10.0.0")",
                   R"("10.0.0.7/24")", R"("::1")", "null", "7", "true", R"(["10.0.0.7"])", "{}"}});
  EXPECT_EQ(RefusedMember(Without(kFixedWithoutGateway, "ip")), "ip");
  EXPECT_EQ(RefusedMember(With(kFixedWithoutGateway, "ip", R"("10.0.0.7")")), "");
}

TEST(ParseNetChange, TakesAWholePrefix) {
  ExpectMember({.request = kFixedWithoutGateway,
                .member = "prefix",
                .accepted = {"1", "2", "8", "24", "24.0", "28", "31", "32"},
                .refused = {"0", "33", "-1", "24.5", "0.9", "32.1", "1e300", "1e999", "4294967297",
                            R"("24")", R"("")", "null", "true", "[24]", "{}"}});
  EXPECT_EQ(RefusedMember(Without(kFixedWithoutGateway, "prefix")), "prefix");
}

struct HostRow {
  const char* ip;
  int prefix;
  const char* refused;
};

TEST(ParseNetChange, RefusesTheFirstAndTheLastAddressOfASubnetUpToThirtyBits) {
  const HostRow rows[] = {
      {"10.0.0.0", 24, "ip"},   {"10.0.0.1", 24, ""},        {"10.0.0.254", 24, ""},
      {"10.0.0.255", 24, "ip"}, {"10.0.0.255", 23, ""},      {"10.0.1.0", 23, ""},
      {"10.0.1.255", 23, "ip"}, {"10.0.0.4", 30, "ip"},      {"10.0.0.5", 30, ""},
      {"10.0.0.6", 30, ""},     {"10.0.0.7", 30, "ip"},      {"10.0.0.0", 31, ""},
      {"10.0.0.255", 31, ""},   {"10.0.0.0", 32, ""},        {"10.0.0.255", 32, ""},
      {"10.0.0.0", 8, "ip"},    {"10.255.255.255", 8, "ip"}, {"10.0.255.255", 8, ""},
      {"128.0.0.0", 1, "ip"},   {"128.0.0.1", 1, ""},        {"1.2.3.4", 1, ""},
  };

  for (const HostRow& row : rows) {
    Json request = Value(kFixedWithoutGateway);
    request.Set("ip", row.ip);
    request.Set("prefix", row.prefix);

    EXPECT_EQ(RefusedMember(request), row.refused) << row.ip << "/" << row.prefix;
  }
}

TEST(ParseNetChange, TakesAGatewayInTheSubnetOrNone) {
  ExpectMember({.request = kFixed,
                .member = "gateway",
                .accepted = {"null", R"("")", R"("10.0.0.1")", R"("10.0.0.254")", R"("10.0.0.6")"},
                .refused = {R"("10.0.0.7")", R"("10.0.1.1")", R"("11.0.0.1")", R"("10.0.0.0")",
                            R"("10.0.0.255")", R"("127.0.0.1")", R"("0.1.2.3")", R"("224.0.0.1")",
                            R"("10.0.0.01")", R"(" ")", R"("none")", "0", "1", "false", "true",
                            "[]", R"(["10.0.0.1"])", "{}"}});
  EXPECT_FALSE(Parsed(With(kFixed, "gateway", "null")).hasGateway);
  EXPECT_FALSE(Parsed(With(kFixed, "gateway", R"("")")).hasGateway);
  EXPECT_FALSE(Parsed(Without(kFixed, "gateway")).hasGateway);
}

// In a subnet that the loopback or multicast shares, these are refused for what they are.
TEST(ParseNetChange, RefusesAGatewayThatNoHostMayHave) {
  for (const char* const gateway : {"127.0.0.1", "0.1.2.3"}) {
    Json request = Value(R"({"adapter":"eth0","mode":"static","ip":"1.2.3.4","prefix":1})");
    request.Set("gateway", gateway);
    EXPECT_EQ(RefusedMember(request), "gateway") << gateway;
  }
  Json request = Value(R"({"adapter":"eth0","mode":"static","ip":"200.2.3.4","prefix":1})");
  request.Set("gateway", "224.0.0.1");
  EXPECT_EQ(RefusedMember(request), "gateway");
}

TEST(ParseNetChange, TestsAGatewayByThePrefix) {
  struct Row {
    int prefix;
    const char* gateway;
    const char* refused;
  };
  const Row rows[] = {
      {32, "\"10.0.0.1\"", "gateway"},
      {32, "\"10.0.0.7\"", "gateway"},
      {32, "null", ""},
      {31, "\"10.0.0.6\"", ""},
      {31, "\"10.0.0.7\"", "gateway"},
      {31, "\"10.0.0.8\"", "gateway"},
      {23, "\"10.0.0.255\"", ""},
      {23, "\"10.0.1.255\"", "gateway"},
      {23, "\"10.0.0.0\"", "gateway"},
      {8, "\"10.9.9.9\"", ""},
      {8, "\"11.0.0.1\"", "gateway"},
  };

  for (const Row& row : rows) {
    Json request = With(kFixed, "gateway", row.gateway);
    request.Set("prefix", row.prefix);

    EXPECT_EQ(RefusedMember(request), row.refused) << row.gateway << " /" << row.prefix;
  }
}

TEST(ParseNetChange, FillsTheChange) {
  const Json request = With(kFixed, "dns", R"(["9.9.9.9","1.1.1.1"])");

  const NetChange change = Parsed(request);

  EXPECT_EQ(change.adapter, "eth0");
  EXPECT_FALSE(change.dhcp);
  EXPECT_EQ(change.ip, 0x0A000007U);
  EXPECT_EQ(change.prefix, 24);
  EXPECT_EQ(change.netmask, 0xFFFFFF00U);
  EXPECT_TRUE(change.hasGateway);
  EXPECT_EQ(change.gateway, 0x0A000001U);
  EXPECT_EQ(change.dns, (std::vector<std::uint32_t>{0x09090909, 0x01010101}));
}

TEST(ParseNetChange, MakesTheMaskFromThePrefix) {
  for (int prefix = 1; prefix <= 32; ++prefix) {
    Json request = Value(kFixedWithoutGateway);
    request.Set("prefix", prefix);
    request.Set("ip", prefix <= 29 ? "10.85.85.82" : "10.85.85.81");

    const std::uint64_t hosts = std::uint64_t{1} << (32 - prefix);

    EXPECT_EQ(Parsed(request).netmask, 0x100000000U - hosts) << prefix;
  }
}

TEST(ParseNetChange, LooksAtNothingElseForAutomaticAddressing) {
  Json request = Value(kAutomatic);
  request.Set("ip", "rubbish");
  request.Set("prefix", "many");
  request.Set("gateway", 5);

  const NetChange change = Parsed(request);

  EXPECT_TRUE(change.dhcp);
  EXPECT_EQ(change.ip, 0U);
  EXPECT_EQ(change.netmask, 0U);
  EXPECT_EQ(change.prefix, 0);
  EXPECT_FALSE(change.hasGateway);
  EXPECT_EQ(change.gateway, 0U);
}

TEST(ParseNetChange, NamesTheFirstMemberThatIsNotRight) {
  Json request = Value(R"({"adapter":"","mode":"","dns":5,"ip":"","prefix":0,"gateway":5})");
  const struct {
    const char* refused;
    Json mended;
  } steps[] = {
      {"adapter", "eth0"}, {"mode", "static"}, {"dns", Json()},         {"ip", "10.0.0.255"},
      {"prefix", 24},      {"ip", "10.0.0.7"}, {"gateway", "10.0.0.1"}, {"", {}}};

  for (const auto& step : steps) {
    EXPECT_EQ(RefusedMember(request), step.refused);
    request.Set(step.refused, step.mended);
  }
}

TEST(ParseNetChange, LeavesTheChangeAloneWhenItRefuses) {
  NetChange change = {.adapter = "as it was", .dns = {7}};
  std::string field;

  EXPECT_FALSE(ParseNetChange(With(kFixed, "gateway", "5"), change, field));

  EXPECT_EQ(change.adapter, "as it was");
  EXPECT_TRUE(change.dhcp);
  EXPECT_EQ(change.dns, std::vector<std::uint32_t>{7});
}

TEST(ParseNetChange, LeavesTheFieldAloneWhenItAccepts) {
  NetChange change;
  std::string field = "as it was";

  EXPECT_TRUE(ParseNetChange(Value(kAutomatic), change, field));

  EXPECT_EQ(field, "as it was");
}

TEST(ParseNetChange, RefusesWhatIsNoObject) {
  for (const char* const request : {"null", "[]", "5", R"("eth0")", "{}"}) {
    EXPECT_EQ(RefusedMember(Value(request)), "adapter") << request;
  }
}

constexpr char kOk[] = R"({"ok":true})";

class NetSet : public ServiceTest {
 protected:
  // The platform answers every change like this.
  void ChangesEndWith(const std::string& error) {
    ops.applyNetwork = [this, error](const NetChange& change) {
      applied = change;
      return error;
    };
  }

  NetChange applied;
};

TEST_F(NetSet, RefusesWithoutTouchingAnything) {
  EXPECT_EQ(HandleNetSet(With(kFixed, "gateway", "5")), R"({"ok":false,"error":"invalid"})");

  EXPECT_EQ(log.Text(), "<4>net.set refused: invalid gateway\n");
  EXPECT_EQ(calls.Count("applyNetwork"), 0);
}

TEST_F(NetSet, NamesTheMemberThatItRefuses) {
  for (const char* const member : {"adapter", "mode", "dns", "ip", "prefix", "gateway"}) {
    log.Clear();

    (void)HandleNetSet(With(kFixed, member, "[[]]"));

    EXPECT_EQ(log.Text(), "<4>net.set refused: invalid " + std::string(member) + "\n");
  }
}

TEST_F(NetSet, AppliesTheChangeOnATerminalThatIsNotEnrolled) {
  ChangesEndWith("");

  EXPECT_EQ(HandleNetSet(Value(kFixed)), kOk);

  EXPECT_EQ(calls.Count("applyNetwork"), 1);
  EXPECT_EQ(applied.adapter, "eth0");
  EXPECT_EQ(applied.ip, 0x0A000007U);
  EXPECT_FALSE(Exists(config.stateDir + "/state.json")) << "no setting is kept";
}

TEST_F(NetSet, DescribesTheChangeBeforeAndAfter) {
  struct Row {
    Json request;
    const char* description;
  };
  const Row rows[] = {
      {Value(kAutomatic), "automatic (DHCP), DNS automatic"},
      {With(kAutomatic, "dns", R"(["9.9.9.9"])"), "automatic (DHCP), DNS 9.9.9.9"},
      {With(kAutomatic, "dns", "[]"), "automatic (DHCP), DNS automatic"},
      {Value(kFixed), "fixed 10.0.0.7/24 gateway 10.0.0.1, DNS automatic"},
      {With(kFixed, "dns", R"(["9.9.9.9","1.1.1.1"])"),
       "fixed 10.0.0.7/24 gateway 10.0.0.1, DNS 9.9.9.9,1.1.1.1"},
      {Value(kFixedWithoutGateway), "fixed 10.0.0.7/24 no gateway, DNS automatic"},
      {With(kFixedWithoutGateway, "prefix", "32"), "fixed 10.0.0.7/32 no gateway, DNS automatic"},
  };
  ChangesEndWith("");

  for (const Row& row : rows) {
    log.Clear();

    EXPECT_EQ(HandleNetSet(row.request), kOk);

    const std::string description = row.description;
    EXPECT_EQ(log.Text(), "<6>net: eth0: setting " + description + "\n<6>net: eth0 is now " +
                              description + "\n");
  }
}

TEST_F(NetSet, AnswersWithThePlatformsError) {
  for (const std::string error : {"unknown_adapter", "failed"}) {
    ChangesEndWith(error);
    log.Clear();

    EXPECT_EQ(HandleNetSet(Value(kAutomatic)), R"({"ok":false,"error":")" + error + "\"}");

    EXPECT_EQ(log.Text(),
              "<6>net: eth0: setting automatic (DHCP), DNS automatic\n"
              "<3>net: eth0: the change to automatic (DHCP), DNS automatic did not apply (" +
                  error + ")\n");
  }
}

TEST_F(NetSet, LogsItsFirstLineBeforeThePlatformActs) {
  ops.applyNetwork = [this](const NetChange&) {
    EXPECT_EQ(log.Text(), "<6>net: eth0: setting automatic (DHCP), DNS automatic\n");
    return std::string();
  };

  EXPECT_EQ(HandleNetSet(Value(kAutomatic)), kOk);
}

TEST_F(NetSet, WaitsForAnotherChangeAlsoOfAnotherAdapter) {
  std::unique_ptr<OtherThread> second;
  ops.applyNetwork = [&](const NetChange& change) {
    if (change.adapter == "eth1") return std::string("failed");
    second = std::make_unique<OtherThread>(
        [] { return HandleNetSet(With(kAutomatic, "adapter", R"("eth1")")); });
    EXPECT_TRUE(Eventually([&] { return second->IsAtRest(); }));
    EXPECT_EQ(log.Lines().size(), 1U);
    EXPECT_EQ(calls.Count("applyNetwork"), 1);
    return std::string();
  };

  EXPECT_EQ(HandleNetSet(Value(kAutomatic)), kOk);

  EXPECT_EQ(second->Result(), R"({"ok":false,"error":"failed"})");
  EXPECT_EQ(log.Lines(),
            (std::vector<std::string>{
                "<6>net: eth0: setting automatic (DHCP), DNS automatic",
                "<6>net: eth0 is now automatic (DHCP), DNS automatic",
                "<6>net: eth1: setting automatic (DHCP), DNS automatic",
                "<3>net: eth1: the change to automatic (DHCP), DNS automatic did not apply "
                "(failed)"}));
}

TEST_F(NetSet, RefusesWithoutWaitingForAnotherChange) {
  ops.applyNetwork = [](const NetChange&) {
    OtherThread second([] { return HandleNetSet(Without(kAutomatic, "mode")); });
    EXPECT_TRUE(Eventually([&] { return second.IsDone(); }));
    return std::string();
  };

  EXPECT_EQ(HandleNetSet(Value(kAutomatic)), kOk);

  EXPECT_TRUE(log.Has("<4>net.set refused: invalid mode"));
}

TEST_F(NetSet, KeepsTheTwoLinesOfEveryChangeTogether) {
  ChangesEndWith("");
  std::vector<std::unique_ptr<OtherThread>> others;
  for (int number = 0; number < 8; ++number) {
    others.push_back(std::make_unique<OtherThread>([number] {
      return HandleNetSet(With(kAutomatic, "adapter", "\"eth" + std::to_string(number) + "\""));
    }));
  }
  for (const auto& other : others)
    EXPECT_EQ(other->Result(), kOk);

  const std::vector<std::string> lines = log.Lines();
  ASSERT_EQ(lines.size(), 16U);
  for (std::size_t line = 0; line < lines.size(); line += 2) {
    const std::string adapter = lines[line].substr(8, 4);
    EXPECT_EQ(lines[line], "<6>net: " + adapter + ": setting automatic (DHCP), DNS automatic");
    EXPECT_EQ(lines[line + 1], "<6>net: " + adapter + " is now automatic (DHCP), DNS automatic");
  }
}

}  // namespace
}  // namespace Tarnvale::KioskService

#include "device/proxy.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "device/proxy_requests.h"
#include "support/service_test.h"

namespace Tarnvale::KioskService {
namespace {

using std::string_literals::operator""s;

TEST(ParseProxyChange, ReadsTheModeThatIsAskedFor) {
  EXPECT_EQ(Parsed(Value(R"({"mode":"manual","server":"Proxy.example:3128"})")).server,
            "proxy.example:3128");
  EXPECT_EQ(RefusedMember(Value(R"({"mode":"manual","server":"proxy.example"})")), "server");
  EXPECT_EQ(RefusedMember(Value(R"({"mode":"auto","pacUrl":"http://u@host/"})")), "pacUrl");
}

TEST(ParseProxyChange, RefusesEveryOtherMode) {
  for (const char* const mode :
       {R"("NONE")", R"("Manual")", R"("")", R"("none ")", R"(" auto")", R"("none\u0000")",
        R"("direct")", "0", "1", "null", "true", "false", R"(["none"])", R"({"mode":"none"})"}) {
    Json request = Manual(kServer);
    request.Set("pacUrl", "http://proxy.example/");
    request.Set("mode", Value(mode));

    EXPECT_EQ(RefusedMember(request), "mode") << mode;
  }
  for (const char* const request : {"null", "[]", "{}", R"("none")"}) {
    EXPECT_EQ(RefusedMember(Value(request)), "mode") << request;
  }
}

TEST(ParseProxyChange, LooksAtNothingElseWithoutAProxy) {
  const ProxyChange change =
      Parsed(Value(R"({"mode":"none","pacUrl":5,"server":"x:0","bypass":["..",7]})"));

  EXPECT_EQ(change.mode, "none");
  EXPECT_EQ(change.pacUrl, "");
  EXPECT_EQ(change.server, "");
  EXPECT_EQ(change.bypass, Texts{});
}

TEST(ParseProxyChange, LooksAtTheMembersOfItsModeAlone) {
  Json automatic = Automatic("http://proxy.example/wpad.dat");
  automatic.Set("server", kServer);
  automatic.Set("bypass", "..");
  EXPECT_EQ(Parsed(automatic).server, "");
  EXPECT_EQ(Parsed(automatic).bypass, Texts{});

  Json manual = Manual(kServer);
  manual.Set("pacUrl", "http");
  EXPECT_EQ(Parsed(manual).pacUrl, "");
}

TEST(ParseProxyChange, LeavesTheChangeAloneWhenItRefuses) {
  ProxyChange change = {.mode = "as it was", .pacUrl = {}, .server = "s", .bypass = {"b"}};
  std::string field;

  EXPECT_FALSE(ParseProxyChange(ManualWith(5), change, field));

  EXPECT_EQ(change.mode, "as it was");
  EXPECT_EQ(change.server, "s");
  EXPECT_EQ(change.bypass, Texts{"b"});
}

TEST(ParseProxyChangeManual, AcceptsHostsWithAPort) {
  struct Row {
    std::string text;
    std::string expected;
  };
  const Row rows[] = {
      {"proxy.example:3128", "proxy.example:3128"},
      {"PROXY.Example:3128", "proxy.example:3128"},
      {" \tproxy.example:3128\r\n", "proxy.example:3128"},
      {"proxy:1", "proxy:1"},
      {"proxy:65535", "proxy:65535"},
      {"10.0.0.7:8080", "10.0.0.7:8080"},
      {"[::1]:80", "[::1]:80"},
      {"[2001:DB8::ABCD]:3128", "[2001:db8::abcd]:3128"},
      {"[::ffff:10.0.0.7]:80", "[::ffff:10.0.0.7]:80"},
  };

  for (const Row& row : rows) {
    EXPECT_EQ(Parsed(Manual(row.text)).server, row.expected) << row.text;
    EXPECT_EQ(Parsed(Manual(row.text)).mode, "manual");
  }
}

TEST(ParseProxyChangeManual, RefusesEveryOtherText) {
  const std::string rows[] = {
      "",
      "   ",
      "proxy.example",
      "proxy.example:",
      "proxy.example:0",
      "proxy.example:65536",
      "proxy.example:03128",
      "proxy.example:3128/",
      "proxy.example: 3128",
      "proxy.example :3128",
      "proxy.example:-1",
      "proxy.example:x",
      "http://proxy.example:3128",
      "https://proxy.example:3128",
      "http:proxy.example:3128",
      "user@proxy.example:3128",
      "user:secret@proxy.example:3128",
      ":3128",
      ":",
      "3128",
      "a:b:3128",
      "::1:3128",
      "10.0.0.256:80",
      "1.2.3:80",
      "7:80",
      "[::1]",
      "[::1]:",
      "[::1]:0",
      "[::1]:080",
      "[::1]80",
      "[::1]x:80",
      "[::1:80",
      "[]:80",
      "[:80",
      "[",
      "]:80",
      "[proxy.example]:80",
      "[10.0.0.7]:80",
      "[::1]:80:80",
      "[[::1]]:80",
      "-proxy:80",
      "proxy-:80",
      "proxy..example:80",
      ".proxy:80",
      "proxy.:80",
      "proxy_1:80",
      "proxy\":80",
      "proxy;:80",
      "proxy\n:80",
      "proxy:80\nx",
      "proxy:80\"",
      "proxy\0:80"s,
      "proxy:80\0"s,
      "pr\xC3\xBCxy:80",
      std::string(64, 'a') + ":80",
  };

  for (const std::string& row : rows)
    EXPECT_EQ(RefusedMember(Manual(row)), "server") << row;
}

// No valid server is as long as the limit, so the limit shows in nothing but the refusal.
TEST(ParseProxyChangeManual, AcceptsTheLongestHost) {
  const std::string label = std::string(63, 'a') + ".";
  const std::string host = label + label + label + std::string(61, 'b');

  EXPECT_EQ(Parsed(Manual(host + ":65535")).server, host + ":65535");
  EXPECT_EQ(Parsed(Manual(std::string(400, ' ') + "p:1")).server, "p:1");
  EXPECT_EQ(RefusedMember(Manual(host + "b:65535")), "server");
  EXPECT_EQ(RefusedMember(Manual(std::string(301, 'a'))), "server");
}

TEST(ParseProxyChangeManual, RefusesEveryOtherKind) {
  for (const char* const kind : {"null", "true", "3128", "[]", R"(["proxy.example:3128"])", "{}"})
    EXPECT_EQ(RefusedMember(Manual(Value(kind))), "server") << kind;
  EXPECT_EQ(RefusedMember(Value(R"({"mode":"manual","bypass":5})")), "server");
}

class ProxySet : public ServiceTest {
 protected:
  void WritesEndWith(bool written) {
    ops.applyProxy = [this, written](const ProxyChange& change) {
      EXPECT_EQ(log.Text(), "") << "nothing is said before it is done";
      applied = change;
      return written;
    };
  }

  ProxyChange applied;
};

TEST_F(ProxySet, RefusesWithoutTouchingAnything) {
  const struct {
    Json request;
    const char* member;
  } rows[] = {{Value(R"({"mode":0})"), "mode"},
              {Automatic("ftp://x/"), "pacUrl"},
              {Manual("x"), "server"},
              {ManualWith(".."), "bypass"}};

  for (const auto& row : rows) {
    log.Clear();

    EXPECT_EQ(HandleProxySet(row.request), R"({"ok":false,"error":"invalid"})");

    EXPECT_EQ(log.Text(), "<4>proxy.set refused: invalid " + std::string(row.member) + "\n");
  }
  EXPECT_EQ(calls.Count("applyProxy"), 0);
}

TEST_F(ProxySet, AppliesAServerAndRepeatsWhatItUnderstood) {
  WritesEndWith(true);
  Json request = Manual(" Proxy.example:3128");
  request.Set("bypass", "<local>, Intranet");
  request.Set("pacUrl", "ignored");

  EXPECT_EQ(HandleProxySet(request),
            R"({"ok":true,"mode":"manual","pacUrl":"","server":"proxy.example:3128",)"
            R"("bypass":["<local>","intranet"]})");

  EXPECT_EQ(log.Text(), "<6>proxy: proxy.example:3128, bypass \"<local>;intranet\"\n");
  EXPECT_EQ(applied.mode, "manual");
  EXPECT_EQ(applied.server, "proxy.example:3128");
  EXPECT_EQ(applied.bypass, (Texts{"<local>", "intranet"}));
}

TEST_F(ProxySet, LogsAnEmptyBypassToo) {
  WritesEndWith(true);

  EXPECT_EQ(HandleProxySet(Manual(kServer)),
            R"({"ok":true,"mode":"manual","pacUrl":"","server":"proxy.example:3128","bypass":[]})");

  EXPECT_EQ(log.Text(), "<6>proxy: proxy.example:3128, bypass \"\"\n");
}

TEST_F(ProxySet, AppliesAnAutoConfigurationAddress) {
  WritesEndWith(true);

  EXPECT_EQ(
      HandleProxySet(Automatic("http://Proxy.example/A")),
      R"({"ok":true,"mode":"auto","pacUrl":"http://Proxy.example/A","server":"","bypass":[]})");

  EXPECT_EQ(log.Text(), "<6>proxy: automatic from http://Proxy.example/A\n");
  EXPECT_EQ(applied.pacUrl, "http://Proxy.example/A");
}

TEST_F(ProxySet, GoesDirectWhateverElseIsAsked) {
  WritesEndWith(true);

  EXPECT_EQ(HandleProxySet(Value(R"({"mode":"none","server":5,"pacUrl":"http","bypass":".."})")),
            R"({"ok":true,"mode":"none","pacUrl":"","server":"","bypass":[]})");

  EXPECT_EQ(log.Text(), "<6>proxy: direct\n");
  EXPECT_EQ(applied.mode, "none");
}

TEST_F(ProxySet, TellsThatTheSystemProxyCannotBeWritten) {
  WritesEndWith(false);

  EXPECT_EQ(HandleProxySet(Manual(kServer)), R"({"ok":false,"error":"failed"})");

  EXPECT_EQ(log.Text(), "<3>proxy: cannot write the system proxy\n");
}

TEST_F(ProxySet, LetsABareSchemeThrough) {
  EXPECT_THROW((void)HandleProxySet(Automatic("http")), std::out_of_range);

  EXPECT_EQ(calls.Count("applyProxy"), 0);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(ProxySet, KeepsNothingInTheState) {
  WritesEndWith(true);

  (void)HandleProxySet(Manual(kServer));

  EXPECT_FALSE(Exists(config.stateDir + "/state.json"));
}

}  // namespace
}  // namespace Tarnvale::KioskService

#include "device/proxy_files.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Tarnvale::KioskService {
namespace {

ProxyChange Manual(const std::string& server, const std::vector<std::string>& bypass = {}) {
  return {.mode = "manual", .pacUrl = {}, .server = server, .bypass = bypass};
}

TEST(ProxyEnvText, TellsTheModeAloneWithoutAProxy) {
  EXPECT_EQ(ProxyEnvText({.mode = "none", .pacUrl = {}, .server = {}, .bypass = {}}),
            "TARNVALE_PROXY_MODE=none\n");
}

TEST(ProxyEnvText, TellsTheAutoConfigurationAddress) {
  const ProxyChange change = {
      .mode = "auto", .pacUrl = "http://Proxy.example/Wpad.dat?a=b#c", .server = {}, .bypass = {}};

  EXPECT_EQ(ProxyEnvText(change),
            "TARNVALE_PROXY_MODE=auto\n"
            "TARNVALE_PAC_URL=http://Proxy.example/Wpad.dat?a=b#c\n"
            "http_proxy=pac+http://Proxy.example/Wpad.dat?a=b#c\n"
            "https_proxy=pac+http://Proxy.example/Wpad.dat?a=b#c\n");
}

TEST(ProxyEnvText, TellsTheServerAndWhatGoesDirect) {
  const ProxyChange change = Manual("proxy.example:3128", {"intranet", "<local>", "*.example"});

  EXPECT_EQ(ProxyEnvText(change),
            "TARNVALE_PROXY_MODE=manual\n"
            "http_proxy=http://proxy.example:3128\n"
            "https_proxy=http://proxy.example:3128\n"
            "HTTP_PROXY=http://proxy.example:3128\n"
            "HTTPS_PROXY=http://proxy.example:3128\n"
            "no_proxy=intranet,localhost,127.0.0.1,::1,*.example\n"
            "NO_PROXY=intranet,localhost,127.0.0.1,::1,*.example\n"
            "TARNVALE_PROXY_SERVER=proxy.example:3128\n"
            "TARNVALE_PROXY_BYPASS=intranet;<local>;*.example\n");
}

TEST(ProxyEnvText, KeepsTheLinesOfAnEmptyList) {
  const ProxyChange change = Manual("[2001:db8::7]:80");

  EXPECT_EQ(ProxyEnvText(change),
            "TARNVALE_PROXY_MODE=manual\n"
            "http_proxy=http://[2001:db8::7]:80\n"
            "https_proxy=http://[2001:db8::7]:80\n"
            "HTTP_PROXY=http://[2001:db8::7]:80\n"
            "HTTPS_PROXY=http://[2001:db8::7]:80\n"
            "no_proxy=\n"
            "NO_PROXY=\n"
            "TARNVALE_PROXY_SERVER=[2001:db8::7]:80\n"
            "TARNVALE_PROXY_BYPASS=\n");
}

TEST(ProxyEnvText, PutsAddressesForLocalNamesAlone) {
  const ProxyChange change = Manual("p:1", {"<local>"});

  const std::string text = ProxyEnvText(change);

  EXPECT_NE(text.find("\nno_proxy=localhost,127.0.0.1,::1\n"), std::string::npos) << text;
  EXPECT_NE(text.find("\nTARNVALE_PROXY_BYPASS=<local>\n"), std::string::npos) << text;
}

TEST(AptProxyText, SendsBothSchemesToTheServerOverHttp) {
  EXPECT_EQ(AptProxyText(Manual("proxy.example:3128")),
            "Acquire::http::Proxy \"http://proxy.example:3128\";\n"
            "Acquire::https::Proxy \"http://proxy.example:3128\";\n");
}

}  // namespace
}  // namespace Tarnvale::KioskService

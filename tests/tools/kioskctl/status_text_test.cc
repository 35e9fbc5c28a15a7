#include "kioskctl/status_text.h"

#include <gtest/gtest.h>

#include <string>

#include "json/object.h"

namespace Tarnvale::KioskService::Kioskctl {
namespace {

std::string TextOf(const char* reply) {
  return StatusText(ParseObjectOrEmpty(reply));
}

TEST(StatusText, HasALineForEachFact) {
  const std::string text = TextOf(
      R"({"ok":true,"enrolled":true,"provisioned":true,"kioskSession":false,"maintenance":false,)"
      R"("account":"tarnvale-kiosk","terminalName":"Lobby","signIn":{"microsoft":true,"email":true,)"
      R"("extraHosts":["a.example"]},"brandingDir":"/b","error":"setup_failed"})");

  EXPECT_EQ(text,
            "enrolled       yes\n"
            "provisioned    yes\n"
            "kiosk session  no\n"
            "maintenance    no\n"
            "account        tarnvale-kiosk\n"
            "terminal name  Lobby\n"
            "sign-in        Microsoft, e-mail, a.example\n"
            "branding       /b\n"
            "error          setup_failed\n");
}

TEST(StatusText, SaysSoWhenThereIsNoNameAndNoWayToSignIn) {
  const std::string text = TextOf(R"({"signIn":{"microsoft":false}})");

  EXPECT_NE(text.find("terminal name  none\n"), std::string::npos) << text;
  EXPECT_NE(text.find("sign-in        none\n"), std::string::npos) << text;
  EXPECT_EQ(text.find("error"), std::string::npos) << text;
}

TEST(StatusText, ShowsNoControlCharacters) {
  const std::string text = TextOf("{\"terminalName\":\"a\\u001b[2J\\nb\x7F\"}");

  EXPECT_NE(text.find("terminal name  a?[2J?b?\n"), std::string::npos) << text;
}

}  // namespace
}  // namespace Tarnvale::KioskService::Kioskctl

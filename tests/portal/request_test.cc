#include "portal/request.h"

#include <functional>
#include <string>

#include "core/service.h"
#include "core/state.h"
#include "support/service_test.h"

namespace Tarnvale::KioskService {
namespace {

class PortalRequestTest : public ServiceTest {
 protected:
  void BaseIs(const std::string& base) {
    config.authBase = base;
    UseConfig();
  }

  void BaseByHandIs(const Json& base) {
    StateSet(StateKey::kAuthBaseUrl, base);
  }

  // The URL that a request for "/api/x" goes to.
  std::string Url() {
    portal.Answers("/api/x", 200);
    EXPECT_TRUE(PortalRequest("GET", "/api/x", "", "", 1, "a/b").ok);
    return portal.Calls().back().url;
  }
};

TEST_F(PortalRequestTest, HandsEverythingToTheSlotAsItIs) {
  portal.Answers("/api/x/y", 418, "body of the answer");

  const Http http = PortalRequest("PUT", "/api/x/y", "the body", "the token", 17, "image/*");

  const PortalCall call = portal.Calls().at(0);
  EXPECT_EQ(call.method, "PUT");
  EXPECT_EQ(call.url, "https://portal.test/api/x/y");
  EXPECT_EQ(call.body, "the body");
  EXPECT_EQ(call.token, "the token");
  EXPECT_EQ(call.maxBytes, 17U);
  EXPECT_EQ(call.accept, "image/*");
  EXPECT_TRUE(http.ok);
  EXPECT_EQ(http.status, 418);
  EXPECT_EQ(http.body, "body of the answer");
}

TEST_F(PortalRequestTest, HandsTheFailureBackAndLogsNothing) {
  portal.IsUnreachable("/api/x", "Timeout was reached");

  const Http http = PortalRequest("GET", "/api/x", "", "", 1, "a/b");

  EXPECT_FALSE(http.ok);
  EXPECT_EQ(http.status, 0);
  EXPECT_EQ(http.error, "Timeout was reached");
  EXPECT_EQ(log.Text(), "");
  EXPECT_EQ(portal.Calls().size(), 1U);
}

TEST_F(PortalRequestTest, GoesToTheBaseOfTheCommandLineFirst) {
  BaseIs("http://127.0.0.1:8080");
  BaseByHandIs("https://by-hand.test");

  EXPECT_EQ(Url(), "http://127.0.0.1:8080/api/x");
}

TEST_F(PortalRequestTest, GoesToTheBaseOfTheStateNext) {
  BaseIs("");
  BaseByHandIs("https://by-hand.test");

  EXPECT_EQ(Url(), "https://by-hand.test/api/x");
}

TEST_F(PortalRequestTest, GoesToTheDefaultWhenNoOtherBaseIsGiven) {
  BaseIs("");

  const std::string expected = std::string(KIOSK_PORTAL_URL) + "/api/x";
  EXPECT_EQ(Url(), expected);
  BaseByHandIs("");
  EXPECT_EQ(Url(), expected);
  BaseByHandIs(5);
  EXPECT_EQ(Url(), expected);
}

TEST_F(PortalRequestTest, RemovesEveryTrailingSlashOfAnyBase) {
  for (const char* const slashes : {"", "/", "//", "///"}) {
    BaseIs(std::string("https://portal.test/sub//path") + slashes);

    EXPECT_EQ(Url(), "https://portal.test/sub//path/api/x") << slashes;
  }
  BaseIs("");
  BaseByHandIs("https://by-hand.test//");
  EXPECT_EQ(Url(), "https://by-hand.test/api/x");
}

TEST_F(PortalRequestTest, KeepsABaseOfSlashesOnlyAsAnEmptyOne) {
  BaseByHandIs("https://by-hand.test");
  BaseIs("///");

  EXPECT_EQ(Url(), "/api/x");
}

TEST_F(PortalRequestTest, DoesNotCheckTheBase) {
  BaseIs("no url at all");

  EXPECT_EQ(Url(), "no url at all/api/x");
}

TEST_F(PortalRequestTest, ThrowsWhenNobodyFilledTheSlot) {
  SetService(config, Ops());

  EXPECT_THROW((void)PortalRequest("GET", "/api/x", "", "", 1, "a/b"), std::bad_function_call);
}

}  // namespace
}  // namespace Tarnvale::KioskService

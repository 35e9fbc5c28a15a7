// The words of the pairing tests.

#ifndef TARNVALE_KIOSKD_TESTS_PORTAL_PAIRING_TEST_H_
#define TARNVALE_KIOSKD_TESTS_PORTAL_PAIRING_TEST_H_

#include <string>

#include "core/stop.h"
#include "portal/pairing.h"
#include "portal/restart.h"
#include "support/service_test.h"
#include "support/test_clock.h"

namespace Tarnvale::KioskService {

inline constexpr char kCode[] = "ABCD1234";
inline constexpr char kCodePath[] = "/api/kiosk/pair/ABCD1234";
inline constexpr char kNewToken[] = "token-from-the-portal";
inline constexpr char kClaimedBody[] = R"({"deviceToken":"token-from-the-portal"})";
inline constexpr char kUnknownCodeReply[] = R"({"ok":false,"error":"unknown_code"})";
inline constexpr char kServerErrorReply[] = R"({"ok":false,"error":"server_error"})";
inline constexpr char kNotPairedReply[] = R"({"ok":true,"paired":false})";

// A terminal that nobody has enrolled, with a portal that gives codes.
class PairingTest : public ServiceTest {
 protected:
  PairingTest() {
    ops.hostName = [] { return "lobby-7"; };
    ops.osVersion = [] { return "Debian GNU/Linux 12 (bookworm)"; };
    ops.screenCount = [] { return 2; };
  }

  void TearDown() override {
    StopThreads();
    StopScheduledRestart();
  }

  void PortalGivesCode(const std::string& code) {
    Json body = Json::Object();
    body.Set("pairingCode", code);
    portal.Answers(kPairPath, 200, body.Dump());
  }

  // The code is shown from here on.
  void Begin(const std::string& code = kCode) {
    PortalGivesCode(code);
    EXPECT_EQ(Json::Parse(PairBegin())->Get("code").AsString(""), code);
  }

  [[nodiscard]] static std::string Check(const std::string& code = kCode) {
    Json request = Json::Object();
    request.Set("code", code);
    return PairCheck(request);
  }

  // Whether the service still asks the portal about the code.
  [[nodiscard]] bool IsPending(const std::string& code = kCode) {
    const std::string path = std::string(kPairPath) + "/" + code;
    const int before = portal.CallsTo(path);
    portal.Answers(path, 202);
    (void)Check(code);  // what counts is the request that it makes, or does not make
    return portal.CallsTo(path) > before;
  }

  // The administrator has claimed the terminal, and everything behind that works. The restart that
  // comes of it stays armed, since no time passes by itself any more.
  void EnrolmentSucceeds() {
    TestClock::WaitForReal();
    portal.Answers(kCodePath, 200, kClaimedBody);
    portal.Answers(kCheckInPath, 200, R"({"status":"enrolled"})");
    AccountIsMissing();
    SetupToolMakes(kTestKioskUid);
    ops.dropAdminGroups = [] {};
    ops.setMaintenanceMarker = [](bool, bool) {};
  }
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_PORTAL_PAIRING_TEST_H_

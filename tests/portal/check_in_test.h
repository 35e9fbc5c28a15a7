// The words of the check-in tests.

#ifndef TARNVALE_KIOSKD_TESTS_PORTAL_CHECK_IN_TEST_H_
#define TARNVALE_KIOSKD_TESTS_PORTAL_CHECK_IN_TEST_H_

#include <string>

#include "portal/check_in.h"
#include "support/service_test.h"

namespace Tarnvale::KioskService {

inline constexpr char kDefaultSignIn[] = R"({"microsoft":true,"email":false,"extraHosts":[]})";
inline constexpr char kPowerText[] =
    R"({"screenOffMinutes":20,"sleepMinutes":60,"schedule":)"
    R"({"enabled":true,"sleepAt":"21:00","wakeAt":"06:30","days":[1,5]}})";
inline constexpr char kUpdatesText[] =
    R"({"automatic":true,"window":{"start":"22:00","end":"04:00","days":[0,6]}})";

class CheckInTest : public ServiceTest {
 protected:
  // One check-in that is answered so.
  CheckInResult AnsweredWith(int status, const std::string& body) {
    portal.Answers(kCheckInPath, status, body);
    return CheckIn(kTestToken);
  }

  // The reply of a portal that has the terminal enrolled, with these members besides the status.
  CheckInResult Enrolled(const std::string& members = "") {
    CheckInResult result =
        AnsweredWith(200, R"({"status":"enrolled")" + (members.empty() ? "" : "," + members) + "}");
    EXPECT_EQ(result.outcome, CheckInOutcome::kEnrolled) << members;
    return result;
  }
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_PORTAL_CHECK_IN_TEST_H_

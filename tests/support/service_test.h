// The fixture of the logic tests: a service on a platform of recording callables, with words for
// what tests say again and again.
//
// Each test case runs in a process of its own, so all process-wide state is fresh. The platform's
// slots fail the test until a word, or the test itself, fills them in; they may be changed at any
// moment between two calls into the service.

#ifndef TARNVALE_KIOSKD_TESTS_SUPPORT_SERVICE_TEST_H_
#define TARNVALE_KIOSKD_TESTS_SUPPORT_SERVICE_TEST_H_

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "control/caller.h"
#include "core/config.h"
#include "core/ops.h"
#include "json/json.h"
#include "kiosk/session_info.h"
#include "support/fake_portal.h"
#include "support/log_capture.h"
#include "support/strict_ops.h"
#include "support/temp_dir.h"

namespace Tarnvale::KioskService {

inline constexpr char kTestMachineId[] = "0123456789abcdef0123456789abcdef\n";
inline constexpr char kTestToken[] = "token-of-the-test";
inline constexpr char kTestExitPassword[] = "Exit-Password-7";
inline constexpr unsigned kTestKioskUid = 1501;
inline constexpr unsigned kTestPersonUid = 1000;
inline constexpr char kTestKioskSession[] = "c7";
inline constexpr char kTestPersonSession[] = "3";
inline constexpr char kCheckInPath[] = "/api/kiosk/check-in";
inline constexpr char kPairPath[] = "/api/kiosk/pair";

class ServiceTest : public ::testing::Test {
 protected:
  ServiceTest();
  // Fails the test when a secret is found in its log or in the state file.
  ~ServiceTest() override;

  // Hands `config` to the service; a test that changes it calls this again.
  void UseConfig();

  // Loads what is written as the state file; a test that changes the file calls it again.
  void LoadState();
  void WriteState(const std::string& text);
  [[nodiscard]] Json StateFile() const;

  // The terminal holds a token of this machine.
  void Enrol();
  // The kiosk account exists, made by the setup tool, is recorded, and provisioning is complete.
  void Provision();

  // Fills the account slots: an account of this uid and comment, none, or a failing database.
  void AccountIs(unsigned uid, const std::string& comment = "Tarnvale kiosk");
  void AccountIsMissing();
  void AccountLookupFails();
  // The setup tool succeeds and makes an account of this uid; the kiosk session is let start.
  void SetupToolMakes(unsigned uid);
  // Fills the slots of a removal: each step succeeds, and the account is gone afterwards.
  void RemovalWorks();
  // As RemovalWorks, but the account is still there.
  void AccountCannotBeDeleted();

  // Fills the session slots with these sessions; no process is in any of them until CallerIsIn.
  void SessionsAre(std::vector<SessionInfo> sessions);
  // The session of every process that is asked for.
  void CallerIsIn(const SessionInfo& session);
  [[nodiscard]] static SessionInfo PersonSession();
  [[nodiscard]] static SessionInfo KioskSession();

  // Callers as the dispatcher sees them.
  [[nodiscard]] static Caller Person();
  [[nodiscard]] static Caller Kiosk();
  [[nodiscard]] static Caller Root();

  // From now on the portal answers a check-in: enrolled, and this is the exit password.
  void ExitPasswordIs(const std::string& password);
  // The terminal is enrolled and provisioned, and its portal has the exit password of the tests.
  // The news of a first check-in is no news any more, so the next one logs nothing.
  void IsInService();
  // Unlocks the terminal's settings for the session of Kiosk(), by its request, and returns the
  // token. Enrols and provisions the terminal first if it is not, and lets that session exist. What
  // all this has called and logged is no longer in `calls` and `log`.
  std::string Unlock();
  // From now on the log and the state must not hold this text.
  void KeepSecret(const std::string& text);

  // One request by this caller, straight to the dispatcher; the reply must be JSON. What the
  // handler left to do after the reply is in `after`.
  Json Send(const std::string& request, const Caller& caller);

  TempDir dir;
  Config config;
  Ops ops;  // What the service's platform does, at the moment of each call.
  SlotCalls calls;
  FakePortal portal;
  LogCapture log;
  std::function<void()> after;

 private:
  std::vector<std::string> secrets_;
};

// "" for a missing `error`, so that a test can expect it to be empty.
[[nodiscard]] std::string ErrorOf(const Json& reply);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_SUPPORT_SERVICE_TEST_H_

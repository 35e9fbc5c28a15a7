// What a request and the portal's answers to it brought in secret is gone when the reply is made:
// no block of memory is given back with it.

#include <string>
#include <string_view>

#include "control/connection_fixture.h"
#include "control/dispatch.h"
#include "core/text.h"
#include "kiosk/random_source.h"
#include "kiosk/unlock.h"
#include "support/freed_memory.h"
#include "support/service_test.h"

namespace Tarnvale::KioskService {
namespace {

// Too long to stand in the record of a text itself, which never comes to the heap.
constexpr char kTyped[] = "Typed-By-Mistake-Or-By-Malice";
constexpr char kRightPassword[] = "The-Right-Password-Of-The-Portal";
constexpr char kEnrolledBody[] =
    R"({"status":"enrolled","exitPassword":"The-Right-Password-Of-The-Portal"})";
constexpr char kPairedBody[] = R"({"deviceToken":"the-token-of-this-pairing"})";

// A text that is emptied and not wiped loses its first byte alone.
void LookForRestOf(std::string_view secret) {
  FreedMemory::LookFor(secret.substr(1));
}

TEST(FreedMemory, IsLookedAt) {
  LookForRestOf(kTyped);
  { const std::string copy = kTyped; }
  EXPECT_EQ(FreedMemory::Found(), 1);

  std::string wiped = kTyped;
  WipeText(wiped);
  wiped.shrink_to_fit();

  EXPECT_EQ(FreedMemory::Found(), 1);
}

class Wiping : public ServiceTest {
 protected:
  void SetUp() override {
    Enrol();
    Provision();
    SessionsAre({PersonSession(), KioskSession()});
    PortalSends(kCheckInPath, kEnrolledBody);
    ops.setMaintenanceMarker = [](bool, bool) {};
  }
  // With no copy of its own that would be given back.
  void PortalSends(const char* path, const char* body) {
    portal.AnswersWith(path, [body](const PortalCall&) {
      return Http{.ok = true, .status = 200, .body = body, .error = {}};
    });
  }
  void TearDown() override {
    FreedMemory::LookFor({});
  }
  // What the service does with a request of the kiosk session.
  std::string Reply(const std::string& request) {
    return Dispatch(request, Kiosk(), after);
  }
};

class Wiped : public Wiping, public ::testing::WithParamInterface<const char*> {};

TEST_P(Wiped, IsWhatWasTyped) {
  const std::string request =
      std::string(R"({"cmd":")") + GetParam() +
      R"(","unlockToken":"Typed-By-Mistake-Or-By-Malice","password":"Typed-By-Mistake-Or-By-Malice"})";
  LookForRestOf(kTyped);

  const std::string reply = Reply(request);

  EXPECT_EQ(FreedMemory::Found(), 0);
  EXPECT_TRUE(reply.starts_with(R"({"ok":false,)")) << reply;
}

INSTANTIATE_TEST_SUITE_P(Dispatch, Wiped,
                         ::testing::Values("unlock", "maintenance", "net.set", "session.report"));

TEST_F(Wiping, IsDoneToThePasswordOfThePortalWhateverWasTyped) {
  const std::string wrong = R"({"cmd":"unlock","password":"x"})";
  const std::string right = R"({"cmd":"unlock","password":"THE-right-password-of-the-portal"})";
  LookForRestOf(kRightPassword);

  EXPECT_EQ(Reply(wrong), R"({"ok":false,"error":"wrong_password"})");
  EXPECT_TRUE(Reply(right).starts_with(R"({"ok":true,"unlockToken":")"));

  EXPECT_EQ(FreedMemory::Found(), 0);
}

TEST_F(Wiping, IsDoneToTheUnlockTokenWhenMaintenanceBegins) {
  const std::string token = Unlock();
  const std::string request = R"({"cmd":"maintenance","unlockToken":")" + token + R"("})";
  LookForRestOf(token);

  EXPECT_EQ(Reply(request), R"({"ok":true})");

  EXPECT_EQ(FreedMemory::Found(), 0);
}

TEST_F(Wiping, IsDoneToTheUnlockTokenThatANewerOneReplaces) {
  const std::string token = Unlock();
  PortalSends(kCheckInPath, kEnrolledBody);
  const std::string request =
      std::string(R"({"cmd":"unlock","password":")") + kRightPassword + R"("})";
  LookForRestOf(token);

  EXPECT_TRUE(Reply(request).starts_with(R"({"ok":true,)"));

  EXPECT_EQ(FreedMemory::Found(), 0);
}

TEST_F(Wiping, IsDoneToThePortalsAnswerThatBringsTheDeviceToken) {
  StateClear(StateKey::kDeviceToken);
  ops.hostName = [] { return "terminal"; };
  ops.osVersion = [] { return "Linux"; };
  ops.screenCount = [] { return 1; };
  portal.Answers(kPairPath, 200, R"({"pairingCode":"AB12CD34"})");
  PortalSends("/api/kiosk/pair/AB12CD34", kPairedBody);
  portal.Answers(kCheckInPath, 500);
  (void)Dispatch(R"({"cmd":"pair.begin"})", Person(), after);
  // As it stands in the answer: the state's own texts keep the token.
  FreedMemory::LookFor(R"("deviceToken":"the-token-of-this-pairing")");

  const std::string reply = Dispatch(R"({"cmd":"pair.check","code":"AB12CD34"})", Person(), after);

  EXPECT_EQ(FreedMemory::Found(), 0);
  EXPECT_EQ(reply, R"({"ok":true,"paired":true,"provisioned":false,"error":"unreachable"})");
  EXPECT_EQ(StateGetString(StateKey::kDeviceToken), "the-token-of-this-pairing");
}

// The same from the first byte of a connection to its last.
class WipingConnection : public ConnectionFixture {};

TEST_F(WipingConnection, LeavesNothingOfARequestInPieces) {
  PeerSendsPieceByPiece({R"({"cmd":"unlock",)", R"( "password":"Typed-By-Mistake-)",
                         R"(Or-By-Malice)", R"(")", ",", "}\n"});
  LookForRestOf(kTyped);

  Serve();

  const int found = FreedMemory::Found();
  FreedMemory::LookFor({});
  EXPECT_EQ(piecesSent, 6);
  EXPECT_EQ(found, 0);
  EXPECT_EQ(PeerReads(), "{\"ok\":false,\"error\":\"bad_request\"}\n");
}

TEST_F(WipingConnection, LeavesNothingOfTheUnlockTokenBesideItsRecord) {
  Enrol();
  Provision();
  AccountIs(peerUid);
  StateSetString(StateKey::kAccountUid, std::to_string(peerUid));
  SessionInfo session = KioskSession();
  session.uid = peerUid;
  SessionsAre({session});
  CallerIsIn(session);
  ExitPasswordIs(kRightPassword);
  const std::string token = "a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5";
  RandomSource::Gives({std::string(16, '\xA5')});
  PeerSends("{\"cmd\":\"unlock\",\"password\":\"" + std::string(kRightPassword) + "\"}\n");
  FreedMemory::LookFor(std::string_view(token).substr(1, 16));  // half of it is too much

  Serve();

  const int found = FreedMemory::Found();
  FreedMemory::LookFor({});
  EXPECT_EQ(found, 0);
  EXPECT_NE(PeerReads().find(token), std::string::npos);
  EXPECT_TRUE(UnlockValid(token, kTestKioskSession));
}

}  // namespace
}  // namespace Tarnvale::KioskService

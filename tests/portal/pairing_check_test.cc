#include <string>

#include "core/state.h"
#include "portal/pairing_test.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kUnreachableReply[] = R"({"ok":true,"paired":false,"error":"unreachable"})";

using PairCheckTest = PairingTest;

TEST_F(PairCheckTest, AsksThePortalAboutTheCode) {
  Begin();
  portal.Answers(kCodePath, 202);

  (void)Check();

  const PortalCall call = portal.Calls().at(1);
  EXPECT_EQ(call.method, "GET");
  EXPECT_EQ(call.url, "https://portal.test/api/kiosk/pair/ABCD1234");
  EXPECT_EQ(call.body, "");
  EXPECT_EQ(call.token, "");
  EXPECT_EQ(call.maxBytes, 65'536U);
  EXPECT_EQ(call.accept, "application/json");
  EXPECT_EQ(portal.Calls().size(), 2U);
}

TEST_F(PairCheckTest, SendsNoTokenOfAnotherMachine) {
  StateSetString(StateKey::kDeviceToken, "foreign");
  StateSetString(StateKey::kDeviceId, "foreign");
  Begin();
  portal.Answers(kCodePath, 202);

  EXPECT_EQ(Check(), kNotPairedReply);
  EXPECT_EQ(portal.Calls().back().token, "");
}

TEST_F(PairCheckTest, KeepsWaitingForTheAdministrator) {
  Begin();
  log.Clear();
  portal.Answers(kCodePath, 202, kClaimedBody);

  EXPECT_EQ(Check(), kNotPairedReply);
  EXPECT_TRUE(IsPending());
  EXPECT_EQ(StateGetString(StateKey::kDeviceToken), "");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(PairCheckTest, KeepsWaitingForAPortalInTrouble) {
  Begin();
  for (const int status : {500, 501, 502, 503, 599, 600, 999}) {
    portal.Answers(kCodePath, status, kClaimedBody);
    EXPECT_EQ(Check(), kUnreachableReply) << status;
  }
  portal.IsUnreachable(kCodePath);
  EXPECT_EQ(Check(), kUnreachableReply);

  EXPECT_TRUE(IsPending());
}

TEST_F(PairCheckTest, GivesUpACodeThatHasExpired) {
  for (const int status : {404, 410}) {
    Begin();
    portal.Answers(kCodePath, status);

    EXPECT_EQ(Check(), R"({"ok":false,"error":"expired"})") << status;
    EXPECT_EQ(Check(), kUnknownCodeReply);
    EXPECT_FALSE(IsPending()) << status;
  }
}

TEST_F(PairCheckTest, GivesUpACodeThatWasClaimedAlready) {
  Begin();
  portal.Answers(kCodePath, 409);

  EXPECT_EQ(Check(), R"({"ok":false,"error":"claimed"})");
  EXPECT_EQ(Check(), kUnknownCodeReply);
  EXPECT_FALSE(IsPending());
}

TEST_F(PairCheckTest, KeepsTheCodeWithEveryOtherStatus) {
  Begin();
  for (const int status :
       {100, 199, 201, 203, 204, 301, 302, 400, 401, 403, 405, 408, 411, 429, 499}) {
    portal.Answers(kCodePath, status, kClaimedBody);

    EXPECT_EQ(Check(), kServerErrorReply) << status;
  }
  EXPECT_TRUE(IsPending());
  EXPECT_EQ(StateGetString(StateKey::kDeviceToken), "");
}

TEST_F(PairCheckTest, GivesUpTheCodeWhenTheAnswerHasNoToken) {
  for (const std::string& body :
       {std::string(), std::string("garbage"), std::string("[]"), std::string("null"),
        std::string("{}"), std::string(R"({"deviceToken":""})"),
        std::string(R"({"deviceToken":null})"), std::string(R"({"deviceToken":12345})"),
        std::string(R"({"deviceToken":true})"), std::string(R"({"deviceToken":["t"]})"),
        std::string(R"({"deviceToken":"t")"), std::string(65'537, '[')}) {
    Begin();
    portal.Answers(kCodePath, 200, body);

    EXPECT_EQ(Check(), kServerErrorReply) << body.substr(0, 80);
    EXPECT_FALSE(IsPending()) << body.substr(0, 80);
  }
  EXPECT_EQ(portal.CallsTo(kCheckInPath), 0);
  EXPECT_EQ(StateGetString(StateKey::kDeviceToken), "");
}

TEST_F(PairCheckTest, KnowsNoCodeBeforeThePairingHasBegun) {
  for (const char* const request :
       {"{}", R"({"code":""})", R"({"code":null})", R"({"code":"ABCD1234"})", R"({"code":[]})"})
    EXPECT_EQ(PairCheck(*Json::Parse(request)), kUnknownCodeReply) << request;

  EXPECT_TRUE(portal.Calls().empty());
}

TEST_F(PairCheckTest, AnswersUnknownCodeForAnotherCode) {
  Begin();
  for (const char* const request :
       {"{}", R"({"code":""})", R"({"code":null})", R"({"code":"abcd1234"})",
        R"({"code":"ABCD1235"})", R"({"code":"ABCD123"})", R"({"code":"ABCD12345"})",
        R"({"code":"ABCD 1234"})", R"({"code":["ABCD1234"]})", R"({"code":"ABCD1234\u0000"})"})
    EXPECT_EQ(PairCheck(*Json::Parse(request)), kUnknownCodeReply) << request;

  EXPECT_EQ(portal.Calls().size(), 1U);
  EXPECT_TRUE(IsPending());
}

TEST_F(PairCheckTest, TakesTheCodeWithSpaceAroundIt) {
  Begin();
  portal.Answers(kCodePath, 202);

  for (const char* const code : {" ABCD1234", "ABCD1234\n", "\t ABCD1234 \r\n"})
    EXPECT_EQ(Check(code), kNotPairedReply) << code;
  EXPECT_EQ(portal.CallsTo(kCodePath), 3);
}

TEST_F(PairCheckTest, TakesACodeOfDigitsAsANumberToo) {
  Begin("12345678");
  portal.Answers("/api/kiosk/pair/12345678", 202);

  EXPECT_EQ(PairCheck(*Json::Parse(R"({"code":12345678})")), kNotPairedReply);
}

TEST_F(PairCheckTest, TakesLettersOfEitherCaseAndDigits) {
  for (const char* const code : {"abcdefgh", "ABCDEFGH", "00000000", "aZ09zA19"}) {
    Begin(code);

    EXPECT_TRUE(IsPending(code)) << code;
  }
}

TEST_F(PairCheckTest, AsksNothingAboutACodeThatIsNotOfEightLettersAndDigits) {
  for (const char* const code :
       {"ABCD12345", "ABCD123", "A", "ABCD-123", "ABCD/123", "ABC 1234", "../../ab", "ABCD123?",
        "ABCD_123", "ABCD12\xC3\xA9", "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", " ABCD123"}) {
    Begin(code);

    EXPECT_EQ(Check(code), kUnknownCodeReply) << code;
  }
  EXPECT_EQ(portal.Calls().size(), static_cast<std::size_t>(portal.CallsTo(kPairPath)));
}

}  // namespace
}  // namespace Tarnvale::KioskService

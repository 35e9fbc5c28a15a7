#include <string>
#include <vector>

#include "core/build_stamp.h"
#include "core/state.h"
#include "portal/pairing_test.h"

namespace Tarnvale::KioskService {
namespace {

using PairBeginTest = PairingTest;

TEST_F(PairBeginTest, DescribesTheTerminalToThePortal) {
  PortalGivesCode(kCode);

  (void)PairBegin();

  const PortalCall call = portal.Calls().at(0);
  EXPECT_EQ(call.method, "POST");
  EXPECT_EQ(call.url, "https://portal.test/api/kiosk/pair");
  EXPECT_EQ(call.body, std::string(R"({"hostname":"lobby-7","platform":"Linux",)") +
                           R"j("osVersion":"Debian GNU/Linux 12 (bookworm)","appVersion":")j" +
                           kBuildStamp + R"(","screenCount":2})");
  EXPECT_EQ(call.token, "");
  EXPECT_EQ(call.maxBytes, 65'536U);
  EXPECT_EQ(call.accept, "application/json");
  EXPECT_EQ(portal.Calls().size(), 1U);
}

TEST_F(PairBeginTest, AnswersTheCodeOfEitherGoodStatus) {
  for (const int status : {200, 201}) {
    portal.Answers(kPairPath, status, R"({"pairingCode":"ABCD1234","expiresInSeconds":600})");

    EXPECT_EQ(PairBegin(), R"({"ok":true,"code":"ABCD1234","expiresInSeconds":600})") << status;
  }
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{"<6>pairing started", "<6>pairing started"}));
}

TEST_F(PairBeginTest, ReportsTheLifeOfTheCodeAsANumber) {
  struct Row {
    const char* member;
    const char* expected;
  };
  const Row rows[] = {
      {"", "900"},
      {R"(,"expiresInSeconds":null)", "900"},
      {R"(,"expiresInSeconds":[])", "900"},
      {R"(,"expiresInSeconds":{})", "900"},
      {R"(,"expiresInSeconds":"")", "900"},
      {R"(,"expiresInSeconds":1e999)", "900"},
      {R"(,"expiresInSeconds":"120")", "120"},
      {R"(,"expiresInSeconds":"soon")", "0"},
      {R"(,"expiresInSeconds":true)", "1"},
      {R"(,"expiresInSeconds":false)", "0"},
      {R"(,"expiresInSeconds":0)", "0"},
      {R"(,"expiresInSeconds":299.9)", "299"},
      {R"(,"expiresInSeconds":-5.5)", "-5"},
      {R"(,"expiresInSeconds":86400)", "86400"},
  };

  for (const Row& row : rows) {
    portal.Answers(kPairPath, 200, std::string(R"({"pairingCode":"ABCD1234")") + row.member + "}");
    EXPECT_EQ(PairBegin(), std::string(R"({"ok":true,"code":"ABCD1234","expiresInSeconds":)") +
                               row.expected + "}")
        << row.member;
  }
}

TEST_F(PairBeginTest, PassesACodeOfAnyFormOn) {
  portal.Answers(kPairPath, 200, R"({"pairingCode":" \"x\"/9 "})");

  EXPECT_EQ(PairBegin(), R"({"ok":true,"code":" \"x\"/9 ","expiresInSeconds":900})");
}

TEST_F(PairBeginTest, FailsWithoutACodeInTheAnswer) {
  const std::string bodies[] = {"",
                                "garbage",
                                "null",
                                "[]",
                                "\"ABCD1234\"",
                                "{}",
                                R"({"pairingCode":""})",
                                R"({"pairingCode":null})",
                                R"({"pairingCode":12345678})",
                                R"({"pairingCode":true})",
                                R"({"pairingCode":["ABCD1234"]})",
                                R"([{"pairingCode":"ABCD1234"}])",
                                R"({"pairingCode":"ABCD1234")",
                                std::string(65'537, '[')};

  for (const std::string& body : bodies) {
    portal.Answers(kPairPath, 200, body);
    EXPECT_EQ(PairBegin(), kServerErrorReply) << body.substr(0, 80);
  }
  EXPECT_EQ(log.Text(), "");
  EXPECT_EQ(Check(""), kUnknownCodeReply);
}

TEST_F(PairBeginTest, FailsWithEveryOtherStatus) {
  for (const int status : {100, 199, 202, 204, 302, 400, 401, 404, 409, 500, 503}) {
    log.Clear();
    portal.Answers(kPairPath, status, R"({"pairingCode":"ABCD1234"})");

    EXPECT_EQ(PairBegin(), kServerErrorReply) << status;
    EXPECT_EQ(log.Text(), "<4>pairing: HTTP " + std::to_string(status) + "\n");
  }
}

TEST_F(PairBeginTest, SaysWhyThePortalIsUnreachable) {
  portal.IsUnreachable(kPairPath, "Could not resolve hostname");

  EXPECT_EQ(PairBegin(), R"({"ok":false,"error":"unreachable"})");
  EXPECT_EQ(log.Text(), "<4>pairing: AuthSystem unreachable (Could not resolve hostname)\n");
}

TEST_F(PairBeginTest, ForgetsTheLastProvisioningFailure) {
  StateSetString(StateKey::kLastError, "setup_failed");

  Begin();

  EXPECT_EQ(StateGetString(StateKey::kLastError), "");
  EXPECT_TRUE(StateFile().Get("LastError").IsNull());
}

TEST_F(PairBeginTest, KeepsTheLastProvisioningFailureWhenItFails) {
  StateSetString(StateKey::kLastError, "setup_failed");

  portal.IsUnreachable(kPairPath);
  (void)PairBegin();
  portal.Answers(kPairPath, 500);
  (void)PairBegin();
  portal.Answers(kPairPath, 200, "{}");
  (void)PairBegin();

  EXPECT_EQ(StateGetString(StateKey::kLastError), "setup_failed");
}

TEST_F(PairBeginTest, NeverWritesTheCodeToDisk) {
  StateSetString(StateKey::kLastError, "setup_failed");

  Begin();

  EXPECT_EQ(StateFile().Dump().find(kCode), std::string::npos);
  EXPECT_EQ(log.Text().find(kCode), std::string::npos);
}

TEST_F(PairBeginTest, MakesNoRequestOnAnEnrolledTerminal) {
  Enrol();

  EXPECT_EQ(PairBegin(), R"({"ok":false,"error":"already_enrolled"})");
  EXPECT_TRUE(portal.Calls().empty());
  EXPECT_EQ(log.Text(), "");
}

TEST_F(PairBeginTest, PairsATerminalAgainWhoseTokenIsOfAnotherMachine) {
  Enrol();
  WriteText(config.machineIdPath, "another machine\n");
  PortalGivesCode(kCode);

  EXPECT_EQ(PairBegin(), R"({"ok":true,"code":"ABCD1234","expiresInSeconds":900})");
  EXPECT_EQ(portal.Calls().at(0).token, "");
}

TEST_F(PairBeginTest, ReplacesAnEarlierCode) {
  Begin("AAAA1111");
  Begin("BBBB2222");

  EXPECT_EQ(Check("AAAA1111"), kUnknownCodeReply);
  EXPECT_TRUE(IsPending("BBBB2222"));
}

TEST_F(PairBeginTest, KeepsTheEarlierCodeWhenItFails) {
  Begin();

  portal.IsUnreachable(kPairPath);
  (void)PairBegin();
  portal.Answers(kPairPath, 500);
  (void)PairBegin();
  portal.Answers(kPairPath, 200, R"({"pairingCode":""})");
  (void)PairBegin();

  EXPECT_TRUE(IsPending());
}

}  // namespace
}  // namespace Tarnvale::KioskService

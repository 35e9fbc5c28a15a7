// What an exchange sends, byte by byte where it matters.

#include <stdlib.h>

#include <curl/curl.h>
#include <gtest/gtest.h>

#include "core/build_stamp.h"
#include "portal/http_linux.h"
#include "slots/support/http_peer.h"
#include "slots/support/http_test.h"
#include "slots/support/system_stand_ins.h"

namespace Tarnvale::KioskService {
namespace {

class HttpRequest : public HttpTest {
 protected:
  // The only request that the peer got.
  std::string TheRequest() {
    const std::vector<std::string> requests = peer.Requests();
    EXPECT_EQ(requests.size(), 1U);
    return requests.empty() ? std::string() : requests[0];
  }
  std::string Head() {
    const std::string request = TheRequest();
    return request.substr(0, request.find("\r\n\r\n") + 2);
  }
  std::string Body() {
    const std::string request = TheRequest();
    return request.substr(request.find("\r\n\r\n") + 4);
  }
  bool HeadHas(const std::string& text) {
    return Head().find(text) != std::string::npos;
  }

  HttpPeer peer{AnswerWith("")};
};

TEST_F(HttpRequest, NamesMethodAndPathAsGiven) {
  (void)HttpExchange("GET", peer.Url("/api/a%20b?x=1&y=2"), "", "", 10, "*/*");

  EXPECT_TRUE(Head().starts_with("GET /api/a%20b?x=1&y=2 HTTP/1.1\r\n")) << Head();
}

TEST_F(HttpRequest, CarriesTypeAcceptAndTokenInThisOrder) {
  (void)HttpExchange("POST", peer.Url(), "{}", "se.cr.et", 10, "application/json");

  EXPECT_TRUE(
      HeadHas("\r\nContent-Type: application/json\r\nAccept: application/json\r\n"
              "Authorization: Bearer se.cr.et\r\n"))
      << Head();
}

TEST_F(HttpRequest, CarriesNoAuthorizationWithoutAToken) {
  (void)HttpExchange("POST", peer.Url(), "{}", "", 10, "application/json");

  EXPECT_FALSE(HeadHas("Authorization")) << Head();
}

TEST_F(HttpRequest, CarriesTheJsonTypeAndNoBodyOnGet) {
  (void)HttpExchange("GET", peer.Url(), "ignored", "t", 10, "image/*");

  EXPECT_TRUE(HeadHas("\r\nContent-Type: application/json\r\nAccept: image/*\r\n")) << Head();
  EXPECT_FALSE(HeadHas("Content-Length")) << Head();
  EXPECT_FALSE(HeadHas("Transfer-Encoding")) << Head();
  EXPECT_EQ(Body(), "");
}

TEST_F(HttpRequest, NamesTheServiceAndItsBuild) {
  (void)HttpExchange("GET", peer.Url(), "", "", 10, "*/*");

  EXPECT_TRUE(HeadHas("\r\nUser-Agent: TarnvaleKiosk/" + std::string(kBuildStamp) + "\r\n"))
      << Head();
}

TEST_F(HttpRequest, SendsEveryByteOfAPostedBody) {
  const std::string body("{\"a\":\0\"\xff\r\n\r\n\"}", 14);

  (void)HttpExchange("POST", peer.Url(), body, "", 10, "*/*");

  EXPECT_TRUE(Head().starts_with("POST / HTTP/1.1\r\n"));
  EXPECT_TRUE(HeadHas("\r\nContent-Length: 14\r\n")) << Head();
  EXPECT_EQ(Body(), body);
}

TEST_F(HttpRequest, SendsTheBodyOfAPut) {
  (void)HttpExchange("PUT", peer.Url("/p"), "text", "", 10, "*/*");

  EXPECT_TRUE(Head().starts_with("PUT /p HTTP/1.1\r\n"));
  EXPECT_EQ(Body(), "text");
}

TEST_F(HttpRequest, SendsAnEmptyBodyAsOne) {
  (void)HttpExchange("POST", peer.Url(), "", "", 10, "*/*");

  EXPECT_TRUE(HeadHas("\r\nContent-Length: 0\r\n")) << Head();
}

TEST_F(HttpRequest, SendsALargeBodyWhole) {
  const std::string body(300'000, 'b');

  (void)HttpExchange("POST", peer.Url(), body, "", 10, "*/*");

  EXPECT_EQ(Body(), body);
}

TEST_F(HttpRequest, SetsItsOptionsInOrderAndNoOthers) {
  const std::vector<StandIn::CurlOption> forAll = {
      {CURLOPT_URL},           {CURLOPT_CUSTOMREQUEST},      {CURLOPT_HTTPHEADER},
      {CURLOPT_USERAGENT},     {CURLOPT_TIMEOUT_MS, 15'000}, {CURLOPT_CONNECTTIMEOUT_MS, 15'000},
      {CURLOPT_NOSIGNAL, 1},  // the exchange runs beside other threads
      {CURLOPT_PROTOCOLS_STR}, {CURLOPT_WRITEFUNCTION},      {CURLOPT_WRITEDATA},
  };
  std::vector<StandIn::CurlOption> expected = forAll;
  expected.insert(expected.end(), forAll.begin(), forAll.end());
  expected.insert(expected.end(), {{CURLOPT_POSTFIELDS}, {CURLOPT_POSTFIELDSIZE, 2}});

  (void)HttpExchange("GET", peer.Url(), "{}", "t", 10, "*/*");
  (void)HttpExchange("PUT", peer.Url(), "{}", "t", 10, "*/*");

  EXPECT_EQ(StandIn::CurlOptions(), expected);
}

class HttpRequestWithoutBody : public HttpRequest,
                               public ::testing::WithParamInterface<const char*> {};

TEST_P(HttpRequestWithoutBody, IsWhatAnyOtherMethodMakes) {
  (void)HttpExchange(GetParam(), peer.Url(), "body", "", 10, "*/*");

  EXPECT_TRUE(Head().starts_with(std::string(GetParam()) + " / HTTP/1.1\r\n")) << Head();
  EXPECT_FALSE(HeadHas("Content-Length")) << Head();
  EXPECT_EQ(Body(), "");
}

INSTANTIATE_TEST_SUITE_P(Methods, HttpRequestWithoutBody,
                         ::testing::Values("GET", "DELETE", "PATCH", "post", "Put"));

TEST_F(HttpRequest, IsAConnectionOfItsOwn) {
  HttpPeer patient(AnswerWith("x"), HttpPeer::Ending::kHold);

  EXPECT_TRUE(HttpExchange("GET", patient.Url("/1"), "", "", 10, "*/*").ok);
  EXPECT_TRUE(HttpExchange("GET", patient.Url("/2"), "", "", 10, "*/*").ok);

  EXPECT_EQ(patient.Requests().size(), 2U);  // the peer reads one request of each connection
}

TEST_F(HttpRequest, GoesThroughTheProxyOfTheEnvironment) {
  ASSERT_EQ(::setenv("http_proxy", peer.Url().c_str(), 1), 0);

  EXPECT_TRUE(HttpExchange("GET", "http://portal.example/api", "", "", 10, "*/*").ok);

  EXPECT_TRUE(Head().starts_with("GET http://portal.example/api HTTP/1.1\r\n")) << Head();
}

}  // namespace
}  // namespace Tarnvale::KioskService

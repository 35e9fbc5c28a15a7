// Certificates: whom an exchange believes to be the portal.

#include <curl/curl.h>
#include <gtest/gtest.h>

#include <memory>

#include "device/process_linux.h"
#include "portal/http_linux.h"
#include "slots/support/child.h"
#include "slots/support/http_test.h"
#include "support/temp_dir.h"
#include "support/test_clock.h"

namespace Tarnvale::KioskService {
namespace {

class HttpsPeer : public HttpTest {
 protected:
  HttpsPeer() {
    TestClock::WaitForReal();
  }

  // Starts an https server on 127.0.0.1 with a certificate for this name.
  void StartServer(const std::string& certifiedName) {
    const ProcResult made =
        RunProcess({"/usr/bin/openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                    "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2", "-subj", "/CN=portal",
                    "-addext", "subjectAltName=" + certifiedName, "-keyout", directory.At("key"),
                    "-out", directory.At("certificate")},
                   10'000);
    ASSERT_EQ(made.status, 0) << made.output;
    server = std::make_unique<Child>(std::vector<std::string>{
        "/usr/bin/openssl", "s_server", "-accept", "127.0.0.1:0", "-www", "-cert",
        directory.At("certificate"), "-key", directory.At("key")});
    std::string line = server->ReadLine();
    while (!line.empty() && !line.starts_with("ACCEPT "))
      line = server->ReadLine();
    ASSERT_NE(line, "");
    url = "https://127.0.0.1" + line.substr(line.rfind(':')) + "/";
  }

  // Makes the system believe the server's certificate.
  void TrustTheServer() {
    WriteText("/etc/ssl/certs/ca-certificates.crt", ReadText(directory.At("certificate")));
  }

  void ExpectRefused() {
    const Http http = HttpExchange("GET", url, "", "token", 100'000, "*/*");
    EXPECT_FALSE(http.ok);
    EXPECT_EQ(http.error, curl_easy_strerror(CURLE_PEER_FAILED_VERIFICATION));
  }

  TempDir directory;
  std::unique_ptr<Child> server;
  std::string url;
};

TEST_F(HttpsPeer, IsAskedWhenTheSystemTrustsIt) {
  ASSERT_NO_FATAL_FAILURE(StartServer("IP:127.0.0.1"));
  TrustTheServer();

  const Http http = HttpExchange("GET", url, "", "token", 100'000, "*/*");

  EXPECT_TRUE(http.ok) << http.error;
  EXPECT_EQ(http.status, 200);
}

TEST_F(HttpsPeer, IsRefusedWhenNobodyVouchesForIt) {
  ASSERT_NO_FATAL_FAILURE(StartServer("IP:127.0.0.1"));

  ExpectRefused();
}

TEST_F(HttpsPeer, IsRefusedUnderAnotherName) {
  ASSERT_NO_FATAL_FAILURE(StartServer("DNS:portal.example"));
  TrustTheServer();

  ExpectRefused();
}

}  // namespace
}  // namespace Tarnvale::KioskService

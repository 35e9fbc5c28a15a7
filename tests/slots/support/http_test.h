// The fixture of tests that make real HTTP exchanges: libcurl ready, and no proxy in between.

#ifndef TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_HTTP_TEST_H_
#define TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_HTTP_TEST_H_

#include <stdlib.h>

#include <gtest/gtest.h>

#include "portal/http_linux.h"

namespace Tarnvale::KioskService {

class HttpTest : public ::testing::Test {
 protected:
  HttpTest() {
    for (const char* const name : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy",
                                   "ALL_PROXY", "no_proxy", "NO_PROXY"})
      (void)::unsetenv(name);  // fails for no such name
    PrepareHttp();
  }
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_HTTP_TEST_H_

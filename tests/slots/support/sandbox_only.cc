// Keeps tests that replace files of the system away from a real one: outside a sandbox none of them
// runs.

#include <sys/utsname.h>

#include <gtest/gtest.h>

#include <cstring>

namespace {

class SandboxOnly : public ::testing::Environment {
 public:
  void SetUp() override {
    utsname system = {};
    ASSERT_EQ(::uname(&system), 0);
    ASSERT_STREQ(system.nodename, "sandbox") << "run this through tests/support/sandbox";
  }
};

const ::testing::Environment* const sandboxOnly =
    ::testing::AddGlobalTestEnvironment(new SandboxOnly);

}  // namespace

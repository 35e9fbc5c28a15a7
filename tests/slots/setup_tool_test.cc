#include <gtest/gtest.h>

#include "kiosk/account_linux.h"
#include "slots/support/recorder.h"

namespace Tarnvale::KioskService {
namespace {

class RunSetupToolTest : public RecordedToolTest {
 protected:
  static constexpr char kTool[] = "/usr/sbin/kiosk-setup";

  bool Run(const std::string& lines) {
    Replace("kiosk-setup", lines);
    return RunSetupTool(kTool, true, &detail);
  }

  std::string detail = "as it was";
};

TEST_F(RunSetupToolTest, EnablesOrDisables) {
  Replace("kiosk-setup");

  EXPECT_TRUE(RunSetupTool(kTool, true, &detail));
  EXPECT_TRUE(RunSetupTool(kTool, false, &detail));

  EXPECT_EQ(Calls(),
            "kiosk-setup [enable] [--from-kioskd]\nkiosk-setup [disable] [--from-kioskd]\n");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(RunSetupToolTest, TellsATrimmedDetailOnSuccess) {
  EXPECT_TRUE(Run("printf ' \\n  all\\n done \\t\\n'"));

  EXPECT_EQ(detail, "all\n done");
}

TEST_F(RunSetupToolTest, TellsThatItIsNotInstalled) {
  EXPECT_FALSE(RunSetupTool("/usr/sbin/kiosk-setup", true, &detail));
  EXPECT_EQ(detail, "/usr/sbin/kiosk-setup is not installed");

  WriteText(directory.At("plain"), "#!/bin/sh\n", 0644);
  EXPECT_FALSE(RunSetupTool(directory.At("plain"), true, &detail));
  EXPECT_EQ(detail, directory.At("plain") + " is not installed");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(RunSetupToolTest, LogsAFailureWithWhatItSaid) {
  EXPECT_FALSE(Run("echo 'no space left' >&2; echo; exit 9"));

  EXPECT_EQ(detail, "no space left");
  EXPECT_EQ(log.Text(), "<3>/usr/sbin/kiosk-setup enable exited 9: no space left\n");
}

TEST_F(RunSetupToolTest, NamesTheVerbOfAFailure) {
  Replace("kiosk-setup", "exit 255");

  EXPECT_FALSE(RunSetupTool(kTool, false, &detail));

  EXPECT_EQ(log.Text(), "<3>/usr/sbin/kiosk-setup disable exited 255: \n");
}

TEST_F(RunSetupToolTest, FailsOnASignal) {
  EXPECT_FALSE(Run("echo so far; kill -KILL $$"));

  EXPECT_EQ(log.Text(), "<3>/usr/sbin/kiosk-setup enable exited -1: so far\n");
}

TEST_F(RunSetupToolTest, FailsWhenItCannotBeExecuted) {
  WriteText(kTool, "#!/nonexistent/sh\n", 0755);

  EXPECT_FALSE(RunSetupTool(kTool, true, &detail));

  EXPECT_EQ(detail, "");
  EXPECT_EQ(log.Text(), "<3>/usr/sbin/kiosk-setup enable exited 127: \n");
}

TEST_F(RunSetupToolTest, KeepsTheFirst800BytesOfTheTrimmedOutput) {
  const std::pair<int, std::size_t> rows[] = {{799, 799}, {800, 800}, {801, 800}, {5000, 800}};

  for (const auto& [printed, kept] : rows) {
    log.Clear();
    EXPECT_FALSE(Run("printf ' \\n'; head -c " + std::to_string(printed) +
                     " /dev/zero | tr '\\0' x; exit 1"));
    EXPECT_EQ(detail, std::string(kept, 'x')) << printed;
    EXPECT_EQ(log.Text(),
              "<3>/usr/sbin/kiosk-setup enable exited 1: " + std::string(kept, 'x') + "\n");
  }
}

TEST_F(RunSetupToolTest, HasFifteenMinutes) {
  Replace("kiosk-setup", kHang);

  EXPECT_FALSE(PassDeadline(900'000, [this] { return RunSetupTool(kTool, true, &detail); }));

  EXPECT_EQ(log.Text(),
            "<3>/usr/sbin/kiosk-setup did not finish in 900 s; stopped\n"
            "<3>/usr/sbin/kiosk-setup enable exited -1: \n");
}

}  // namespace
}  // namespace Tarnvale::KioskService

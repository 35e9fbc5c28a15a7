#include "kiosk/account_linux.h"

#include <gtest/gtest.h>

#include "kiosk/account.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace Tarnvale::KioskService {
namespace {

class LookupAccountTest : public ::testing::Test {
 protected:
  LookupAccountTest() {
    WriteText("/etc/nsswitch.conf", "passwd: files\ngroup: files\n");
  }

  // The password database of a terminal with this entry more.
  static void AddEntry(const std::string& entry) {
    WriteText("/etc/passwd", "root:x:0:0:root:/root:/bin/sh\n" + entry + "\n");
  }

  // An entry whose comment makes its strings this long altogether.
  static std::string EntryOf(std::size_t bytes) {
    const std::string before = "kiosk:x:1501:1501:";
    const std::string behind = ":/home/kiosk:/bin/sh";
    return before + std::string(bytes - before.size() - behind.size(), 'c') + behind;
  }

  unsigned uid = 77;
  std::string comment = "as it was";
  LogCapture log;
};

TEST_F(LookupAccountTest, FindsUidAndComment) {
  AddEntry("kiosk:x:1501:1502:Tarnvale kiosk,,,:/home/kiosk:/bin/sh");

  EXPECT_EQ(LookupAccount("kiosk", &uid, &comment), kAccountFound);
  EXPECT_EQ(uid, 1501U);
  EXPECT_EQ(comment, "Tarnvale kiosk,,,");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(LookupAccountTest, FindsAnEmptyComment) {
  AddEntry("kiosk:x:1501:1502::/home/kiosk:/bin/sh");

  EXPECT_EQ(LookupAccount("kiosk", &uid, &comment), kAccountFound);
  EXPECT_EQ(comment, "");
}

TEST_F(LookupAccountTest, FindsTheHighestUid) {
  AddEntry("kiosk:x:4294967294:1502::/home/kiosk:/bin/sh");

  EXPECT_EQ(LookupAccount("kiosk", &uid, nullptr), kAccountFound);
  EXPECT_EQ(uid, 4294967294U);
}

TEST_F(LookupAccountTest, NeedsNeitherPlace) {
  AddEntry("kiosk:x:1501:1502:text:/home/kiosk:/bin/sh");

  EXPECT_EQ(LookupAccount("kiosk", nullptr, &comment), kAccountFound);
  EXPECT_EQ(comment, "text");
  EXPECT_EQ(LookupAccount("kiosk", nullptr, nullptr), kAccountFound);
}

TEST_F(LookupAccountTest, TellsAnAccountThatIsMissing) {
  AddEntry("kiosk2:x:1501:1502:text:/home/kiosk:/bin/sh");

  for (const char* const name : {"kiosk", "KIOSK2", ""})
    EXPECT_EQ(LookupAccount(name, &uid, &comment), kAccountMissing) << name;
  EXPECT_EQ(uid, 77U);
  EXPECT_EQ(comment, "as it was");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(LookupAccountTest, ReadsAnEntryThatFitsTheBuffer) {
  AddEntry(EntryOf(16'300));  // the C library needs a little for itself

  EXPECT_EQ(LookupAccount("kiosk", &uid, &comment), kAccountFound);
  EXPECT_GT(comment.size(), 16'000U);
}

TEST_F(LookupAccountTest, FailsOnAnEntryLongerThanTheBuffer) {
  AddEntry(EntryOf(16'385));

  EXPECT_EQ(LookupAccount("kiosk", &uid, &comment), kAccountLookupFailed);
  EXPECT_EQ(uid, 77U);
  EXPECT_EQ(comment, "as it was");
  EXPECT_EQ(log.Text(), "<3>getpwnam(kiosk) failed (Numerical result out of range)\n");
}

}  // namespace
}  // namespace Tarnvale::KioskService

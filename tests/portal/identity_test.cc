#include "portal/identity.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <string>

#include "core/state.h"
#include "support/service_test.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kForeignLine[] = "<4>the device token was issued to another machine-id; ignoring it";

TEST(Sha256Hex, GivesThePublishedDigests) {
  struct Row {
    std::string bytes;
    const char* expected;
  };
  const Row rows[] = {
      {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
      {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
       "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
      {std::string(1'000'000, 'a'),
       "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
      {std::string(1, '\0'), "6e340b9cffb37a989ca544e6bb780a2c78901d3fb33738768511a30617afa01d"},
  };

  for (const Row& row : rows)
    EXPECT_EQ(Sha256Hex(row.bytes), row.expected) << row.bytes.size() << " bytes";
}

using MachineIdHashTest = ServiceTest;

TEST_F(MachineIdHashTest, IsTheDigestOfTheTrimmedText) {
  for (const char* const text : {"abc", "abc\n", " \t\r\n abc \n\n"}) {
    WriteText(config.machineIdPath, text);

    EXPECT_EQ(MachineIdHash(), Sha256Hex("abc")) << text;
  }
  WriteText(config.machineIdPath, "a b\n");
  EXPECT_EQ(MachineIdHash(), Sha256Hex("a b"));
}

TEST_F(MachineIdHashTest, IsEmptyWhenTheFileGivesNothing) {
  for (const char* const text : {"", " ", "\n", " \t\r\n\v\f"}) {
    WriteText(config.machineIdPath, text);

    EXPECT_EQ(MachineIdHash(), "") << "'" << text << "'";
  }
  EXPECT_EQ(log.Text(), "");
}

TEST_F(MachineIdHashTest, TakesAFileOf256BytesAndNoneAbove) {
  WriteText(config.machineIdPath, std::string(256, 'a'));
  EXPECT_EQ(MachineIdHash(), Sha256Hex(std::string(256, 'a')));

  WriteText(config.machineIdPath, std::string(257, 'a'));
  EXPECT_EQ(MachineIdHash(), "");

  WriteText(config.machineIdPath, "abc" + std::string(254, '\n'));
  EXPECT_EQ(MachineIdHash(), "");
}

TEST_F(MachineIdHashTest, IsEmptyWithoutAFile) {
  ASSERT_EQ(::unlink(config.machineIdPath.c_str()), 0);

  EXPECT_EQ(MachineIdHash(), "");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(MachineIdHashTest, DoesNotFollowALink) {
  const std::string real = dir.At("real-machine-id");
  ASSERT_EQ(::rename(config.machineIdPath.c_str(), real.c_str()), 0);
  ASSERT_EQ(::symlink(real.c_str(), config.machineIdPath.c_str()), 0);

  EXPECT_EQ(MachineIdHash(), "");
}

TEST_F(MachineIdHashTest, IsEmptyForADirectory) {
  ASSERT_EQ(::unlink(config.machineIdPath.c_str()), 0);
  ASSERT_EQ(::mkdir(config.machineIdPath.c_str(), 0700), 0);

  EXPECT_EQ(MachineIdHash(), "");
}

TEST_F(MachineIdHashTest, DoesNotWaitForTheWriterOfAFifo) {
  ASSERT_EQ(::unlink(config.machineIdPath.c_str()), 0);
  ASSERT_EQ(::mkfifo(config.machineIdPath.c_str(), 0600), 0);

  EXPECT_EQ(MachineIdHash(), "");
}

using CurrentDeviceTokenTest = ServiceTest;

TEST_F(CurrentDeviceTokenTest, IsEmptyWithoutAToken) {
  EXPECT_EQ(CurrentDeviceToken(), "");

  StateSetString(StateKey::kDeviceId, "of another machine");
  EXPECT_EQ(CurrentDeviceToken(), "");
  StateSetInt(StateKey::kDeviceToken, 5);
  EXPECT_EQ(CurrentDeviceToken(), "");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(CurrentDeviceTokenTest, IsTheTokenOfThisMachine) {
  Enrol();

  EXPECT_EQ(CurrentDeviceToken(), kTestToken);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(CurrentDeviceTokenTest, AcceptsATokenWithoutARecordedMachine) {
  StateSetString(StateKey::kDeviceToken, kTestToken);
  EXPECT_EQ(CurrentDeviceToken(), kTestToken);

  StateSetString(StateKey::kDeviceId, "");
  EXPECT_EQ(CurrentDeviceToken(), kTestToken);
  ASSERT_EQ(::unlink(config.machineIdPath.c_str()), 0);
  EXPECT_EQ(CurrentDeviceToken(), kTestToken);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(CurrentDeviceTokenTest, ComparesTheMachineByteForByte) {
  Enrol();
  std::string capitals = MachineIdHash();
  for (char& byte : capitals)
    byte = static_cast<char>(std::toupper(byte));
  StateSetString(StateKey::kDeviceId, capitals);

  EXPECT_EQ(CurrentDeviceToken(), "");
}

TEST_F(CurrentDeviceTokenTest, IgnoresATokenOfAnotherMachineAndSaysSoOnce) {
  Enrol();
  WriteText(config.machineIdPath, "another machine\n");

  for (int call = 0; call < 3; ++call)
    EXPECT_EQ(CurrentDeviceToken(), "");
  EXPECT_EQ(log.Text(), std::string(kForeignLine) + "\n");
  EXPECT_EQ(StateGetString(StateKey::kDeviceToken), kTestToken);
}

TEST_F(CurrentDeviceTokenTest, IgnoresTheTokenWhileTheMachineIdCannotBeRead) {
  Enrol();
  ASSERT_EQ(::unlink(config.machineIdPath.c_str()), 0);

  EXPECT_EQ(CurrentDeviceToken(), "");
  EXPECT_TRUE(log.Has(kForeignLine));
}

TEST_F(CurrentDeviceTokenTest, CountsAgainFromTheNextCallAfterTheFileIsRestored) {
  Enrol();
  WriteText(config.machineIdPath, "another machine\n");
  EXPECT_EQ(CurrentDeviceToken(), "");

  WriteText(config.machineIdPath, kTestMachineId);
  EXPECT_EQ(CurrentDeviceToken(), kTestToken);
  WriteText(config.machineIdPath, "a third machine\n");
  EXPECT_EQ(CurrentDeviceToken(), "");
  EXPECT_EQ(log.Count(kForeignLine), 1);
}

}  // namespace
}  // namespace Tarnvale::KioskService

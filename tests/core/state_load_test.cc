// What may stand at the place of the state file, and how the service starts from it.

#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "core/state.h"
#include "support/service_test.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kNotAnObject[] = "<3>the state file is not a JSON object; starting unenrolled\n";
constexpr std::size_t kMaxStateBytes = 4194304;

class StateLoadTest : public ServiceTest {
 protected:
  StateLoadTest() {
    StateSetString("before", "x");
    EXPECT_EQ(::unlink(path.c_str()), 0);
  }

  // The document is empty: what was known before is forgotten, and the next save holds its own key
  // alone.
  void ExpectNothingKnown() {
    EXPECT_EQ(StateGetString("before"), "");
    StateSetInt("next", 1);
    EXPECT_EQ(ReadText(path), R"({"next":1})");
  }

  const std::string path = config.stateDir + "/state.json";
};

TEST_F(StateLoadTest, ReadsTheObject) {
  WriteState(R"({"a":"x","b":2})");

  LoadState();

  EXPECT_EQ(StateGetString("a"), "x");
  EXPECT_EQ(StateGetInt("b"), 2);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(StateLoadTest, ReplacesWhatWasInMemory) {
  WriteState("{}");

  LoadState();

  ExpectNothingKnown();
}

TEST_F(StateLoadTest, StartsEmptyWithoutAFileAndSaysNothing) {
  LoadState();

  EXPECT_EQ(log.Text(), "");
  EXPECT_FALSE(Exists(path));
  ExpectNothingKnown();
}

TEST_F(StateLoadTest, TellsAnEmptyFileFromNone) {
  WriteState("");

  LoadState();

  EXPECT_EQ(log.Text(), kNotAnObject);
  ExpectNothingKnown();
}

TEST_F(StateLoadTest, TellsThatItIsNoObject) {
  for (const char* text : {"[]", "null", "1", "true", R"("{}")", " ", R"({"before":"x")",
                           R"({"before":"x","a":)", "<html>", "\x01\xff"}) {
    WriteState(text);
    log.Clear();

    LoadState();

    EXPECT_EQ(log.Text(), kNotAnObject) << text;
    EXPECT_EQ(StateGetString("before"), "") << text;
  }
  ExpectNothingKnown();
}

TEST_F(StateLoadTest, LeavesADamagedFileAloneUntilTheNextSave) {
  WriteState(R"({"before":"x",)");

  LoadState();
  EXPECT_EQ(ReadText(path), R"({"before":"x",)");

  ExpectNothingKnown();
}

TEST_F(StateLoadTest, IsAsTolerantAsTheParser) {
  WriteState("\n{\"a\":\"x\",\"a\":\"y\"} trailing");

  LoadState();

  EXPECT_EQ(StateGetString("a"), "y");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(StateLoadTest, FollowsNoLinkAndReplacesItWithTheNextSave) {
  WriteText(dir.At("target"), R"({"before":"x"})");
  ASSERT_EQ(::symlink(dir.At("target").c_str(), path.c_str()), 0);

  LoadState();

  EXPECT_EQ(log.Text(), "");
  ExpectNothingKnown();
  struct stat status = {};
  ASSERT_EQ(::lstat(path.c_str(), &status), 0);
  EXPECT_TRUE(S_ISREG(status.st_mode));
  EXPECT_EQ(ReadText(dir.At("target")), R"({"before":"x"})");
}

TEST_F(StateLoadTest, TakesADirectoryForNoFile) {
  ASSERT_EQ(::mkdir(path.c_str(), 0755), 0);

  LoadState();
  EXPECT_EQ(log.Text(), "");
  EXPECT_EQ(StateGetString("before"), "");

  StateSetInt("next", 1);
  EXPECT_EQ(log.Text(), "<3>cannot write " + path + " (Is a directory)\n");
  EXPECT_EQ(StateGetInt("next"), 1);
}

TEST_F(StateLoadTest, ReadsAFileOfTheLargestSize) {
  const std::string head = R"({"a":")";
  WriteState(head + std::string(kMaxStateBytes - head.size() - 2, 'x') + R"("})");

  LoadState();

  EXPECT_EQ(StateGetString("a").size(), kMaxStateBytes - head.size() - 2);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(StateLoadTest, TakesAFileOfOneByteMoreForNone) {
  const std::string head = R"({"a":")";
  WriteState(head + std::string(kMaxStateBytes - head.size() - 1, 'x') + R"("})");

  LoadState();

  EXPECT_EQ(StateGetString("a"), "");
  EXPECT_EQ(log.Text(), "");
}

}  // namespace
}  // namespace Tarnvale::KioskService

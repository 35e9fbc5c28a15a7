// The state document and its accessors.

#include "core/state.h"

#include <sys/stat.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "core/failing_calls.h"
#include "core/file_size_limit.h"
#include "support/save_counter.h"
#include "support/service_test.h"

namespace Tarnvale::KioskService {
namespace {

class StateTest : public ServiceTest {
 protected:
  // The document as it stands in the file.
  std::string File() const {
    return ReadText(path);
  }
  void LoadFrom(const std::string& text) {
    WriteState(text);
    LoadState();
  }

  const std::string path = config.stateDir + "/state.json";
  SaveCounter saves{config.stateDir, "state.json"};
};

using StateGetTest = StateTest;
using StateSetTest = StateTest;
using StateClearTest = StateTest;
using StateUpdateStringTest = StateTest;
using StateSaveTest = StateTest;
using StateThreads = StateTest;

TEST_F(StateGetTest, GivesTextsOnlyForStrings) {
  LoadFrom(R"({"text":"a","empty":"","nul":"a\u0000b","null":null,"number":1,"bool":true,)"
           R"("array":["a"],"object":{"a":"a"}})");

  EXPECT_EQ(StateGetString("text"), "a");
  EXPECT_EQ(StateGetString("nul"), std::string("a\0b", 3));
  for (const char* key : {"empty", "null", "number", "bool", "array", "object", "absent"}) {
    EXPECT_EQ(StateGetString(key), "") << key;
  }
}

TEST_F(StateGetTest, GivesIntegersOnlyForNumbers) {
  LoadFrom(R"({"number":1,"negative":-5,"time":1800000000000,"fraction":1.9,"text":"1",)"
           R"("bool":true,"null":null,"array":[1],"object":{"a":1}})");

  EXPECT_EQ(StateGetInt("number"), 1);
  EXPECT_EQ(StateGetInt("negative"), -5);
  EXPECT_EQ(StateGetInt("time"), 1800000000000);
  EXPECT_EQ(StateGetInt("fraction"), 1);
  for (const char* key : {"text", "bool", "null", "array", "object", "absent"}) {
    EXPECT_EQ(StateGetInt(key), 0) << key;
  }
}

TEST_F(StateGetTest, HonoursAFlagOnlyAsTheNumberOne) {
  for (const char* flag : {R"("1")", "true", R"("true")", "[1]"}) {
    LoadFrom(std::string(R"({"Provisioned":)") + flag + "}");
    EXPECT_EQ(StateGetInt(StateKey::kProvisioned), 0) << flag;
  }
  LoadFrom(R"({"Provisioned":1})");
  EXPECT_EQ(StateGetInt(StateKey::kProvisioned), 1);
}

TEST_F(StateGetTest, WritesNothing) {
  EXPECT_EQ(StateGetString("a"), "");
  EXPECT_EQ(StateGetInt("a"), 0);

  EXPECT_FALSE(Exists(path));
}

TEST_F(StateSetTest, WritesTheDocumentThroughAtOnce) {
  StateSetString("b", "text\n");
  EXPECT_EQ(File(), R"({"b":"text\n"})");

  StateSetInt("a", 1800000000000);
  EXPECT_EQ(File(), R"({"b":"text\n","a":1800000000000})");

  StateSet("b", *Json::Parse("[1,{}]"));
  EXPECT_EQ(File(), R"({"b":[1,{}],"a":1800000000000})");
  EXPECT_EQ(saves.Count(), 3);
}

TEST_F(StateSetTest, IsSeenByTheNextLoad) {
  StateSetString("text", "a\"\\\x01\xC3\xA9");
  StateSetInt("number", -7);

  LoadState();

  EXPECT_EQ(StateGetString("text"), "a\"\\\x01\xC3\xA9");
  EXPECT_EQ(StateGetInt("number"), -7);
}

TEST_F(StateSetTest, KeepsWhatItDoesNotKnow) {
  LoadFrom(R"( { "Later" : {"a":[true]} , "DeviceToken" : "t" } )");

  StateSetInt("Provisioned", 1);

  EXPECT_EQ(File(), R"({"Later":{"a":[true]},"DeviceToken":"t","Provisioned":1})");
}

TEST_F(StateSetTest, WritesTheSameValueAgain) {
  StateSetString("a", "x");
  StateSetString("a", "x");
  StateSetInt("b", 1);
  StateSetInt("b", 1);

  EXPECT_EQ(saves.Count(), 4);
}

TEST_F(StateSetTest, WritesForRootAlone) {
  ::umask(0);

  StateSetInt("a", 1);

  EXPECT_EQ(ModeOf(path), 0600U);
}

TEST_F(StateSetTest, UsesTheKeysOfTheFile) {
  const std::pair<const char*, const char*> keys[] = {
      {StateKey::kDeviceToken, "DeviceToken"},
      {StateKey::kDeviceId, "DeviceId"},
      {StateKey::kProvisioned, "Provisioned"},
      {StateKey::kAccountUid, "AccountUid"},
      {StateKey::kTeardownPending, "TeardownPending"},
      {StateKey::kMaintenance, "Maintenance"},
      {StateKey::kLastError, "LastError"},
      {StateKey::kUnknownSince, "UnknownSince"},
      {StateKey::kSignIn, "SignIn"},
      {StateKey::kTerminalName, "TerminalName"},
      {StateKey::kPowerPolicy, "PowerPolicy"},
      {StateKey::kPowerSource, "PowerSource"},
      {StateKey::kPowerLocal, "PowerLocal"},
      {StateKey::kPowerError, "PowerError"},
      {StateKey::kUpdatesPolicy, "UpdatesPolicy"},
      {StateKey::kUpdatesSource, "UpdatesSource"},
      {StateKey::kOsUpdatesReport, "OsUpdatesReport"},
      {StateKey::kAuthBaseUrl, "AuthBaseUrl"},
      {StateKey::kDevAllowAnyCaller, "DevAllowAnyCaller"},
  };
  for (const auto& [key, name] : keys)
    EXPECT_STREQ(key, name);
}

TEST_F(StateClearTest, LeavesTheKeyInTheFileAsNull) {
  StateSetString("a", "x");
  StateSetInt("b", 1);

  StateClear("a");
  StateClear("b");

  EXPECT_EQ(File(), R"({"a":null,"b":null})");
  EXPECT_EQ(StateGetString("a"), "");
  EXPECT_EQ(StateGetInt("b"), 0);
  EXPECT_EQ(saves.Count(), 4);
}

TEST_F(StateClearTest, LeavesTheFileAloneWhenThereIsNothingToClear) {
  WriteState(R"( {"null" : null} )");
  LoadState();

  StateClear("absent");
  StateClear("null");

  EXPECT_EQ(File(), R"( {"null" : null} )");
  EXPECT_EQ(saves.Count(), 0);
}

TEST_F(StateClearTest, MakesNoFile) {
  StateClear("absent");

  EXPECT_FALSE(Exists(path));
}

TEST_F(StateClearTest, ClearsAValueOfAnyOtherKind) {
  LoadFrom(R"({"a":false,"b":[],"c":{},"d":"","e":0})");

  for (const char* key : {"a", "b", "c", "d", "e"})
    StateClear(key);

  EXPECT_EQ(File(), R"({"a":null,"b":null,"c":null,"d":null,"e":null})");
}

TEST_F(StateUpdateStringTest, WritesAChangeOnce) {
  EXPECT_TRUE(StateUpdateString("a", "x"));
  EXPECT_FALSE(StateUpdateString("a", "x"));
  EXPECT_TRUE(StateUpdateString("a", "y"));
  EXPECT_FALSE(StateUpdateString("a", "y"));

  EXPECT_EQ(File(), R"({"a":"y"})");
  EXPECT_EQ(saves.Count(), 2);
}

TEST_F(StateUpdateStringTest, ClearsForAnEmptyText) {
  StateSetString("a", "x");

  EXPECT_TRUE(StateUpdateString("a", ""));
  EXPECT_FALSE(StateUpdateString("a", ""));

  EXPECT_EQ(File(), R"({"a":null})");
  EXPECT_EQ(saves.Count(), 2);
}

TEST_F(StateUpdateStringTest, TakesAnythingThatIsNoTextForEmpty) {
  LoadFrom(R"({"number":1,"null":null})");

  for (const char* key : {"number", "null", "absent"})
    EXPECT_FALSE(StateUpdateString(key, "")) << key;
  EXPECT_EQ(saves.Count(), 0);

  EXPECT_TRUE(StateUpdateString("number", "x"));
  EXPECT_EQ(File(), R"({"number":"x","null":null})");
}

TEST_F(StateSaveTest, WritesTwoKeysInOneReplacement) {
  {
    const MutexLock lock(stateLock);
    StateDocument().Set("DeviceToken", "t");
    StateDocument().Set("DeviceId", "i");
    StateSave();
  }

  EXPECT_EQ(File(), R"({"DeviceToken":"t","DeviceId":"i"})");
  EXPECT_EQ(saves.Count(), 1);
}

TEST_F(StateSaveTest, IsNotBlockedByTheLeftoverOfACrash) {
  WriteText(path + ".tmp", R"({"half":)");

  StateSetInt("a", 1);

  EXPECT_EQ(File(), R"({"a":1})");
  EXPECT_FALSE(Exists(path + ".tmp"));
}

TEST_F(StateSaveTest, IsAheadInMemoryWhileTheDiskIsFullAndMadeGoodByTheNext) {
  const std::string text(5000, 'x');
  StateSetString("a", "old");
  {
    const FileSizeLimit full(4096);
    StateSetString("a", text);
    EXPECT_EQ(log.Text(), "<3>cannot write " + path + " (File too large)\n");
  }
  EXPECT_EQ(StateGetString("a"), text);
  EXPECT_EQ(File(), R"({"a":"old"})");
  EXPECT_FALSE(Exists(path + ".tmp"));

  StateSetInt("b", 1);
  EXPECT_EQ(File(), R"({"a":")" + text + R"(","b":1})");
}

TEST_F(StateSaveTest, TellsEveryFailureAndForgetsNothing) {
  StateSetString("a", "x");
  const FailingCalls disk;
  FailingCalls::Fail("rename", EROFS);

  StateSetString("a", "y");
  StateClear("a");

  EXPECT_EQ(log.Count("<3>cannot write " + path + " (Read-only file system)"), 2);
  EXPECT_EQ(StateGetString("a"), "");
  EXPECT_EQ(File(), R"({"a":"x"})");
}

TEST_F(StateSaveTest, TellsThatItsDirectoryIsGone) {
  ASSERT_EQ(::rename(config.stateDir.c_str(), dir.At("away").c_str()), 0);

  StateSetInt("a", 1);

  EXPECT_EQ(log.Text(), "<3>cannot create " + path + ".tmp (No such file or directory)\n");
  EXPECT_EQ(StateGetInt("a"), 1);
}

TEST_F(StateThreads, SeeWholeValuesAndLoseNone) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 25;
  const std::string texts[2] = {std::string(100, 'a'), std::string(2000, 'b')};

  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([thread, &texts] {
      const std::string own = "own" + std::to_string(thread);
      for (int round = 1; round <= kRounds; ++round) {
        StateSetInt(own.c_str(), round);
        StateUpdateString("shared", texts[round % 2]);
        const std::string seen = StateGetString("shared");
        EXPECT_TRUE(seen == texts[0] || seen == texts[1]);
        EXPECT_EQ(StateGetInt(own.c_str()), round);
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();

  LoadState();
  for (int thread = 0; thread < kThreads; ++thread)
    EXPECT_EQ(StateGetInt(("own" + std::to_string(thread)).c_str()), kRounds);
}

}  // namespace
}  // namespace Tarnvale::KioskService

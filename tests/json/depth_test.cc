// No depth of a value ends the process: whatever is done with the deepest texts that callers let
// through takes no more stack than a flat one.

#include <pthread.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>

#include "json/deep_texts.h"
#include "json/json.h"

namespace Tarnvale::KioskService {
namespace {

// A fraction of the 8 MiB of an ordinary thread, so that a step which recurses does not get
// through.
constexpr std::size_t kStackBytes = 256UL * 1024;

constexpr std::size_t kRequestBytes = 9215;
constexpr std::size_t kPortalBodyBytes = 65537;
constexpr std::size_t kStateBytes = 4UL * 1024 * 1024;

void* RunAction(void* action) {
  (*static_cast<const std::function<void()>*>(action))();
  return nullptr;
}

void OnASmallStack(const std::function<void()>& action) {
  pthread_attr_t attributes;
  pthread_t thread = {};
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, kStackBytes), 0);
  std::function<void()> copy = action;
  ASSERT_EQ(pthread_create(&thread, &attributes, RunAction, &copy), 0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  (void)pthread_attr_destroy(&attributes);
}

class JsonDepth : public ::testing::TestWithParam<std::pair<const char*, std::size_t>> {
 protected:
  const std::string opening = GetParam().first;
  const std::size_t bytes = GetParam().second;
};

TEST_P(JsonDepth, RefusesWhatIsOpenedAndNeverClosed) {
  const std::string text = Opened(opening, bytes);
  std::string error;

  OnASmallStack([&] { EXPECT_FALSE(Json::Parse(text, &error).has_value()); });

  EXPECT_EQ(error, "unexpected end of input at offset " + std::to_string(text.size()));
}

TEST_P(JsonDepth, ReadsAndWritesWhatIsComplete) {
  const std::string text = NestedInBytes(opening, bytes);
  std::string written;

  OnASmallStack([&] { written = Json::Parse(text).value_or(Json()).Dump(); });

  EXPECT_TRUE(written == text);
}

TEST_P(JsonDepth, CopiesAndAssignsWhatIsComplete) {
  const std::string text = NestedInBytes(opening, bytes);
  std::string written;

  OnASmallStack([&] {
    const Json value = Json::Parse(text).value_or(Json());
    Json copy = value;
    Json assigned = *Json::Parse(Nested(opening, 2));
    assigned = copy;
    copy = Json();
    written = assigned.Dump();
  });

  EXPECT_TRUE(written == text);
}

TEST_P(JsonDepth, ReplacesADeepValueByALeaf) {
  const std::string text = NestedInBytes(opening, bytes);
  std::string written;

  OnASmallStack([&] {
    Json holder = Json::Object();
    holder.Set("a", Json::Parse(text).value_or(Json()));
    holder.Set("a", 1);
    Json array = Json::Parse("[" + text + "]").value_or(Json());
    array.Set("b", 2);
    array.Append(3);
    written = holder.Dump() + array.Dump();
  });

  EXPECT_EQ(written, R"({"a":1}[3])");
}

INSTANTIATE_TEST_SUITE_P(ArraysAndObjects, JsonDepth,
                         ::testing::Values(std::pair(kOpenArray, kRequestBytes),
                                           std::pair(kOpenObject, kRequestBytes),
                                           std::pair(kOpenArray, kPortalBodyBytes),
                                           std::pair(kOpenObject, kPortalBodyBytes)),
                         [](const auto& instance) {
                           const bool isArray = instance.param.first == std::string(kOpenArray);
                           return (isArray ? "Arrays" : "Objects") +
                                  std::to_string(instance.param.second);
                         });

// Only root writes the state file, so this is about damage; once through everything is enough.
TEST(JsonDepthOfAStateFile, EndsNothing) {
  for (const std::string opening : {kOpenArray, kOpenObject}) {
    const std::string text = NestedInBytes(opening, kStateBytes);
    std::string written;

    OnASmallStack([&] {
      EXPECT_FALSE(Json::Parse(Opened(opening, kStateBytes)).has_value());
      const Json value = Json::Parse(text).value_or(Json());
      const Json copy = value;
      written = copy.Dump();
    });

    EXPECT_TRUE(written == text);
  }
}

TEST(JsonDepthMixed, WritesBackArraysAndObjectsInTurn) {
  constexpr std::size_t kTurns = 20000;
  const std::string text =
      Repeated(R"({"a":[0,)", kTurns) + "1" + Repeated(R"(,2],"b":3})", kTurns);
  std::string written;

  OnASmallStack([&] { written = Json::Parse(text).value_or(Json()).Dump(); });

  EXPECT_TRUE(written == text);
}

}  // namespace
}  // namespace Tarnvale::KioskService

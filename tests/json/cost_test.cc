// What the work on deep and long texts costs, told by the bytes that are allocated meanwhile: twice
// the text takes twice the bytes, not four times. A clock would tell the machine's mood as well.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <new>
#include <string>

#include "json/deep_texts.h"
#include "json/json.h"

namespace {

std::atomic<std::size_t> allocatedBytes{0};

}  // namespace

// Every way in which the standard library allocates and frees in this program, so that no sanitizer
// finds a pair of which it knows one half.
void* operator new(std::size_t bytes) {
  allocatedBytes += bytes;
  if (void* const memory = std::malloc(bytes == 0 ? 1 : bytes)) return memory;
  throw std::bad_alloc();
}

void* operator new(std::size_t bytes, const std::nothrow_t& /*tag*/) noexcept {
  allocatedBytes += bytes;
  return std::malloc(bytes == 0 ? 1 : bytes);
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t /*bytes*/) noexcept {
  std::free(memory);
}

void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept {
  std::free(memory);
}

namespace Tarnvale::KioskService {
namespace {

// Powers of two, so that vectors that double their room have used it up in both measurements.
constexpr std::size_t kUnits = 4096;
constexpr double kLargestRatio = 2.5;

std::size_t BytesOf(const std::function<void()>& action) {
  const std::size_t before = allocatedBytes.load();
  action();
  return allocatedBytes.load() - before;
}

// Compares the cost of `action` on the text of so many units with that on twice as many.
void ExpectLinear(const std::function<std::string(std::size_t units)>& makeText,
                  const std::function<void(const std::string& text, const Json& value)>& action) {
  std::size_t cost[2] = {};
  for (const std::size_t factor : {1U, 2U}) {
    const std::string text = makeText(factor * kUnits);
    const Json value = Json::Parse(text).value_or(Json());
    cost[factor - 1] = BytesOf([&] { action(text, value); });
  }
  ASSERT_GT(cost[0], 0U);
  EXPECT_LT(static_cast<double>(cost[1]), kLargestRatio * static_cast<double>(cost[0]));
}

const std::function<std::string(std::size_t)> kDeepTexts[] = {
    [](std::size_t units) { return Nested(kOpenArray, units); },
    [](std::size_t units) { return Nested(kOpenObject, units); },
    [](std::size_t units) { return Repeated("[0,", units) + "1" + std::string(units, ']'); },
};

TEST(JsonCost, GrowsWithTheDepthWhenParsing) {
  for (const auto& makeText : kDeepTexts) {
    ExpectLinear(makeText, [](const std::string& text, const Json&) {
      EXPECT_TRUE(Json::Parse(text).has_value());
    });
  }
}

TEST(JsonCost, GrowsWithTheDepthWhenRefusing) {
  for (const char* opening : {kOpenArray, kOpenObject}) {
    ExpectLinear(
        [opening](std::size_t units) { return Repeated(opening, units); },
        [](const std::string& text, const Json&) { EXPECT_FALSE(Json::Parse(text).has_value()); });
  }
}

TEST(JsonCost, GrowsWithTheDepthWhenCopying) {
  for (const auto& makeText : kDeepTexts) {
    ExpectLinear(makeText, [](const std::string&, const Json& value) {
      const Json copy = value;
      EXPECT_EQ(copy.Size(), value.Size());
    });
  }
}

TEST(JsonCost, GrowsWithTheDepthWhenWriting) {
  for (const auto& makeText : kDeepTexts) {
    ExpectLinear(makeText, [](const std::string& text, const Json& value) {
      EXPECT_EQ(value.Dump().size(), text.size());
    });
  }
}

TEST(JsonCost, GrowsWithTheLengthOfAnArray) {
  ExpectLinear([](std::size_t units) { return "[" + Repeated("[1],", units - 1) + "1]"; },
               [](const std::string& text, const Json& value) {
                 EXPECT_EQ(Json::Parse(text)->Size(), value.Size());
               });
}

TEST(JsonCost, GrowsWithTheLengthOfAString) {
  ExpectLinear([](std::size_t units) { return '"' + Repeated("\\u0001x", units) + '"'; },
               [](const std::string& text, const Json& value) {
                 EXPECT_EQ(value.Dump(), text);
                 EXPECT_TRUE(Json::Parse(text).has_value());
               });
}

}  // namespace
}  // namespace Tarnvale::KioskService

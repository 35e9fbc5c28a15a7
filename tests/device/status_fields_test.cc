#include "device/status_fields.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace Tarnvale::KioskService {
namespace {

using std::string_literals::operator""s;

using Fields = std::vector<std::string>;

TEST(SplitStatusFields, SplitsAtColonsThatAreNotEscaped) {
  struct Row {
    std::string text;
    Fields expected;
  };
  const Row rows[] = {
      {R"(a:b)", {"a", "b"}},
      {R"(a\:b)", {"a:b"}},
      {"", {""}},
      {"a", {"a"}},
      {":", {"", ""}},
      {":a::b:", {"", "a", "", "b", ""}},
      {R"(a\\:b)", {R"(a\)", "b"}},
      {R"(a\\\:b)", {R"(a\:b)"}},
      {R"(\a\b\n)", {"abn"}},
      {R"(\)", {R"(\)"}},
      {R"(a:b\)", {"a", R"(b\)"}},
      {R"(a\\)", {R"(a\)"}},
      {R"(a\\\)", {R"(a\\)"}},
      {R"(\:\:)", {"::"}},
      {"\0:\xff\n:\r"s, {"\0"s, "\xff\n", "\r"}},
      {"GENERAL.STATE:100 (connected)", {"GENERAL.STATE", "100 (connected)"}},
      {"pmstatus:libc6:50.0000:Unpacking libc6 (amd64)",
       {"pmstatus", "libc6", "50.0000", "Unpacking libc6 (amd64)"}},
  };

  for (const Row& row : rows)
    EXPECT_EQ(SplitStatusFields(row.text), row.expected) << row.text;
}

// Bytes that mean something here come often, all others now and then.
std::string RandomText(std::mt19937& generator, std::size_t maxBytes) {
  constexpr std::string_view kBytes = R"(:::\\\ab)";
  std::string text(generator() % (maxBytes + 1), '\0');
  for (char& byte : text) {
    const std::size_t choice = generator() % (kBytes.size() + 1);
    byte = choice < kBytes.size() ? kBytes[choice] : static_cast<char>(generator());
  }
  return text;
}

std::string Escape(const std::string& field) {
  std::string escaped;
  for (const char byte : field) {
    if (byte == ':' || byte == '\\') escaped += '\\';
    escaped += byte;
  }
  return escaped;
}

TEST(SplitStatusFields, GivesBackWhateverWasEscaped) {
  std::mt19937 generator(1);

  for (int round = 0; round < 20'000; ++round) {
    Fields fields(1 + generator() % 5);
    std::string line;
    for (std::string& field : fields) {
      field = RandomText(generator, 12);
      line += (&field == &fields.front() ? "" : ":") + Escape(field);
    }
    ASSERT_EQ(SplitStatusFields(line), fields) << line;
  }
}

TEST(SplitStatusFields, TakesAnyBytes) {
  std::mt19937 generator(2);

  for (int round = 0; round < 20'000; ++round) {
    const std::string text = RandomText(generator, 40);
    const Fields fields = SplitStatusFields(text);

    ASSERT_GE(fields.size(), 1U);
    ASSERT_LE(fields.size(),
              1U + static_cast<std::size_t>(std::count(text.begin(), text.end(), ':')));
    // What is not in a field divides fields or escapes.
    const std::size_t kept =
        std::accumulate(fields.begin(), fields.end(), std::size_t{0},
                        [](std::size_t sum, const std::string& f) { return sum + f.size(); });
    ASSERT_LE(kept + fields.size() - 1, text.size()) << text;
  }
}

TEST(SplitStatusFields, TakesLongLines) {
  constexpr std::size_t kBytes = 200'000;

  EXPECT_EQ(SplitStatusFields(std::string(kBytes, ':')).size(), kBytes + 1);
  EXPECT_EQ(SplitStatusFields(std::string(kBytes, '\\')), Fields{std::string(kBytes / 2, '\\')});
  EXPECT_EQ(SplitStatusFields(std::string(kBytes, 'x')), Fields{std::string(kBytes, 'x')});
}

}  // namespace
}  // namespace Tarnvale::KioskService

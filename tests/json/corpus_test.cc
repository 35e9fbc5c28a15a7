// The parser held against texts and readings of others: see corpus/README.md.

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "core/text.h"
#include "json/json.h"
#include "support/temp_dir.h"

namespace Tarnvale::KioskService {
namespace {

const std::string kCorpus = KIOSK_JSON_CORPUS;

std::vector<std::string> NamesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(kCorpus + folder)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> LinesOf(const std::string& file) {
  std::vector<std::string> lines;
  std::istringstream text(ReadText(kCorpus + file));
  for (std::string line; std::getline(text, line);) {
    if (!line.empty() && line[0] != '#') lines.push_back(line);
  }
  return lines;
}

std::string HexOf(const std::string& bytes) {
  std::string hex = "s";
  for (const char byte : bytes)
    hex += FormatText("%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
  return hex;
}

// The notation of corpus/make_expected: every byte and every bit of a value, in one line. The
// corpus is shallow, so this may recurse.
std::string NotationOf(const Json& value) {
  if (value.IsNumber()) {
    return FormatText("n%016llx",
                      static_cast<unsigned long long>(std::bit_cast<std::uint64_t>(value.number)));
  }
  if (value.IsString()) return HexOf(value.text);
  if (!value.IsArray() && !value.IsObject()) return value.Dump();
  std::string notation;
  for (std::size_t i = 0; i < value.Size(); ++i) {
    if (i > 0) notation += ',';
    if (value.IsObject()) notation += HexOf(value.keys[i]) + ':';
    notation += NotationOf(value.At(i));
  }
  return value.IsArray() ? '[' + notation + ']' : '{' + notation + '}';
}

TEST(JsonCorpus, IsComplete) {
  EXPECT_EQ(NamesIn("/accept").size(), 95U);
  EXPECT_EQ(NamesIn("/reject").size(), 174U);
}

TEST(JsonCorpus, IsReadAsAnotherParserReadsIt) {
  std::map<std::string, std::string> expected;
  for (const std::string& line : LinesOf("/expected.txt")) {
    const std::size_t tab = line.find('\t');
    expected[line.substr(0, tab)] = line.substr(tab + 1);
  }

  for (const std::string& name : NamesIn("/accept")) {
    std::string error;
    const std::optional<Json> value = Json::Parse(ReadText(kCorpus + "/accept/" + name), &error);
    ASSERT_TRUE(value.has_value()) << name << ": " << error;
    EXPECT_EQ(NotationOf(*value), expected[name]) << name;
  }
}

TEST(JsonCorpus, IsTheSameAfterItWasWrittenAndReadAgain) {
  for (const std::string& name : NamesIn("/accept")) {
    const std::string written = Json::Parse(ReadText(kCorpus + "/accept/" + name))->Dump();
    const std::optional<Json> again = Json::Parse(written);
    ASSERT_TRUE(again.has_value()) << name;
    EXPECT_EQ(again->Dump(), written) << name;
  }
}

TEST(JsonCorpus, IsRefusedWhereItIsNoJsonButForWhatIsToleratedOnPurpose) {
  const std::vector<std::string> lines = LinesOf("/tolerated.txt");
  const std::set<std::string> tolerated(lines.begin(), lines.end());

  for (const std::string& name : NamesIn("/reject")) {
    std::string error;
    const bool accepted = Json::Parse(ReadText(kCorpus + "/reject/" + name), &error).has_value();
    EXPECT_EQ(accepted, tolerated.contains(name)) << name;
    EXPECT_EQ(accepted, error.empty()) << name;
  }
}

// A text that ends early must be told from a whole one at every byte, and none may end the process.
TEST(JsonCorpus, SurvivesBeingCutAnywhere) {
  for (const std::string& name : NamesIn("/accept")) {
    const std::string text = ReadText(kCorpus + "/accept/" + name);
    for (std::size_t length = 0; length < text.size(); ++length) {
      std::string error;
      const std::optional<Json> value = Json::Parse(text.substr(0, length), &error);
      EXPECT_EQ(value.has_value(), error.empty()) << name << " cut at " << length;
    }
  }
}

}  // namespace
}  // namespace Tarnvale::KioskService

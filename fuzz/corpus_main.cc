// Feeds files to a fuzz target, once each: the corpus as an ordinary test, with any compiler, and a
// finding of libFuzzer in the debugger.
//
//   fuzz_json FILE-OR-FOLDER...
//
// Each file is named before it is fed, so that the last line tells which one ended the process.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "target.h"

namespace {

std::vector<std::filesystem::path> FilesAt(const std::filesystem::path& place) {
  if (!std::filesystem::is_directory(place)) return {place};
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(place)) {
    files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

bool Feed(const std::filesystem::path& path) {
  std::cout << path.string() << std::endl;
  std::ifstream file(path, std::ios::binary);
  // On the heap and without a byte to spare, so that AddressSanitizer sees a read past the end.
  const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
  if (file.bad() || !file.is_open()) return false;
  return LLVMFuzzerTestOneInput(bytes.data(), bytes.size()) == 0;
}

}  // namespace

int main(int count, char** arguments) {
  const std::vector<std::string> places(arguments + 1, arguments + count);
  std::size_t fed = 0;
  for (const std::string& place : places) {
    for (const std::filesystem::path& path : FilesAt(place)) {
      if (!Feed(path)) return 1;
      ++fed;
    }
  }
  std::cout << fed << " inputs\n";
  return fed > 0 ? 0 : 1;
}

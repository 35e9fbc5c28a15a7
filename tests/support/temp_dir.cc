#include "support/temp_dir.h"

#include <stdlib.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace Tarnvale::KioskService {

TempDir::TempDir() {
  std::string pattern = ::testing::TempDir() + "kioskd-XXXXXX";
  if (::mkdtemp(pattern.data()) == nullptr) ADD_FAILURE() << "no temporary directory";
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

void WriteText(const std::string& path, const std::string& text, mode_t mode) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text;
  file.close();
  EXPECT_TRUE(file.good() && ::chmod(path.c_str(), mode) == 0) << "cannot write " << path;
}

std::string ReadText(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.is_open()) << "cannot read " << path;
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

bool Exists(const std::string& path) {
  struct stat status = {};
  return ::lstat(path.c_str(), &status) == 0;
}

mode_t ModeOf(const std::string& path) {
  struct stat status = {};
  return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

}  // namespace Tarnvale::KioskService

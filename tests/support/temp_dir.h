// A directory of a test's own, gone with it.

#ifndef TARNVALE_KIOSKD_TESTS_SUPPORT_TEMP_DIR_H_
#define TARNVALE_KIOSKD_TESTS_SUPPORT_TEMP_DIR_H_

#include <sys/types.h>

#include <string>

namespace Tarnvale::KioskService {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  [[nodiscard]] const std::string& Path() const {
    return path_;
  }
  // A path below the directory.
  [[nodiscard]] std::string At(const std::string& name) const {
    return path_ + "/" + name;
  }

 private:
  std::string path_;
};

// Plain helpers on files, for setting up and looking; a failure fails the test.
void WriteText(const std::string& path, const std::string& text, mode_t mode = 0644);
[[nodiscard]] std::string ReadText(const std::string& path);
[[nodiscard]] bool Exists(const std::string& path);
// The permission bits; 0 when there is nothing.
[[nodiscard]] mode_t ModeOf(const std::string& path);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_SUPPORT_TEMP_DIR_H_

// A disk of its own over a directory, which a test fills. Only inside the sandbox.

#ifndef TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_FULL_DISK_H_
#define TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_FULL_DISK_H_

#include <sys/mount.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/temp_dir.h"

namespace Tarnvale::KioskService {

// One block, with no byte left on it at first.
class FullDisk {
 public:
  explicit FullDisk(const std::string& directory) : filler_(directory + "/filler") {
    std::filesystem::create_directories(directory);
    EXPECT_EQ(::mount("tmpfs", directory.c_str(), "tmpfs", 0, "size=4k"), 0);
    WriteText(filler_, std::string(4096, 'x'));
  }
  void MakeRoom() const {
    std::filesystem::remove(filler_);
  }

 private:
  std::string filler_;
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_FULL_DISK_H_

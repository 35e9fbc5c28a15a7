#include "control/caller_linux.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "slots/support/child.h"
#include "support/temp_dir.h"

namespace Tarnvale::KioskService {
namespace {

class ExePathOfPidTest : public ::testing::Test {
 protected:
  // A program of the test's own that runs until it is ended.
  [[nodiscard]] std::unique_ptr<Child> StartCopy() {
    std::filesystem::copy_file("/bin/sleep", image);
    return std::make_unique<Child>(std::vector<std::string>{image, "infinity"});
  }

  TempDir directory;
  std::string image = std::filesystem::canonical(directory.Path()).string() + "/client";
};

TEST_F(ExePathOfPidTest, TellsTheImageOfThisProcess) {
  EXPECT_EQ(ExePathOfPid(::getpid()), std::filesystem::canonical("/proc/self/exe"));
}

TEST_F(ExePathOfPidTest, TellsTheImageOfAnotherProcess) {
  const std::unique_ptr<Child> child = StartCopy();

  EXPECT_EQ(ExePathOfPid(child->Pid()), image);
}

TEST_F(ExePathOfPidTest, MarksAnImageThatWasDeleted) {
  const std::unique_ptr<Child> child = StartCopy();

  std::filesystem::remove(image);

  EXPECT_EQ(ExePathOfPid(child->Pid()), image + " (deleted)");
}

TEST_F(ExePathOfPidTest, MarksAnImageThatWasReplaced) {
  const std::unique_ptr<Child> child = StartCopy();

  WriteText(image + ".new", "another", 0755);
  std::filesystem::rename(image + ".new", image);

  EXPECT_EQ(ExePathOfPid(child->Pid()), image + " (deleted)");
}

TEST_F(ExePathOfPidTest, IsEmptyForAProcessThatHasGone) {
  const std::unique_ptr<Child> child = StartCopy();
  const int pid = child->Pid();

  child->End();

  EXPECT_EQ(ExePathOfPid(pid), "");
}

TEST_F(ExePathOfPidTest, IsEmptyForWhatIsNoProcess) {
  EXPECT_EQ(ExePathOfPid(0), "");
  EXPECT_EQ(ExePathOfPid(-1), "");
}

TEST_F(ExePathOfPidTest, TellsALongPathWhole) {
  // About as long as the kernel tells: the text of such a link has to fit into one page.
  std::string deep = std::filesystem::canonical(directory.Path()).string();
  while (deep.size() < 3800)
    deep += "/" + std::string(200, 'd');
  std::filesystem::create_directories(deep);
  image = deep + "/client";

  const std::unique_ptr<Child> child = StartCopy();

  EXPECT_EQ(ExePathOfPid(child->Pid()), image);
}

}  // namespace
}  // namespace Tarnvale::KioskService

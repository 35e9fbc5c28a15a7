// Owning descriptors.

#include "core/descriptor.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <utility>

namespace Tarnvale::KioskService {
namespace {

int OpenSomething() {
  return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool IsOpenInTheProcess(int fd) {
  return ::fcntl(fd, F_GETFD) >= 0;
}

TEST(DescriptorOwner, BeginsWithNothing) {
  Descriptor empty;

  EXPECT_EQ(empty.Get(), -1);
  EXPECT_FALSE(empty.IsOpen());
  EXPECT_TRUE(empty.Close());
}

TEST(DescriptorOwner, ClosesAtItsEnd) {
  const int fd = OpenSomething();
  {
    const Descriptor owner(fd);
    EXPECT_TRUE(owner.IsOpen());
    EXPECT_TRUE(IsOpenInTheProcess(fd));
  }
  EXPECT_FALSE(IsOpenInTheProcess(fd));
}

TEST(DescriptorOwner, ClosesOnceAndReportsIt) {
  const int fd = OpenSomething();
  Descriptor owner(fd);

  EXPECT_TRUE(owner.Close());
  EXPECT_FALSE(owner.IsOpen());
  EXPECT_FALSE(IsOpenInTheProcess(fd));
  EXPECT_TRUE(owner.Close());
}

TEST(DescriptorOwner, ReportsACloseThatFailed) {
  const int fd = OpenSomething();
  Descriptor other(fd);
  Descriptor owner(fd);
  EXPECT_TRUE(other.Close());

  EXPECT_FALSE(owner.Close());

  EXPECT_FALSE(owner.IsOpen());
}

TEST(DescriptorOwner, HandsOverWhenMoved) {
  const int fd = OpenSomething();
  Descriptor first(fd);

  Descriptor second(std::move(first));
  EXPECT_FALSE(first.IsOpen());  // NOLINT(bugprone-use-after-move): what a move leaves
  EXPECT_EQ(second.Get(), fd);

  const int replaced = OpenSomething();
  Descriptor third(replaced);
  third = std::move(second);
  EXPECT_FALSE(second.IsOpen());  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(third.Get(), fd);
  EXPECT_FALSE(IsOpenInTheProcess(replaced));
  EXPECT_TRUE(IsOpenInTheProcess(fd));
}

TEST(DescriptorOwner, StaysOpenWhenMovedOntoItself) {
  const int fd = OpenSomething();
  Descriptor owner(fd);

  Descriptor& itself = owner;
  owner = std::move(itself);

  EXPECT_EQ(owner.Get(), fd);
  EXPECT_TRUE(IsOpenInTheProcess(fd));
}

TEST(OpenPipe, MakesTwoEndsThatNoChildInherits) {
  Pipe pipe;

  ASSERT_TRUE(OpenPipe(pipe));

  char byte = 0;
  EXPECT_EQ(::write(pipe.writeEnd.Get(), "x", 1), 1);
  EXPECT_EQ(::read(pipe.readEnd.Get(), &byte, 1), 1);
  EXPECT_EQ(byte, 'x');
  EXPECT_EQ(::fcntl(pipe.readEnd.Get(), F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(::fcntl(pipe.writeEnd.Get(), F_GETFD), FD_CLOEXEC);
}

TEST(OpenPipe, TellsWhenThereIsNone) {
  rlimit before = {};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none = {0, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);

  Pipe pipe;
  const bool made = OpenPipe(pipe);
  const int error = errno;
  EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);

  EXPECT_FALSE(made);
  EXPECT_EQ(error, EMFILE);
  EXPECT_FALSE(pipe.readEnd.IsOpen());
  EXPECT_FALSE(pipe.writeEnd.IsOpen());
}

}  // namespace
}  // namespace Tarnvale::KioskService

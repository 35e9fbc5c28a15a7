// How the control socket is made.

#include <sys/stat.h>

#include "control/server_fixture.h"

namespace Tarnvale::KioskService {
namespace {

class OpenControlSocketTest : public ServerFixture {
 protected:
  void SocketIs(const std::string& path) {
    config.socket = path;
    UseConfig();
  }
  // A path of this many bytes.
  [[nodiscard]] std::string PathOf(std::size_t bytes) const {
    const std::string head = dir.At("");
    return head + std::string(bytes - head.size(), 's');
  }
  [[nodiscard]] std::string CannotListen(int error) const {
    return "<3>cannot listen on " + config.socket + " (" + std::strerror(error) + ")\n";
  }
  // What a run that was killed leaves behind.
  void LeaveStaleSocketAt(const std::string& path) {
    const Descriptor stale(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path);
    ASSERT_EQ(::bind(stale.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  }
};

TEST_F(OpenControlSocketTest, ListensWithoutALogLine) {
  EXPECT_TRUE(OpenControlSocket());

  EXPECT_TRUE(Connect().IsOpen());
  EXPECT_EQ(log.Text(), "");
}

TEST_F(OpenControlSocketTest, MakesTheSocketOpenToAllWhateverTheUmask) {
  for (const mode_t mask : {0U, 022U, 077U, 0777U}) {
    const mode_t before = ::umask(mask);
    EXPECT_TRUE(OpenControlSocket());
    EXPECT_EQ(::umask(before), mask) << "the umask was not restored";
    EXPECT_EQ(ModeOf(config.socket), 0666U);
  }
}

TEST_F(OpenControlSocketTest, RestoresTheUmaskAlsoWhenItCannotBind) {
  WriteText(config.socket, "");
  const mode_t before = ::umask(0123);

  EXPECT_FALSE(OpenControlSocket());

  EXPECT_EQ(::umask(before), 0123U);
}

TEST_F(OpenControlSocketTest, TakesAPathOf107Bytes) {
  SocketIs(PathOf(107));

  EXPECT_TRUE(OpenControlSocket());

  EXPECT_TRUE(Exists(config.socket));
  EXPECT_TRUE(Connect().IsOpen());
}

TEST_F(OpenControlSocketTest, RefusesAPathOf108BytesSilently) {
  SocketIs(PathOf(108));

  EXPECT_FALSE(OpenControlSocket());

  EXPECT_EQ(log.Text(), "");
  EXPECT_FALSE(Exists(config.socket));
  EXPECT_FALSE(Exists(PathOf(107)));
}

TEST_F(OpenControlSocketTest, ReplacesTheSocketOfACrashedRun) {
  LeaveStaleSocketAt(config.socket);
  ASSERT_FALSE(Connect().IsOpen());

  EXPECT_TRUE(OpenControlSocket());

  EXPECT_TRUE(Connect().IsOpen());
}

TEST_F(OpenControlSocketTest, LeavesARegularFileAloneAndFails) {
  WriteText(config.socket, "kept");

  EXPECT_FALSE(OpenControlSocket());

  EXPECT_EQ(log.Text(), CannotListen(EADDRINUSE));
  EXPECT_EQ(ReadText(config.socket), "kept");
}

TEST_F(OpenControlSocketTest, LeavesALinkToASocketAloneAndFails) {
  LeaveStaleSocketAt(dir.At("target"));
  ASSERT_EQ(::symlink("target", config.socket.c_str()), 0);

  EXPECT_FALSE(OpenControlSocket());

  EXPECT_EQ(log.Text(), CannotListen(EADDRINUSE));
  EXPECT_TRUE(Exists(config.socket));
  EXPECT_TRUE(Exists(dir.At("target")));
}

TEST_F(OpenControlSocketTest, FailsWhereThereIsNoDirectory) {
  SocketIs(dir.At("missing/kiosk.sock"));

  EXPECT_FALSE(OpenControlSocket());

  EXPECT_EQ(log.Text(), CannotListen(ENOENT));
}

TEST_F(OpenControlSocketTest, ClosesTheSocketThatItCannotListenOn) {
  WriteText(config.socket, "");
  const std::size_t before = OpenDescriptors().size();

  EXPECT_FALSE(OpenControlSocket());

  EXPECT_EQ(OpenDescriptors().size(), before + 2) << "more than the wake pipe is open";
}

TEST_F(OpenControlSocketTest, FailsSilentlyForLackOfDescriptors) {
  // None for the pipe, one end of it alone, and both ends but no socket.
  for (const int more : {0, 1, 2}) {
    const DescriptorLimit limit = DescriptorLimit::More(more);
    EXPECT_FALSE(OpenControlSocket()) << more;
  }

  EXPECT_EQ(log.Text(), "");
  EXPECT_FALSE(Exists(config.socket));
}

// Linux lets one more wait than the backlog says.
TEST_F(OpenControlSocketTest, LetsSixteenPeersWaitAndOneMore) {
  ASSERT_TRUE(OpenControlSocket());
  std::vector<Descriptor> waiting;
  for (int count = 0; count < 18; ++count) {
    waiting.push_back(MakeClient());
    ASSERT_EQ(::fcntl(waiting.back().Get(), F_SETFL, O_NONBLOCK), 0);
    EXPECT_EQ(Connect(waiting.back()), count < 17) << count;
  }

  EXPECT_EQ(errno, EAGAIN);
}

TEST_F(OpenControlSocketTest, KeepsItsDescriptorsFromChildren) {
  const std::set<int> before = OpenDescriptors();

  ASSERT_TRUE(OpenControlSocket());

  int opened = 0;
  for (const int fd : OpenDescriptors()) {
    if (before.contains(fd)) continue;
    ++opened;
    EXPECT_EQ(::fcntl(fd, F_GETFD), FD_CLOEXEC) << fd;
  }
  EXPECT_EQ(opened, 3) << "two ends of the pipe and the socket";
}

}  // namespace
}  // namespace Tarnvale::KioskService

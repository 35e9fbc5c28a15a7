// The test of the peer, the reply, and what comes after it.

#include "control/connection.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>

#include "control/connection_fixture.h"
#include "core/service.h"
#include "core/stop.h"
#include "portal/restart.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kStatusLine[] = "{\"cmd\":\"status\"}\n";

using ServeConnectionTest = ConnectionFixture;

TEST_F(ServeConnectionTest, RepliesWithOneLineAndCloses) {
  PeerSends("{\"cmd\":\"nothing\"}\n");

  Serve();

  EXPECT_EQ(PeerReads(), "{\"ok\":false,\"error\":\"unknown_command\"}\n");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(ServeConnectionTest, AsksForThePeersOwnProcess) {
  ops.sessionOfPid = [](int pid, SessionInfo*) {
    EXPECT_EQ(pid, ::getpid());
    return false;
  };
  PeerSends(kStatusLine);

  Serve();

  EXPECT_EQ(calls.Count("sessionOfPid"), 1);
}

TEST_F(ServeConnectionTest, KnowsThePeerByTheUidThatTheKernelRecorded) {
  ConnectAsPerson();
  AccountIs(peerUid);
  StateSetString(StateKey::kAccountUid, std::to_string(peerUid));
  StateSetInt(StateKey::kProvisioned, 1);
  const SessionInfo session = {.id = "c7",
                               .uid = peerUid,
                               .name = "kiosk",
                               .remote = false,
                               .sessionClass = "user",
                               .tty = {}};
  SessionsAre({session});
  CallerIsIn(session);
  PeerSends(kStatusLine);

  Serve();

  EXPECT_NE(PeerReads().find(R"("kioskSession":true)"), std::string::npos);
}

TEST_F(ServeConnectionTest, RefusesAPeerThatTheGateRefuses) {
  ConnectAsPerson();
  StateClear(StateKey::kDevAllowAnyCaller);
  PeerSends(kStatusLine);

  Serve();

  EXPECT_EQ(PeerReads(), kCallerRefusedReply);
  EXPECT_EQ(log.Text(),
            "<4>caller refused: this service is not installed and DevAllowAnyCaller is not set\n");
  EXPECT_TRUE(calls.Names().empty());
}

TEST_F(ServeConnectionTest, TellsTheReasonToTheLogAlone) {
  ConnectAsPerson();
  SetServiceInstalled(true);
  ops.exePathOfPid = [](int pid) {
    EXPECT_EQ(pid, ::getpid());
    return "/usr/bin/other";
  };
  PeerSends(kStatusLine);

  Serve();

  EXPECT_EQ(PeerReads(), kCallerRefusedReply);
  EXPECT_EQ(log.Text(), "<4>caller refused: /usr/bin/other is not " + config.client + "\n");
}

// Any local user may run a program of such a name, and call.
TEST_F(ServeConnectionTest, LetsNoNameOfAProgramBeginALineOfTheLog) {
  ConnectAsPerson();
  SetServiceInstalled(true);
  ops.exePathOfPid = [](int) { return "/tmp/a\n<0>b"; };
  PeerSends(kStatusLine);

  Serve();

  EXPECT_EQ(log.Text(), "<4>caller refused: /tmp/a?<0>b is not " + config.client + "\n");
}

// A connection over loopback: the kernel keeps no process for its peer.
void ConnectOverLoopback(Descriptor& connection, Descriptor& peer) {
  const Descriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  ASSERT_EQ(::bind(listener.Get(), generic, size), 0);
  ASSERT_EQ(::listen(listener.Get(), 1), 0);
  ASSERT_EQ(::getsockname(listener.Get(), generic, &size), 0);
  peer = Descriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  ASSERT_EQ(::connect(peer.Get(), generic, size), 0);
  connection = Descriptor(::accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
}

TEST_F(ServeConnectionTest, RefusesAPeerWithoutAProcess) {
  ConnectOverLoopback(connection, peer);
  PeerSends(kStatusLine);
  PeerEndsWriting();
  TestClock::WaitForReal();

  Serve();

  EXPECT_EQ(PeerReads(), kCallerRefusedReply);
  EXPECT_EQ(log.Text(), "<4>caller refused: no peer credentials\n");
  EXPECT_TRUE(calls.Names().empty());
}

TEST_F(ServeConnectionTest, RefusesWhatHasNoCredentialsAtAll) {
  Pipe pipe;
  ASSERT_TRUE(OpenPipe(pipe));
  ASSERT_EQ(::write(pipe.writeEnd.Get(), kStatusLine, sizeof kStatusLine - 1),
            static_cast<ssize_t>(sizeof kStatusLine - 1));
  connection = std::move(pipe.readEnd);

  Serve();

  EXPECT_EQ(log.Text(), "<4>caller refused: no peer credentials\n");
}

TEST_F(ServeConnectionTest, LeavesThePeerItsReplyWhenMoreWasSentThanRead) {
  PeerSends(kStatusLine + std::string(20000, 'x'));

  Serve();

  EXPECT_TRUE(IsStatus(PeerReads()));
}

// A child that has just been forked holds a copy until it starts its program.
TEST_F(ServeConnectionTest, EndsForThePeerAlsoWhileACopyOfTheDescriptorIsOpen) {
  const Descriptor copy(::fcntl(connection.Get(), F_DUPFD_CLOEXEC, 0));
  ASSERT_TRUE(copy.IsOpen());
  PeerSends(kStatusLine);

  Serve();

  EXPECT_TRUE(IsStatus(PeerReads()));
}

TEST_F(ServeConnectionTest, OutlivesAPeerThatIsGoneBeforeItsReply) {
  PeerSends(kStatusLine);
  (void)peer.Close();  // nothing else is sent on it

  Serve();

  EXPECT_EQ(calls.Count("sessionOfPid"), 1);
  EXPECT_EQ(log.Text(), "");
}

// A person at the terminal, where a restart is pending and stays so.
class AfterTheReply : public ConnectionFixture {
 protected:
  void SetUp() override {
    ConnectionFixture::SetUp();
    CallerIsIn(PersonSession());
    TestClock::WaitForReal();
    ScheduleRestart();
  }
  void TearDown() override {
    StopThreads();
    StopScheduledRestart();
  }
};

TEST_F(AfterTheReply, RestartsOnceThePeerHasItAndSeesTheEnd) {
  std::string reply;
  ops.reboot = [&] {
    reply = PeerReads();
    return true;
  };
  PeerSends("{\"cmd\":\"restart.now\"}\n");

  Serve();

  EXPECT_EQ(calls.Count("reboot"), 1);
  EXPECT_EQ(reply, "{\"ok\":true}\n");
}

TEST_F(AfterTheReply, ClosesTheDescriptorBeforeItRestarts) {
  const int fd = connection.Get();
  ops.reboot = [fd] {
    EXPECT_EQ(::fcntl(fd, F_GETFD), -1) << "the descriptor is still open";
    return true;
  };
  PeerSends("{\"cmd\":\"restart.now\"}\n");

  Serve();

  EXPECT_EQ(calls.Count("reboot"), 1);
}

TEST_F(AfterTheReply, RestartsAlsoWhenThePeerIsGone) {
  ops.reboot = [] { return true; };
  PeerSends("{\"cmd\":\"restart.now\"}\n");
  (void)peer.Close();  // nothing else is sent on it

  Serve();

  EXPECT_EQ(calls.Count("reboot"), 1);
}

TEST_F(AfterTheReply, LeavesTheRestartAloneForOtherCommands) {
  PeerSends(kStatusLine);

  Serve();

  EXPECT_EQ(calls.Count("reboot"), 0);
  EXPECT_TRUE(IsRestartPending());
}

}  // namespace
}  // namespace Tarnvale::KioskService

#include <fcntl.h>
#include <netdb.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <optional>

#include "core/clock.h"
#include "device/sntp_answer.h"
#include "device/time_linux.h"
#include "slots/support/tool_test.h"
#include "support/test_clock.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::int64_t kPatienceS = 30;
constexpr long kUntouched = -77;
constexpr std::uint32_t kStartNtpSeconds = TestClock::kStartWallMs / 1000 + 2'208'988'800;

// Names resolve by the file alone, so that no test asks a name server.
void SetHosts(const std::string& hosts) {
  WriteText("/etc/nsswitch.conf", "hosts: files\n");
  WriteText("/etc/hosts", hosts);
}

void WriteConfig(const std::string& path, const std::string& text) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  WriteText(path, text);
}

class NtpServerTest : public ::testing::Test {
 protected:
  NtpServerTest() {
    for (const char* const client :
         {"/etc/chrony", "/etc/chrony.conf", "/etc/systemd/timesyncd.conf",
          "/etc/systemd/timesyncd.conf.d"}) {
      std::filesystem::remove_all(client);
    }
    SetHosts("");
  }
};

TEST_F(NtpServerTest, IsTheStockHostWhenNobodyNamesOne) {
  EXPECT_EQ(NtpServer(), KIOSK_NTP_HOST);
}

TEST_F(NtpServerTest, IsTheStockHostWhenNoNameResolves) {
  WriteConfig("/etc/chrony/chrony.conf", "server nowhere.example\n");

  EXPECT_EQ(NtpServer(), KIOSK_NTP_HOST);
}

TEST_F(NtpServerTest, IsTheFirstNameThatResolves) {
  SetHosts("10.0.0.3 third.example\n10.0.0.4 fourth.example\n");
  WriteConfig("/etc/chrony/chrony.conf",
              "pool -first\nserver second.example\nserver third.example\nserver fourth.example\n");

  EXPECT_EQ(NtpServer(), "third.example");
}

// Each file yields to those before it, so the tests of the order take the files away one by one.
TEST_F(NtpServerTest, ReadsTheFilesOfBothClientsInTheirOrder) {
  const std::string files[] = {
      "/etc/chrony/chrony.conf",
      "/etc/chrony.conf",
      "/etc/chrony/sources.d/a.sources",
      "/etc/chrony/sources.d/b.sources",
      "/etc/systemd/timesyncd.conf",
      "/etc/systemd/timesyncd.conf.d/10-a.conf",
      "/etc/systemd/timesyncd.conf.d/b.conf",
  };
  int number = 0;
  for (const std::string& file : files) {
    const std::string host = "10.0.0." + std::to_string(++number);
    WriteConfig(file, (file.find("chrony") != std::string::npos ? "server " : "NTP=") + host);
  }

  number = 0;
  for (const std::string& file : files) {
    EXPECT_EQ(NtpServer(), "10.0.0." + std::to_string(++number));
    std::filesystem::remove(file);
  }
  EXPECT_EQ(NtpServer(), KIOSK_NTP_HOST);
}

TEST_F(NtpServerTest, ReadsNoFileOfAnotherName) {
  WriteConfig("/etc/chrony/sources.d/a.conf", "server 10.0.0.1\n");
  WriteConfig("/etc/chrony/conf.d/a.sources", "server 10.0.0.1\n");
  WriteConfig("/etc/chrony/sources.d/.hidden.sources", "server 10.0.0.1\n");
  WriteConfig("/etc/systemd/timesyncd.conf.d/a.conf~", "NTP=10.0.0.1\n");

  EXPECT_EQ(NtpServer(), KIOSK_NTP_HOST);
}

TEST_F(NtpServerTest, KeepsTheLanguagesOfTheClientsApart) {
  WriteConfig("/etc/chrony/chrony.conf", "NTP=10.0.0.1\n");
  WriteConfig("/etc/systemd/timesyncd.conf", "server 10.0.0.1\n[Time]\nNTP=10.0.0.2 10.0.0.3\n");

  EXPECT_EQ(NtpServer(), "10.0.0.2");
}

// Listens on the port of time servers, at one address of the loopback. It acts when the test says
// so and has no thread.
class TimeServer {
 public:
  explicit TimeServer(const char* address) {
    addrinfo hints = {};
    hints.ai_flags = AI_NUMERICHOST;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* own = nullptr;
    EXPECT_EQ(::getaddrinfo(address, "123", &hints, &own), 0);
    socket_ = Descriptor(::socket(own->ai_family, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(::bind(socket_.Get(), own->ai_addr, own->ai_addrlen), 0) << address;
    ::freeaddrinfo(own);
    const timeval patience = {kPatienceS, 0};
    EXPECT_EQ(::setsockopt(socket_.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience), 0);
  }

  // The next packet that came here; empty when there is none and `flags` say not to wait.
  std::string TakePacket(int flags = 0) {
    char packet[100];
    peerBytes_ = sizeof peer_;
    const ssize_t count = ::recvfrom(socket_.Get(), packet, sizeof packet, flags,
                                     reinterpret_cast<sockaddr*>(&peer_), &peerBytes_);
    return count > 0 ? std::string(packet, static_cast<std::size_t>(count)) : std::string();
  }
  bool HasPacket() {
    return !TakePacket(MSG_DONTWAIT).empty();
  }

  // To whoever sent that packet. `from` may be another server.
  void Answer(const std::string& packet, const TimeServer& from) const {
    EXPECT_EQ(::sendto(from.socket_.Get(), packet.data(), packet.size(), 0,
                       reinterpret_cast<const sockaddr*>(&peer_), peerBytes_),
              static_cast<ssize_t>(packet.size()));
  }

 private:
  Descriptor socket_;
  sockaddr_storage peer_ = {};
  socklen_t peerBytes_ = 0;
};

class SntpOffsetTest : public ::testing::Test {
 protected:
  SntpOffsetTest() {
    SetHosts("127.0.0.1 server.example\n127.0.0.1 two.example\n127.0.0.2 two.example\n");
    TestClock::BeforeWaits([this](std::int64_t milliseconds) {
      EXPECT_EQ(milliseconds, 5000);
      ++waits;
      whileWaiting(waits);
    });
  }

  // The answer of a server whose clock is at the start of the test's and this much ahead.
  static std::string AnswerAhead(std::uint32_t seconds) {
    const SntpStamp stamp = {kStartNtpSeconds + seconds};
    return MakeSntpAnswer(stamp, stamp);
  }
  static void Reply(TimeServer& server, const std::string& packet, const TimeServer& from) {
    EXPECT_EQ(server.TakePacket(), SntpRequest());
    server.Answer(packet, from);
    TestClock::WaitForReal();  // until the packet has found its way
  }
  // The server replies with this packet, and the exchange fails all the same.
  void ExpectNoAnswerIn(const std::string& packet) {
    whileWaiting = [&](int) { Reply(first, packet, first); };
    EXPECT_FALSE(SntpOffset("server.example", &offsetMs));
    EXPECT_EQ(offsetMs, kUntouched);
  }
  [[nodiscard]] static std::int64_t PassedMs() {
    return WallNowMs() - TestClock::kStartWallMs;
  }

  TimeServer first{"127.0.0.1"};
  TimeServer second{"127.0.0.2"};
  std::function<void(int wait)> whileWaiting = [](int) {};
  int waits = 0;
  long offsetMs = kUntouched;
  LogCapture log;
};

TEST_F(SntpOffsetTest, IsMeasuredWithOnePacketToPort123) {
  whileWaiting = [this](int) { Reply(first, AnswerAhead(5), first); };

  EXPECT_TRUE(SntpOffset("server.example", &offsetMs));

  EXPECT_EQ(offsetMs, 5000);
  EXPECT_EQ(waits, 1);
  EXPECT_FALSE(first.HasPacket());
  EXPECT_EQ(log.Text(), "");
}

TEST_F(SntpOffsetTest, TakesTheTimesAroundTheExchange) {
  whileWaiting = [this](int) {
    TestClock::AdvanceMs(100);
    Reply(first, AnswerAhead(0), first);
  };

  EXPECT_TRUE(SntpOffset("server.example", &offsetMs));

  EXPECT_EQ(offsetMs, -50);
}

TEST_F(SntpOffsetTest, AsksAnAddressAsWellAsAName) {
  whileWaiting = [this](int) { Reply(second, AnswerAhead(0), second); };

  EXPECT_TRUE(SntpOffset("127.0.0.2", &offsetMs));

  EXPECT_EQ(offsetMs, 0);
}

TEST_F(SntpOffsetTest, KeepsItsDescriptorFromChildren) {
  whileWaiting = [](int) {
    int sockets = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      const int fd = std::stoi(entry.path().filename());
      struct stat status = {};
      if (::fstat(fd, &status) != 0 || !S_ISSOCK(status.st_mode)) continue;
      ++sockets;
      EXPECT_EQ(::fcntl(fd, F_GETFD), FD_CLOEXEC) << fd;
    }
    EXPECT_EQ(sockets, 3) << "two servers and the exchange";
  };

  (void)SntpOffset("server.example", &offsetMs);  // silent

  EXPECT_EQ(waits, 1);
}

// A server with an address of IPv6 alone, and one that has addresses of both kinds.
class SntpOffsetOfIpv6Test : public SntpOffsetTest {
 protected:
  void SetUp() override {
    if (!Exists("/proc/net/if_inet6")) GTEST_SKIP() << "this kernel has no IPv6";
    SetHosts("::1 six.example\n127.0.0.1 both.example\n::1 both.example\n");
    third.emplace("::1");
  }

  std::optional<TimeServer> third;
};

TEST_F(SntpOffsetOfIpv6Test, IsMeasuredLikeAnyOther) {
  whileWaiting = [this](int) { Reply(*third, AnswerAhead(5), *third); };

  EXPECT_TRUE(SntpOffset("six.example", &offsetMs));

  EXPECT_EQ(offsetMs, 5000);
  EXPECT_EQ(waits, 1);
}

TEST_F(SntpOffsetOfIpv6Test, AsksTheAddressesOfBothKindsInTheirOrder) {
  addrinfo hints = {};
  hints.ai_socktype = SOCK_DGRAM;
  addrinfo* found = nullptr;
  ASSERT_EQ(::getaddrinfo("both.example", "123", &hints, &found), 0);
  const bool sixIsFirst = found->ai_family == AF_INET6;
  ::freeaddrinfo(found);
  whileWaiting = [&](int wait) {
    TimeServer& asked = (wait == 1) == sixIsFirst ? *third : first;
    EXPECT_EQ(asked.TakePacket(), SntpRequest()) << wait;
    EXPECT_FALSE(first.HasPacket() || third->HasPacket()) << wait;
  };

  EXPECT_FALSE(SntpOffset("both.example", &offsetMs));

  EXPECT_EQ(waits, 2);
  EXPECT_EQ(PassedMs(), 10'000);
}

TEST_F(SntpOffsetTest, GivesEachAddressOnePacketAndFiveSeconds) {
  EXPECT_FALSE(SntpOffset("two.example", &offsetMs));

  EXPECT_EQ(PassedMs(), 10'000);
  EXPECT_EQ(offsetMs, kUntouched);
  for (TimeServer* const server : {&first, &second}) {
    EXPECT_EQ(server->TakePacket(), SntpRequest());
    EXPECT_FALSE(server->HasPacket());
  }
  EXPECT_EQ(log.Text(), "");
}

TEST_F(SntpOffsetTest, GoesOnToTheNextAddressAfterASilentOne) {
  whileWaiting = [this](int wait) {
    if (wait == 1) return;
    TimeServer& asked = second;
    TestClock::WaitForReal();
    asked.TakePacket();
    asked.Answer(AnswerAhead(7), asked);
  };

  EXPECT_TRUE(SntpOffset("two.example", &offsetMs));

  EXPECT_EQ(waits, 2);
  EXPECT_EQ(offsetMs, 2000);  // the clock went on by 5 s at the first address
}

TEST_F(SntpOffsetTest, GoesOnToTheNextAddressAfterAnAnswerThatDoesNotCount) {
  whileWaiting = [this](int wait) {
    TimeServer& asked = wait == 1 ? first : second;
    Reply(asked, wait == 1 ? "short" : AnswerAhead(7), asked);
  };

  EXPECT_TRUE(SntpOffset("two.example", &offsetMs));

  EXPECT_EQ(waits, 2);
  EXPECT_EQ(offsetMs, 7000);
}

TEST_F(SntpOffsetTest, TakesAnAnswerFromAnySender) {
  whileWaiting = [this](int) { Reply(first, AnswerAhead(5), second); };

  EXPECT_TRUE(SntpOffset("server.example", &offsetMs));

  EXPECT_EQ(offsetMs, 5000);
}

TEST_F(SntpOffsetTest, ReadsTheHeadOfALongerAnswer) {
  whileWaiting = [this](int) { Reply(first, AnswerAhead(5) + std::string(20, 'm'), first); };

  EXPECT_TRUE(SntpOffset("server.example", &offsetMs));

  EXPECT_EQ(offsetMs, 5000);
}

TEST_F(SntpOffsetTest, DoesNotCountAShorterAnswer) {
  ExpectNoAnswerIn(AnswerAhead(5).substr(0, 47));
}

TEST_F(SntpOffsetTest, DoesNotCountAnEmptyAnswer) {
  ExpectNoAnswerIn("");
}

TEST_F(SntpOffsetTest, DoesNotCountAnAnswerOfStratumZero) {
  std::string packet = AnswerAhead(5);
  packet[1] = 0;

  ExpectNoAnswerIn(packet);
}

TEST_F(SntpOffsetTest, DoesNotCountAnAnswerOfAnotherClient) {
  std::string packet = AnswerAhead(5);
  packet[0] = 0x23;

  ExpectNoAnswerIn(packet);
}

TEST_F(SntpOffsetTest, FailsAtOnceForANameThatDoesNotResolve) {
  EXPECT_FALSE(SntpOffset("nowhere.example", &offsetMs));

  EXPECT_EQ(waits, 0);
  EXPECT_EQ(offsetMs, kUntouched);
}

TEST_F(SntpOffsetTest, FailsAtOnceWithoutARoute) {
  EXPECT_FALSE(SntpOffset("192.0.2.1", &offsetMs));

  EXPECT_EQ(waits, 0);
}

TEST_F(SntpOffsetTest, FailsAtOnceWithoutADescriptor) {
  rlimit limit = {};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
  rlimit none = limit;
  none.rlim_cur = 0;

  // Nothing is checked in between: a sanitizer needs a pipe of its own to look at what it checks.
  const int limited = ::setrlimit(RLIMIT_NOFILE, &none);
  const bool answered = SntpOffset("127.0.0.1", &offsetMs);
  const int restored = ::setrlimit(RLIMIT_NOFILE, &limit);

  EXPECT_EQ(limited, 0);
  EXPECT_EQ(restored, 0);
  EXPECT_FALSE(answered);
  EXPECT_EQ(waits, 0);
}

TEST_F(SntpOffsetTest, LeavesNoDescriptorBehind) {
  (void)SntpOffset("two.example", &offsetMs);  // what the resolver keeps open is open now
  const int before = CountDescriptors();

  (void)SntpOffset("two.example", &offsetMs);  // silent once more

  EXPECT_EQ(CountDescriptors(), before);
}

}  // namespace
}  // namespace Tarnvale::KioskService

// A server on a socket of the test's own, with the accept loop on a thread.

#ifndef TARNVALE_KIOSKD_TESTS_CONTROL_SERVER_FIXTURE_H_
#define TARNVALE_KIOSKD_TESTS_CONTROL_SERVER_FIXTURE_H_

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <utility>

#include "control/server.h"
#include "core/descriptor.h"
#include "core/state.h"
#include "core/stop.h"
#include "support/service_test.h"
#include "support/test_clock.h"
#include "support/threads.h"

namespace Tarnvale::KioskService {

// How many descriptors the process may have, until the object ends.
class DescriptorLimit {
 public:
  static DescriptorLimit Total(int count) {
    return DescriptorLimit(static_cast<rlim_t>(count));
  }
  // Besides those that are open now.
  static DescriptorLimit More(int count) {
    const Descriptor next(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    return Total(next.Get() + count);
  }
  ~DescriptorLimit() {
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &before_), 0);
  }
  DescriptorLimit(const DescriptorLimit&) = delete;
  DescriptorLimit& operator=(const DescriptorLimit&) = delete;

 private:
  explicit DescriptorLimit(rlim_t limit) {
    EXPECT_EQ(::getrlimit(RLIMIT_NOFILE, &before_), 0);
    rlimit lower = before_;
    lower.rlim_cur = limit;
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &lower), 0);
  }

  rlimit before_ = {};
};

class ServerFixture : public ServiceTest {
 protected:
  void SetUp() override {
    // Admitted whether root runs the tests or somebody else.
    StateSetInt(StateKey::kDevAllowAnyCaller, 1);
    SessionsAre({});
    TestClock::WaitForReal();
  }

  void TearDown() override {
    if (acceptLoop.joinable()) Stop();
    EXPECT_TRUE(Eventually([] { return !AreConnectionsRunning(); }));
  }

  void Start() {
    acceptLoop = std::thread([this] {
      AcceptLoop();
      loopEnded = true;
    });
  }

  void Stop() {
    RequestStop();
    acceptLoop.join();
  }

  // A client that does not call anybody yet.
  static Descriptor MakeClient() {
    return Descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  }
  // Calls the service; false when nobody listens there.
  [[nodiscard]] bool Connect(const Descriptor& client) const {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    config.socket.copy(address.sun_path, sizeof address.sun_path);
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);
    return ::connect(client.Get(), generic, sizeof address) == 0;
  }
  // Both at once; not open when nobody listens.
  [[nodiscard]] Descriptor Connect() const {
    Descriptor client = MakeClient();
    return Connect(client) ? std::move(client) : Descriptor();
  }

  static bool SendOn(const Descriptor& client, const std::string& request) {
    return ::send(client.Get(), request.data(), request.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(request.size());
  }

  // Everything up to the end of the connection.
  static std::string ReadOn(const Descriptor& client) {
    std::string text;
    char block[4096];
    ssize_t count = 0;
    while ((count = ::recv(client.Get(), block, sizeof block, 0)) > 0)
      text.append(block, static_cast<std::size_t>(count));
    return text;
  }

  // One request from connect to end of file.
  [[nodiscard]] std::string Ask(const std::string& request) const {
    const Descriptor client = Connect();
    return SendOn(client, request) ? ReadOn(client) : std::string();
  }

  static std::set<int> OpenDescriptors() {
    std::set<int> listed;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
      listed.insert(std::stoi(entry.path().filename()));
    // The one that the listing itself took is closed by now.
    std::erase_if(listed, [](int fd) { return ::fcntl(fd, F_GETFD) < 0; });
    return listed;
  }

  std::thread acceptLoop;
  std::atomic<bool> loopEnded = false;
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_CONTROL_SERVER_FIXTURE_H_

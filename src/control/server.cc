#include "control/server.h"

#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "control/connection.h"
#include "core/clock.h"
#include "core/descriptor.h"
#include "core/log.h"
#include "core/service.h"
#include "core/service_loop.h"
#include "core/stop.h"
#include "core/units.h"
#include "device/updates.h"
#include "device/updates_loop.h"
#include "kiosk/session_watcher.h"
#include "portal/restart.h"

namespace Tarnvale::KioskService {
namespace {

constexpr int kBacklog = 16;
// The path and its terminating zero must fit.
constexpr std::size_t kMaxSocketPathBytes = sizeof(sockaddr_un::sun_path) - 1;
constexpr mode_t kSocketMode = 0666;
// For a save, an exchange with the portal, a child process and the D-Bus calls that wait at once.
constexpr rlim_t kReservedDescriptors = 16;
constexpr std::int64_t kConnectionGraceMs = 30 * kSecondMs;
constexpr std::int64_t kConnectionTestMs = 10;

// The main thread's; the write end of the pipe is also known to RequestStop.
Pipe wakePipe;
Descriptor listenFd;

// Atomic: raised by the accept loop, lowered by each connection's thread as the last thing it does.
std::atomic<int> activeConnections{0};

void RemoveStaleSocket(const std::string& path) {
  struct stat status = {};
  if (::lstat(path.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode)) return;
  (void)::unlink(path.c_str());  // a failure shows in the bind that follows
}

// Binds without the umask, so that the file never exists with less than its mode.
bool BindOpenly(int fd, const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, kMaxSocketPathBytes);
  const mode_t umaskBefore = ::umask(0);
  const int result = ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  const int bindError = errno;
  ::umask(umaskBefore);
  errno = bindError;
  return result == 0;
}

bool Listen(int fd, const std::string& path) {
  return BindOpenly(fd, path) && ::chmod(path.c_str(), kSocketMode) == 0 &&
         ::listen(fd, kBacklog) == 0;
}

// Whether so few descriptors are left that the service needs them for itself: a flood of
// connections must not keep it from reading its machine-id or saving its state.
bool IsOfReserve(const Descriptor& connection) {
  rlimit limit = {};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return false;
  return static_cast<rlim_t>(connection.Get()) + kReservedDescriptors >= limit.rlim_cur;
}

void ServeOnThread(Descriptor connection) {
  ServeConnection(std::move(connection));
  activeConnections.fetch_sub(1);
}

void StartConnection(Descriptor connection) {
  activeConnections.fetch_add(1);
  try {
    std::thread(ServeOnThread, std::move(connection)).detach();
  } catch (const std::system_error&) {
    // No thread left for this peer. It is closed unheard, and the service goes on for the others.
    activeConnections.fetch_sub(1);
  }
}

// Accepts until a byte arrives in the wake pipe. The pipe is looked at first, so that a pending
// connection never delays a stop.
void AcceptConnections() {
  while (true) {
    pollfd entries[] = {{listenFd.Get(), POLLIN, 0}, {wakePipe.readEnd.Get(), POLLIN, 0}};
    if (::poll(entries, 2, -1) < 0) {
      if (errno == EINTR) continue;
      Log("<3>poll failed (%s)\n", std::strerror(errno));
      return;
    }
    if (entries[1].revents != 0) return;
    if ((entries[0].revents & POLLIN) == 0) continue;
    Descriptor connection(::accept4(listenFd.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    // A peer that is gone already, or no descriptor left: there is nobody to tell.
    if (!connection.IsOpen() || IsOfReserve(connection)) continue;
    StartConnection(std::move(connection));
  }
}

void WaitForConnections() {
  const std::int64_t deadlineMs = SteadyNowMs() + kConnectionGraceMs;
  while (AreConnectionsRunning() && SteadyNowMs() < deadlineMs)
    PauseFor(kConnectionTestMs);
}

void CloseControlSocket() {
  if (listenFd.IsOpen()) (void)listenFd.Close();   // nothing is sent on it
  (void)::unlink(ServiceConfig().socket.c_str());  // may have been removed by hand
}

}  // namespace

bool OpenControlSocket() {
  const std::string& path = ServiceConfig().socket;
  if (!OpenPipe(wakePipe)) return false;
  SetStopDescriptor(wakePipe.writeEnd.Get());
  if (path.size() > kMaxSocketPathBytes) return false;
  RemoveStaleSocket(path);
  listenFd = Descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!listenFd.IsOpen()) return false;
  if (Listen(listenFd.Get(), path)) return true;
  Log("<3>cannot listen on %s (%s)\n", path.c_str(), std::strerror(errno));
  (void)listenFd.Close();  // nothing is sent on it
  return false;
}

void AcceptLoop() {
  std::thread serviceLoop(ServiceLoop);
  std::thread updatesLoop(AutomaticUpdatesLoop);
  std::thread sessionWatcher(SessionWatcher);
  Log("<6>listening on %s\n", ServiceConfig().socket.c_str());
  AcceptConnections();

  StopThreads();
  serviceLoop.join();
  updatesLoop.join();
  sessionWatcher.join();
  StopScheduledRestart();
  JoinSettingsWorker();
  WaitForConnections();
  CloseControlSocket();
}

bool AreConnectionsRunning() {
  return activeConnections.load() > 0;
}

}  // namespace Tarnvale::KioskService

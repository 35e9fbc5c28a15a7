#include "device/time_linux.h"

#include <glob.h>
#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <vector>

#include "core/clock.h"
#include "core/descriptor.h"
#include "core/files.h"
#include "core/log.h"
#include "core/text.h"
#include "core/units.h"
#include "device/dbus_linux.h"
#include "device/ntp_config.h"
#include "device/process_linux.h"
#include "device/sntp.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kStockHost[] = KIOSK_NTP_HOST;
constexpr char kNtpService[] = "123";
constexpr std::int64_t kAnswerTimeoutMs = 5 * kSecondMs;

constexpr std::int32_t kChronyCommandTimeoutMs = 10 * kSecondMs;
// The 20 tries of waitsync and some room.
constexpr std::int32_t kChronyWaitTimeoutMs = 30 * kSecondMs;

constexpr char kTimesyncdUnit[] = "systemd-timesyncd.service";
constexpr std::int32_t kTimesyncdRestartTimeoutMs = 20 * kSecondMs;
constexpr std::int64_t kTimesyncdPatienceMs = 20 * kSecondMs;
constexpr std::int64_t kTimesyncdPauseMs = kSecondMs / 2;

constexpr char kTimedateName[] = "org.freedesktop.timedate1";
constexpr char kTimedatePath[] = "/org/freedesktop/timedate1";

void Append(std::vector<std::string>& list, const std::vector<std::string>& more) {
  list.insert(list.end(), more.begin(), more.end());
}

// In sorted order.
std::vector<std::string> MatchingFiles(const char* pattern) {
  glob_t matches = {};
  std::vector<std::string> files;
  if (::glob(pattern, 0, nullptr, &matches) == 0) {
    files.assign(matches.gl_pathv, matches.gl_pathv + matches.gl_pathc);
  }
  ::globfree(&matches);
  return files;
}

std::vector<std::string> ConfiguredHosts() {
  std::vector<std::string> chronyFiles = {"/etc/chrony/chrony.conf", "/etc/chrony.conf"};
  Append(chronyFiles, MatchingFiles("/etc/chrony/sources.d/*.sources"));
  std::vector<std::string> timesyncdFiles = {"/etc/systemd/timesyncd.conf"};
  Append(timesyncdFiles, MatchingFiles("/etc/systemd/timesyncd.conf.d/*.conf"));

  std::vector<std::string> hosts;
  for (const std::string& file : chronyFiles)
    Append(hosts, ChronyHosts(ReadWholeFile(file)));
  for (const std::string& file : timesyncdFiles)
    Append(hosts, TimesyncdHosts(ReadWholeFile(file)));
  return hosts;
}

struct AddressesFree {
  void operator()(addrinfo* addresses) const {
    ::freeaddrinfo(addresses);
  }
};
using Addresses = std::unique_ptr<addrinfo, AddressesFree>;

// Null when the host does not resolve.
Addresses Resolve(const std::string& host) {
  addrinfo hints = {};
  hints.ai_socktype = SOCK_DGRAM;
  addrinfo* found = nullptr;
  if (::getaddrinfo(host.c_str(), kNtpService, &hints, &found) != 0) return nullptr;
  return Addresses(found);
}

bool Resolves(const std::string& host) {
  return Resolve(host) != nullptr;
}

// Nothing when no packet of the right size came in time.
std::optional<std::array<char, kSntpPacketBytes>> ReceivePacket(const Descriptor& socket) {
  pollfd entry = {socket.Get(), POLLIN, 0};
  if (PollFor(&entry, 1, kAnswerTimeoutMs) != 1) return std::nullopt;
  std::array<char, kSntpPacketBytes> packet;
  // A packet with a wrong checksum wakes poll and is dropped then, so recv must not wait for more.
  const ssize_t count = ::recv(socket.Get(), packet.data(), packet.size(), MSG_DONTWAIT);
  if (count != static_cast<ssize_t>(packet.size())) return std::nullopt;
  return packet;
}

bool MeasureAt(const addrinfo& address, long* offsetMs) {
  const Descriptor socket(::socket(address.ai_family, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!socket.IsOpen()) return false;
  const std::string request = SntpRequest();
  const std::int64_t sentAtMs = WallNowMs();
  const ssize_t sent = ::sendto(socket.Get(), request.data(), request.size(), 0, address.ai_addr,
                                address.ai_addrlen);
  if (sent != static_cast<ssize_t>(request.size())) return false;
  const auto packet = ReceivePacket(socket);
  const std::int64_t receivedAtMs = WallNowMs();
  std::int64_t measuredMs = 0;
  if (!packet ||
      !ReadSntpAnswer({packet->data(), packet->size()}, sentAtMs, receivedAtMs, measuredMs)) {
    return false;
  }
  *offsetMs = measuredMs;
  return true;
}

void TurnNtpOn() {
  std::string error;
  if (DbusCall(kTimedateName, kTimedatePath, kTimedateName, "SetNTP",
               g_variant_new("(bb)", TRUE, FALSE), nullptr, kDbusActionTimeoutMs, &error)) {
    return;
  }
  Log("<4>time: SetNTP failed (%s)\n", error.c_str());
}

bool ChronyIsActive() {
  return UnitActive("chrony.service") || UnitActive("chronyd.service");
}

bool ResyncWithChrony(const std::string& chronyc) {
  // Whether it measures anew shows in what waitsync says.
  (void)RunProcess({chronyc, "-a", "burst", "4/4"}, kChronyCommandTimeoutMs);
  const ProcResult wait =
      RunProcess({chronyc, "waitsync", "20", "0", "0", "1"}, kChronyWaitTimeoutMs);
  const ProcResult step = RunProcess({chronyc, "-a", "makestep"}, kChronyCommandTimeoutMs);
  if (wait.status == 0) return step.status == 0;
  Log("<4>time: chrony did not report sync: %s\n", Trim(wait.output).c_str());
  return false;
}

bool TimesyncdIsInstalled() {
  return PathExists("/lib/systemd/systemd-timesyncd") ||
         PathExists("/usr/lib/systemd/systemd-timesyncd");
}

// False also when timedated does not answer.
bool IsSynchronised() {
  const Variant reply =
      DbusCall(kTimedateName, kTimedatePath, "org.freedesktop.DBus.Properties", "Get",
               g_variant_new("(ss)", kTimedateName, "NTPSynchronized"), "(v)", kDbusReadTimeoutMs);
  if (reply == nullptr) return false;
  GVariant* held = nullptr;
  g_variant_get(reply.get(), "(v)", &held);
  const Variant value(held);
  return g_variant_is_of_type(value.get(), G_VARIANT_TYPE_BOOLEAN) != FALSE &&
         g_variant_get_boolean(value.get()) != FALSE;
}

bool ResyncWithTimesyncd() {
  if (!TimesyncdIsInstalled()) {
    Log("<3>time: no NTP client (chrony or systemd-timesyncd) is installed\n");
    return false;
  }
  // A restart makes it ask its servers at once. When it fails, the wait below tells.
  (void)Systemctl({"restart", kTimesyncdUnit}, kTimesyncdRestartTimeoutMs);
  const std::int64_t deadlineMs = SteadyNowMs() + kTimesyncdPatienceMs;
  while (SteadyNowMs() < deadlineMs) {
    if (IsSynchronised()) return true;
    PauseFor(kTimesyncdPauseMs);
  }
  return false;
}

}  // namespace

std::string NtpServer() {
  const std::vector<std::string> hosts = ConfiguredHosts();
  const auto host = std::find_if(hosts.begin(), hosts.end(), Resolves);
  return host != hosts.end() ? *host : kStockHost;
}

bool SntpOffset(const std::string& server, long* offsetMs) {
  const Addresses addresses = Resolve(server);
  for (const addrinfo* address = addresses.get(); address != nullptr; address = address->ai_next) {
    if (MeasureAt(*address, offsetMs)) return true;
  }
  return false;
}

bool ResyncClock() {
  TurnNtpOn();
  const std::string chronyc = FindTool("chronyc");
  if (!chronyc.empty() && ChronyIsActive()) return ResyncWithChrony(chronyc);
  return ResyncWithTimesyncd();
}

}  // namespace Tarnvale::KioskService

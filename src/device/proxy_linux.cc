#include "device/proxy_linux.h"

#include <sys/stat.h>
#include <unistd.h>

#include "core/files.h"
#include "device/proxy_files.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kAptProxyPath[] = "/etc/apt/apt.conf.d/95tarnvale-kiosk-proxy";
constexpr mode_t kEtcDirMode = 0755;

void ApplyAptProxy(const ProxyChange& change) {
  if (change.mode == "manual") {
    (void)WriteIfChanged(kAptProxyPath, AptProxyText(change));  // logs what fails; nothing follows
  } else {
    (void)::unlink(kAptProxyPath);  // usually there is none
  }
}

}  // namespace

bool ApplyProxy(const ProxyChange& change, const std::string& etcDir) {
  const std::string envPath = etcDir + "/proxy.env";
  (void)::mkdir(etcDir.c_str(), kEtcDirMode);           // usually there; the write tells otherwise
  (void)WriteIfChanged(envPath, ProxyEnvText(change));  // logs what fails; an old file will do
  ApplyAptProxy(change);
  return PathExists(envPath);
}

}  // namespace Tarnvale::KioskService

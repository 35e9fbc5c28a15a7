// The slot of the system proxy: applyProxy.

#include <unistd.h>

#include "core/log.h"
#include "core/text.h"
#include "device/proxy_files.h"
#include "simulator/slots.h"
#include "simulator/terminal_store.h"

namespace Tarnvale::KioskService::Simulator {
namespace {

constexpr char kProxyEnv[] = "proxy.env";

void TellProxy(const ProxyChange& change) {
  if (change.mode == "manual") {
    Log("<6>simulator: proxy: %s for the kiosk session and the package manager, direct to \"%s\"\n",
        change.server.c_str(), Join(change.bypass, ";").c_str());
  } else if (change.mode == "auto") {
    Log("<6>simulator: proxy: by %s for the kiosk session\n", change.pacUrl.c_str());
  } else {
    Log("<6>simulator: proxy: none\n");
  }
}

bool Apply(const ProxyChange& change, const std::string& etcDir) {
  WriteEtcFile(etcDir, kProxyEnv, ProxyEnvText(change));
  ChangeTerminal([&](Terminal& terminal) { terminal.proxy = change; });
  TellProxy(change);
  return ::access((etcDir + "/" + kProxyEnv).c_str(), F_OK) == 0;
}

}  // namespace

void FillProxySlots(Ops& ops, const Options& options) {
  ops.applyProxy = [etcDir = options.config.etcDir](const ProxyChange& change) {
    return Apply(change, etcDir);
  };
}

}  // namespace Tarnvale::KioskService::Simulator

// The slots of the clock: ntpServer, sntpOffset, resyncClock. The simulated clock's error is a
// number in the terminal; the real one is left alone.

#include "core/log.h"
#include "simulator/slots.h"
#include "simulator/terminal_store.h"

namespace Tarnvale::KioskService::Simulator {
namespace {

bool AskServer(const std::string& server, long* offsetMs) {
  const NtpClient ntp = GetTerminal().ntp;
  if (!ntp.answers) {
    Log("<4>simulator: %s does not answer\n", server.c_str());
    return false;
  }
  *offsetMs = ntp.offsetMs;
  Log("<6>simulator: %s answers: the clock is %ld ms behind\n", server.c_str(), *offsetMs);
  return true;
}

bool Resync() {
  bool synced = false;
  ChangeTerminal([&](Terminal& terminal) {
    synced = terminal.ntp.syncs;
    if (synced) terminal.ntp.offsetMs = 0;
  });
  if (synced) {
    Log("<6>simulator: the NTP client has set the clock right\n");
  } else {
    Log("<4>simulator: the NTP client does not get the clock right\n");
  }
  return synced;
}

}  // namespace

void FillTimeSlots(Ops& ops) {
  ops.ntpServer = [] { return GetTerminal().ntp.server; };
  ops.sntpOffset = AskServer;
  ops.resyncClock = Resync;
}

}  // namespace Tarnvale::KioskService::Simulator

// The slots of power: reboot.

#include "core/log.h"
#include "core/stop.h"
#include "simulator/slots.h"
#include "simulator/terminal_store.h"

namespace Tarnvale::KioskService::Simulator {
namespace {

// Marks the terminal and stops the service; the main thread starts the program anew from there
// (restart.h).
bool Reboot() {
  Log("<6>simulator: a restart of the terminal was asked for\n");
  ChangeTerminal([](Terminal& terminal) { terminal.restarting = true; });
  RequestStop();
  return true;
}

}  // namespace

void FillPowerSlots(Ops& ops) {
  ops.reboot = Reboot;
}

}  // namespace Tarnvale::KioskService::Simulator

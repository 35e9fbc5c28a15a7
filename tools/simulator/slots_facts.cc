// The slots of facts about the terminal: hostName, osVersion, screenCount, bootTime.

#include "simulator/slots.h"
#include "simulator/terminal_store.h"

namespace Tarnvale::KioskService::Simulator {

void FillFactSlots(Ops& ops, const Options& options) {
  ops.hostName = [name = options.hostName] { return name; };
  ops.osVersion = [] { return std::string("Simulated Linux"); };
  ops.screenCount = [screens = options.screens] { return screens; };
  ops.bootTime = []() -> long { return GetTerminal().bootedAtMs; };
}

}  // namespace Tarnvale::KioskService::Simulator

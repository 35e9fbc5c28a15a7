// The slot of the network: applyNetwork.

#include "core/log.h"
#include "simulator/slots.h"
#include "simulator/terminal_store.h"

namespace Tarnvale::KioskService::Simulator {
namespace {

std::string Apply(const NetChange& change) {
  std::string error;
  ChangeTerminal([&](Terminal& terminal) { error = ChangeAdapter(terminal.adapters, change); });
  const Terminal terminal = GetTerminal();
  const Adapter* const adapter = FindAdapter(terminal.adapters, change.adapter);
  if (error.empty() && adapter != nullptr) {
    Log("<6>simulator: nmcli: %s has %s\n", adapter->name.c_str(),
        DescribeSettings(*adapter).c_str());
  } else {
    Log("<4>simulator: nmcli: %s: %s\n", change.adapter.c_str(), error.c_str());
  }
  return error;
}

}  // namespace

void FillNetworkSlots(Ops& ops) {
  ops.applyNetwork = Apply;
}

}  // namespace Tarnvale::KioskService::Simulator

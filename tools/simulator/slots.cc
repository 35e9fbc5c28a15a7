#include "simulator/slots.h"

namespace Tarnvale::KioskService::Simulator {

Ops SimulatorOps(const Options& options) {
  Ops ops;
  FillPortalSlots(ops);
  FillAccountSlots(ops, options);
  FillSessionSlots(ops, options);
  FillPowerSlots(ops, options);
  FillNetworkSlots(ops);
  FillTimeSlots(ops);
  FillProxySlots(ops, options);
  FillUpdatesSlots(ops);
  FillFactSlots(ops, options);
  return ops;
}

}  // namespace Tarnvale::KioskService::Simulator

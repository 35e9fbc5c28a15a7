#include "simulator/slots.h"

namespace Tarnvale::KioskService::Simulator {

Ops SimulatorOps(const Options& options) {
  Ops ops;
  FillPortalSlots(ops);
  FillAccountSlots(ops, options);
  FillSessionSlots(ops);
  FillPowerSlots(ops);
  FillFactSlots(ops, options);
  return ops;
}

}  // namespace Tarnvale::KioskService::Simulator

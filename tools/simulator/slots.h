// The simulator's table of platform operations: the second one beside LinuxOps.
//
// HTTP is the real thing; everything else is a view of the simulated terminal or a change to it,
// and each change is told in the log. A slot that the service gets belongs into the file of its
// subject, and what it needs to remember into the terminal.

#ifndef TARNVALE_KIOSKD_TOOLS_SIMULATOR_SLOTS_H_
#define TARNVALE_KIOSKD_TOOLS_SIMULATOR_SLOTS_H_

#include "core/ops.h"
#include "simulator/options.h"

namespace Tarnvale::KioskService::Simulator {

// Fills every slot. Called before any other thread exists, once the terminal is open.
[[nodiscard]] Ops SimulatorOps(const Options& options);

// One function for each file of slots.
void FillPortalSlots(Ops& ops);
void FillAccountSlots(Ops& ops, const Options& options);
void FillSessionSlots(Ops& ops, const Options& options);
void FillPowerSlots(Ops& ops, const Options& options);
void FillNetworkSlots(Ops& ops);
void FillTimeSlots(Ops& ops);
void FillProxySlots(Ops& ops, const Options& options);
void FillUpdatesSlots(Ops& ops);
void FillFactSlots(Ops& ops, const Options& options);

// Takes the terminal down for a restart that is due. The service's look at the sessions, every two
// seconds, is what gives a simulated terminal that occasion.
void RestartWhenDue();

// Replaces a file in the directory of what the kiosk session's environment is made of, and makes
// that directory. A failure is logged by the writer.
void WriteEtcFile(const std::string& etcDir, const std::string& name, const std::string& text);

}  // namespace Tarnvale::KioskService::Simulator

#endif  // TARNVALE_KIOSKD_TOOLS_SIMULATOR_SLOTS_H_

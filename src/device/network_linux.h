// A network change through nmcli: the slot applyNetwork.
//
// Called by `net.set` on its connection's thread. Runs `systemctl is-active` and then up to five
// nmcli, each with a time-out of its own: 10 s, and 15, 30, 15, 30 and 90 s for asking after the
// device, making a profile, looking it up, changing and activating it. Writes no file of its own:
// the profile belongs to the network manager, and is addressed by its id, so that an existing one
// is changed in place whatever its name.

#ifndef TARNVALE_KIOSKD_DEVICE_NETWORK_LINUX_H_
#define TARNVALE_KIOSKD_DEVICE_NETWORK_LINUX_H_

#include <string>

#include "device/net_change.h"

namespace Tarnvale::KioskService {

// Changes the profile of the adapter and activates it; a wired adapter without a profile gets one,
// a wireless one does not. Empty on success. `unknown_adapter`: there is no such adapter, or none
// that the network manager looks after, and nothing was changed. `failed`: a step failed or ran out
// of time; there is no way back, so the profile may hold the new values, in part or whole. Logs
// what fails, but for an adapter that is simply not there or has no profile. The caller holds the
// network lock, so that changes never mix.
[[nodiscard]] std::string ApplyNetwork(const NetChange& change);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_NETWORK_LINUX_H_

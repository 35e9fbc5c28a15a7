// One connection to the control socket: one request line, one reply line.

#ifndef TARNVALE_KIOSKD_CONTROL_CONNECTION_H_
#define TARNVALE_KIOSKD_CONTROL_CONNECTION_H_

#include "core/descriptor.h"

namespace Tarnvale::KioskService {

// Serves a connection to its end, on a thread of its own: reads at most 9,215 bytes for at most 15
// s, identifies the peer, dispatches, sends the reply, closes, and then runs what the handler left
// to do after that. A peer that sent nothing is closed without a reply. Logs why a peer was
// refused, and nothing else; a peer that is gone before its reply changes nothing.
void ServeConnection(Descriptor connection);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CONTROL_CONNECTION_H_

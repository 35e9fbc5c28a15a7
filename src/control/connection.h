// One connection to the control socket: one request line, one reply line, no second of either.
//
// The accept loop (control/server.cc) starts a thread for each connection and hands it its
// descriptor. Reading ends at a line feed, at a whole JSON text, at 8 KiB, or after 15 s for all of
// it, whichever comes first; the last chunk may take the text to 9,215 bytes. The peer is known by
// what the kernel recorded when it connected (SO_PEERCRED). The reply is sent without a deadline: a
// peer that does not read it keeps its own thread waiting, and no lock. A request may hold a
// password, so every copy of it is wiped.

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

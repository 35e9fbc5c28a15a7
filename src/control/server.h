// The control socket: how it is made, the accept loop, and the order in which everything stops.
//
// The socket is deliberately open to every local user: the gate is the test of the peer (caller.h),
// not the file's mode. Each connection has a detached thread of its own; there is no limit on how
// many run at once, the backlog of 16 apart.

#ifndef TARNVALE_KIOSKD_CONTROL_SERVER_H_
#define TARNVALE_KIOSKD_CONTROL_SERVER_H_

namespace Tarnvale::KioskService {

// Makes the wake pipe and the listening socket, mode 0666 whatever the umask. A socket that a
// crashed run left is replaced; anything else of that name is left alone, and the start fails on
// it. False when the service cannot listen; logs the cause, but for a path over 107 bytes and a
// lack of descriptors. Called once, on the main thread, after Run.
[[nodiscard]] bool OpenControlSocket();

// Starts the long-lived threads, serves until a stop is requested or poll fails, then stops
// everything: joins those threads, cancels a scheduled restart, gives the connections 30 s, removes
// the socket. On the main thread.
void AcceptLoop();

// Connections that AcceptLoop gave up waiting for: their threads still run.
[[nodiscard]] bool AreConnectionsRunning();

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CONTROL_SERVER_H_

// The kiosk side of the stand-in for the stream client: it asks what it is told to ask.
//
// On a real terminal the person at the screen makes the stream client ask the service for things.
// Here it is a test that does, and only a process of the kiosk session with the client's image may
// ask. So the client listens in the session's own run-time directory and passes on what comes in.

#ifndef TARNVALE_KIOSKD_TOOLS_TERMINAL_STREAM_CLIENT_RELAY_H_
#define TARNVALE_KIOSKD_TOOLS_TERMINAL_STREAM_CLIENT_RELAY_H_

#include <string>

namespace Tarnvale::KioskService::StreamClient {

// Listens at `path`, where only the session's own user and root reach it. Takes one request line
// per connection, sends it to the service at `servicePath`, answers with the reply or an empty
// line. One connection at a time; reads keys from standard input meanwhile and drops them. Returns
// only when it cannot listen, with a sentence in `problem`.
void Relay(const std::string& path, const std::string& servicePath, std::string& problem);

}  // namespace Tarnvale::KioskService::StreamClient

#endif  // TARNVALE_KIOSKD_TOOLS_TERMINAL_STREAM_CLIENT_RELAY_H_

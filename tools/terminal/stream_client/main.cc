// tarnvale-stream: stands on the test terminal where the stream client is on a real one.
//
//   tarnvale-stream --kiosk                  the kiosk session: stays, and relays what a test asks
//   tarnvale-stream --ask REQUEST            sends one JSON line to the service, prints the reply
//   tarnvale-stream --ask REQUEST SOCKET     the same through another socket, such as the relay's
//
// It shows no stream. It is an ELF file because the service knows its client by the image of the
// process, and of a script that is the interpreter.

#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>

#include "kioskctl/socket_client.h"
#include "terminal/stream_client/relay.h"

namespace Tarnvale::KioskService::StreamClient {
namespace {

constexpr char kServicePath[] = "/run/tarnvale/kiosk.sock";

int Fail(int status, const std::string& problem) {
  (void)std::fprintf(stderr, "tarnvale-stream: %s\n", problem.c_str());
  return status;
}

int Ask(const std::string& request, const std::string& socketPath) {
  std::string reply;
  std::string problem;
  if (!Kioskctl::Exchange(socketPath, request, reply, problem)) return Fail(1, problem);
  return std::puts(reply.c_str()) >= 0 ? 0 : 1;
}

int ShowKiosk() {
  const char* directory = std::getenv("XDG_RUNTIME_DIR");
  if (directory == nullptr) return Fail(1, "there is no session: XDG_RUNTIME_DIR is not set");
  std::string problem;
  Relay(std::string(directory) + "/tarnvale-stream.sock", kServicePath, problem);
  return Fail(1, problem);
}

int Main(std::span<char*> arguments) {
  const std::string_view mode = arguments.size() > 1 ? arguments[1] : "";
  if (mode == "--kiosk" && arguments.size() == 2) return ShowKiosk();
  if (mode == "--ask" && arguments.size() == 3) return Ask(arguments[2], kServicePath);
  if (mode == "--ask" && arguments.size() == 4) return Ask(arguments[2], arguments[3]);
  return Fail(2, "usage: tarnvale-stream --kiosk | --ask REQUEST [SOCKET]");
}

}  // namespace
}  // namespace Tarnvale::KioskService::StreamClient

int main(int argc, char** argv) {
  return Tarnvale::KioskService::StreamClient::Main({argv, static_cast<std::size_t>(argc)});
}

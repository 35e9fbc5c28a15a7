// A caller of the control socket that is a program image of its own: sends its second argument as
// one request line and prints the reply. The tests copy it to where the stream client is installed,
// run it with other uids and in other sessions, and replace it while it runs.
//
//   peer SOCKET REQUEST           one request
//   peer SOCKET -                 the bytes of standard input, as they are
//   peer --wait SOCKET REQUEST    first connects, prints a line, and reads one from standard input

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <iostream>
#include <iterator>
#include <string>
#include <string_view>

namespace {

int Connect(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return -1;
  path.copy(address.sun_path, path.size());
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  return ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? fd : -1;
}

bool SendAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 1) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

void PrintReply(int fd) {
  char buffer[4096];
  for (ssize_t count = 0; (count = ::read(fd, buffer, sizeof buffer)) > 0;) {
    std::cout.write(buffer, count);
  }
  std::cout.flush();
}

void WaitForTheWord() {
  std::cout << "connected" << std::endl;
  std::string line;
  std::getline(std::cin, line);
}

std::string ReadRequest(std::string_view argument) {
  if (argument != "-") return std::string(argument) + '\n';
  return {std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};
}

}  // namespace

int main(int argc, char** argv) {
  const bool waits = argc > 1 && std::string_view(argv[1]) == "--wait";
  const int first = waits ? 2 : 1;
  if (argc != first + 2) return 2;
  const int fd = Connect(argv[first]);
  if (fd < 0) return 1;
  if (waits) WaitForTheWord();
  if (!SendAll(fd, ReadRequest(argv[first + 1]))) return 1;
  PrintReply(fd);
  return 0;
}

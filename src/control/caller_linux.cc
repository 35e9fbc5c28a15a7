#include "control/caller_linux.h"

#include <unistd.h>

#include <array>

namespace Tarnvale::KioskService {

std::string ExePathOfPid(int pid) {
  const std::string link = "/proc/" + std::to_string(pid) + "/exe";
  std::array<char, 4095> target;
  const ssize_t length = ::readlink(link.c_str(), target.data(), target.size());
  if (length < 0) return {};
  return {target.data(), static_cast<std::size_t>(length)};
}

}  // namespace Tarnvale::KioskService

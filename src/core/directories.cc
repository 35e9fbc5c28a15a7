#include "core/directories.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "core/descriptor.h"
#include "core/log.h"

namespace Tarnvale::KioskService {
namespace {

constexpr mode_t kParentMode = 0755;

bool RemoveUnlessDirectory(const std::string& path) {
  struct stat status = {};
  if (::lstat(path.c_str(), &status) != 0 || S_ISDIR(status.st_mode)) return true;
  Log("<4>removing %s: not a plain directory\n", path.c_str());
  return ::unlink(path.c_str()) == 0;
}

bool Secure(const Descriptor& directory, const std::string& path, mode_t mode) {
  const bool owned = ::geteuid() != 0 || ::fchown(directory.Get(), 0, 0) == 0;
  const bool restricted = ::fchmod(directory.Get(), mode) == 0;
  if (owned && restricted) return true;
  Log("<3>cannot secure %s\n", path.c_str());
  return false;
}

}  // namespace

std::string ParentOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

void MakeParentDirectories(const std::string& path) {
  std::string made;
  std::size_t begin = 0;
  while (begin < path.size()) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    if (end > begin) {
      made += '/';
      made.append(path, begin, end - begin);
      if (::mkdir(made.c_str(), kParentMode) != 0 && errno != EEXIST) return;
    }
    begin = end + 1;
  }
}

bool PrepareDirectory(const std::string& path, mode_t mode, bool secureExisting) {
  if (!RemoveUnlessDirectory(path)) return false;
  const bool made = ::mkdir(path.c_str(), mode) == 0;
  if (!made && errno != EEXIST) {
    Log("<3>cannot create %s (%s)\n", path.c_str(), std::strerror(errno));
    return false;
  }
  const Descriptor directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!directory.IsOpen()) {
    Log("<3>cannot open %s (%s)\n", path.c_str(), std::strerror(errno));
    return false;
  }
  if (!made && !secureExisting) return true;
  return Secure(directory, path, mode);
}

}  // namespace Tarnvale::KioskService

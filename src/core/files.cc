#include "core/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/descriptor.h"
#include "core/log.h"
#include "core/units.h"

namespace Tarnvale::KioskService {
namespace {

constexpr mode_t kSystemFileMode = 0644;
constexpr std::size_t kReadBlockBytes = 4 * kKiB;

// A write of nothing is a failure like any other: it would otherwise go on for ever.
bool WriteAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 1) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

// Not through a link of this name, and not into a FIFO. What is there is overwritten.
bool WriteWholeFile(const std::string& path, std::string_view text) {
  Descriptor file(::open(path.c_str(),
                         O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK,
                         kSystemFileMode));
  return file.IsOpen() && WriteAll(file.Get(), text) && file.Close();
}

bool FillAndReplace(Descriptor& file, const std::string& temporary, const std::string& path,
                    std::string_view bytes, mode_t mode) {
  return WriteAll(file.Get(), bytes) && ::fchmod(file.Get(), mode) == 0 &&
         ::fsync(file.Get()) == 0 && file.Close() && ::rename(temporary.c_str(), path.c_str()) == 0;
}

// Fills `out`, which already has the file's size.
bool ReadExactly(int fd, std::string& out) {
  std::size_t filled = 0;
  while (filled < out.size()) {
    const ssize_t count = ::read(fd, out.data() + filled, out.size() - filled);
    if (count < 1) return false;
    filled += static_cast<std::size_t>(count);
  }
  return true;
}

}  // namespace

bool WriteFileAtomic(const std::string& path, std::string_view bytes, mode_t mode) {
  const std::string temporary = path + ".tmp";
  (void)::unlink(temporary.c_str());  // the leftover of a crash, usually not there
  Descriptor file(
      ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
  if (!file.IsOpen()) {
    Log("<3>cannot create %s (%s)\n", temporary.c_str(), std::strerror(errno));
    return false;
  }
  if (FillAndReplace(file, temporary, path, bytes, mode)) return true;
  const int error = errno;
  (void)file.Close();  // what it says now is no news
  Log("<3>cannot write %s (%s)\n", path.c_str(), std::strerror(error));
  (void)::unlink(temporary.c_str());  // the failure has been told already
  return false;
}

bool ReadFileLimited(const std::string& path, std::size_t maxBytes, std::string& out) {
  // Not blocking, because a FIFO of this name would otherwise hold the caller until someone writes.
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
  if (!file.IsOpen()) return false;
  struct stat status = {};
  if (::fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode) ||
      static_cast<std::size_t>(status.st_size) > maxBytes) {
    out.clear();
    return false;
  }
  out.assign(static_cast<std::size_t>(status.st_size), '\0');
  return ReadExactly(file.Get(), out);
}

bool PathExists(const std::string& path) {
  struct stat status = {};
  return ::stat(path.c_str(), &status) == 0;
}

bool WriteIfChanged(const std::string& path, const std::string& text) {
  if (PathExists(path) && ReadWholeFile(path) == text) return false;
  const std::string temporary = path + ".tmp";
  if (!WriteWholeFile(temporary, text)) {
    Log("<3>cannot write %s\n", temporary.c_str());
    return false;
  }
  // The rename reports a file that is gone; a mode that could not be set changes nothing for root.
  (void)::chmod(temporary.c_str(), kSystemFileMode);
  if (::rename(temporary.c_str(), path.c_str()) == 0) return true;
  Log("<3>cannot replace %s (%s)\n", path.c_str(), std::strerror(errno));
  (void)::unlink(temporary.c_str());  // the failure has been told already
  return false;
}

std::string ReadWholeFile(const std::string& path) {
  // Not through a stream of the library, which would open it for children too.
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  std::string text;
  std::array<char, kReadBlockBytes> block;
  while (true) {
    const ssize_t count = ::read(file.Get(), block.data(), block.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 1) return text;  // the end, a read that failed, or no file at all
    text.append(block.data(), static_cast<std::size_t>(count));
  }
}

}  // namespace Tarnvale::KioskService

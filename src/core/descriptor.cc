#include "core/descriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <utility>

namespace Tarnvale::KioskService {

Descriptor::~Descriptor() {
  (void)Close();  // who cares about the result calls Close
}

Descriptor::Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  if (this == &other) return *this;
  (void)Close();  // who cares about the result calls Close
  fd_ = std::exchange(other.fd_, -1);
  return *this;
}

bool Descriptor::Close() {
  if (fd_ < 0) return true;
  // Linux releases the descriptor even when close reports an error, so it is never tried twice.
  return ::close(std::exchange(fd_, -1)) == 0;
}

bool OpenPipe(Pipe& pipe) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return false;
  pipe.readEnd = Descriptor(ends[0]);
  pipe.writeEnd = Descriptor(ends[1]);
  return true;
}

}  // namespace Tarnvale::KioskService

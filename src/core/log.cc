#include "core/log.h"

#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <string>

#include "core/text.h"

namespace Tarnvale::KioskService {

void Log(const char* format, ...) {
  const int savedErrno = errno;
  va_list arguments;
  va_start(arguments, format);
  const std::string line = FormatTextV(format, arguments);
  va_end(arguments);
  while (::write(STDERR_FILENO, line.data(), line.size()) < 0 && errno == EINTR) {
  }
  errno = savedErrno;
}

}  // namespace Tarnvale::KioskService

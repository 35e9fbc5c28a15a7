#include "support/log_capture.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>

#include "support/sanitizer_reports.h"

namespace Tarnvale::KioskService {
namespace {

std::string ReadFrom(int fd, long start) {
  std::string text;
  char block[4096];
  ssize_t count = 0;
  while ((count = ::pread(fd, block, sizeof block, start + static_cast<long>(text.size()))) > 0) {
    text.append(block, static_cast<std::size_t>(count));
  }
  return text;
}

}  // namespace

LogCapture::LogCapture()
    : memory_(::memfd_create("log", MFD_CLOEXEC)),
      realStandardError_(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
  // Appending, so that each write lands at the end also when several descriptors share the file.
  (void)::fcntl(memory_, F_SETFL, O_APPEND);
  (void)::dup2(memory_, STDERR_FILENO);
  // Not to the real standard error: a runtime closes what is neither 1 nor 2 when it looks up its
  // options, which UndefinedBehaviorSanitizer puts off until it has something to report.
  SendSanitizerReportsTo(STDOUT_FILENO);
}

LogCapture::~LogCapture() {
  const std::string text = ReadFrom(memory_, 0);
  SendSanitizerReportsTo(STDERR_FILENO);
  (void)::dup2(realStandardError_, STDERR_FILENO);
  (void)!::write(STDERR_FILENO, text.data(), text.size());
  (void)::close(realStandardError_);
  (void)::close(memory_);
}

std::string LogCapture::Text() const {
  return ReadFrom(memory_, start_);
}

std::string LogCapture::WholeText() const {
  return ReadFrom(memory_, 0);
}

std::vector<std::string> LogCapture::Lines() const {
  std::vector<std::string> lines;
  std::istringstream text(Text());
  for (std::string line; std::getline(text, line);)
    lines.push_back(line);
  return lines;
}

int LogCapture::Count(const std::string& line) const {
  const std::vector<std::string> lines = Lines();
  return static_cast<int>(std::count(lines.begin(), lines.end(), line));
}

void LogCapture::Clear() {
  start_ += static_cast<long>(Text().size());
}

}  // namespace Tarnvale::KioskService

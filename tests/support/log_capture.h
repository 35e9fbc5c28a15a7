// The log of a test: catches what is written to standard error. A sanitizer's reports, after which
// the process ends and could not show them any more, go to standard output meanwhile.

#ifndef TARNVALE_KIOSKD_TESTS_SUPPORT_LOG_CAPTURE_H_
#define TARNVALE_KIOSKD_TESTS_SUPPORT_LOG_CAPTURE_H_

#include <string>
#include <vector>

namespace Tarnvale::KioskService {

// Puts a file in memory in the place of standard error for as long as it lives. What it caught is
// written to the real standard error at the end, so that a failing test still shows its log.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  // All that was logged since the start or the last Clear.
  [[nodiscard]] std::string Text() const;
  // All that was logged since the start, whatever was cleared.
  [[nodiscard]] std::string WholeText() const;
  // All since the last Clear, line by line, without the line feeds.
  [[nodiscard]] std::vector<std::string> Lines() const;
  // How often exactly this line was logged.
  [[nodiscard]] int Count(const std::string& line) const;
  [[nodiscard]] bool Has(const std::string& line) const {
    return Count(line) > 0;
  }
  void Clear();

 private:
  int memory_;
  int realStandardError_;
  long start_ = 0;
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_SUPPORT_LOG_CAPTURE_H_

// Where the sanitizers of an instrumented build write their reports.
//
// A report is a process's last word: it must reach whoever runs the test, also while the test holds
// standard error for itself. For LogCapture; before and after other threads exist alike.

#ifndef TARNVALE_KIOSKD_TESTS_SUPPORT_SANITIZER_REPORTS_H_
#define TARNVALE_KIOSKD_TESTS_SUPPORT_SANITIZER_REPORTS_H_

namespace Tarnvale::KioskService {

// From now on every sanitizer of this process reports to `fd`, which stays the caller's. Does
// nothing in a build without one.
void SendSanitizerReportsTo(int fd);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_SUPPORT_SANITIZER_REPORTS_H_

// Waiting for other threads of the test's own process, and looking at them.

#ifndef TARNVALE_KIOSKD_TESTS_SUPPORT_THREADS_H_
#define TARNVALE_KIOSKD_TESTS_SUPPORT_THREADS_H_

#include <sys/types.h>

#include <functional>

namespace Tarnvale::KioskService {

// True as soon as the condition holds; false, for the test to report, when it does not within a
// time that no machine needs.
[[nodiscard]] bool Eventually(const std::function<bool()>& condition);

// The calling thread's id, for IsAsleep.
[[nodiscard]] pid_t ThreadId();

// Whether a thread of this process waits in the kernel, for a lock above all.
[[nodiscard]] bool IsAsleep(pid_t thread);

// How many threads this process has.
[[nodiscard]] int ThreadCount();

// The same before a test starts threads of its own. Counts the one that a sanitizer starts for
// itself beside the first of the program, by running a thread to its end.
[[nodiscard]] int ThreadCountAtStart();

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_SUPPORT_THREADS_H_

// Counts how often a file is replaced, for tests that promise a write or none.

#ifndef TARNVALE_KIOSKD_TESTS_SUPPORT_SAVE_COUNTER_H_
#define TARNVALE_KIOSKD_TESTS_SUPPORT_SAVE_COUNTER_H_

#include <string>

#include "core/descriptor.h"

namespace Tarnvale::KioskService {

// The kernel reports each rename into the directory, so a file that was replaced with the same
// bytes, or twice in a row, counts like any other. Not to be used by two threads at once.
class SaveCounter {
 public:
  SaveCounter(const std::string& directory, std::string name);

  // How often the file was replaced since the counter was made.
  [[nodiscard]] int Count();

 private:
  Descriptor events_;
  std::string name_;
  int count_ = 0;
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_SUPPORT_SAVE_COUNTER_H_

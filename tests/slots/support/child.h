// A helper process of a test, with its standard output on a pipe to the test.

#ifndef TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_CHILD_H_
#define TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_CHILD_H_

#include <sys/types.h>

#include <string>
#include <vector>

#include "core/descriptor.h"

namespace Tarnvale::KioskService {

class Child {
 public:
  // Starts a program by its full path; it has been executed when this returns.
  explicit Child(const std::vector<std::string>& argv);
  // Ends it.
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  [[nodiscard]] int Pid() const {
    return pid_;
  }
  // The next line that it prints, without the line feed; empty at the end of its output.
  [[nodiscard]] std::string ReadLine() const;
  // Waits until it exits by itself and returns its wait status.
  int Wait();
  // Ends it and takes its leave.
  void End();

 private:
  pid_t pid_ = -1;
  Descriptor output_;
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_CHILD_H_

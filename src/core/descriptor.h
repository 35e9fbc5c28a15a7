// The owner of a file descriptor. This is the one place in the tree that closes one.
//
// Whoever opens, accepts or makes a descriptor puts it into one of these at once. The call that
// makes it sets close-on-exec with it, because other threads start children at any moment. It moves
// and never copies, so each descriptor has one owner, and is closed when that ends. Any thread, but
// one at a time: there is no lock.

#ifndef TARNVALE_KIOSKD_CORE_DESCRIPTOR_H_
#define TARNVALE_KIOSKD_CORE_DESCRIPTOR_H_

namespace Tarnvale::KioskService {

class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor();
  Descriptor(Descriptor&& other) noexcept;
  Descriptor& operator=(Descriptor&& other) noexcept;
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  [[nodiscard]] int Get() const {
    return fd_;
  }
  [[nodiscard]] bool IsOpen() const {
    return fd_ >= 0;
  }

  // Closes now and reports it, for files whose last write may fail here; true when nothing was
  // open.
  [[nodiscard]] bool Close();

 private:
  int fd_ = -1;
};

// The two ends of a pipe, both close-on-exec.
struct Pipe {
  Descriptor readEnd;
  Descriptor writeEnd;
};

// Makes the pipe; false when the system has none to give, and then errno tells why.
[[nodiscard]] bool OpenPipe(Pipe& pipe);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CORE_DESCRIPTOR_H_

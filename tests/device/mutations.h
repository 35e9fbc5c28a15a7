// Damaged texts for parsers that must take any bytes: the same ones in every run.

#ifndef TARNVALE_KIOSKD_TESTS_DEVICE_MUTATIONS_H_
#define TARNVALE_KIOSKD_TESTS_DEVICE_MUTATIONS_H_

#include <random>
#include <string>

namespace Tarnvale::KioskService {

// Calls `action` with this many copies of the text, in each of which some bytes were changed, cut
// out or doubled.
template <typename Action>
void ForEachMutation(const std::string& text, int count, const Action& action) {
  std::mt19937 numbers(2026);
  for (int mutation = 0; mutation < count; ++mutation) {
    std::string damaged = text;
    for (std::size_t change = numbers() % 8; change > 0 && !damaged.empty(); --change) {
      const std::size_t at = numbers() % damaged.size();
      const std::size_t length = 1 + numbers() % 20;
      switch (numbers() % 3) {
        case 0:
          damaged[at] = static_cast<char>(numbers() % 256);
          break;
        case 1:
          damaged.erase(at, length);
          break;
        default:
          damaged.insert(at, damaged.substr(at, length));
      }
    }
    action(damaged);
  }
}

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_DEVICE_MUTATIONS_H_

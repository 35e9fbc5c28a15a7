// Stands between the logic and the system's source of randomness, so that a test knows what comes
// from it, and can let it fail.

#ifndef TARNVALE_KIOSKD_TESTS_KIOSK_RANDOM_SOURCE_H_
#define TARNVALE_KIOSKD_TESTS_KIOSK_RANDOM_SOURCE_H_

#include <string>
#include <vector>

namespace Tarnvale::KioskService::RandomSource {

// The next open of the source gives these chunks, one for each read, and then its end.
void Gives(const std::vector<std::string>& chunks);
// The next open of the source fails with this error.
void FailsToOpen(int error);

// How often the source was opened, and with which flags at last.
[[nodiscard]] int Opened();
[[nodiscard]] int OpenFlags();

}  // namespace Tarnvale::KioskService::RandomSource

#endif  // TARNVALE_KIOSKD_TESTS_KIOSK_RANDOM_SOURCE_H_

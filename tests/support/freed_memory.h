// Looks at every block that the program gives back, so that a test sees what the service leaves
// behind there. For test executables of their own: it takes the place of new and delete.

#ifndef TARNVALE_KIOSKD_TESTS_SUPPORT_FREED_MEMORY_H_
#define TARNVALE_KIOSKD_TESTS_SUPPORT_FREED_MEMORY_H_

#include <string_view>

namespace Tarnvale::KioskService::FreedMemory {

// From now on blocks are looked at for this text, which must outlive the look, on all threads. An
// empty text ends it.
void LookFor(std::string_view text);

// How many blocks held it when they were given back, since the last LookFor.
[[nodiscard]] int Found();

}  // namespace Tarnvale::KioskService::FreedMemory

#endif  // TARNVALE_KIOSKD_TESTS_SUPPORT_FREED_MEMORY_H_

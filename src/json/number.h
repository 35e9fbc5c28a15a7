// How the numbers of the documents turn into integers and text. All of them are doubles.
//
// For Json's conversions and its writer (json/json.h). Both functions are total: every double has
// an answer, NaN and the infinities too, and no answer depends on what the compiler makes of an
// undefined cast. Integers are exact up to 2^53, which every count and every time in milliseconds
// stays far below. Pure; any thread.

#ifndef TARNVALE_KIOSKD_JSON_NUMBER_H_
#define TARNVALE_KIOSKD_JSON_NUMBER_H_

#include <cstdint>
#include <string>

namespace Tarnvale::KioskService {

// Truncates toward zero. What does not fit, NaN included, gives the lowest 64-bit integer: that is
// what the processor's own conversion answers, while the language leaves the cast undefined.
[[nodiscard]] std::int64_t TruncateToInt64(double value);

// A whole number in the 64-bit range as an integer, anything else with six significant digits.
//
//   42       "42"
//   0.5      "0.5"
//   1e21     "1e+21"
[[nodiscard]] std::string NumberText(double value);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_JSON_NUMBER_H_

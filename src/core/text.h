// Small helpers on text that every subsystem shares.

#ifndef TARNVALE_KIOSKD_CORE_TEXT_H_
#define TARNVALE_KIOSKD_CORE_TEXT_H_

#include <cstdarg>
#include <string>
#include <string_view>

namespace Tarnvale::KioskService {

// A copy without leading and trailing characters for which the C library's isspace holds.
//
//   " a b\n"   "a b"
//   " \t\r\n"  ""
//   ""         ""
[[nodiscard]] std::string Trim(std::string_view text);

// printf into a string of whatever length it takes.
[[nodiscard]] std::string FormatText(const char* format, ...) __attribute__((format(printf, 1, 2)));
[[nodiscard]] std::string FormatTextV(const char* format, va_list arguments)
    __attribute__((format(printf, 1, 0)));

// Overwrites every byte in a way that the compiler keeps, then empties the text. For secrets.
void WipeText(std::string& text);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CORE_TEXT_H_

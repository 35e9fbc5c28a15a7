// Small helpers on text that every subsystem shares.

#ifndef TARNVALE_KIOSKD_CORE_TEXT_H_
#define TARNVALE_KIOSKD_CORE_TEXT_H_

#include <cstdarg>
#include <string>
#include <string_view>
#include <vector>

#include "json/json.h"

namespace Tarnvale::KioskService {

// A copy without leading and trailing characters for which the C library's isspace holds.
//
//   " a b\n"   "a b"
//   " \t\r\n"  ""
//   ""         ""
[[nodiscard]] std::string Trim(std::string_view text);

// A copy with a "?" in the place of each ASCII control character, for names that others have
// chosen: a line feed in the path of a program would otherwise begin a line of the log, of any
// priority.
//
//   "/usr/bin/a b"   "/usr/bin/a b"
//   "/a\n<3>b"       "/a?<3>b"
//   ""               ""
[[nodiscard]] std::string OneLine(std::string text);

// The text with `tolower` of each byte.
[[nodiscard]] std::string ToLower(std::string_view text);

// The parts between line feeds. What stands behind the last line feed is a line when it is not
// empty.
//
//   "a\nb\n"   a, b
//   "a\n\nb"   a, an empty line, b
//   ""         none
[[nodiscard]] std::vector<std::string> SplitLines(std::string_view text);

// The words between white space; none is empty.
//
//   " a  b\t"   a, b
[[nodiscard]] std::vector<std::string> SplitWords(std::string_view text);

// The parts with `separator` between each two.
[[nodiscard]] std::string Join(const std::vector<std::string>& parts, std::string_view separator);

// printf into a string of whatever length it takes.
[[nodiscard]] std::string FormatText(const char* format, ...) __attribute__((format(printf, 1, 2)));
[[nodiscard]] std::string FormatTextV(const char* format, va_list arguments)
    __attribute__((format(printf, 1, 0)));

// Overwrites every byte in a way that the compiler keeps, then empties the text. For secrets.
void WipeText(std::string& text);

// The same for the texts of an object's own members, which are empty strings afterwards.
void WipeTexts(Json& object);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CORE_TEXT_H_

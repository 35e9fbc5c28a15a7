// Small helpers on text that every subsystem shares, the tools of tools/ too.
//
// Pure functions, but for the two that wipe: any thread, no lock, no log, no limit of their own;
// who takes text from outside bounds it first. Bytes are bytes: the classification is the C
// library's in the C locale, which the process never leaves, so no byte from 0x80 up is a letter or
// a space. Each takes time linear in its text.

#ifndef TARNVALE_KIOSKD_CORE_TEXT_H_
#define TARNVALE_KIOSKD_CORE_TEXT_H_

#include <cstdarg>
#include <cstdint>
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

// The whole text as a decimal number from `lowest` to `highest`. False, with `number` untouched,
// for anything else.
//
//   "16" of 1 to 16   16
//   "17" of 1 to 16   false
//   "+1"              false: no sign, no space
[[nodiscard]] bool ParseNumber(std::string_view text, std::uint32_t lowest, std::uint32_t highest,
                               std::uint32_t& number);

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

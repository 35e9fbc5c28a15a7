#include "core/text.h"

#include <string.h>

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace Tarnvale::KioskService {
namespace {

bool IsSpace(char byte) {
  return std::isspace(static_cast<unsigned char>(byte)) != 0;
}

}  // namespace

std::string Trim(std::string_view text) {
  const auto begin = std::find_if_not(text.begin(), text.end(), IsSpace);
  const auto end =
      std::find_if_not(text.rbegin(), std::make_reverse_iterator(begin), IsSpace).base();
  return {begin, end};
}

std::string FormatText(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::string text = FormatTextV(format, arguments);
  va_end(arguments);
  return text;
}

std::string FormatTextV(const char* format, va_list arguments) {
  va_list measured;
  va_copy(measured, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, measured);
  va_end(measured);
  if (length < 0) return {};
  std::string text(static_cast<std::size_t>(length), '\0');
  (void)std::vsnprintf(text.data(), text.size() + 1, format, arguments);  // measured above
  return text;
}

void WipeText(std::string& text) {
  text.resize(text.capacity());  // what a move or a cut left behind its end goes too
  ::explicit_bzero(text.data(), text.size());
  text.clear();
}

}  // namespace Tarnvale::KioskService

#include "core/text.h"

#include <string.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>

namespace Tarnvale::KioskService {
namespace {

bool IsSpace(char byte) {
  return std::isspace(static_cast<unsigned char>(byte)) != 0;
}

bool IsControl(char byte) {
  return std::iscntrl(static_cast<unsigned char>(byte)) != 0;
}

}  // namespace

std::string Trim(std::string_view text) {
  const auto begin = std::find_if_not(text.begin(), text.end(), IsSpace);
  const auto end =
      std::find_if_not(text.rbegin(), std::make_reverse_iterator(begin), IsSpace).base();
  return {begin, end};
}

std::string OneLine(std::string text) {
  std::replace_if(text.begin(), text.end(), IsControl, '?');
  return text;
}

std::string ToLower(std::string_view text) {
  std::string lower(text);
  for (char& byte : lower)
    byte = static_cast<char>(std::tolower(static_cast<unsigned char>(byte)));
  return lower;
}

std::vector<std::string> SplitLines(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    lines.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

std::vector<std::string> SplitWords(std::string_view text) {
  std::vector<std::string> words;
  auto begin = std::find_if_not(text.begin(), text.end(), IsSpace);
  while (begin != text.end()) {
    const auto end = std::find_if(begin, text.end(), IsSpace);
    words.emplace_back(begin, end);
    begin = std::find_if_not(end, text.end(), IsSpace);
  }
  return words;
}

bool ParseNumber(std::string_view text, std::uint32_t lowest, std::uint32_t highest,
                 std::uint32_t& number) {
  std::uint32_t parsed = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, parsed);
  if (error != std::errc() || stop != end || parsed < lowest || parsed > highest) return false;
  number = parsed;
  return true;
}

std::string Join(const std::vector<std::string>& parts, std::string_view separator) {
  std::string joined;
  for (const std::string& part : parts) {
    if (&part != &parts.front()) joined += separator;
    joined += part;
  }
  return joined;
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

void WipeTexts(Json& object) {
  for (Json& member : object.values)
    WipeText(member.text);
}

}  // namespace Tarnvale::KioskService

#include "portal/terminal_name.h"

#include <cctype>

#include "core/text.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::size_t kMaxCharacters = 80;

bool IsControl(unsigned char byte) {
  return byte < 32 || byte == 127;
}

// By the first byte alone; a byte that begins no sequence is a character by itself.
std::size_t SequenceLength(unsigned char first) {
  if ((first & 0xE0) == 0xC0) return 2;
  if ((first & 0xF0) == 0xE0) return 3;
  if ((first & 0xF8) == 0xF0) return 4;
  return 1;
}

std::string WithoutTrailingSpace(std::string text) {
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())) != 0)
    text.pop_back();
  return text;
}

}  // namespace

std::string CleanTerminalName(std::string_view text) {
  const std::string trimmed = Trim(text);
  std::string kept;
  std::size_t characters = 0;
  std::size_t position = 0;
  while (position < trimmed.size() && characters < kMaxCharacters) {
    const auto first = static_cast<unsigned char>(trimmed[position]);
    if (IsControl(first)) {
      ++position;
      continue;
    }
    const std::size_t length = SequenceLength(first);
    if (position + length > trimmed.size()) break;
    kept.append(trimmed, position, length);
    position += length;
    ++characters;
  }
  return WithoutTrailingSpace(kept);
}

}  // namespace Tarnvale::KioskService

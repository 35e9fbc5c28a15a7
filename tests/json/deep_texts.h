// The deepest texts that a reader's bound lets through.

#ifndef TARNVALE_KIOSKD_TESTS_JSON_DEEP_TEXTS_H_
#define TARNVALE_KIOSKD_TESTS_JSON_DEEP_TEXTS_H_

#include <cstddef>
#include <string>

namespace Tarnvale::KioskService {

inline constexpr char kOpenArray[] = "[";
inline constexpr char kOpenObject[] = R"({"a":)";

inline std::string Repeated(const std::string& text, std::size_t times) {
  std::string repeated;
  repeated.reserve(text.size() * times);
  for (std::size_t i = 0; i < times; ++i)
    repeated += text;
  return repeated;
}

// As many openings as fit.
inline std::string Opened(const std::string& opening, std::size_t bytes) {
  return Repeated(opening, bytes / opening.size());
}

// That many containers inside each other, all of them closed, around one number.
inline std::string Nested(const std::string& opening, std::size_t depth) {
  return Repeated(opening, depth) + "1" + std::string(depth, opening == kOpenArray ? ']' : '}');
}

// As many complete containers as fit.
inline std::string NestedInBytes(const std::string& opening, std::size_t bytes) {
  return Nested(opening, (bytes - 1) / (opening.size() + 1));
}

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_JSON_DEEP_TEXTS_H_

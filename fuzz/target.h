// What the fuzz targets share: the entry point that each of them defines, and its words.
//
// A target feeds any bytes to one parser of text from outside and checks what its header promises.
// Two programs call it: libFuzzer in the fuzz preset, for as long as somebody likes, and
// corpus_main.cc in all others, once for each file of the target's corpus, as an ordinary test. One
// thread; a promise that is broken ends the process.

#ifndef TARNVALE_KIOSKD_FUZZ_TARGET_H_
#define TARNVALE_KIOSKD_FUZZ_TARGET_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "json/json.h"

// Defined once in each target; the name and the result of 0 are libFuzzer's.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace Tarnvale::KioskService {

[[nodiscard]] inline std::string TextOf(const std::uint8_t* data, std::size_t size) {
  return {data, data + size};
}

// The first value of the text, null when it has none.
[[nodiscard]] inline Json ValueOf(const std::uint8_t* data, std::size_t size) {
  return Json::Parse(TextOf(data, size)).value_or(Json());
}

// Ends the process when `promise` does not hold. libFuzzer keeps the input and prints the stack.
inline void Expect(bool promise, const char* sentence) {
  if (promise) return;
  (void)std::fprintf(stderr, "broken promise: %s\n", sentence);  // the end follows either way
  std::abort();
}

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_FUZZ_TARGET_H_

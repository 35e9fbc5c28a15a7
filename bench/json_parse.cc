// How fast Json::Parse reads a text: bench_json_parse FILE prints mebibytes a second.
//
// For bench/json_text.py, which gives the same text to another parser. Parses for about two seconds
// of the process's own time, so that what else runs on the machine counts little.

#include <cstddef>
#include <cstdio>
#include <ctime>
#include <optional>
#include <string>

#include "core/files.h"
#include "core/units.h"
#include "json/json.h"

namespace {

using Tarnvale::KioskService::Json;
using Tarnvale::KioskService::kMiB;
using Tarnvale::KioskService::ReadWholeFile;

constexpr double kMeasuredSeconds = 2;

double CpuSeconds() {
  return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const std::string text = ReadWholeFile(argv[1]);
  std::size_t parsedBytes = 0;
  double passedSeconds = 0;
  const double begin = CpuSeconds();
  while (passedSeconds < kMeasuredSeconds) {
    const std::optional<Json> value = Json::Parse(text);
    if (!value) return 1;
    parsedBytes += text.size();
    passedSeconds = CpuSeconds() - begin;
  }
  std::printf("%.1f\n", static_cast<double>(parsedBytes) / kMiB / passedSeconds);
  return 0;
}

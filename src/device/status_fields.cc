#include "device/status_fields.h"

namespace Tarnvale::KioskService {

std::vector<std::string> SplitStatusFields(std::string_view text) {
  std::vector<std::string> fields(1);
  bool escaped = false;
  for (const char byte : text) {
    if (escaped) {
      fields.back() += byte;
      escaped = false;
    } else if (byte == '\\') {
      escaped = true;
    } else if (byte == ':') {
      fields.emplace_back();
    } else {
      fields.back() += byte;
    }
  }
  if (escaped) fields.back() += '\\';
  return fields;
}

}  // namespace Tarnvale::KioskService

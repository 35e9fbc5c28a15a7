#include <cstdio>

#include "json/json.h"
#include "json/number.h"

namespace Tarnvale::KioskService {
namespace {

// Replies are shorter, and a secret may be in one: a text that grows would leave its beginnings
// behind.
constexpr std::size_t kUsualBytes = 256;

// A container that is being written, and how many of its children already are.
struct OpenContainer {
  const Json* value;
  std::size_t written;
};

void AppendEscaped(char byte, std::string& out) {
  switch (byte) {
    case '"':
      out += "\\\"";
      return;
    case '\\':
      out += "\\\\";
      return;
    case '\b':
      out += "\\b";
      return;
    case '\t':
      out += "\\t";
      return;
    case '\n':
      out += "\\n";
      return;
    case '\f':
      out += "\\f";
      return;
    case '\r':
      out += "\\r";
      return;
    default:
      break;
  }
  const auto code = static_cast<unsigned char>(byte);
  if (code >= 0x20) {
    out += byte;
    return;
  }
  char escape[8];
  (void)std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(code));  // 6 bytes
  out += escape;
}

void AppendEscaped(std::string_view bytes, std::string& out) {
  for (const char byte : bytes)
    AppendEscaped(byte, out);
}

void AppendQuoted(std::string_view bytes, std::string& out) {
  out += '"';
  AppendEscaped(bytes, out);
  out += '"';
}

bool IsContainer(const Json& value) {
  return value.IsArray() || value.IsObject();
}

void AppendLeaf(const Json& value, std::string& out) {
  switch (value.kind) {
    case JsonKind::kBool:
      out += value.boolean ? "true" : "false";
      return;
    case JsonKind::kNumber:
      out += NumberText(value.number);
      return;
    case JsonKind::kString:
      AppendQuoted(value.text, out);
      return;
    default:
      out += "null";
      return;
  }
}

// Writes what stands in front of the next child: the comma and, in an object, the key.
void AppendChildLead(const OpenContainer& container, std::string& out) {
  if (container.written > 0) out += ',';
  if (!container.value->IsObject()) return;
  AppendQuoted(container.value->keys[container.written], out);
  out += ':';
}

}  // namespace

std::string Json::Dump() const {
  std::string out;
  out.reserve(kUsualBytes);
  std::vector<OpenContainer> open;
  const Json* next = this;
  while (true) {
    if (IsContainer(*next)) {
      out += next->IsArray() ? '[' : '{';
      open.push_back({next, 0});
    } else {
      AppendLeaf(*next, out);
    }
    while (!open.empty() && open.back().written == open.back().value->Size()) {
      out += open.back().value->IsArray() ? ']' : '}';
      open.pop_back();
    }
    if (open.empty()) return out;
    AppendChildLead(open.back(), out);
    next = &open.back().value->At(open.back().written++);
  }
}

std::string Json::EscapeString(std::string_view bytes) {
  std::string out;
  out.reserve(bytes.size());
  AppendEscaped(bytes, out);
  return out;
}

}  // namespace Tarnvale::KioskService

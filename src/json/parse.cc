#include <string.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "json/json.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::size_t kErrorBufferBytes = 128;

bool IsDigit(char byte) {
  return byte >= '0' && byte <= '9';
}

bool IsNumberByte(char byte) {
  return IsDigit(byte) || byte == '+' || byte == '-' || byte == '.' || byte == 'e' || byte == 'E';
}

bool IsHighSurrogate(unsigned unit) {
  return unit >= 0xD800 && unit <= 0xDBFF;
}

bool IsLowSurrogate(unsigned unit) {
  return unit >= 0xDC00 && unit <= 0xDFFF;
}

// Plain encoding: a lone surrogate becomes three bytes that are not valid UTF-8, and is kept so.
void AppendUtf8(unsigned code, std::string& out) {
  const auto append = [&out](unsigned byte) { out += static_cast<char>(byte); };
  if (code <= 0x7F) {
    append(code);
  } else if (code <= 0x7FF) {
    append(0xC0 | (code >> 6));
    append(0x80 | (code & 0x3F));
  } else if (code <= 0xFFFF) {
    append(0xE0 | (code >> 12));
    append(0x80 | ((code >> 6) & 0x3F));
    append(0x80 | (code & 0x3F));
  } else {
    append(0xF0 | (code >> 18));
    append(0x80 | ((code >> 12) & 0x3F));
    append(0x80 | ((code >> 6) & 0x3F));
    append(0x80 | (code & 0x3F));
  }
}

std::optional<unsigned> HexDigit(char byte) {
  if (IsDigit(byte)) return static_cast<unsigned>(byte - '0');
  if (byte >= 'a' && byte <= 'f') return static_cast<unsigned>(byte - 'a' + 10);
  if (byte >= 'A' && byte <= 'F') return static_cast<unsigned>(byte - 'A' + 10);
  return std::nullopt;
}

// An array or object whose end has not been seen yet. Containers stand on a stack of their own
// rather than on the thread's, and a finished one is moved into its parent, so depth costs neither.
struct OpenContainer {
  Json value;
  std::string key;  // In an object: the member whose value comes next.
};

// A request that is not complete yet may hold a secret already, and what was read of it is given
// up.
void Wipe(std::string& text) {
  ::explicit_bzero(text.data(), text.size());
}

class Parser {
 public:
  explicit Parser(std::string_view text) : text_(text) {}
  ~Parser();
  Parser(const Parser&) = delete;
  Parser& operator=(const Parser&) = delete;

  std::optional<Json> ParseFirstValue();
  const std::string& Error() const {
    return error_;
  }

 private:
  bool AtEnd() const {
    return position_ >= text_.size();
  }
  char Peek() const {
    return text_[position_];
  }
  bool TakeIf(char byte);
  void SkipWhitespace();
  // Both answer false, so that a failing step can end with them.
  bool Fail(const char* message);

  bool BeginValue(std::optional<Json>& leaf);
  bool OpenArray(std::optional<Json>& leaf);
  bool OpenObject(std::optional<Json>& leaf);
  bool ParseKey();
  bool AddToInnermost(Json value, bool& closed);

  bool ParseLiteral(std::string_view word, Json value, std::optional<Json>& leaf);
  bool ParseNumber(std::optional<Json>& leaf);
  bool ParseString(std::string& out);
  bool ParseEscape(std::string& out);
  bool ParseUnicodeEscape(std::string& out);
  bool ParseHexUnit(unsigned& unit);

  std::string_view text_;
  std::size_t position_ = 0;
  std::string error_;
  std::vector<OpenContainer> open_;
};

// What is still open was given up.
Parser::~Parser() {
  for (OpenContainer& container : open_) {
    for (Json& member : container.value.values)
      Wipe(member.text);
  }
}

bool Parser::TakeIf(char byte) {
  if (AtEnd() || Peek() != byte) return false;
  ++position_;
  return true;
}

void Parser::SkipWhitespace() {
  while (!AtEnd() && (Peek() == ' ' || Peek() == '\t' || Peek() == '\n' || Peek() == '\r')) {
    ++position_;
  }
}

bool Parser::Fail(const char* message) {
  if (!error_.empty()) return false;
  char text[kErrorBufferBytes];
  (void)std::snprintf(text, sizeof text, "%s at offset %zu", message,
                      position_);  // fits: see messages
  error_ = text;
  return false;
}

std::optional<Json> Parser::ParseFirstValue() {
  while (true) {
    std::optional<Json> finished;
    if (!BeginValue(finished)) return std::nullopt;
    while (finished) {
      if (open_.empty()) return finished;
      bool closed = false;
      if (!AddToInnermost(std::move(*finished), closed)) return std::nullopt;
      finished.reset();
      if (!closed) break;
      finished = std::move(open_.back().value);
      open_.pop_back();
    }
  }
}

// Reads a leaf or an empty container into `leaf`, or opens a container whose first child comes
// next.
bool Parser::BeginValue(std::optional<Json>& leaf) {
  SkipWhitespace();
  if (AtEnd()) return Fail("unexpected end of input");
  switch (Peek()) {
    case '"':
      leaf.emplace(std::string());
      if (ParseString(leaf->text)) return true;
      Wipe(leaf->text);
      return false;
    case '[':
      return OpenArray(leaf);
    case '{':
      return OpenObject(leaf);
    case 't':
      return ParseLiteral("true", Json(true), leaf);
    case 'f':
      return ParseLiteral("false", Json(false), leaf);
    case 'n':
      return ParseLiteral("null", Json(), leaf);
    default:
      return ParseNumber(leaf);
  }
}

bool Parser::OpenArray(std::optional<Json>& leaf) {
  ++position_;
  SkipWhitespace();
  if (TakeIf(']')) {
    leaf = Json::Array();
    return true;
  }
  open_.push_back({Json::Array(), {}});
  return true;
}

bool Parser::OpenObject(std::optional<Json>& leaf) {
  ++position_;
  SkipWhitespace();
  if (TakeIf('}')) {
    leaf = Json::Object();
    return true;
  }
  open_.push_back({Json::Object(), {}});
  return ParseKey();
}

bool Parser::ParseKey() {
  SkipWhitespace();
  if (AtEnd() || Peek() != '"') return Fail("expected object key");
  std::string& key = open_.back().key;
  key.clear();
  if (!ParseString(key)) return false;
  SkipWhitespace();
  return TakeIf(':') || Fail("expected ':'");
}

// Puts a finished child into the innermost container and reads on to the next child or the end.
bool Parser::AddToInnermost(Json value, bool& closed) {
  OpenContainer& container = open_.back();
  const bool isArray = container.value.IsArray();
  if (isArray) {
    container.value.Append(std::move(value));
  } else {
    container.value.Set(container.key, std::move(value));
  }
  SkipWhitespace();
  if (AtEnd()) return Fail(isArray ? "unterminated array" : "unterminated object");
  closed = TakeIf(isArray ? ']' : '}');
  if (closed) return true;
  if (!TakeIf(',')) return Fail(isArray ? "expected ',' or ']'" : "expected ',' or '}'");
  return isArray || ParseKey();
}

bool Parser::ParseLiteral(std::string_view word, Json value, std::optional<Json>& leaf) {
  if (text_.substr(position_, word.size()) != word) return Fail("bad literal");
  position_ += word.size();
  leaf = std::move(value);
  return true;
}

// A scan over a class of bytes, not the JSON grammar: peers send numbers in many spellings.
bool Parser::ParseNumber(std::optional<Json>& leaf) {
  const std::size_t start = position_;
  while (!AtEnd() && IsNumberByte(Peek()))
    ++position_;
  const std::string run(text_.substr(start, position_ - start));
  if (run.find_first_of("0123456789") == std::string::npos) return Fail("expected number");
  leaf = Json(std::strtod(run.c_str(), nullptr));
  return true;
}

bool Parser::ParseString(std::string& out) {
  ++position_;
  while (true) {
    const std::size_t special = text_.find_first_of("\"\\", position_);
    const std::size_t end = special == std::string_view::npos ? text_.size() : special;
    out.append(text_, position_, end - position_);
    position_ = end;
    if (AtEnd()) return Fail("unterminated string");
    if (TakeIf('"')) return true;
    if (!ParseEscape(out)) return false;
  }
}

bool Parser::ParseEscape(std::string& out) {
  ++position_;
  if (AtEnd()) return Fail("unterminated escape");
  switch (Peek()) {
    case '"':
    case '\\':
    case '/':
      out += Peek();
      break;
    case 'b':
      out += '\b';
      break;
    case 'f':
      out += '\f';
      break;
    case 'n':
      out += '\n';
      break;
    case 'r':
      out += '\r';
      break;
    case 't':
      out += '\t';
      break;
    case 'u':
      ++position_;
      return ParseUnicodeEscape(out);
    default:
      return Fail("bad escape");
  }
  ++position_;
  return true;
}

// Called behind the "\u". Two escapes that make a surrogate pair give one code point; every other
// unit stands for itself.
bool Parser::ParseUnicodeEscape(std::string& out) {
  unsigned first = 0;
  if (!ParseHexUnit(first)) return false;
  if (!IsHighSurrogate(first) || text_.substr(position_, 2) != "\\u") {
    AppendUtf8(first, out);
    return true;
  }
  position_ += 2;
  unsigned second = 0;
  if (!ParseHexUnit(second)) return false;
  if (IsLowSurrogate(second)) {
    AppendUtf8(0x10000 + ((first - 0xD800) << 10) + (second - 0xDC00), out);
    return true;
  }
  AppendUtf8(first, out);
  AppendUtf8(second, out);
  return true;
}

bool Parser::ParseHexUnit(unsigned& unit) {
  constexpr std::size_t kHexDigits = 4;
  if (text_.size() - position_ < kHexDigits) return Fail("short \\u escape");
  unsigned value = 0;
  for (std::size_t i = 0; i < kHexDigits; ++i) {
    const std::optional<unsigned> digit = HexDigit(Peek());
    if (!digit) return Fail("bad hex digit");
    value = (value << 4) | *digit;
    ++position_;
  }
  unit = value;
  return true;
}

}  // namespace

std::optional<Json> Json::Parse(std::string_view text, std::string* error) {
  Parser parser(text);
  std::optional<Json> value = parser.ParseFirstValue();
  if (!value && error != nullptr) *error = parser.Error();
  return value;
}

}  // namespace Tarnvale::KioskService

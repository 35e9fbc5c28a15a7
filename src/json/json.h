// The service's document value: what the control protocol, the portal bodies and every file of the
// service are made of.
//
// A Json is a plain value that owns its children. Any text within a caller's bound may become one,
// so nothing here recurses: parsing, copying, dumping and destroying take the same small stack
// however deep a value nests, and time linear in its size. There is no depth limit and no size
// limit; who reads text bounds it first (a request line 9,215 bytes, a portal body 65,537, the
// state file 4 MiB).
//
// A Json has no lock. Values are confined to one thread or guarded by their owner; the shared null
// that lookups answer with is immutable and safe to read from any thread.

#ifndef TARNVALE_KIOSKD_JSON_JSON_H_
#define TARNVALE_KIOSKD_JSON_JSON_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Tarnvale::KioskService {

enum class JsonKind : std::uint32_t {
  kNull = 0,
  kBool = 1,
  kNumber = 2,
  kString = 3,
  kArray = 4,
  kObject = 5,
};

struct Json {
  JsonKind kind = JsonKind::kNull;
  bool boolean = false;
  double number = 0;
  std::string text;  // Bytes as they stand: no encoding is enforced, NUL is a byte like others.
  std::vector<Json> items;        // Elements of an array.
  std::vector<std::string> keys;  // Member names of an object, in the order of first insertion.
  std::vector<Json> values;       // Member values, parallel to `keys`.

  Json() = default;
  Json(bool value);    // NOLINT(google-explicit-constructor): members are set from plain values
  Json(double value);  // NOLINT(google-explicit-constructor)
  Json(std::int64_t value);  // NOLINT(google-explicit-constructor): loses low bits above 2^53
  Json(int value);           // NOLINT(google-explicit-constructor)
  Json(std::string value);   // NOLINT(google-explicit-constructor)
  Json(const char* value);   // NOLINT(google-explicit-constructor): never turns into a bool

  static Json Array();
  static Json Object();

  Json(const Json& other);
  Json& operator=(const Json& other);
  // The source keeps its kind and is left with an empty text and no children.
  Json(Json&& other) noexcept = default;
  Json& operator=(Json&& other) noexcept;
  ~Json();

  // The conversions never fail: where a kind has no reading they answer with the default.

  // Bool: its value. Number: true unless it is exactly 0. String: true for exactly "true" or "1".
  [[nodiscard]] bool AsBool(bool fallback) const;
  // Number: its value. Bool: 1 or 0. Non-empty string: strtod of it.
  [[nodiscard]] double AsNumber(double fallback) const;
  // As AsNumber, truncated toward zero; NaN and the infinities give the default. A finite value
  // outside the 64-bit range gives the lowest 64-bit integer, as the processor's own conversion
  // does.
  [[nodiscard]] std::int64_t AsInt(std::int64_t fallback) const;
  // String: its text. Bool: "true" or "false". Number: as Dump writes it.
  [[nodiscard]] std::string AsString(std::string_view fallback) const;

  // Elements of an array or members of an object; 0 for every other kind.
  [[nodiscard]] std::size_t Size() const;
  // The element or member value at `index`, or the shared null.
  [[nodiscard]] const Json& At(std::size_t index) const;
  // The first member named exactly `key`, or the shared null: absent and null read alike.
  [[nodiscard]] const Json& Get(std::string_view key) const;
  // Whether this is an object that holds `key`, also when that member is null.
  [[nodiscard]] bool Has(std::string_view key) const;

  [[nodiscard]] bool IsNull() const {
    return kind == JsonKind::kNull;
  }
  [[nodiscard]] bool IsBool() const {
    return kind == JsonKind::kBool;
  }
  [[nodiscard]] bool IsNumber() const {
    return kind == JsonKind::kNumber;
  }
  [[nodiscard]] bool IsString() const {
    return kind == JsonKind::kString;
  }
  [[nodiscard]] bool IsArray() const {
    return kind == JsonKind::kArray;
  }
  [[nodiscard]] bool IsObject() const {
    return kind == JsonKind::kObject;
  }

  // Sets a member in place, or appends it. A value that is no object becomes an empty one first.
  // Members are never erased: one that shall vanish is set to null, and is written out as null.
  void Set(std::string_view key, Json value);
  // Appends an element. A value that is no array becomes an empty one first.
  void Append(Json value);

  // The compact text: no space, no line break, members in their order. Numbers that are whole
  // 64-bit integers are written as such, all others with six significant digits ("%g").
  [[nodiscard]] std::string Dump() const;

  // Parses the first value in `text` and looks at nothing behind it. Empty on failure, and then
  // `error`, when given, receives a sentence such as "expected ':' at offset 5".
  //
  //   {"a":1} trailing    an object; the rest is not looked at
  //   007                 the number 7: numbers are scanned loosely
  //   [1,]                fails with "expected number at offset 3"
  [[nodiscard]] static std::optional<Json> Parse(std::string_view text,
                                                 std::string* error = nullptr);

  // The body of a JSON string, without the quotes. Bytes from 0x7F up pass unchanged.
  [[nodiscard]] static std::string EscapeString(std::string_view bytes);
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_JSON_JSON_H_

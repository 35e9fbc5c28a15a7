// Reading texts that should hold a JSON object, and writing members that may be missing.
//
// For whoever reads a reply of the portal or a document that is kept as text inside the state, and
// asks for members one by one: what is no object reads as an empty one, and a member of another
// type as absent, so no caller tests for either. The text's limit is its reader's (65,537 bytes
// from the portal, 4 MiB in the state). Pure functions on any thread; silent: whoever needs to tell
// bad text from an absent one asks Json::Parse.

#ifndef TARNVALE_KIOSKD_JSON_OBJECT_H_
#define TARNVALE_KIOSKD_JSON_OBJECT_H_

#include <string>
#include <string_view>

#include "json/json.h"

namespace Tarnvale::KioskService {

// The parsed text when it is a JSON object, an empty object for anything else, so that callers read
// members without a test of their own.
//
//   {"status":"enrolled"}   that object
//   [1,2]                   an empty object
//   (empty text)            an empty object
[[nodiscard]] Json ParseObjectOrEmpty(std::string_view text);

// The member's text when it is a JSON string, otherwise the empty string: nothing is converted.
[[nodiscard]] std::string StringMember(const Json& object, std::string_view key);

// The text as a JSON string, or null for the empty text: how documents tell that there is none.
[[nodiscard]] Json TextOrNull(const std::string& text);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_JSON_OBJECT_H_

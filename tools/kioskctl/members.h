// The members of a command, as they are typed behind it.

#ifndef TARNVALE_KIOSKD_TOOLS_KIOSKCTL_MEMBERS_H_
#define TARNVALE_KIOSKD_TOOLS_KIOSKCTL_MEMBERS_H_

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "json/json.h"

namespace Tarnvale::KioskService::Kioskctl {

struct Member {
  std::string name;
  Json value;
  bool fromInput = false;  // The value was typed as "-": it comes from the standard input.
};

// Reads one member. False when it has no name, no "=", a value that is no JSON behind ":=", or the
// name "cmd", which is the command's own. Silent.
//
//   code=ABCD2345      the text "ABCD2345"
//   signedIn:=true     the boolean true
//   password=-         fromInput
//   live:=yes          false
[[nodiscard]] bool ParseMember(std::string_view typed, Member& member);

// Reads a text for the member of this name from wherever the person has it. False without one.
using ReadTypedValue = std::function<bool(const std::string& name, std::string& value)>;

// The request line of a command, without its line feed. False with a sentence in `problem`, which
// tells the member by its place and no value.
[[nodiscard]] bool MakeRequest(const std::string& command, const std::vector<std::string>& typed,
                               const ReadTypedValue& readTypedValue, std::string& request,
                               std::string& problem);

}  // namespace Tarnvale::KioskService::Kioskctl

#endif  // TARNVALE_KIOSKD_TOOLS_KIOSKCTL_MEMBERS_H_

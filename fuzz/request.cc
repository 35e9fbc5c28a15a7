// A request line of a peer that may talk and may do nothing: it gets one reply, and reaches no slot
// of the platform, which is left empty here and would throw.

#include "control/dispatch.h"
#include "target.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace Tarnvale::KioskService;
  std::function<void()> after;
  const std::string reply = Dispatch(TextOf(data, size), Caller(), after);
  const Json value = Json::Parse(reply).value_or(Json());
  Expect(value.Get("ok").IsBool(), "each request has a reply that tells how it went");
  Expect(value.Get("ok").boolean || value.Get("error").IsString(), "a refusal has a code");
  Expect(!after, "nothing is left to do for a peer without rights");
  Expect(reply.find('\n') == std::string::npos, "the reply is one line");
  return 0;
}

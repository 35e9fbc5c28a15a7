// The sign-in methods, as the portal sends them.

#include "portal/sign_in.h"

#include "target.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace Tarnvale::KioskService;
  const Json signIn = ReadSignIn(ValueOf(data, size));
  Expect(signIn.Get("microsoft").IsBool() && signIn.Get("email").IsBool(), "each method is told");
  const Json& hosts = signIn.Get("extraHosts");
  Expect(hosts.IsArray() && hosts.Size() <= 10, "at most ten hosts");
  for (const Json& host : hosts.items)
    Expect(host.IsString() && IsSignInHost(host.text), "only valid hosts are taken");
  Expect(ReadSignIn(signIn).Dump() == signIn.Dump(), "the normalised document is its own reading");
  return 0;
}

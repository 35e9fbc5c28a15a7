#include "kioskctl/status_text.h"

#include <algorithm>
#include <string_view>

namespace Tarnvale::KioskService::Kioskctl {
namespace {

constexpr std::size_t kLabelWidth = 15;

std::string Shown(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](unsigned char byte) { return byte < 0x20 || byte == 0x7F; },
      '?');
  return text;
}

std::string Line(std::string_view label, const std::string& value) {
  std::string line(label);
  line.append(kLabelWidth - label.size(), ' ');
  return line + Shown(value) + "\n";
}

std::string YesOrNo(const Json& flag) {
  return flag.AsBool(false) ? "yes" : "no";
}

void AppendMethod(std::string& methods, const std::string& method) {
  methods += methods.empty() ? method : ", " + method;
}

std::string SignInText(const Json& signIn) {
  std::string methods;
  if (signIn.Get("microsoft").AsBool(false)) AppendMethod(methods, "Microsoft");
  if (signIn.Get("email").AsBool(false)) AppendMethod(methods, "e-mail");
  for (const Json& host : signIn.Get("extraHosts").items)
    AppendMethod(methods, host.AsString(""));
  return methods.empty() ? "none" : methods;
}

}  // namespace

std::string StatusText(const Json& reply) {
  const std::string name = reply.Get("terminalName").AsString("");
  const std::string error = reply.Get("error").AsString("");
  std::string text = Line("enrolled", YesOrNo(reply.Get("enrolled")));
  text += Line("provisioned", YesOrNo(reply.Get("provisioned")));
  text += Line("kiosk session", YesOrNo(reply.Get("kioskSession")));
  text += Line("maintenance", YesOrNo(reply.Get("maintenance")));
  text += Line("account", reply.Get("account").AsString(""));
  text += Line("terminal name", name.empty() ? "none" : name);
  text += Line("sign-in", SignInText(reply.Get("signIn")));
  text += Line("branding", reply.Get("brandingDir").AsString(""));
  if (!error.empty()) text += Line("error", error);
  return text;
}

}  // namespace Tarnvale::KioskService::Kioskctl

#include "device/power_linux.h"

#include <string>

#include "core/log.h"
#include "device/dbus_linux.h"
#include "device/process_linux.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::int32_t kRebootTimeoutMs = 20 * kSecondMs;

}  // namespace

bool Reboot() {
  std::string error;
  const Variant reply = DbusCall(
      "org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager",
      "Reboot", g_variant_new("(b)", FALSE), nullptr, kDbusActionTimeoutMs, &error);
  if (reply != nullptr) return true;
  Log("<4>logind Reboot failed (%s); using systemctl\n", error.c_str());
  return Systemctl({"reboot"}, kRebootTimeoutMs).status == 0;
}

}  // namespace Tarnvale::KioskService

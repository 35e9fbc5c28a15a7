// The one way of calling system services over D-Bus (logind, timedated).
//
// The process has one connection to the system bus, made at the first call. It is tried once: a bus
// that was missing then stays missing until the service restarts. Any thread may call; a call
// blocks for at most its time-out, in which it also waits while six others wait for their replies.

#ifndef TARNVALE_KIOSKD_DEVICE_DBUS_LINUX_H_
#define TARNVALE_KIOSKD_DEVICE_DBUS_LINUX_H_

#include <gio/gio.h>

#include <memory>
#include <string>

#include "core/units.h"

namespace Tarnvale::KioskService {

// How long callers wait: for properties and lists, and for things that are done.
inline constexpr int kDbusReadTimeoutMs = 10 * kSecondMs;
inline constexpr int kDbusActionTimeoutMs = 20 * kSecondMs;

// The manager object of logind, which lists the sessions and restarts the machine.
inline constexpr char kLogindName[] = "org.freedesktop.login1";
inline constexpr char kLogindPath[] = "/org/freedesktop/login1";
inline constexpr char kLogindManager[] = "org.freedesktop.login1.Manager";

struct VariantUnref {
  void operator()(GVariant* variant) const {
    g_variant_unref(variant);
  }
};
using Variant = std::unique_ptr<GVariant, VariantUnref>;

// The connection, or null; logs its absence once.
[[nodiscard]] GDBusConnection* SystemBus();

// Calls a method and returns the reply, or null. `parameters` is a floating variant or null,
// consumed in every case. `replyType` is a type string such as "(a{sv})", or null for any.
// `errorText`, when given, receives the reason of a failed call; without a bus it is left as it is,
// so give it an empty text. Logs nothing.
[[nodiscard]] Variant DbusCall(const char* name, const char* path, const char* interface,
                               const char* method, GVariant* parameters, const char* replyType,
                               int timeoutMs, std::string* errorText = nullptr);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_DBUS_LINUX_H_

#include "device/dbus_linux.h"

#include <mutex>

#include "core/log.h"

namespace Tarnvale::KioskService {
namespace {

GDBusConnection* ConnectSystemBus() {
  GError* error = nullptr;
  GDBusConnection* const connection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
  if (connection == nullptr) {
    Log("<3>no system bus (%s)\n", error != nullptr ? error->message : "unknown");
  }
  g_clear_error(&error);
  return connection;
}

void DropParameters(GVariant* parameters) {
  if (parameters == nullptr) return;
  g_variant_unref(g_variant_ref_sink(parameters));
}

}  // namespace

GDBusConnection* SystemBus() {
  static std::once_flag once;
  static GDBusConnection* connection = nullptr;
  std::call_once(once, [] { connection = ConnectSystemBus(); });
  return connection;
}

Variant DbusCall(const char* name, const char* path, const char* interface, const char* method,
                 GVariant* parameters, const char* replyType, int timeoutMs,
                 std::string* errorText) {
  GDBusConnection* const bus = SystemBus();
  if (bus == nullptr) {
    DropParameters(parameters);
    return nullptr;
  }
  const GVariantType* const type = replyType != nullptr ? G_VARIANT_TYPE(replyType) : nullptr;
  GError* error = nullptr;
  Variant reply(g_dbus_connection_call_sync(bus, name, path, interface, method, parameters, type,
                                            G_DBUS_CALL_FLAGS_NONE, timeoutMs, nullptr, &error));
  if (reply == nullptr && errorText != nullptr) {
    *errorText = error != nullptr ? error->message : "failed";
  }
  g_clear_error(&error);
  return reply;
}

}  // namespace Tarnvale::KioskService

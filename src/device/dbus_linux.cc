#include "device/dbus_linux.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <mutex>
#include <semaphore>

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

// The library takes a descriptor for each call that waits and ends the process when it gets none.
// So few calls wait at once, no more than the accept loop's reserve of descriptors has room for.
constexpr std::ptrdiff_t kMaxCallsAtOnce = 6;
std::counting_semaphore<kMaxCallsAtOnce> callSlots(kMaxCallsAtOnce);

class CallSlot {
 public:
  explicit CallSlot(int timeoutMs) : leftMs_(timeoutMs), taken_(callSlots.try_acquire()) {
    if (!taken_) WaitForSlot();
  }
  ~CallSlot() {
    if (taken_) callSlots.release();
  }
  CallSlot(const CallSlot&) = delete;
  CallSlot& operator=(const CallSlot&) = delete;

  [[nodiscard]] bool IsTaken() const {
    return taken_;
  }
  // What the wait for the slot has left of the time-out.
  [[nodiscard]] int LeftMs() const {
    return leftMs_;
  }

 private:
  using Clock = std::chrono::steady_clock;

  void WaitForSlot() {
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(leftMs_);
    taken_ = callSlots.try_acquire_until(deadline);
    const auto left = std::chrono::floor<std::chrono::milliseconds>(deadline - Clock::now());
    leftMs_ = std::max(0, static_cast<int>(left.count()));
  }

  int leftMs_;
  bool taken_;
};

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
  const CallSlot slot(timeoutMs);
  if (!slot.IsTaken()) {
    DropParameters(parameters);
    if (errorText != nullptr) *errorText = "too many calls at once";
    return nullptr;
  }
  const GVariantType* const type = replyType != nullptr ? G_VARIANT_TYPE(replyType) : nullptr;
  GError* error = nullptr;
  Variant reply(g_dbus_connection_call_sync(bus, name, path, interface, method, parameters, type,
                                            G_DBUS_CALL_FLAGS_NONE, slot.LeftMs(), nullptr,
                                            &error));
  if (reply == nullptr && errorText != nullptr) {
    *errorText = error != nullptr ? error->message : "failed";
  }
  g_clear_error(&error);
  return reply;
}

}  // namespace Tarnvale::KioskService

#include "portal/identity.h"

#include <glib.h>

#include <atomic>

#include "core/files.h"
#include "core/log.h"
#include "core/service.h"
#include "core/state.h"
#include "core/text.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::size_t kMaxMachineIdBytes = 256;

// Atomic: any thread may be the first to see a foreign token.
std::atomic<bool> foreignTokenLogged{false};

}  // namespace

std::string CurrentDeviceToken() {
  std::string token = StateGetString(StateKey::kDeviceToken);
  if (token.empty()) return {};
  const std::string deviceId = StateGetString(StateKey::kDeviceId);
  if (deviceId.empty() || deviceId == MachineIdHash()) return token;
  if (!foreignTokenLogged.exchange(true)) {
    Log("<4>the device token was issued to another machine-id; ignoring it\n");
  }
  return {};
}

std::string MachineIdHash() {
  std::string text;
  if (!ReadFileLimited(ServiceConfig().machineIdPath, kMaxMachineIdBytes, text)) return {};
  const std::string machineId = Trim(text);
  return machineId.empty() ? std::string() : Sha256Hex(machineId);
}

std::string Sha256Hex(const std::string& bytes) {
  gchar* const digest = g_compute_checksum_for_data(
      G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(bytes.data()), bytes.size());
  std::string text = digest;
  g_free(digest);
  return text;
}

}  // namespace Tarnvale::KioskService

#include "kiosk/sessions_linux.h"

#include <string_view>

#include "device/dbus_linux.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kSessionInterface[] = "org.freedesktop.login1.Session";
constexpr char kPropertiesInterface[] = "org.freedesktop.DBus.Properties";

// A property of another type than logind documents is passed over: reading it would end the
// process.
void ReadText(GVariant* value, std::string& out) {
  if (g_variant_is_of_type(value, G_VARIANT_TYPE_STRING))
    out = g_variant_get_string(value, nullptr);
}

void ReadFlag(GVariant* value, bool& out) {
  if (g_variant_is_of_type(value, G_VARIANT_TYPE_BOOLEAN)) out = g_variant_get_boolean(value) != 0;
}

void ReadUser(GVariant* value, std::uint32_t& uid) {
  if (!g_variant_is_of_type(value, G_VARIANT_TYPE("(uo)"))) return;
  g_variant_get(value, "(u&o)", &uid, nullptr);
}

void TakeProperty(std::string_view name, GVariant* value, SessionInfo& info) {
  if (name == "Id") {
    ReadText(value, info.id);
  } else if (name == "Name") {
    ReadText(value, info.name);
  } else if (name == "Remote") {
    ReadFlag(value, info.remote);
  } else if (name == "Active") {
    ReadFlag(value, info.active);
  } else if (name == "Class") {
    ReadText(value, info.sessionClass);
  } else if (name == "TTY") {
    ReadText(value, info.tty);
  } else if (name == "User") {
    ReadUser(value, info.uid);
  }
}

Variant CallManager(const char* method, GVariant* parameters, const char* replyType) {
  return DbusCall(kLogindName, kLogindPath, kLogindManager, method, parameters, replyType,
                  kDbusReadTimeoutMs);
}

// ListSessions tells little of each session; all but the object path is read from its properties.
std::vector<std::string> SessionPaths() {
  std::vector<std::string> paths;
  const Variant reply = CallManager("ListSessions", nullptr, "(a(susso))");
  if (reply == nullptr) return paths;
  GVariantIter* sessions = nullptr;
  g_variant_get(reply.get(), "(a(susso))", &sessions);
  const char* path = nullptr;
  while (g_variant_iter_next(sessions, "(&su&s&s&o)", nullptr, nullptr, nullptr, nullptr, &path) !=
         0) {
    paths.emplace_back(path);
  }
  g_variant_iter_free(sessions);
  return paths;
}

}  // namespace

bool ReadSession(const std::string& objectPath, SessionInfo* info) {
  const Variant reply =
      DbusCall(kLogindName, objectPath.c_str(), kPropertiesInterface, "GetAll",
               g_variant_new("(s)", kSessionInterface), "(a{sv})", kDbusReadTimeoutMs);
  if (reply == nullptr) return false;
  GVariantIter* properties = nullptr;
  g_variant_get(reply.get(), "(a{sv})", &properties);
  const char* name = nullptr;
  GVariant* value = nullptr;
  while (g_variant_iter_next(properties, "{&sv}", &name, &value) != 0) {
    const Variant owned(value);
    TakeProperty(name, value, *info);
  }
  g_variant_iter_free(properties);
  return !info->id.empty();
}

std::vector<SessionInfo> ListSessions() {
  std::vector<SessionInfo> sessions;
  for (const std::string& path : SessionPaths()) {
    SessionInfo info;
    if (ReadSession(path, &info)) sessions.push_back(info);
  }
  return sessions;
}

bool SessionOfPid(int pid, SessionInfo* info) {
  const Variant reply =
      CallManager("GetSessionByPID", g_variant_new("(u)", static_cast<guint32>(pid)), "(o)");
  if (reply == nullptr) return false;
  const char* path = nullptr;
  g_variant_get(reply.get(), "(&o)", &path);
  return ReadSession(path, info);
}

}  // namespace Tarnvale::KioskService

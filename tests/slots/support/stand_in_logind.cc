#include "slots/support/stand_in_logind.h"

#include <gtest/gtest.h>

#include "device/dbus_linux.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kLogindError[] = "org.freedesktop.login1.Refused";
constexpr int kPatienceMs = 30'000;

GDBusConnection* Connect(const std::string& address) {
  constexpr auto kFlags =
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
  return g_dbus_connection_new_for_address_sync(address.c_str(), kFlags, nullptr, nullptr, nullptr);
}

// On the stand-in's own connection, so it is no call of the service's.
bool TakeName(GDBusConnection* connection, const char* name) {
  GDBusMessage* const call = g_dbus_message_new_method_call(
      "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName");
  g_dbus_message_set_body(call, g_variant_new("(su)", name, 0U));
  GDBusMessage* const reply = g_dbus_connection_send_message_with_reply_sync(
      connection, call, G_DBUS_SEND_MESSAGE_FLAGS_NONE, kPatienceMs, nullptr, nullptr, nullptr);
  const bool taken = reply != nullptr;
  if (taken) g_object_unref(reply);
  g_object_unref(call);
  return taken;
}

std::string PrintBody(GDBusMessage* message) {
  GVariant* const body = g_dbus_message_get_body(message);
  if (body == nullptr) return "()";
  gchar* const printed = g_variant_print(body, TRUE);
  std::string text = printed;
  g_free(printed);
  return text;
}

}  // namespace

StandInLogind::StandInLogind(PrivateBus& bus, const char* name) : connection_(nullptr) {
  bus.Start();
  connection_ = Connect(bus.Address());
  if (connection_ == nullptr) {
    ADD_FAILURE() << "no connection to the private bus";
    return;
  }
  filter_ = g_dbus_connection_add_filter(connection_, &OnMessage, this, nullptr);
  EXPECT_TRUE(TakeName(connection_, name));
}

StandInLogind::~StandInLogind() {
  if (connection_ == nullptr) return;
  g_dbus_connection_remove_filter(connection_, filter_);
  (void)g_dbus_connection_close_sync(connection_, nullptr, nullptr);
  g_object_unref(connection_);
}

void StandInLogind::Answer(const std::string& method, const std::string& body) {
  SetReply(method, {Reply::Kind::kBody, body});
}

void StandInLogind::Refuse(const std::string& method, const std::string& message) {
  SetReply(method, {Reply::Kind::kError, message});
}

void StandInLogind::StaySilent(const std::string& method) {
  SetReply(method, {Reply::Kind::kNothing, {}});
}

std::vector<std::string> StandInLogind::Calls() {
  const MutexLock lock(lock_);
  return calls_;
}

void StandInLogind::SetReply(const std::string& method, const Reply& reply) {
  const MutexLock lock(lock_);
  replies_[method] = reply;
}

StandInLogind::Reply StandInLogind::TakeCall(GDBusMessage* call) {
  const std::string path = g_dbus_message_get_path(call);
  const std::string method = g_dbus_message_get_member(call);
  const MutexLock lock(lock_);
  calls_.push_back(path + " " + g_dbus_message_get_interface(call) + "." + method + " " +
                   PrintBody(call));
  for (const std::string& key : {path + " " + method, method}) {
    const auto found = replies_.find(key);
    if (found != replies_.end()) return found->second;
  }
  return {};
}

GDBusMessage* StandInLogind::MakeReply(GDBusMessage* call, const Reply& reply) {
  if (reply.kind == Reply::Kind::kError) {
    return g_dbus_message_new_method_error_literal(call, kLogindError, reply.text.c_str());
  }
  GDBusMessage* const message = g_dbus_message_new_method_reply(call);
  GVariant* const body = g_variant_parse(nullptr, reply.text.c_str(), nullptr, nullptr, nullptr);
  EXPECT_NE(body, nullptr) << reply.text;
  g_dbus_message_set_body(message, body);
  if (body != nullptr) g_variant_unref(body);
  return message;
}

// Runs on GLib's own thread. Takes the calls out of the stream and lets all else pass.
GDBusMessage* StandInLogind::OnMessage(GDBusConnection* connection, GDBusMessage* message,
                                       gboolean incoming, gpointer self) {
  if (incoming == FALSE ||
      g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL) {
    return message;
  }
  const Reply reply = static_cast<StandInLogind*>(self)->TakeCall(message);
  if (reply.kind != Reply::Kind::kNothing) {
    GDBusMessage* const answer = MakeReply(message, reply);
    (void)g_dbus_connection_send_message(connection, answer, G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                         nullptr, nullptr);
    g_object_unref(answer);
  }
  g_object_unref(message);
  return nullptr;
}

}  // namespace Tarnvale::KioskService

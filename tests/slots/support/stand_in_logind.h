// A logind on a private bus that answers what the test tells it to, and keeps what it was asked.
// Under another name it stands in for another service of the system.

#ifndef TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_STAND_IN_LOGIND_H_
#define TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_STAND_IN_LOGIND_H_

#include <gio/gio.h>

#include <map>
#include <string>
#include <vector>

#include "core/mutex.h"
#include "slots/support/private_bus.h"

namespace Tarnvale::KioskService {

class StandInLogind {
 public:
  // Starts the bus, too.
  explicit StandInLogind(PrivateBus& bus, const char* name = "org.freedesktop.login1");
  ~StandInLogind();
  StandInLogind(const StandInLogind&) = delete;
  StandInLogind& operator=(const StandInLogind&) = delete;

  // Answers this method with a body in GVariant's text form, such as "('text', true)". The method
  // is its name alone, or the object's path, a space and the name, which comes first.
  void Answer(const std::string& method, const std::string& body);
  // Answers this method with an error of logind's.
  void Refuse(const std::string& method, const std::string& message);
  // Leaves calls of this method without an answer. Any other is answered with an error.
  void StaySilent(const std::string& method);

  // All calls so far: "PATH INTERFACE.METHOD BODY".
  [[nodiscard]] std::vector<std::string> Calls();

 private:
  struct Reply {
    enum class Kind { kBody, kError, kNothing };
    Kind kind = Kind::kError;
    std::string text = "the stand-in knows no such method";
  };

  static GDBusMessage* OnMessage(GDBusConnection* connection, GDBusMessage* message,
                                 gboolean incoming, gpointer self);
  static GDBusMessage* MakeReply(GDBusMessage* call, const Reply& reply);
  Reply TakeCall(GDBusMessage* call);
  void SetReply(const std::string& method, const Reply& reply);

  GDBusConnection* connection_;
  guint filter_ = 0;
  Mutex lock_;
  std::map<std::string, Reply> replies_ GUARDED_BY(lock_);
  std::vector<std::string> calls_ GUARDED_BY(lock_);
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_STAND_IN_LOGIND_H_

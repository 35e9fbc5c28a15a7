#include "control/reply.h"

#include "json/json.h"

namespace Tarnvale::KioskService {

std::string ReplyOk() {
  Json reply = Json::Object();
  reply.Set("ok", true);
  return reply.Dump();
}

std::string ReplyError(const std::string& code) {
  Json reply = Json::Object();
  reply.Set("ok", false);
  reply.Set("error", code);
  return reply.Dump();
}

}  // namespace Tarnvale::KioskService

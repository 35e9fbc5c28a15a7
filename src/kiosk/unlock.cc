#include "kiosk/unlock.h"

#include <fcntl.h>
#include <string.h>
#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>

#include "control/reply.h"
#include "core/clock.h"
#include "core/descriptor.h"
#include "core/log.h"
#include "core/text.h"
#include "core/units.h"
#include "json/json.h"
#include "kiosk/exit_password.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::int64_t kUnlockLifetimeMs = 600 * kSecondMs;
constexpr std::int64_t kUnlockLifetimeSeconds = kUnlockLifetimeMs / kSecondMs;
constexpr std::size_t kTokenBytes = 16;

using TokenBytes = std::array<unsigned char, kTokenBytes>;

struct UnlockRecord {
  std::string unlockToken;        // Empty when no unlock is in force.
  std::string unlockSession;      // The logind session that it was issued to.
  std::int64_t unlockExpiry = 0;  // Steady clock; 0 when none is in force.
};

UnlockRecord unlock GUARDED_BY(unlockLock);

// False when the source ends or fails before the bytes are full.
bool ReadRandom(TokenBytes& bytes) {
  const Descriptor source(::open("/dev/urandom", O_RDONLY | O_CLOEXEC));
  if (!source.IsOpen()) return false;
  std::size_t filled = 0;
  while (filled < bytes.size()) {
    const ssize_t count = ::read(source.Get(), bytes.data() + filled, bytes.size() - filled);
    if (count < 1) return false;
    filled += static_cast<std::size_t>(count);
  }
  return true;
}

std::string HexOf(const TokenBytes& bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(2 * bytes.size());  // a text that grows would leave its beginnings behind
  for (const unsigned char byte : bytes) {
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 0xFU];
  }
  return text;
}

// Empty without randomness.
std::string MakeToken() {
  TokenBytes bytes = {};
  std::string token = ReadRandom(bytes) ? HexOf(bytes) : std::string();
  ::explicit_bzero(bytes.data(), bytes.size());
  return token;
}

void Store(const std::string& token, const std::string& session) EXCLUDES(unlockLock) {
  const MutexLock lock(unlockLock);
  WipeUnlock();
  unlock = {.unlockToken = token,
            .unlockSession = session,
            .unlockExpiry = SteadyNowMs() + kUnlockLifetimeMs};
}

std::string UnlockReply(const std::string& token) {
  Json reply = Json::Object();
  reply.Set("ok", true);
  reply.Set("unlockToken", token);
  reply.Set("expiresInSeconds", kUnlockLifetimeSeconds);
  std::string text = reply.Dump();
  WipeTexts(reply);
  return text;
}

// Over the whole length, so that the time that it takes tells nothing about the token.
bool TokensAreEqual(const std::string& given, const std::string& expected) {
  unsigned difference = 0;
  for (std::size_t i = 0; i < expected.size(); ++i)
    difference |= static_cast<unsigned char>(given[i] ^ expected[i]);
  return difference == 0;
}

}  // namespace

std::string HandleUnlock(const std::string& password, const std::string& session) {
  const std::string error = CheckExitPassword(password);
  if (!error.empty()) {
    Log("<4>terminal settings unlock refused: %s\n", error.c_str());
    return ReplyError(error);
  }
  std::string token = MakeToken();
  if (token.empty()) return ReplyError("failed");
  Store(token, session);
  Log("<6>terminal settings unlocked for session %s, %lld s\n", session.c_str(),
      static_cast<long long>(kUnlockLifetimeSeconds));
  std::string reply = UnlockReply(token);
  WipeText(token);
  return reply;
}

bool UnlockValid(const std::string& token, const std::string& session) {
  const MutexLock lock(unlockLock);
  if (unlock.unlockToken.empty() || token.size() != unlock.unlockToken.size() ||
      session != unlock.unlockSession) {
    return false;
  }
  if (unlock.unlockExpiry > SteadyNowMs()) return TokensAreEqual(token, unlock.unlockToken);
  WipeUnlock();
  Log("<6>terminal settings locked: the unlock expired\n");
  return false;
}

void WipeUnlock() {
  WipeText(unlock.unlockToken);
  unlock.unlockExpiry = 0;
  unlock.unlockSession.clear();
}

void ForgetUnlockOf(const std::string& session) {
  const MutexLock lock(unlockLock);
  if (unlock.unlockToken.empty() || unlock.unlockSession != session) return;
  WipeUnlock();
  Log("<6>terminal settings locked: session %s signed out\n", session.c_str());
}

}  // namespace Tarnvale::KioskService

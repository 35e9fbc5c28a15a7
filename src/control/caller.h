// Who calls: the whole trust model of a socket that every local user may write to.
//
// Two layers. The gate, CheckCallerImage, decides whether a peer may talk at all: root, or the one
// installed client program. The classes, from what logind says of its session and whether its uid
// is the recorded kiosk account, decide which commands it may use. Both are asked anew for each
// connection, on its thread, without a lock; logind is given 10 s for each question.

#ifndef TARNVALE_KIOSKD_CONTROL_CALLER_H_
#define TARNVALE_KIOSKD_CONTROL_CALLER_H_

#include <cstdint>
#include <string>

#include "kiosk/session_info.h"

namespace Tarnvale::KioskService {

// The identity of one connection.
struct Caller {
  bool root = false;
  bool interactive = false;  // In a local logind session of class "user", or that is not asked for.
  bool kioskAccount = false;        // The uid is the recorded kiosk account's.
  std::uint32_t uid = kUnknownUid;  // As the kernel recorded it at connect.
  std::int32_t pid = 0;
  std::string session;  // Id of the logind session of the process; empty when it has none.
};

// Whether root owns what stands at the path and neither group nor others may write it. Follows
// links. False for an empty path, and when there is nothing.
[[nodiscard]] bool RootOwnedNotWritable(const std::string& path);

// Whether an executable of this path is an installed service: below /usr/, and only root may change
// it.
[[nodiscard]] bool IsInstalledPath(const std::string& path);

// Whether the peer may talk at all; on refusal `reason` says why, for the log alone. Root always
// may. On an installed service any other peer must be the configured client, byte for byte, in a
// file that only root can write. A development build asks for DevAllowAnyCaller in the state
// instead.
[[nodiscard]] bool CheckCallerImage(std::int32_t pid, std::uint32_t uid, std::string& reason);

// Fills `caller`. Without logind the session stays empty and `interactive` false, so that commands
// open to any admitted peer go on working.
void IdentifyCaller(std::int32_t pid, std::uint32_t uid, Caller& caller);

// Whether the id is a session of the intact kiosk account: a local one, unless sessions are
// relaxed.
[[nodiscard]] bool IsKioskSession(const std::string& sessionId);

// The classes of callers. Root at a local console is an interactive user, but does not enrol: that
// takes a normal signed-in person.
[[nodiscard]] bool IsInteractiveUser(const Caller& caller);
[[nodiscard]] bool IsEnrollingUser(const Caller& caller);
[[nodiscard]] bool IsInKioskSession(const Caller& caller);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CONTROL_CALLER_H_

// The command `status`: what the kiosk user interface needs to know about the terminal.
//
// Every admitted peer may ask, at any time and as often as it likes: the client does so when it
// starts and while it waits for the person who pairs the terminal. Called by the dispatcher on the
// thread of the connection. What it tells comes from the state document, the machine-id file and
// the account database; logind is asked only about a peer that has the uid of the kiosk account.
// Takes the state lock for each key and no other. Writes nothing.

#ifndef TARNVALE_KIOSKD_CONTROL_STATUS_H_
#define TARNVALE_KIOSKD_CONTROL_STATUS_H_

#include <string>

#include "control/caller.h"

namespace Tarnvale::KioskService {

// The reply: ok, enrolled, provisioned, kioskSession, maintenance, account, terminalName, signIn,
// brandingDir, and error with the last provisioning failure when there is one. Always the full set
// of sign-in members. Takes no lock across its reads, so the members may belong to slightly
// different moments; asks logind only for a peer that has the kiosk account's uid.
[[nodiscard]] std::string HandleStatus(const Caller& caller);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CONTROL_STATUS_H_

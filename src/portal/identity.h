// The terminal's identity: the portal's device token, bound to this machine.
//
// The token counts only while the machine-id is the one it was issued to, so a state file that was
// copied onto another machine never speaks with the first one's identity. To the rest of the
// service a missing token and a token of another machine mean the same. Any thread.

#ifndef TARNVALE_KIOSKD_PORTAL_IDENTITY_H_
#define TARNVALE_KIOSKD_PORTAL_IDENTITY_H_

#include <string>

namespace Tarnvale::KioskService {

// The token in force, or an empty string. Every use of the token goes through here. Reads the
// machine-id file at each call, so a change of it counts from the very next one. A token of another
// machine is told in the log once per process. The token itself is a secret and is never logged.
[[nodiscard]] std::string CurrentDeviceToken();

// What DeviceId must hold on this machine: the hash of the trimmed machine-id; empty when the file
// (a regular one of at most 256 bytes) gives nothing. Silent.
[[nodiscard]] std::string MachineIdHash();

// SHA-256 as 64 lower-case hexadecimal characters.
//
//   ""      e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855
//   "abc"   ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad
[[nodiscard]] std::string Sha256Hex(const std::string& bytes);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_PORTAL_IDENTITY_H_

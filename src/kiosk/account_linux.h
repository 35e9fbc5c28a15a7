// The kiosk account on a Linux system: the slots lookupKioskAccount, runSetupTool and
// dropAdminGroups.
//
// Called at start-up, by the service loop and by commands, on their threads. Reads the account and
// group databases through the C library, in records of at most 16 and 64 KiB. Runs the setup tool
// of the configuration, for up to 15 minutes, because it may install packages, and gpasswd, for up
// to 15 s a group. Provisioning and removal hold the lifecycle lock across the setup tool, so two
// of its runs never overlap.

#ifndef TARNVALE_KIOSKD_KIOSK_ACCOUNT_LINUX_H_
#define TARNVALE_KIOSKD_KIOSK_ACCOUNT_LINUX_H_

#include <string>

namespace Tarnvale::KioskService {

// Looks `user` up in the password database. An AccountLookup; either pointer may be null. Logs a
// failed lookup.
[[nodiscard]] int LookupAccount(const std::string& user, unsigned int* uid, std::string* comment);

// Runs `tool` with "enable" or "disable" and "--from-kioskd", at most 15 minutes. True on exit
// status 0. `detail` receives the first 800 bytes of what it printed, or that the tool is not
// installed. Logs a failed run.
[[nodiscard]] bool RunSetupTool(const std::string& tool, bool enable, std::string* detail);

// Takes `user` out of each administrative group that lists it, with gpasswd, at most 15 s for each.
// Logs each success and each failure.
void DropAdminGroups(const std::string& user);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_KIOSK_ACCOUNT_LINUX_H_

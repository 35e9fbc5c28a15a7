// The start-up configuration: defaults, overwritten from the command line, fixed after start.
//
// There is no configuration file. ParseCommandLine (core/command_line.h) fills the record in main,
// SetService (core/service.h) copies it before any other thread exists, and from then on everybody
// reads that copy without a lock. Slots of the platform that need a part of it hold a copy of their
// own. The defaults are the paths of an installed terminal; the tests and the simulator put all of
// them into a directory of their own. Nothing here is checked: a path that cannot be used shows
// where it is used.

#ifndef TARNVALE_KIOSKD_CORE_CONFIG_H_
#define TARNVALE_KIOSKD_CORE_CONFIG_H_

#include <string>

namespace Tarnvale::KioskService {

struct Config {
  // Private directory of state.json.
  std::string stateDir = "/var/lib/tarnvale-kiosk";
  // Run-time directory: the presence file.
  std::string runDir = "/run/tarnvale";
  // Path of the control socket, at most 107 bytes.
  std::string socket = "/run/tarnvale/kiosk.sock";
  // The branding cache, told to the kiosk user interface.
  std::string brandingDir = "/var/cache/tarnvale-kiosk/branding";
  // Directory of the files written for the kiosk session's environment.
  std::string etcDir = "/etc/tarnvale-kiosk";
  // Base URL of the portal; empty: the state file or the built-in default decides.
  std::string authBase;
  // Name of the kiosk account.
  std::string kioskUser = "tarnvale-kiosk";
  // Path of the stream client, the one program besides root's that may call.
  std::string client = "/usr/bin/tarnvale-stream";
  // Path of the program that makes and unmakes the kiosk account.
  std::string setupTool = "/usr/sbin/tarnvale-kiosk-setup";
  // The file that identifies this machine. It has no option.
  std::string machineIdPath = "/etc/machine-id";
  // Callers must sit in a local logind session; false relaxes the session tests.
  bool localSession = true;
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CORE_CONFIG_H_

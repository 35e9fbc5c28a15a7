// Making the service's directories, and making sure of those that are already there.
//
// For Run (core/start.cc), on the main thread before any other exists, and for the branding cache
// (portal/branding_cache.cc) under the lifecycle lock. The state directory, the run directory and
// the branding directory are made here. An unprivileged user may have put something else in such a
// place before, so what is no plain directory is removed, and owner and mode are set through a
// descriptor that was opened without following a link. A path has no limit but the system's own. No
// wait.

#ifndef TARNVALE_KIOSKD_CORE_DIRECTORIES_H_
#define TARNVALE_KIOSKD_CORE_DIRECTORIES_H_

#include <sys/types.h>

#include <string>

namespace Tarnvale::KioskService {

// What stands before the last "/"; empty when there is none but a leading one.
//
//   "/var/lib/x"   "/var/lib"
//   "/x"           ""
//   "x"            ""
[[nodiscard]] std::string ParentOf(const std::string& path);

// Makes every missing directory down to and including `path`, mode 0755, always from the root, also
// for a relative path. Silent: PrepareDirectory, which follows, reports what could not be made.
void MakeParentDirectories(const std::string& path);

// Makes `path` a plain directory. What stands there and is none, a link included, is removed with a
// warning. A new directory, and with `secureExisting` an existing one, gets the mode and, when run
// by root, root as its owner. False when the directory cannot be used; logs the cause.
[[nodiscard]] bool PrepareDirectory(const std::string& path, mode_t mode, bool secureExisting);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CORE_DIRECTORIES_H_

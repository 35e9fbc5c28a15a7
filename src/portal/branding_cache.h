// The directory of the branding cache: where it is, what may be in it, and how it is emptied.
//
// Anyone may read it; only the service writes. It holds the manifest and the photos under the names
// of their digests, regular files all of them, and whatever else is found there is removed. A link
// is removed, never followed. Whoever changes the directory holds the lifecycle lock, because a
// removal on another thread takes it away under the same lock.

#ifndef TARNVALE_KIOSKD_PORTAL_BRANDING_CACHE_H_
#define TARNVALE_KIOSKD_PORTAL_BRANDING_CACHE_H_

#include <set>
#include <string>

#include "core/locks.h"

namespace Tarnvale::KioskService {

inline constexpr char kBrandingManifest[] = "branding.json";

// The path of a file of the cache.
[[nodiscard]] std::string BrandingPath(const std::string& name);

// Whether something stands at the directory's path, and whether that is a directory and no link.
[[nodiscard]] bool BrandingPathExists();
[[nodiscard]] bool IsBrandingDirThere();

// Makes the directory with its parents, or secures what is there. False when it cannot be used,
// which is logged.
[[nodiscard]] bool PrepareBrandingDirLocked() REQUIRES(lifecycleLock);

// Removes what is not a regular file named in `keep`; a link is removed, never followed. What
// cannot be removed, such as a directory that is not empty, is logged each time and the sweep goes
// on. Nothing happens when the directory is not there or is a link.
void SweepBrandingDir(const std::set<std::string>& keep) REQUIRES(lifecycleLock);

// Empties the cache; with `removeDir` removes the directory too. What stands in its place and is no
// directory is removed in either case. Silent when there is nothing.
void RemoveBranding(bool removeDir) REQUIRES(lifecycleLock);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_PORTAL_BRANDING_CACHE_H_

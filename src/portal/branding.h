// Keeping the branding cache in step with the portal's reply: name, subtitle and photos that the
// kiosk user interface shows, in a directory that anyone may read.
//
// Photos come from GET /api/kiosk/branding/photos/<sha256>, at most 16 of at most 16 MiB each, one
// at a time in memory. The manifest is written last, so that a reader who sees it finds its photos
// in place, as far as they could be fetched. Readers take no lock: each file comes into being
// through a rename.

#ifndef TARNVALE_KIOSKD_PORTAL_BRANDING_H_
#define TARNVALE_KIOSKD_PORTAL_BRANDING_H_

#include <string>

#include "core/locks.h"
#include "portal/check_in.h"

namespace Tarnvale::KioskService {

// Makes the cache what the reply of a good check-in says, where `token` is the one of that
// check-in. A photo costs up to 15 s and 16 MiB, without any lock; each step that touches the
// directory takes the lifecycle lock and first compares the token in force, so that nothing is put
// back after a removal. What is cached and whole is left alone. An update never fails as a whole:
// what could be done stays done, and the next good check-in tries the rest again. The service
// loop's thread only. Logs what changed, and a photo that cannot be had once.
void UpdateBranding(const CheckInResult& result, const std::string& token)
    EXCLUDES(lifecycleLock, stateLock, signallingLock);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_PORTAL_BRANDING_H_

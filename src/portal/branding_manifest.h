// The manifest of the branding cache: what the kiosk user interface reads of a tenant's branding.

#ifndef TARNVALE_KIOSKD_PORTAL_BRANDING_MANIFEST_H_
#define TARNVALE_KIOSKD_PORTAL_BRANDING_MANIFEST_H_

#include <string>

#include "json/json.h"

namespace Tarnvale::KioskService {

// The manifest for the member `branding` of a check-in reply and the tenant's id: `displayName`,
// `signInSubtitle`, `photos` and, unless it is empty, `tenantId`. The first 16 distinct photos with
// a valid digest are taken, in their order; the others are skipped silently. Null when the tenant
// has no branding, which is when there is no display name. Any thread; silent.
//
//   {"displayName":"Lobby"}, "t1"   that name, an empty subtitle, no photos, and t1
//   {"displayName":""}, "t1"        null
//   ["displayName"], ""             null
[[nodiscard]] Json MakeBrandingManifest(const Json& branding, const std::string& tenantId);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_PORTAL_BRANDING_MANIFEST_H_

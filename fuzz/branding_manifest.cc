// The branding of a tenant, as the portal sends it. The digest of a photo becomes a file name.

#include "portal/branding_manifest.h"

#include "json/object.h"
#include "target.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace Tarnvale::KioskService;
  const Json branding = ValueOf(data, size);
  const Json manifest = MakeBrandingManifest(branding, StringMember(branding, "tenantId"));
  if (manifest.IsNull()) return 0;
  Expect(!StringMember(manifest, "displayName").empty(), "a manifest has a name");
  const Json& photos = manifest.Get("photos");
  Expect(photos.IsArray() && photos.Size() <= 16, "at most 16 photos");
  for (const Json& photo : photos.items) {
    const std::string digest = StringMember(photo, "sha256");
    Expect(digest.size() == 64, "a digest has 64 digits");
    Expect(digest.find_first_not_of("0123456789abcdef") == std::string::npos, "it has no others");
  }
  return 0;
}

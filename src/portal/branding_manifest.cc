#include "portal/branding_manifest.h"

#include <algorithm>
#include <cstdint>
#include <set>

#include "json/object.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::size_t kMaxPhotos = 16;
constexpr std::size_t kDigestLength = 64;

// The digest becomes a file name and a part of a URL, so nothing else may pass. Capitals are not
// folded.
bool IsDigest(const std::string& text) {
  return text.size() == kDigestLength && std::all_of(text.begin(), text.end(), [](char byte) {
           return (byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'f');
         });
}

Json MakePhoto(const Json& element, const std::string& digest) {
  Json photo = Json::Object();
  photo.Set("sha256", digest);
  photo.Set("contentType", StringMember(element, "contentType"));
  photo.Set("width", element.Get("width").AsInt(0));
  photo.Set("height", element.Get("height").AsInt(0));
  photo.Set("credit", StringMember(element, "credit"));
  return photo;
}

Json MakePhotos(const Json& elements) {
  Json photos = Json::Array();
  if (!elements.IsArray()) return photos;
  std::set<std::string> taken;
  for (const Json& element : elements.items) {
    if (taken.size() == kMaxPhotos) break;
    const std::string digest = StringMember(element, "sha256");
    if (!IsDigest(digest) || !taken.insert(digest).second) continue;
    photos.Append(MakePhoto(element, digest));
  }
  return photos;
}

}  // namespace

Json MakeBrandingManifest(const Json& branding, const std::string& tenantId) {
  const std::string displayName = StringMember(branding, "displayName");
  if (displayName.empty()) return {};
  Json manifest = Json::Object();
  manifest.Set("displayName", displayName);
  manifest.Set("signInSubtitle", StringMember(branding, "signInSubtitle"));
  manifest.Set("photos", MakePhotos(branding.Get("photos")));
  if (!tenantId.empty()) manifest.Set("tenantId", tenantId);
  return manifest;
}

}  // namespace Tarnvale::KioskService

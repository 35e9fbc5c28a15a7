#include "portal/branding.h"

#include <sys/stat.h>

#include <set>

#include "core/files.h"
#include "core/log.h"
#include "core/units.h"
#include "portal/branding_cache.h"
#include "portal/branding_manifest.h"
#include "portal/identity.h"
#include "portal/request.h"

namespace Tarnvale::KioskService {
namespace {

constexpr unsigned long kMaxPhotoBytes = 16 * kMiB;
// What an older manifest may have: more than this is not ours, and is written anew.
constexpr std::size_t kMaxManifestBytes = 256 * kKiB;
constexpr mode_t kFileMode = 0644;

// The loop thread's. The photos whose failure has been told and that have not come since: the only
// limit on log noise, since a photo is tried at every pass.
std::set<std::string> toldDigests;

bool IsInForce(const std::string& token) {
  return CurrentDeviceToken() == token;
}

// Whether the cache is still this update's to change: the terminal may have been removed, or paired
// anew, while no lock was held.
bool MayChangeCacheLocked(const std::string& token) REQUIRES(lifecycleLock) {
  return IsInForce(token) && IsBrandingDirThere();
}

bool PrepareCache(const std::string& token) {
  const MutexLock lock(lifecycleLock);
  return IsInForce(token) && PrepareBrandingDirLocked();
}

// A file that is there but damaged, or a link, is fetched like one that is missing.
bool IsCached(const std::string& digest) {
  std::string bytes;
  return ReadFileLimited(BrandingPath(digest), kMaxPhotoBytes, bytes) && Sha256Hex(bytes) == digest;
}

// Why the answer is not the photo; empty when it is.
std::string JudgePhoto(const Http& http, const std::string& digest) {
  if (!http.ok) return http.error;
  if (http.status != kHttpOk) return "HTTP " + std::to_string(http.status);
  if (http.body.empty() || http.body.size() > kMaxPhotoBytes) return "empty or too large";
  if (Sha256Hex(http.body) != digest) return "the bytes do not match the digest";
  return {};
}

// False when the update is over.
bool StorePhoto(const std::string& digest, const std::string& bytes, const std::string& token) {
  const MutexLock lock(lifecycleLock);
  if (!MayChangeCacheLocked(token)) return false;
  if (!WriteFileAtomic(BrandingPath(digest), bytes, kFileMode)) return true;
  toldDigests.erase(digest);
  Log("<6>branding photo %s cached (%zu bytes)\n", digest.c_str(), bytes.size());
  return true;
}

// One bad photo fails nothing else. False when the update is over.
bool EnsurePhoto(const std::string& digest, const std::string& token) {
  if (IsCached(digest)) return true;
  const Http http = PortalRequest("GET", "/api/kiosk/branding/photos/" + digest, "", token,
                                  kMaxPhotoBytes, "image/*");
  const std::string failure = JudgePhoto(http, digest);
  if (failure.empty()) return StorePhoto(digest, http.body, token);
  if (toldDigests.insert(digest).second) {
    Log("<4>branding photo %s not cached: %s\n", digest.c_str(), failure.c_str());
  }
  return true;
}

// Nothing is written or told when the manifest is what stands there already.
void WriteManifestLocked(const Json& manifest) REQUIRES(lifecycleLock) {
  const std::string path = BrandingPath(kBrandingManifest);
  const std::string text = manifest.Dump();
  std::string present;
  if (ReadFileLimited(path, kMaxManifestBytes, present) && present == text) return;
  if (!WriteFileAtomic(path, text, kFileMode)) return;
  Log("<6>branding: \"%s\" with %zu photo(s)\n", manifest.Get("displayName").text.c_str(),
      manifest.Get("photos").Size());
}

// What the portal dropped goes only now that all it wants instead has been fetched.
void FinishUpdate(const Json& manifest, const std::set<std::string>& keep,
                  const std::string& token) {
  const MutexLock lock(lifecycleLock);
  if (!MayChangeCacheLocked(token)) return;
  SweepBrandingDir(keep);
  WriteManifestLocked(manifest);
}

void CacheBranding(const Json& manifest, const std::string& token) {
  if (!PrepareCache(token)) return;
  std::set<std::string> keep = {kBrandingManifest};
  for (const Json& photo : manifest.Get("photos").items) {
    const std::string& digest = photo.Get("sha256").text;
    keep.insert(digest);
    if (!EnsurePhoto(digest, token)) return;
  }
  FinishUpdate(manifest, keep, token);
}

bool IsManifestThere() {
  struct stat status = {};
  return ::lstat(BrandingPath(kBrandingManifest).c_str(), &status) == 0;
}

void ForgetBranding(const std::string& token) {
  const MutexLock lock(lifecycleLock);
  if (!IsInForce(token) || !BrandingPathExists()) return;
  if (IsManifestThere()) Log("<6>branding: the tenant has none; the cached branding is removed\n");
  RemoveBranding(false);
}

}  // namespace

void UpdateBranding(const CheckInResult& result, const std::string& token) {
  const Json manifest = MakeBrandingManifest(result.branding, result.tenantId);
  if (manifest.IsNull()) {
    ForgetBranding(token);
  } else {
    CacheBranding(manifest, token);
  }
}

}  // namespace Tarnvale::KioskService

// The words of the branding tests.

#ifndef TARNVALE_KIOSKD_TESTS_PORTAL_BRANDING_TEST_H_
#define TARNVALE_KIOSKD_TESTS_PORTAL_BRANDING_TEST_H_

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "portal/branding.h"
#include "portal/check_in.h"
#include "portal/identity.h"
#include "support/service_test.h"

namespace Tarnvale::KioskService {

using Names = std::vector<std::string>;

// The path below which the portal has a photo.
inline std::string PhotoPath(const std::string& digest) {
  return "/api/kiosk/branding/photos/" + digest;
}

inline std::string NotCached(const std::string& digest, const std::string& reason) {
  return "<4>branding photo " + digest + " not cached: " + reason;
}

inline std::string Cached(const std::string& digest, std::size_t bytes) {
  return "<6>branding photo " + digest + " cached (" + std::to_string(bytes) + " bytes)";
}

// An enrolled terminal whose cache is two directories below one that exists.
class BrandingTest : public ServiceTest {
 protected:
  BrandingTest() {
    config.brandingDir = dir.At("cache/kiosk/branding");
    UseConfig();
    Enrol();
  }

  // The portal has this photo; its digest.
  std::string PortalHas(const std::string& bytes) {
    std::string digest = Sha256Hex(bytes);
    portal.Answers(PhotoPath(digest), 200, bytes);
    return digest;
  }

  // A photo as the portal lists it.
  [[nodiscard]] static Json Photo(const std::string& digest) {
    Json photo = Json::Object();
    photo.Set("sha256", digest);
    return photo;
  }
  // The branding of a tenant with these photos.
  [[nodiscard]] static Json Branding(const Names& digests, const std::string& name = "Lobby") {
    Json photos = Json::Array();
    for (const std::string& digest : digests)
      photos.Append(Photo(digest));
    Json branding = Json::Object();
    branding.Set("displayName", name);
    branding.Set("photos", std::move(photos));
    return branding;
  }

  // The update after a good check-in that brought this.
  static void Update(const Json& branding) {
    CheckInResult result;
    result.outcome = CheckInOutcome::kEnrolled;
    result.branding = branding;
    UpdateBranding(result, kTestToken);
  }

  [[nodiscard]] std::string At(const std::string& name) const {
    return config.brandingDir + "/" + name;
  }
  [[nodiscard]] Json Manifest() const {
    return Json::Parse(ReadText(At("branding.json"))).value_or(Json("unreadable"));
  }
  // The digests that the manifest names.
  [[nodiscard]] Names ManifestPhotos() const {
    const Json manifest = Manifest();
    Names digests;
    for (const Json& photo : manifest.Get("photos").items)
      digests.push_back(photo.Get("sha256").text);
    return digests;
  }
  // What is in the directory, sorted.
  [[nodiscard]] Names Files() const {
    Names names;
    for (const auto& entry : std::filesystem::directory_iterator(config.brandingDir))
      names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
  }
  [[nodiscard]] static Names Sorted(Names names) {
    std::sort(names.begin(), names.end());
    return names;
  }
  void MakeDirectory() const {
    std::filesystem::create_directories(config.brandingDir);
  }
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_PORTAL_BRANDING_TEST_H_

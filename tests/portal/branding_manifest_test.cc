#include "portal/branding_manifest.h"

#include <gtest/gtest.h>

#include <string>

namespace Tarnvale::KioskService {
namespace {

const std::string kDigest = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";

struct Row {
  std::string branding;
  std::string tenantId;
  std::string manifest;
};

// The text of a manifest with these photos.
std::string WithPhotos(const std::string& photos) {
  return R"({"displayName":"Lobby","signInSubtitle":"","photos":[)" + photos + "]}";
}

// A photo that has no more than its digest.
std::string Bare(const std::string& digest) {
  return R"({"sha256":")" + digest + R"(","contentType":"","width":0,"height":0,"credit":""})";
}

std::string BrandingOf(const std::string& photos) {
  return R"({"displayName":"Lobby","photos":)" + photos + "}";
}

std::string ListOf(const std::string& digest) {
  return R"([{"sha256":")" + digest + R"("}])";
}

std::string Digest(int number) {
  std::string digest = kDigest;
  digest.replace(0, 2, std::to_string(10 + number));
  return digest;
}

TEST(MakeBrandingManifest, ReadsWhatThePortalMaySend) {
  const Row rows[] = {
      {R"({"displayName":"Lobby"})", "t1",
       R"({"displayName":"Lobby","signInSubtitle":"","photos":[],"tenantId":"t1"})"},
      {R"({"displayName":""})", "t1", "null"},
      {R"(["displayName"])", "", "null"},

      {"null", "t1", "null"},
      {R"("displayName")", "", "null"},
      {"{}", "", "null"},
      {R"({"displayName":null})", "", "null"},
      {R"({"displayName":7})", "", "null"},
      {R"({"displayName":["Lobby"]})", "", "null"},
      {R"({"photos":[],"signInSubtitle":"Welcome","displayName":" "})", "",
       R"({"displayName":" ","signInSubtitle":"Welcome","photos":[]})"},
      {R"({"displayName":"Lobby","signInSubtitle":7})", "", WithPhotos("")},
      {R"({"displayName":"Lobby","tenantId":"of the branding"})", "", WithPhotos("")},

      {BrandingOf("{}"), "", WithPhotos("")},
      {BrandingOf("\"x\""), "", WithPhotos("")},
      {BrandingOf("[null,7,\"x\",[],{}]"), "", WithPhotos("")},
      {BrandingOf(ListOf(kDigest)), "", WithPhotos(Bare(kDigest))},
      {BrandingOf("[\"" + kDigest + "\"]"), "", WithPhotos("")},
      {BrandingOf(R"([{"credit":"Kim","height":2160,"width":3840,"contentType":"image/png",)"
                  R"("sha256":")" +
                  kDigest + R"(","more":1}])"),
       "",
       WithPhotos(R"({"sha256":")" + kDigest +
                  R"(","contentType":"image/png","width":3840,"height":2160,"credit":"Kim"})")},
      {BrandingOf(R"([{"credit":1,"height":"12","width":9.9,"contentType":null,"sha256":")" +
                  kDigest + R"("}])"),
       "",
       WithPhotos(R"({"sha256":")" + kDigest +
                  R"(","contentType":"","width":9,"height":12,"credit":""})")},
  };

  for (const Row& row : rows) {
    EXPECT_EQ(MakeBrandingManifest(*Json::Parse(row.branding), row.tenantId).Dump(), row.manifest)
        << row.branding;
  }
}

TEST(MakeBrandingManifest, TakesADigestOf64LowerCaseDigitsOnly) {
  const std::string tail = kDigest.substr(1);
  const std::string bad[] = {"",
                             tail,
                             kDigest + "0",
                             "A" + tail,
                             "g" + tail,
                             "/" + tail,
                             ":" + tail,
                             "`" + tail,
                             " " + tail,
                             "../" + kDigest.substr(3),
                             kDigest.substr(0, 63) + "F",
                             kDigest.substr(0, 63) + "\\u0000"};
  for (const std::string& digest : bad) {
    EXPECT_EQ(MakeBrandingManifest(*Json::Parse(BrandingOf(ListOf(digest))), "").Dump(),
              WithPhotos(""))
        << digest;
  }
  for (const char first : std::string("09af")) {
    const std::string digest = first + tail;
    EXPECT_EQ(MakeBrandingManifest(*Json::Parse(BrandingOf(ListOf(digest))), "").Dump(),
              WithPhotos(Bare(digest)));
  }
}

TEST(MakeBrandingManifest, TakesThePhotosInTheirOrderAndEachOnce) {
  const std::string list = R"([{"sha256":")" + Digest(2) + R"("},{"sha256":")" + Digest(1) +
                           R"("},{"sha256":")" + Digest(2) + R"(","credit":"second"}])";

  EXPECT_EQ(MakeBrandingManifest(*Json::Parse(BrandingOf(list)), "").Dump(),
            WithPhotos(Bare(Digest(2)) + "," + Bare(Digest(1))));
}

// What is skipped does not count towards the sixteen.
TEST(MakeBrandingManifest, TakesTheFirst16ValidPhotos) {
  for (const int offered : {15, 16, 17, 20}) {
    Json branding = *Json::Parse(BrandingOf("[7,{}]"));
    Json photos = branding.Get("photos");
    for (int i = 0; i < offered; ++i) {
      for (const std::string& digest : {Digest(i), Digest(0), std::string("bad")}) {
        Json photo = Json::Object();
        photo.Set("sha256", digest);
        photos.Append(photo);
      }
    }
    branding.Set("photos", photos);

    const Json taken = MakeBrandingManifest(branding, "").Get("photos");

    ASSERT_EQ(taken.Size(), offered < 16 ? 15U : 16U);
    EXPECT_EQ(taken.At(14).Get("sha256").text, Digest(14));
  }
}

}  // namespace
}  // namespace Tarnvale::KioskService

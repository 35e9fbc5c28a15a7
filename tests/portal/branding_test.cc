// The branding cache follows the reply of the portal: directory, manifest and what goes again.

#include "portal/branding_test.h"

#include "core/file_size_limit.h"
#include "core/state.h"
#include "portal/branding_manifest.h"
#include "support/save_counter.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kHasNone[] = "<6>branding: the tenant has none; the cached branding is removed";

using UpdateBrandingTest = BrandingTest;
using NoBrandingTest = BrandingTest;

TEST_F(UpdateBrandingTest, MakesTheCacheWithItsDirectories) {
  const std::string photo = PortalHas("a photo");

  Update(Branding({photo}));

  EXPECT_EQ(Files(), Sorted({photo, "branding.json"}));
  EXPECT_EQ(ReadText(At(photo)), "a photo");
  EXPECT_EQ(ManifestPhotos(), Names{photo});
  EXPECT_EQ(log.Lines(), (Names{Cached(photo, 7), R"(<6>branding: "Lobby" with 1 photo(s))"}));
}

TEST_F(UpdateBrandingTest, LetsAnyoneReadIt) {
  const std::string photo = PortalHas("a photo");

  Update(Branding({photo}));

  for (const std::string& path : {dir.At("cache"), dir.At("cache/kiosk"), At("")})
    EXPECT_EQ(ModeOf(path), 0755U) << path;
  for (const std::string& path : {At(photo), At("branding.json")})
    EXPECT_EQ(ModeOf(path), 0644U) << path;
}

TEST_F(UpdateBrandingTest, WritesTheManifestWithoutALineEnd) {
  CheckInResult result;
  result.branding = Branding({});
  result.tenantId = "tenant-1";

  UpdateBranding(result, kTestToken);

  EXPECT_EQ(ReadText(At("branding.json")),
            R"({"displayName":"Lobby","signInSubtitle":"","photos":[],"tenantId":"tenant-1"})");
  EXPECT_EQ(log.Text(), "<6>branding: \"Lobby\" with 0 photo(s)\n");
}

TEST_F(UpdateBrandingTest, WritesAndSaysNothingWhenNothingChanged) {
  const Json branding = Branding({PortalHas("one"), PortalHas("two")});
  Update(branding);
  log.Clear();
  const int fetched = calls.Count("http");
  SaveCounter saves(config.brandingDir, "branding.json");

  for (int i = 0; i < 3; ++i)
    Update(branding);

  EXPECT_EQ(saves.Count(), 0);
  EXPECT_EQ(calls.Count("http"), fetched);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(UpdateBrandingTest, WritesTheManifestAnewWhenItChanged) {
  Update(Branding({}));
  log.Clear();

  Update(Branding({}, "Reception"));

  EXPECT_EQ(Manifest().Get("displayName").text, "Reception");
  EXPECT_EQ(log.Text(), "<6>branding: \"Reception\" with 0 photo(s)\n");
}

TEST_F(UpdateBrandingTest, ReplacesAManifestThatIsNotItsOwn) {
  MakeDirectory();
  WriteText(dir.At("target"), "untouched");
  const auto makeLink = [this] {
    std::filesystem::create_symlink(dir.At("target"), At("branding.json"));
  };
  const auto makeHuge = [this] { WriteText(At("branding.json"), std::string(262'145, ' ')); };
  const auto makeDirectory = [this] { std::filesystem::create_directory(At("branding.json")); };
  const auto makeFifo = [this] { EXPECT_EQ(::mkfifo(At("branding.json").c_str(), 0600), 0); };
  for (const std::function<void()>& make :
       {std::function<void()>(makeLink), std::function<void()>(makeHuge),
        std::function<void()>(makeDirectory), std::function<void()>(makeFifo)}) {
    make();
    Update(Branding({}));
    EXPECT_EQ(Manifest().Get("displayName").text, "Lobby");
    std::filesystem::remove(At("branding.json"));
  }
  EXPECT_EQ(ReadText(dir.At("target")), "untouched");
}

TEST_F(UpdateBrandingTest, LooksAtAManifestOf256KiBAndWritesALargerOneAnew) {
  const std::string::size_type rest = MakeBrandingManifest(Branding({}, "x"), "").Dump().size() - 1;
  for (const std::size_t bytes : {262'144UL, 262'145UL}) {
    const Json branding = Branding({}, std::string(bytes - rest, 'x'));
    Update(branding);
    ASSERT_EQ(ReadText(At("branding.json")).size(), bytes);
    SaveCounter saves(config.brandingDir, "branding.json");

    Update(branding);

    EXPECT_EQ(saves.Count(), bytes > 262'144 ? 1 : 0);
  }
}

TEST_F(UpdateBrandingTest, SweepsWhatIsLeftOver) {
  MakeDirectory();
  for (const char* const name : {"branding.json.tmp", "photo", ".x"})
    WriteText(At(name), "");
  std::filesystem::create_symlink("/etc/passwd", At("link"));

  Update(Branding({}));

  EXPECT_EQ(Files(), Names{"branding.json"});
}

TEST_F(UpdateBrandingTest, LeavesADirectoryThatIsNotEmptyAndSaysSoEachTime) {
  std::filesystem::create_directories(At("full/inner"));
  const std::string line = "<4>cannot remove " + At("full") + " (Directory not empty)";

  Update(Branding({}));
  EXPECT_EQ(log.Count(line), 1);
  Update(Branding({}));

  EXPECT_EQ(log.Count(line), 2);
  EXPECT_EQ(Manifest().Get("displayName").text, "Lobby");
}

TEST_F(UpdateBrandingTest, DropsAPhotoOnlyAfterAllWantedOnesAreThere) {
  const std::string dropped = PortalHas("dropped");
  Update(Branding({dropped}));
  const std::string first = PortalHas("first");
  const std::string last = Sha256Hex("last");
  portal.AnswersWith(PhotoPath(last), [&](const PortalCall&) {
    EXPECT_EQ(Files(), Sorted({dropped, first, "branding.json"}));
    EXPECT_EQ(ManifestPhotos(), Names{dropped});
    return Http{.ok = true, .status = 200, .body = "last", .error = {}};
  });

  Update(Branding({first, last}));

  EXPECT_EQ(Files(), Sorted({first, last, "branding.json"}));
  EXPECT_EQ(ManifestPhotos(), (Names{first, last}));
}

TEST_F(UpdateBrandingTest, WritesTheManifestAfterTheSweep) {
  MakeDirectory();
  WriteText(At("old"), "");
  WriteText(At("branding.json.tmp"), "");
  std::filesystem::create_directories(At("full/inner"));

  Update(Branding({}));

  EXPECT_EQ(log.Lines().size(), 2U);
  EXPECT_EQ(log.Lines().back(), R"(<6>branding: "Lobby" with 0 photo(s))");
}

TEST_F(UpdateBrandingTest, GoesNoFurtherWithoutADirectory) {
  WriteText(dir.At("cache"), "a file, and not the parent");

  Update(Branding({Sha256Hex("never asked for")}));

  EXPECT_EQ(calls.Count("http"), 0);
  EXPECT_EQ(log.Lines(), Names{"<3>cannot create " + dir.At("cache/kiosk") + " (Not a directory)"});
}

TEST_F(UpdateBrandingTest, TouchesNothingWithATokenThatIsNoLongerInForce) {
  StateSetString(StateKey::kDeviceToken, "token of a new pairing");
  Update(Branding({Sha256Hex("never asked for")}));
  StateClear(StateKey::kDeviceToken);
  Update(Branding({}));

  EXPECT_EQ(calls.Count("http"), 0);
  EXPECT_FALSE(Exists(dir.At("cache")));
}

TEST_F(UpdateBrandingTest, TellsAManifestThatCouldNotBeWrittenAndTriesAgain) {
  const Json branding = Branding({}, std::string(5000, 'x'));
  {
    const FileSizeLimit limit(1000);  // the log is a file too
    Update(branding);
  }
  EXPECT_EQ(log.Lines(), Names{"<3>cannot write " + At("branding.json") + " (File too large)"});
  EXPECT_FALSE(Exists(At("branding.json")));

  Update(branding);
  EXPECT_EQ(Files(), Names{"branding.json"});
}

TEST_F(NoBrandingTest, RemovesWhatWasCachedAndSaysSoOnce) {
  Update(Branding({PortalHas("a photo")}));
  log.Clear();

  Update(Json());
  Update(Json());

  EXPECT_EQ(Files(), Names{});
  EXPECT_EQ(log.Text(), std::string(kHasNone) + "\n");
}

TEST_F(NoBrandingTest, IsAReplyWithoutADisplayName) {
  for (const char* const branding :
       {"null", "7", "[]", "{}", R"({"displayName":""})", R"({"displayName":7})"}) {
    Update(Branding({}));
    log.Clear();

    Update(*Json::Parse(branding));

    EXPECT_EQ(Files(), Names{}) << branding;
    EXPECT_EQ(log.Text(), std::string(kHasNone) + "\n") << branding;
  }
}

TEST_F(NoBrandingTest, SaysNothingWhenNothingIsCached) {
  Update(Json());
  EXPECT_FALSE(Exists(dir.At("cache")));

  MakeDirectory();
  WriteText(At("leftover"), "");
  Update(Json());

  EXPECT_EQ(Files(), Names{});
  EXPECT_EQ(log.Text(), "");
}

TEST_F(NoBrandingTest, RemovesAManifestThatIsALink) {
  MakeDirectory();
  std::filesystem::create_symlink("/nonexistent", At("branding.json"));

  Update(Json());

  EXPECT_EQ(Files(), Names{});
  EXPECT_EQ(log.Text(), std::string(kHasNone) + "\n");
}

TEST_F(NoBrandingTest, RemovesAFileInThePlaceOfTheDirectory) {
  std::filesystem::create_directories(dir.At("cache/kiosk"));
  WriteText(config.brandingDir, "");

  Update(Json());

  EXPECT_FALSE(Exists(config.brandingDir));
  EXPECT_EQ(log.Text(), "");
}

TEST_F(NoBrandingTest, TouchesNothingWithATokenThatIsNoLongerInForce) {
  Update(Branding({}));
  StateSetString(StateKey::kDeviceToken, "token of a new pairing");
  log.Clear();

  Update(Json());

  EXPECT_EQ(Files(), Names{"branding.json"});
  EXPECT_EQ(log.Text(), "");
}

}  // namespace
}  // namespace Tarnvale::KioskService

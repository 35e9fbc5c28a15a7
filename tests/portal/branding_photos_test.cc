// The photos of the branding cache: how they are fetched, judged and kept.

#include <unistd.h>

#include "core/file_size_limit.h"
#include "core/state.h"
#include "portal/branding_test.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::size_t kMaxPhotoBytes = 16'777'216;

class BrandingPhotosTest : public BrandingTest {
 protected:
  // Every answer of the portal for this photo from now on.
  void PortalAnswersPhoto(const std::string& digest, int status, const std::string& body) {
    portal.Answers(PhotoPath(digest), status, body);
  }
};

TEST_F(BrandingPhotosTest, AreAskedForWithTheTokenInTheirOrder) {
  const Names photos = {PortalHas("b"), PortalHas("a")};

  Update(Branding(photos));

  const std::vector<PortalCall> requests = portal.Calls();
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_EQ(requests[0].method, "GET");
  EXPECT_EQ(requests[0].url, "https://portal.test/api/kiosk/branding/photos/" + photos[0]);
  EXPECT_EQ(requests[0].body, "");
  EXPECT_EQ(requests[0].token, kTestToken);
  EXPECT_EQ(requests[0].maxBytes, kMaxPhotoBytes);
  EXPECT_EQ(requests[0].accept, "image/*");
  EXPECT_EQ(requests[1].url, "https://portal.test/api/kiosk/branding/photos/" + photos[1]);
}

TEST_F(BrandingPhotosTest, AreSixteenOfTwenty) {
  Names photos;
  for (int i = 0; i < 20; ++i)
    photos.push_back(PortalHas("photo " + std::to_string(i)));

  Update(Branding(photos));

  EXPECT_EQ(portal.Calls().size(), 16U);
  EXPECT_EQ(Files().size(), 17U);
  photos.resize(16);
  EXPECT_EQ(ManifestPhotos(), photos);
}

TEST_F(BrandingPhotosTest, AreFetchedOnceForADigestThatComesTwice) {
  const std::string photo = PortalHas("a photo");

  Update(Branding({photo, photo}));

  EXPECT_EQ(portal.CallsTo(PhotoPath(photo)), 1);
  EXPECT_EQ(ManifestPhotos(), Names{photo});
}

TEST_F(BrandingPhotosTest, AreNotAskedForByADigestInCapitals) {
  std::string capitals = Sha256Hex("a photo");
  for (char& byte : capitals)
    byte = static_cast<char>(std::toupper(static_cast<unsigned char>(byte)));
  portal.Answers(PhotoPath(capitals), 200, "a photo");

  Update(Branding({capitals}));

  EXPECT_TRUE(portal.Calls().empty());
  EXPECT_EQ(ManifestPhotos(), Names{});
}

TEST_F(BrandingPhotosTest, HoldTheLargestBodyAndNoLargerOne) {
  const std::string largest(kMaxPhotoBytes, 'x');
  const std::string fits = PortalHas(largest);
  const std::string tooLarge = PortalHas(largest + "x");

  Update(Branding({fits, tooLarge}));

  EXPECT_TRUE(log.Has(Cached(fits, kMaxPhotoBytes)));
  EXPECT_TRUE(log.Has(NotCached(tooLarge, "empty or too large")));
  EXPECT_EQ(Files(), Sorted({fits, "branding.json"}));

  // The cached one is read back whole.
  Update(Branding({fits}));
  EXPECT_EQ(portal.CallsTo(PhotoPath(fits)), 1);
}

TEST_F(BrandingPhotosTest, AreNotCachedWhenTheAnswerIsNotThePhoto) {
  struct Row {
    int status;
    const char* body;
    const char* reason;
  };
  const std::string photo = Sha256Hex("a photo");
  for (const Row& row :
       {Row{200, "", "empty or too large"},
        Row{200, "another", "the bytes do not match the digest"},
        Row{200, "a phot", "the bytes do not match the digest"}, Row{404, "a photo", "HTTP 404"},
        Row{201, "a photo", "HTTP 201"}, Row{304, "", "HTTP 304"}, Row{401, "{}", "HTTP 401"},
        Row{500, "a photo", "HTTP 500"}}) {
    PortalHas("a photo");
    Update(Branding({photo}));  // a success, so that the next failure is told
    std::filesystem::remove(At(photo));
    log.Clear();
    PortalAnswersPhoto(photo, row.status, row.body);

    Update(Branding({photo}));

    EXPECT_EQ(log.Text(), NotCached(photo, row.reason) + "\n") << row.status << row.body;
    EXPECT_FALSE(Exists(At(photo)));
  }
}

TEST_F(BrandingPhotosTest, AreNotCachedFromAPortalThatIsGone) {
  const std::string photo = Sha256Hex("a photo");
  portal.IsUnreachable(PhotoPath(photo), "Timeout was reached");

  Update(Branding({photo}));

  EXPECT_EQ(log.Lines().front(), NotCached(photo, "Timeout was reached"));
}

TEST_F(BrandingPhotosTest, StayInTheManifestAndHoldUpNoOtherWhenOneFails) {
  const std::string bad = Sha256Hex("bad");
  PortalAnswersPhoto(bad, 404, "");
  const std::string good = PortalHas("good");

  Update(Branding({bad, good}));

  EXPECT_EQ(Files(), Sorted({good, "branding.json"}));
  EXPECT_EQ(ManifestPhotos(), (Names{bad, good}));
  EXPECT_EQ(log.Lines().back(), R"(<6>branding: "Lobby" with 2 photo(s))");
}

TEST_F(BrandingPhotosTest, AreTriedEachTimeAndToldOnceUntilTheyCome) {
  const std::string photo = Sha256Hex("a photo");
  const std::string other = Sha256Hex("other");
  for (const std::string& failing : {photo, other})
    PortalAnswersPhoto(failing, 404, "");
  const Json branding = Branding({photo, other});
  Update(branding);
  PortalAnswersPhoto(photo, 500, "");
  Update(branding);
  EXPECT_EQ(portal.CallsTo(PhotoPath(photo)), 2);
  EXPECT_EQ(log.Count(NotCached(photo, "HTTP 404")), 1);
  EXPECT_EQ(log.Count(NotCached(other, "HTTP 404")), 1);
  EXPECT_FALSE(log.Has(NotCached(photo, "HTTP 500")));

  PortalHas("a photo");
  Update(branding);
  std::filesystem::remove(At(photo));
  PortalAnswersPhoto(photo, 500, "");
  Update(branding);
  Update(branding);

  EXPECT_EQ(log.Count(Cached(photo, 7)), 1);
  EXPECT_EQ(log.Count(NotCached(photo, "HTTP 500")), 1);
  EXPECT_EQ(log.Count(NotCached(other, "HTTP 404")), 1);
}

TEST_F(BrandingPhotosTest, AreFetchedAgainWhenTheyAreDamaged) {
  const std::string photo = PortalHas("a photo");
  Update(Branding({photo}));
  for (const std::string& damaged : {std::string(), std::string("a phot0"), std::string("a phot"),
                                     std::string(kMaxPhotoBytes + 1, 'x')}) {
    WriteText(At(photo), damaged);
    const int before = portal.CallsTo(PhotoPath(photo));

    Update(Branding({photo}));

    EXPECT_EQ(portal.CallsTo(PhotoPath(photo)), before + 1);
    EXPECT_EQ(ReadText(At(photo)), "a photo");
  }
}

TEST_F(BrandingPhotosTest, ReplaceALinkOfTheirNameAndLeaveItsTarget) {
  const std::string photo = PortalHas("a photo");
  MakeDirectory();
  WriteText(dir.At("target"), "a photo");  // even the right bytes are not trusted through a link
  std::filesystem::create_symlink(dir.At("target"), At(photo));

  Update(Branding({photo}));

  EXPECT_EQ(portal.CallsTo(PhotoPath(photo)), 1);
  EXPECT_FALSE(std::filesystem::is_symlink(At(photo)));
  EXPECT_EQ(ReadText(At(photo)), "a photo");
  EXPECT_TRUE(Exists(dir.At("target")));
}

TEST_F(BrandingPhotosTest, DoNotWaitForAFifoOfTheirName) {
  const std::string photo = PortalHas("a photo");
  MakeDirectory();
  ASSERT_EQ(::mkfifo(At(photo).c_str(), 0600), 0);

  Update(Branding({photo}));

  EXPECT_EQ(ReadText(At(photo)), "a photo");
}

TEST_F(BrandingPhotosTest, GiveWayToADirectoryOfTheirNameOnce) {
  const std::string photo = PortalHas("a photo");
  std::filesystem::create_directories(At(photo));

  Update(Branding({photo}));
  EXPECT_EQ(log.Lines().front(), "<3>cannot write " + At(photo) + " (Is a directory)");
  EXPECT_EQ(Files(), Names{"branding.json"});

  Update(Branding({photo}));
  EXPECT_EQ(ReadText(At(photo)), "a photo");
}

TEST_F(BrandingPhotosTest, GiveWayToADirectoryOfTheirTemporaryNameOnce) {
  const std::string photo = PortalHas("a photo");
  std::filesystem::create_directories(At(photo + ".tmp"));

  Update(Branding({photo}));
  EXPECT_EQ(log.Lines().front(), "<3>cannot create " + At(photo) + ".tmp (File exists)");
  EXPECT_EQ(Files(), Names{"branding.json"});

  Update(Branding({photo}));
  EXPECT_EQ(Files(), Sorted({photo, "branding.json"}));
}

TEST_F(BrandingPhotosTest, AreNotReachedThroughALinkOfTheirTemporaryName) {
  const std::string photo = PortalHas("a photo");
  MakeDirectory();
  WriteText(dir.At("target"), "untouched");
  std::filesystem::create_symlink(dir.At("target"), At(photo + ".tmp"));

  Update(Branding({photo}));

  EXPECT_EQ(ReadText(At(photo)), "a photo");
  EXPECT_EQ(ReadText(dir.At("target")), "untouched");
}

TEST_F(BrandingPhotosTest, HoldUpNothingWhenTheyCannotBeWritten) {
  const std::string large = PortalHas(std::string(5000, 'x'));
  const std::string small = PortalHas("small");
  {
    const FileSizeLimit limit(1000);
    Update(Branding({large, small}));
  }

  EXPECT_EQ(log.Lines(), (Names{"<3>cannot write " + At(large) + " (File too large)",
                                Cached(small, 5), R"(<6>branding: "Lobby" with 2 photo(s))"}));
  EXPECT_EQ(Files(), Sorted({small, "branding.json"}));

  Update(Branding({large, small}));
  EXPECT_TRUE(Exists(At(large)));
}

// A write that failed is no success: the warning of before is not told again for it.
TEST_F(BrandingPhotosTest, AreStillToldOnceAfterAWriteThatFailed) {
  const std::string bytes(5000, 'x');
  const std::string photo = Sha256Hex(bytes);
  PortalAnswersPhoto(photo, 404, "");
  Update(Branding({photo}));
  PortalHas(bytes);
  {
    const FileSizeLimit limit(1000);
    Update(Branding({photo}));
  }
  EXPECT_TRUE(log.Has("<3>cannot write " + At(photo) + " (File too large)"));
  PortalAnswersPhoto(photo, 404, "");
  Update(Branding({photo}));

  EXPECT_EQ(log.Count(NotCached(photo, "HTTP 404")), 1);
}

}  // namespace
}  // namespace Tarnvale::KioskService

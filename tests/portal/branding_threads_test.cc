// What happens to the terminal while a photo downloads: the update holds no lock meanwhile, and
// must not put anything back afterwards.

#include <memory>

#include "core/state.h"
#include "kiosk/removal.h"
#include "portal/branding_test.h"
#include "support/other_thread.h"

namespace Tarnvale::KioskService {
namespace {

class BrandingMeanwhileTest : public BrandingTest {
 protected:
  // An update of two photos; `action` runs while the first one downloads, which succeeds.
  void UpdateWhile(std::function<void()> action) {
    portal.AnswersWith(PhotoPath(first), [action](const PortalCall&) {
      action();
      return Http{.ok = true, .status = 200, .body = "first", .error = {}};
    });
    portal.Answers(PhotoPath(second), 200, "second");
    Update(Branding({first, second}));
  }

  const std::string first = Sha256Hex("first");
  const std::string second = Sha256Hex("second");
};

TEST_F(BrandingMeanwhileTest, ARemovalIsNotHeldUpAndNothingIsPutBack) {
  RemovalWorks();
  std::unique_ptr<OtherThread> removal;

  UpdateWhile([&] {
    removal = std::make_unique<OtherThread>([] {
      RemoveKioskMode("a test");
      return std::string();
    });
    EXPECT_TRUE(Eventually([&] { return removal->IsDone(); }));
    EXPECT_FALSE(Exists(config.brandingDir));
  });

  EXPECT_FALSE(Exists(config.brandingDir));
  EXPECT_EQ(portal.CallsTo(PhotoPath(second)), 0);
  EXPECT_EQ(log.Text(), "<4>removing kiosk mode: a test\n");
}

TEST_F(BrandingMeanwhileTest, ATokenThatGoesEndsTheUpdate) {
  UpdateWhile([] { StateClear(StateKey::kDeviceToken); });

  EXPECT_EQ(Files(), Names{});
  EXPECT_EQ(portal.CallsTo(PhotoPath(second)), 0);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(BrandingMeanwhileTest, APairingEndsTheUpdateOfTheTokenBefore) {
  MakeDirectory();
  WriteText(At("of the new tenant"), "");

  UpdateWhile([] { StateSetString(StateKey::kDeviceToken, "token of a new pairing"); });

  EXPECT_EQ(Files(), Names{"of the new tenant"});
  EXPECT_EQ(portal.CallsTo(PhotoPath(second)), 0);
}

TEST_F(BrandingMeanwhileTest, AMachineIdThatChangesEndsTheUpdate) {
  UpdateWhile([this] { WriteText(config.machineIdPath, "another\n"); });

  EXPECT_EQ(Files(), Names{});
}

TEST_F(BrandingMeanwhileTest, ADirectoryThatVanishesEndsTheUpdate) {
  UpdateWhile([this] { std::filesystem::remove_all(config.brandingDir); });

  EXPECT_FALSE(Exists(config.brandingDir));
  EXPECT_EQ(portal.CallsTo(PhotoPath(second)), 0);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(BrandingMeanwhileTest, ALinkInThePlaceOfTheDirectoryEndsTheUpdate) {
  std::filesystem::create_directory(dir.At("target"));
  WriteText(dir.At("target/file"), "untouched");

  UpdateWhile([this] {
    std::filesystem::remove_all(config.brandingDir);
    std::filesystem::create_symlink(dir.At("target"), config.brandingDir);
  });

  EXPECT_EQ(Files(), Names{"file"});
  EXPECT_EQ(portal.CallsTo(PhotoPath(second)), 0);
}

// With a photo that fails, nothing but the last step looks at what has changed.
TEST_F(BrandingMeanwhileTest, NothingIsSweptOrWrittenWhenTheLastPhotoFailed) {
  const std::function<void()> changes[] = {
      [] { StateSetString(StateKey::kDeviceToken, "token of a new pairing"); },
      [this] { std::filesystem::remove_all(config.brandingDir); }};
  for (const std::function<void()>& change : changes) {
    Enrol();
    MakeDirectory();
    WriteText(At("old"), "");
    portal.AnswersWith(PhotoPath(first), [&change](const PortalCall&) {
      change();
      return Http{.ok = true, .status = 404, .body = {}, .error = {}};
    });

    Update(Branding({first}));

    EXPECT_EQ(Exists(At("old")), Exists(config.brandingDir));
    EXPECT_FALSE(Exists(At("branding.json")));
  }
}

TEST_F(BrandingMeanwhileTest, APhotoThatIsKeptCostsNoExchangeAndTheLastStepStillLooks) {
  UpdateWhile([] {});
  const std::string manifest = ReadText(At("branding.json"));
  StateSetString(StateKey::kDeviceToken, "token of a new pairing");

  Update(Branding({first}, "Another"));

  EXPECT_EQ(ReadText(At("branding.json")), manifest);
  EXPECT_TRUE(Exists(At(second)));
}

}  // namespace
}  // namespace Tarnvale::KioskService

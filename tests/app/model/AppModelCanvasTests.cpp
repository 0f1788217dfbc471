// Canvas backgrounds from real pictures into a real package, the wallpaper
// listings from folders the environment names, and the update checks at
// start.

#include "app/model/AppModelFixture.h"
#include "app/updates/AppUpdateConfiguration.h"
#include "media/PngCodec.h"
#include "media/pictures/CanvasBackgroundServiceError.h"
#include "shared/Sha256.h"

namespace rilo {
namespace {

using namespace std::chrono_literals;
using testing::AppModelTest;
namespace fs = std::filesystem;

testing::RecordedPackage makeProject(ProjectStore& store) {
    testing::RecordedPackageOptions options;
    options.movie.duration = ProjectTime::fromSeconds(4);
    return testing::makeRecordedPackage(store, options);
}

// A picture with a different colour in each corner, so that it is no
// accident of a single colour.
void writePicture(const fs::path& file, int width, int height) {
    std::vector<std::uint8_t> pixels;
    pixels.reserve(static_cast<std::size_t>(width) * height * 4);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            pixels.insert(pixels.end(), {static_cast<std::uint8_t>(x * 255 / width),
                                         static_cast<std::uint8_t>(y * 255 / height), 90, 255});
        }
    }
    fs::create_directories(file.parent_path());
    writeFileAtomically(file, encodePng(width, height, pixels));
}

class AppModelCanvasTest : public AppModelTest {
protected:
    testing::TemporaryDirectory pictures;

    void startModelWith(AppModelEnvironment environment) {
        model = std::make_unique<AppModel>(loop, std::move(environment), false, true);
        ASSERT_TRUE(waitFor([&] { return model->phase().kind != AppModelPhase::Kind::loading; }));
    }
};

TEST_F(AppModelCanvasTest, AnImportedPictureBecomesTheProjectsBackgroundAsOneUndoablePersistedEdit) {
    const testing::RecordedPackage recorded = makeProject(store);
    const ProjectPackage& package = recorded.package;
    startModel();
    open(package);
    TimelineEditingSession& session = *model->timelineSession();
    const CanvasEdit before = session.timeline().canvas;
    ASSERT_EQ(before.image, std::nullopt);

    const fs::path picture = pictures.path() / "beach.png";
    writePicture(picture, 64, 48);
    model->importCanvasBackground(picture);
    EXPECT_TRUE(model->isImportingCanvasBackground());
    ASSERT_TRUE(waitFor([&] { return !model->isImportingCanvasBackground(); }));
    ASSERT_EQ(model->canvasBackgroundMessage(), std::nullopt);
    ASSERT_TRUE(session.timeline().canvas.image.has_value());
    const CanvasBackgroundImage image = *session.timeline().canvas.image;

    // The package owns a JPEG named by the SHA-256 of its bytes.
    const fs::path asset = package.rootURL / image.relativePath;
    ASSERT_TRUE(fs::is_regular_file(asset));
    const std::string digest = sha256Hex(readFileBytes(asset));
    EXPECT_EQ(image.id, digest);
    EXPECT_EQ(image.relativePath, "assets/backgrounds/" + digest + ".jpg");
    EXPECT_EQ(image.pixelSize, PixelSize::unnormalized(64, 48));
    EXPECT_EQ(image.source, CanvasBackgroundImageSource::uploaded);
    EXPECT_EQ(model->canvas()->edit().image, image);
    const auto& assets = model->currentSnapshot()->canvasBackgroundAssets;
    ASSERT_EQ(assets.size(), 1u);
    EXPECT_EQ(assets.front().descriptor, image);
    EXPECT_EQ(assets.front().imageData, readFileBytes(asset));

    // The timeline on disk names it, and a new player draws it.
    ASSERT_TRUE(waitFor([&] { return timelineOnDisk(package).canvas.image == image; }));
    EXPECT_TRUE(waitFor([&] { return isReady(); }));

    // One step back brings the earlier canvas, on disk as well.
    ASSERT_TRUE(session.canUndo());
    session.undo();
    EXPECT_EQ(session.timeline().canvas, before);
    EXPECT_FALSE(session.canUndo());
    ASSERT_TRUE(waitFor([&] { return timelineOnDisk(package).canvas == before; }));

    // Back again, and the project opens anew with its background whole.
    session.redo();
    ASSERT_TRUE(waitFor([&] { return timelineOnDisk(package).canvas.image == image; }));
    ASSERT_EQ(finishEditing(), true);
    open(package);
    EXPECT_EQ(model->timelineSession()->timeline().canvas.image, image);
    EXPECT_EQ(model->canvasBackgroundMessage(), std::nullopt);
    ASSERT_EQ(model->currentSnapshot()->canvasBackgroundAssets.size(), 1u);
    EXPECT_EQ(model->currentSnapshot()->canvasBackgroundAssets.front().descriptor, image);
}

TEST_F(AppModelCanvasTest, AFileThatIsNoPictureLeavesTheCanvasAsItWasAndSaysWhy) {
    const testing::RecordedPackage recorded = makeProject(store);
    const ProjectPackage& package = recorded.package;
    startModel();
    open(package);
    TimelineEditingSession& session = *model->timelineSession();
    const EditTimeline before = session.timeline();
    const std::string digestBefore = store.timelineDigest(package);

    const fs::path notes = pictures.path() / "notes.png";
    writeFileAtomically(notes, "these are notes, not a picture");
    model->importCanvasBackground(notes);
    ASSERT_TRUE(waitFor([&] { return model->canvasBackgroundMessage().has_value(); }));

    EXPECT_EQ(*model->canvasBackgroundMessage(),
              CanvasBackgroundServiceError(CanvasBackgroundServiceErrorCase::unreadableImage).what());
    EXPECT_FALSE(model->isImportingCanvasBackground());
    EXPECT_EQ(session.timeline(), before);
    EXPECT_FALSE(session.canUndo());
    EXPECT_TRUE(model->currentSnapshot()->canvasBackgroundAssets.empty());
    settle(300ms);
    EXPECT_EQ(store.timelineDigest(package), digestBefore);
    EXPECT_FALSE(fs::exists(package.rootURL / "assets/backgrounds"));

    // A later import that works clears the message.
    const fs::path picture = pictures.path() / "good.png";
    writePicture(picture, 20, 10);
    model->importCanvasBackground(picture);
    ASSERT_TRUE(waitFor([&] { return session.timeline().canvas.image.has_value(); }));
    EXPECT_EQ(model->canvasBackgroundMessage(), std::nullopt);
}

TEST_F(AppModelCanvasTest, SystemWallpapersAreListedFromTheFoldersTheEnvironmentNames) {
    const fs::path folder = pictures.path() / "wallpapers";
    writePicture(folder / "Dunes.png", 80, 40);
    writePicture(folder / "Lake.png", 40, 80);
    writeFileAtomically(folder / "Broken.png", "no picture at all");
    AppModelEnvironment environment = this->environment();
    environment.systemWallpaperDirectories = {folder};
    startModelWith(std::move(environment));

    EXPECT_EQ(model->systemCanvasBackgroundStatus(), std::nullopt);
    model->loadSystemCanvasBackgrounds();
    EXPECT_TRUE(model->isLoadingSystemCanvasBackgrounds());
    EXPECT_EQ(model->systemCanvasBackgroundStatus(),
              (CanvasBackgroundListingStatus{"正在读取系统壁纸…", std::nullopt}));
    ASSERT_TRUE(waitFor([&] { return !model->isLoadingSystemCanvasBackgrounds(); }));

    const auto& wallpapers = model->systemCanvasBackgrounds();
    ASSERT_EQ(wallpapers.size(), 2u);
    EXPECT_EQ(wallpapers[0].resourceURL, folder / "Dunes.png");
    EXPECT_EQ(wallpapers[1].resourceURL, folder / "Lake.png");
    EXPECT_EQ(wallpapers[0].title, "Dunes");
    EXPECT_EQ(model->systemCanvasBackgroundStatus(), std::nullopt);

    // A folder emptied since: the list says so, and uploading is still offered.
    fs::remove_all(folder);
    model->loadSystemCanvasBackgrounds();
    ASSERT_TRUE(waitFor([&] { return !model->isLoadingSystemCanvasBackgrounds(); }));
    EXPECT_TRUE(model->systemCanvasBackgrounds().empty());
    EXPECT_EQ(model->systemCanvasBackgroundStatus(),
              (CanvasBackgroundListingStatus{"没有找到本机系统壁纸",
                                             "没有找到本机可用的系统壁纸，你仍可上传图片。"}));

    // No desktop setting is read here: no current wallpaper.
    model->loadDesktopWallpapers();
    EXPECT_EQ(model->desktopWallpaperStatus(),
              (CanvasBackgroundListingStatus{"正在读取当前壁纸…", std::nullopt}));
    ASSERT_TRUE(waitFor([&] { return !model->isLoadingDesktopWallpapers(); }));
    EXPECT_TRUE(model->desktopWallpapers().empty());
    EXPECT_EQ(
        model->desktopWallpaperStatus(),
        (CanvasBackgroundListingStatus{"没有可用的当前壁纸", "当前壁纸不可读取，你仍可上传本机图片。"}));
}

TEST_F(AppModelCanvasTest, ASystemWallpaperBecomesTheBackgroundWithItsFileAsSelection) {
    const fs::path folder = pictures.path() / "wallpapers";
    writePicture(folder / "Dunes.png", 80, 40);
    const testing::RecordedPackage recorded = makeProject(store);
    AppModelEnvironment environment = this->environment();
    environment.systemWallpaperDirectories = {folder};
    startModelWith(std::move(environment));
    open(recorded.package);
    model->loadSystemCanvasBackgrounds();
    ASSERT_TRUE(waitFor([&] { return model->systemCanvasBackgrounds().size() == 1; }));

    const SystemCanvasBackgroundCandidate wallpaper = model->systemCanvasBackgrounds().front();
    model->importCanvasBackground(wallpaper);
    ASSERT_TRUE(waitFor([&] { return timelineOnDisk(recorded.package).canvas.image.has_value(); }));
    const CanvasBackgroundImage image = *timelineOnDisk(recorded.package).canvas.image;
    EXPECT_EQ(image.source, CanvasBackgroundImageSource::desktopWallpaper);
    EXPECT_EQ(image.selectionID, wallpaper.id);
    EXPECT_EQ(image.pixelSize, PixelSize::unnormalized(80, 40));
    EXPECT_TRUE(fs::is_regular_file(recorded.package.rootURL / image.relativePath));
}

TEST_F(AppModelCanvasTest, UpdatesAreCheckedAtStartAndReleaseNotesShownOnlyAfterAnUpdate) {
    app::ReleaseNote note;
    note.version = "1.1.0";
    note.title = "新版本";
    note.sections = {{"改进", {"更快的导出"}}};
    auto environmentFor = [&](const std::string& version) {
        AppModelEnvironment environment = this->environment();
        // Nothing listens there: the silent automatic check fails at once.
        environment.updateFeedURL = "http://127.0.0.1:9/latest.json";
        environment.applicationVersion = version;
        environment.updateTransportLimits = app::standardUpdateTransportLimits();
        environment.openURL = [](const std::string&) {};
        environment.releaseNotes.releases = {note};
        return environment;
    };

    // A fresh installation shows nothing, and neither does its next start.
    startModelWith(environmentFor("1.0.0"));
    ASSERT_NE(model->updateController(), nullptr);
    EXPECT_TRUE(model->updateController()->requestedAutomaticCheck());
    EXPECT_EQ(model->releaseNoteToPresent(), std::nullopt);
    model.reset();
    startModelWith(environmentFor("1.0.0"));
    EXPECT_EQ(model->releaseNoteToPresent(), std::nullopt);
    EXPECT_EQ(model->updateController()->notice(), std::nullopt);

    // After the update to 1.1.0 its notes show once.
    model.reset();
    startModelWith(environmentFor("1.1.0"));
    EXPECT_EQ(model->releaseNoteToPresent(), note);
    model->dismissReleaseNote();
    EXPECT_EQ(model->releaseNoteToPresent(), std::nullopt);
    model.reset();
    startModelWith(environmentFor("1.1.0"));
    EXPECT_EQ(model->releaseNoteToPresent(), std::nullopt);

    // Without a feed this build does not look for updates.
    model.reset();
    startModel();
    EXPECT_EQ(model->updateController(), nullptr);
}

} // namespace
} // namespace rilo

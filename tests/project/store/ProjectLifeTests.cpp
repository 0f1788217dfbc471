#include "project/document/DeviceFrameCatalog.h"
#include "project/document/TimelineCodecs.h"
#include "project/store/ProjectStore.h"
#include "shared/Files.h"
#include "shared/Sha256.h"
#include "support/BuildCatalog.h"
#include "support/PackageFixtures.h"
#include "support/TemporaryDirectory.h"
#include "support/TestPaths.h"
#include "support/Thrown.h"

#include <fstream>
#include <functional>
#include <gtest/gtest.h>

namespace rilo {
namespace {

namespace fs = std::filesystem;

using testing::buildCatalog;

class ProjectLifeTest : public ::testing::Test {
protected:
    testing::TemporaryDirectory root;
    fs::path library = root / "Projects";
    ProjectStore store{library, buildCatalog};

    CaptureSourceDescriptor display() const {
        CaptureSourceDescriptor source;
        source.kind = CaptureSourceKind::display;
        source.nativeID = 2;
        source.title = "显示器";
        source.globalFrame = {0, 0, 1920, 1080};
        source.initialPixelSize = PixelSize(1920, 1080);
        return source;
    }

    static void expectInvalidLocation(const std::function<void()>& operation) {
        const auto error = testing::thrown<ProjectStoreError>(operation);
        ASSERT_TRUE(error) << "the operation was not refused";
        EXPECT_EQ(error->errorCase(), ProjectStoreError::Case::invalidProjectLocation);
        EXPECT_EQ(error->message(), "项目不在 Rilo 项目目录中，拒绝删除。");
    }

    // A new recording of the display with the default options.
    ProjectStore::CreatedProject unfinished() {
        return store.create(display(), RecordingOptions{}, PixelSize(1920, 1080), std::nullopt, std::nullopt);
    }

    // A finished package with a valid timeline over its duration.
    ProjectPackage finishedPackage(ProjectTime duration = ProjectTime::fromSeconds(10)) {
        auto [package, manifest] = unfinished();
        manifest.duration = duration;
        std::ofstream(package.mediaURL()) << "media";
        return store.finish(package, manifest);
    }
};

TEST_F(ProjectLifeTest, CreateLaysOutANewRecordingFramingDevicesByTheirSize) {
    RecordingOptions options;
    const auto [package, manifest] =
        store.create(display(), options, PixelSize(1920, 1080),
                     MicrophoneDeviceDescriptor{"mic", "麦克风", true}, std::nullopt);
    EXPECT_EQ(package.rootURL, library / (manifest.id.string() + ".rilo.tmp"));
    for (const auto& directory : package.creationDirectories()) {
        EXPECT_TRUE(fs::is_directory(directory)) << directory;
    }
    EXPECT_EQ(store.readManifest(package), manifest);
    EXPECT_EQ(manifest.state, ProjectState::recording);
    EXPECT_EQ(manifest.media.tracks, (std::vector<MediaTrack>{{MediaTrackKind::screen, 0},
                                                              {MediaTrackKind::systemAudio, 1},
                                                              {MediaTrackKind::microphone, 2}}));
    EXPECT_EQ(manifest.microphone, (MicrophoneMediaInfo{"mic", "麦克风"}));
    EXPECT_EQ(json::decodeDocument<EditTimeline>(readFileBytes(package.timelineURL())),
              EditTimeline::empty());
    // Unfinished packages are not listed.
    EXPECT_TRUE(store.recentProjects().empty());

    // A webcam takes track one and the audio follows.
    options.capturesSystemAudio = false;
    options.capturesWebcam = true;
    const auto created = store.create(display(), options, PixelSize(1920, 1080), std::nullopt,
                                      WebcamCaptureConfiguration{"cam", "摄像头", PixelSize(1280, 720), 30});
    EXPECT_EQ(created.manifest.media.tracks,
              (std::vector<MediaTrack>{{MediaTrackKind::screen, 0}, {MediaTrackKind::microphone, 2}}));
    EXPECT_EQ(created.manifest.webcam->trackIndex, 1);

    // A device recording gets the default frame of its size.
    options = RecordingOptions{};
    const auto phone = CaptureSourceDescriptor::device("USB1", "手机", PixelSize(1179, 2556));
    const auto framed = store.create(phone, options, PixelSize(1179, 2556), std::nullopt, std::nullopt);
    const auto timeline = json::decodeDocument<EditTimeline>(readFileBytes(framed.package.timelineURL()));
    ASSERT_TRUE(timeline.deviceFrame.has_value());
    EXPECT_TRUE(timeline.deviceFrame->isEnabled);
    EXPECT_EQ(timeline.deviceFrame->assetID, buildCatalog().defaultAssetID(PixelSize(1179, 2556)));

    const auto square = store.create(phone, options, PixelSize(1000, 1000), std::nullopt, std::nullopt);
    EXPECT_FALSE(json::decodeDocument<EditTimeline>(readFileBytes(square.package.timelineURL())).deviceFrame);

    // Without a catalog a device recording is still made, without a frame.
    ProjectStore withoutCatalog(
        library, []() -> const DeviceFrameCatalog& { throw DeviceFrameCatalogError::missingCatalog(); });
    const auto unframed =
        withoutCatalog.create(phone, options, PixelSize(1179, 2556), std::nullopt, std::nullopt);
    EXPECT_FALSE(
        json::decodeDocument<EditTimeline>(readFileBytes(unframed.package.timelineURL())).deviceFrame);
}

TEST_F(ProjectLifeTest, FinishRenamesMarkFailedKeepsTheNameAndDeleteTakesOnlyFinished) {
    auto [package, manifest] = unfinished();
    const fs::path finalURL = library / (manifest.id.string() + ".rilo");
    fs::create_directories(finalURL / "stale");
    std::ofstream(package.mediaURL()) << "media";
    manifest.duration = ProjectTime::fromSeconds(4);

    const ProjectPackage finished = store.finish(package, manifest);
    EXPECT_EQ(finished.rootURL, finalURL);
    EXPECT_FALSE(fs::exists(package.rootURL));
    EXPECT_FALSE(fs::exists(finalURL / "stale"));
    const ProjectManifest written = store.readManifest(finished);
    EXPECT_EQ(written.state, ProjectState::completed);
    EXPECT_EQ(written.duration, ProjectTime::fromSeconds(4));
    EXPECT_EQ(store.project(manifest.id.string().substr(0, 6)), finished);

    // A failed recording keeps its unfinished name.
    const auto [failing, failingManifest] = unfinished();
    store.markFailed(failing, failingManifest, "磁盘已满");
    EXPECT_EQ(store.readManifest(failing).state, ProjectState::failed);
    EXPECT_EQ(store.readManifest(failing).failureReason, "磁盘已满");

    // Only finished packages of the library are deleted.
    const ProjectPackage unfinishedPackage = failing;
    const fs::path outside = root / "Elsewhere" / "6F0C2A4E-1B2D-4C5E-8F70-123456789ABC.rilo";
    fs::create_directories(outside);

    expectInvalidLocation([&] { store.deleteProject(unfinishedPackage); });
    expectInvalidLocation([&] { store.deleteProject(ProjectPackage{outside}); });
    expectInvalidLocation([&] {
        store.deleteProject(ProjectPackage{library / "sub" / ".." / ".." / "Elsewhere" / outside.filename()});
    });
    EXPECT_TRUE(fs::exists(unfinishedPackage.rootURL));
    EXPECT_TRUE(fs::exists(outside));

    store.deleteProject(ProjectPackage{library / "." / finished.rootURL.filename()});
    EXPECT_FALSE(fs::exists(finished.rootURL));
}

// Discarding refuses everything but an unfinished UUID package of the library.
TEST_F(ProjectLifeTest, DiscardAndCleanupTouchOnlyUUIDPackagesOfTheLibrary) {
    const auto recording = unfinished();
    const fs::path notUUID = library / "abc.rilo.tmp";
    fs::create_directories(notUUID);
    const fs::path outside = root / "6F0C2A4E-1B2D-4C5E-8F70-123456789ABC.rilo.tmp";
    fs::create_directories(outside);
    const fs::path link = library / "7F0C2A4E-1B2D-4C5E-8F70-123456789ABC.rilo.tmp";
    fs::create_directory_symlink(outside, link);
    const ProjectPackage finished = finishedPackage();
    const auto blocked = unfinished();
    const fs::path blockedTarget = library / (blocked.manifest.id.string() + ".rilo.discarding");
    fs::create_directories(blockedTarget);

    expectInvalidLocation([&] { store.discardRecording(ProjectPackage{notUUID}); });
    expectInvalidLocation([&] { store.discardRecording(ProjectPackage{outside}); });
    expectInvalidLocation([&] { store.discardRecording(ProjectPackage{link}); });
    expectInvalidLocation([&] { store.discardRecording(finished); });
    expectInvalidLocation([&] { store.discardRecording(blocked.package); });
    for (const fs::path& kept :
         {notUUID, outside, fs::path(link), finished.rootURL, blocked.package.rootURL}) {
        EXPECT_TRUE(fs::exists(fs::symlink_status(kept))) << kept;
    }

    store.discardRecording(recording.package);
    EXPECT_FALSE(fs::exists(recording.package.rootURL));
    EXPECT_FALSE(fs::exists(library / (recording.manifest.id.string() + ".rilo.discarding")));

    // Cleanup removes only real directories named by a UUID.
    const fs::path leftover = library / "6F0C2A4E-1B2D-4C5E-8F70-123456789ABC.rilo.discarding";
    fs::create_directories(leftover / "media");
    const fs::path notUUIDLeftover = library / "abc.rilo.discarding";
    fs::create_directories(notUUIDLeftover);
    const fs::path linkedLeftover = library / "7F0C2A4E-1B2D-4C5E-8F70-123456789ABC.rilo.discarding";
    fs::create_directory_symlink(outside, linkedLeftover);
    store.cleanupDiscardedRecordings();
    EXPECT_FALSE(fs::exists(leftover));
    EXPECT_TRUE(fs::exists(notUUIDLeftover));
    EXPECT_TRUE(fs::is_symlink(linkedLeftover));
    EXPECT_TRUE(fs::exists(outside));
}

TEST_F(ProjectLifeTest, SnapshotsDropChangedBackgroundsAndValidateOnlyWithAKnownDuration) {
    const ProjectPackage package = finishedPackage();
    const std::string image = "\xFF\xD8 not really a jpeg";
    const std::string id = sha256Hex(image);
    CanvasBackgroundImage descriptor{id, "assets/backgrounds/" + id + ".jpg", PixelSize(2, 2),
                                     CanvasBackgroundImageSource::uploaded, std::nullopt};
    auto wrongPath = descriptor;
    wrongPath.relativePath = "assets/backgrounds/../" + id + ".jpg";
    expectInvalidLocation([&] { store.writeCanvasBackgroundAsset({wrongPath, image}, package); });
    expectInvalidLocation([&] { store.writeCanvasBackgroundAsset({descriptor, image + "x"}, package); });

    store.writeCanvasBackgroundAsset({descriptor, image}, package);
    EditTimeline timeline = EditTimeline::empty();
    timeline.canvas.image = descriptor;
    store.writeTimeline(timeline, package);
    const ProjectSnapshot intact = store.loadSnapshot(package);
    ASSERT_EQ(intact.canvasBackgroundAssets.size(), 1u);
    EXPECT_EQ(intact.canvasBackgroundAssets[0].imageData, image);

    // A changed image is left out of the snapshot without failing it.
    writeFileAtomically(package.canvasBackgroundsDirectory() / (id + ".jpg"), "changed");
    const ProjectSnapshot changed = store.loadSnapshot(package);
    EXPECT_TRUE(changed.canvasBackgroundAssets.empty());
    EXPECT_EQ(changed.timeline.canvas.image, descriptor);

    // The timeline is validated only when the duration is known.
    const ProjectPackage known = finishedPackage(ProjectTime::fromSeconds(10));
    EditTimeline beyond = EditTimeline::empty();
    beyond.segments.push_back({Uuid::random(), {ProjectTime::zero(), ProjectTime::fromSeconds(20)}, {}});
    store.writeTimeline(beyond, known);
    EXPECT_THROW(store.loadSnapshot(known), TimelineValidationError);

    const ProjectPackage unknown = finishedPackage(ProjectTime::zero());
    store.writeTimeline(beyond, unknown);
    EXPECT_EQ(store.loadSnapshot(unknown).timeline.segments, beyond.segments);

    // A package without a timeline file gets one segment over the whole source.
    const ProjectPackage missing = finishedPackage(ProjectTime::fromSeconds(3));
    fs::remove(missing.timelineURL());
    const ProjectSnapshot snapshot = store.loadSnapshot(missing);
    ASSERT_EQ(snapshot.timeline.segments.size(), 1u);
    EXPECT_EQ(snapshot.timeline.segments[0].sourceRange.duration, ProjectTime::fromSeconds(3));
    EXPECT_EQ(snapshot.mediaURL(), missing.mediaURL());
}

} // namespace
} // namespace rilo

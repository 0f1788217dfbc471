// Packages made the way a recording makes them, with real media: loading,
// track resolution and recovery of interrupted recordings.

#include "media/FFmpegMediaAssetInspector.h"
#include "project/store/ProjectStore.h"
#include "shared/Files.h"
#include "support/BuildCatalog.h"
#include "support/RecordedPackage.h"
#include "support/TemporaryDirectory.h"

#include <fstream>
#include <gtest/gtest.h>

namespace rilo {
namespace {

namespace fs = std::filesystem;

using testing::buildCatalog;

class ProjectRecoveryTest : public ::testing::Test {
protected:
    testing::TemporaryDirectory root;
    fs::path library = root / "Projects";
    ProjectStore store{library, buildCatalog};
    FFmpegMediaAssetInspector inspector;
};

TEST_F(ProjectRecoveryTest, OnlyPlayableUnfinishedPackagesAreRecoveredWithTheirSamplesCountedAndLoadWhole) {
    testing::RecordedPackageOptions interrupted;
    interrupted.finished = false;
    const auto playable = testing::makeRecordedPackage(store, interrupted);
    testing::makeRecordedPackage(store); // finished: not a candidate

    const RecordingOptions options;
    CaptureSourceDescriptor source;
    source.title = "空";
    const auto empty = store.create(source, options, PixelSize(320, 180), std::nullopt, std::nullopt);
    std::ofstream(empty.package.mediaURL()) << "";
    const auto missing = store.create(source, options, PixelSize(320, 180), std::nullopt, std::nullopt);
    const auto noManifest = testing::makeRecordedPackage(store, interrupted);
    fs::remove(noManifest.package.manifestURL());

    const auto recoverable = store.recoverableProjects(inspector);
    ASSERT_EQ(recoverable.size(), 1u);
    EXPECT_EQ(recoverable[0], playable.package);

    // As after a crash: the manifest still has no counters or cursor assets.
    const auto& recorded = playable;
    ProjectManifest stale = recorded.manifest;
    stale.metrics = RecordingMetrics{};
    stale.cursorAssets.reset();
    stale.duration = ProjectTime::zero();
    store.updateManifest(stale, recorded.package);
    const MediaAssetSummary media = inspector.inspect(recorded.package.mediaURL());
    const ProjectPackage recovered = store.markRecovered(recorded.package, media.duration);
    EXPECT_EQ(recovered.rootURL, library / (recorded.manifest.id.string() + ".rilo"));
    EXPECT_FALSE(fs::exists(recorded.package.rootURL));

    const ProjectManifest manifest = store.readManifest(recovered);
    EXPECT_EQ(manifest.state, ProjectState::recovered);
    EXPECT_EQ(manifest.duration, media.duration);
    EXPECT_EQ(manifest.metrics.mouseEvents, static_cast<std::int64_t>(recorded.mouseEvents.size()));
    EXPECT_EQ(manifest.metrics.geometryRevisions, 1);
    EXPECT_EQ(manifest.metrics.writerStatus, "recoveredFragment");
    EXPECT_EQ(manifest.cursorAssets, std::vector<CursorAssetDescriptor>{recorded.cursorAsset});

    // The recovered package loads whole, its samples and cursor pictures read back from their chunks.
    const ProjectSnapshot snapshot = store.loadSnapshot(recovered);
    EXPECT_EQ(snapshot.manifest, manifest);
    EXPECT_EQ(snapshot.mouseEvents, recorded.mouseEvents);
    EXPECT_EQ(snapshot.geometry, recorded.geometry);
    ASSERT_EQ(snapshot.cursorShapeSamples.size(), 1u);
    EXPECT_EQ(snapshot.cursorShapeSamples[0].assetID, recorded.cursorAsset.id);
    ASSERT_EQ(snapshot.cursorAssets.size(), 1u);
    EXPECT_EQ(snapshot.cursorAssets[0].descriptor, recorded.cursorAsset);
    EXPECT_EQ(snapshot.cursorAssets[0].pngData,
              readFileBytes(recovered.rootURL / recorded.cursorAsset.relativePath));
    ASSERT_EQ(snapshot.timeline.segments.size(), 1u);
    EXPECT_EQ(snapshot.timeline.segments[0].sourceRange.duration, media.duration);
}

} // namespace
} // namespace rilo

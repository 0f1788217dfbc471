// A run of the application model without a display: start-up with a library
// that a crash left behind, editing the recovered project, exporting it.

#include "app/model/AppModelFixture.h"
#include "media/FFmpegMediaAssetInspector.h"
#include "media/MediaProbe.h"
#include "project/engine/TimelineMapper.h"
#include "shared/Files.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace rilo {
namespace {

using namespace std::chrono_literals;
using testing::AppModelTest;
using Kind = AppModelPhase::Kind;

TEST_F(AppModelTest, StartUpRecoversTheInterruptedRecordingAndTheEditorPersistsAndExportsIt) {
    const std::filesystem::path discarded = makeDiscardedRecording();
    const testing::RecordedPackage interrupted = makeInterruptedRecording();

    startModel();
    ASSERT_TRUE(waitFor([&] { return isReady(); }));

    // Start-up: the discarded recording is gone, the interrupted one is the
    // open project, finished under its final name.
    EXPECT_FALSE(std::filesystem::exists(discarded));
    const ProjectSnapshot& shown = *model->currentSnapshot();
    const ProjectPackage recovered{shown.packageURL};
    EXPECT_EQ(shown.manifest.id, interrupted.manifest.id);
    EXPECT_EQ(shown.manifest.state, ProjectState::recovered);
    EXPECT_EQ(recovered.rootURL.extension(), ".rilo");
    EXPECT_TRUE(store.recoverableProjects(FFmpegMediaAssetInspector{}).empty());
    EXPECT_EQ(model->recoverableProjectCount(), 1);
    ASSERT_TRUE(model->currentReport().has_value());
    EXPECT_TRUE(model->currentReport()->recovered);
    EXPECT_EQ(json::decodeDocument<DiagnosticReport>(readFileBytes(recovered.reportURL())),
              *model->currentReport());
    // The first timeline covers the take and zooms in on its clicks.
    TimelineEditingSession& session = *model->timelineSession();
    const EditTimeline first = session.timeline();
    ASSERT_EQ(first.segments.size(), 1u);
    EXPECT_EQ(first.segments[0].sourceRange.duration, shown.manifest.duration);
    EXPECT_FALSE(first.zooms.empty());
    EXPECT_EQ(timelineOnDisk(recovered), first);
    EXPECT_EQ(model->lastPersistedTimelineDigest(), store.timelineDigest(recovered));
    ASSERT_TRUE(waitFor([&] { return listed(recovered).has_value(); }));

    // The media of the project arrives beside it.
    ASSERT_TRUE(waitFor([&] { return mediaLoaded(); }));
    EXPECT_EQ(model->timelineWaveforms().size(), 2u);
    EXPECT_EQ(model->timelineMediaMessage(), std::nullopt);

    // An edit is written, and the digest follows the file.
    const std::string digestBefore = model->lastPersistedTimelineDigest();
    session.split(ProjectTime::fromMilliseconds(1000));
    const EditTimeline edited = session.timeline();
    ASSERT_NE(edited, first);
    ASSERT_TRUE(waitFor([&] { return model->lastPersistedTimelineDigest() != digestBefore; }));
    EXPECT_EQ(timelineOnDisk(recovered), edited);
    EXPECT_EQ(model->lastPersistedTimelineDigest(), store.timelineDigest(recovered));

    // Two quick edits: the file ends with the second.
    session.split(ProjectTime::fromMilliseconds(2000));
    session.select(ProjectTime::fromMilliseconds(1500));
    session.rippleDeleteSelection();
    const EditTimeline last = session.timeline();
    ASSERT_EQ(last.segments.size(), 2u);
    ASSERT_TRUE(waitFor([&] {
        return model->lastPersistedTimelineDigest() == store.timelineDigest(recovered) &&
               timelineOnDisk(recovered) == last;
    }));
    settle(300ms);
    EXPECT_EQ(timelineOnDisk(recovered), last);
    EXPECT_EQ(session.timeline(), last);
    EXPECT_EQ(model->timelineMediaMessage(), std::nullopt);
    // The player follows the cut.
    ASSERT_TRUE(waitFor([&] { return isReady(); }));
    const ProjectTime sequenceDuration = TimelineMapper(last, shown.manifest.duration).sequenceDuration();
    EXPECT_EQ(model->player()->duration(), sequenceDuration);

    // The export reports its way and ends in a file of the edited length.
    std::vector<ExportPhase> phases;
    std::vector<double> progress;
    model->setObserver([&] {
        if (model->isExporting() && model->exportPhase() &&
            (phases.empty() || phases.back() != *model->exportPhase())) {
            phases.push_back(*model->exportPhase());
        }
        if (model->isExporting()) {
            progress.push_back(model->exportProgress());
        }
    });
    const std::filesystem::path target = dataHome / "export.mp4";
    model->startExport(
        target, {ExportResolution::p720, ExportFrameRate::fps30, ExportQuality::compact, ExportCodec::h264});
    EXPECT_TRUE(model->isExporting());
    EXPECT_TRUE(model->exportStartedAt().has_value());
    ASSERT_TRUE(waitFor([&] { return !model->isExporting(); }, 300s));
    EXPECT_EQ(model->exportMessage(), std::nullopt);
    EXPECT_EQ(model->exportPhase(), ExportPhase::completed);
    EXPECT_NE(std::find(phases.begin(), phases.end(), ExportPhase::rendering), phases.end());
    EXPECT_TRUE(std::is_sorted(progress.begin(), progress.end()));
    EXPECT_TRUE(std::any_of(progress.begin(), progress.end(), [](double p) { return p > 0 && p < 1; }));
    const MediaFileInfo exported = probeMediaFile(target);
    EXPECT_TRUE(exported.hasVideoTrack());
    EXPECT_NEAR(exported.duration.seconds(), sequenceDuration.seconds(), 0.1);
}

TEST_F(AppModelTest, ARecordingThatCannotBeRecoveredStaysRecoverableWithTheMessage) {
    const testing::RecordedPackage interrupted = makeInterruptedRecording();
    // Its mouse events can no longer be read.
    for (const auto& entry : std::filesystem::directory_iterator(interrupted.package.eventsDirectory())) {
        writeFileAtomically(entry.path(), "{ not a chunk");
    }

    startModel();

    EXPECT_EQ(model->phase().kind, Kind::idle);
    EXPECT_EQ(model->currentSnapshot(), std::nullopt);
    ASSERT_TRUE(model->projectLibraryMessage().has_value());
    EXPECT_TRUE(model->projectLibraryMessage()->starts_with("项目恢复失败："));
    const std::vector<ProjectPackage> recoverable = store.recoverableProjects(FFmpegMediaAssetInspector{});
    ASSERT_EQ(recoverable.size(), 1u);
    EXPECT_EQ(recoverable[0].rootURL, interrupted.package.rootURL);
    EXPECT_EQ(store.readManifest(interrupted.package).state, ProjectState::recording);
}

} // namespace
} // namespace rilo

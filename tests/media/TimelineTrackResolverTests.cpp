#include "media/TimelineTrackResolver.h"
#include "support/MediaFixture.h"
#include "support/TemporaryDirectory.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>

namespace rilo {
namespace {

using testing::RecordingMovieOptions;
using testing::VideoTrackOptions;

// One recording with every kind of track, written once for the suite: screen
// at 0, webcam at 1, system audio at 2, microphone at 3.
class TimelineTrackResolverTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        directory_ = std::make_unique<testing::TemporaryDirectory>();
        RecordingMovieOptions spec;
        spec.webcam = VideoTrackOptions{PixelSize(160, 120), 30};
        layout_ = testing::writeRecordingMovie(mediaPath(), spec);
    }
    static void TearDownTestSuite() { directory_.reset(); }

    static std::filesystem::path mediaPath() { return *directory_ / "recording.mov"; }

    static ProjectManifest manifest() {
        ProjectManifest manifest;
        layout_.applyTo(manifest);
        return manifest;
    }

    static inline std::unique_ptr<testing::TemporaryDirectory> directory_;
    static inline testing::RecordingMovieLayout layout_;
};

TEST_F(TimelineTrackResolverTest, FindsEveryTrackTheManifestPromises) {
    const auto media = probeMediaFile(mediaPath());
    const auto resolved = TimelineTrackResolver::resolve(mediaPath(), manifest());

    EXPECT_EQ(resolved.screen, media.tracks[0]);
    ASSERT_TRUE(resolved.webcam.has_value());
    EXPECT_EQ(*resolved.webcam, media.tracks[1]);
    ASSERT_EQ(resolved.audioByKind.size(), 2u);
    EXPECT_EQ(resolved.audioByKind[0].first, MediaTrackKind::systemAudio);
    EXPECT_EQ(resolved.audioByKind[0].second, media.tracks[2]);
    EXPECT_EQ(resolved.audioByKind[1].first, MediaTrackKind::microphone);
    EXPECT_EQ(resolved.audioByKind[1].second, media.tracks[3]);

    // A manifest may name fewer tracks than the file holds, in any order.
    ProjectManifest partial = manifest();
    partial.webcam.reset();
    partial.media.tracks = {{MediaTrackKind::microphone, 3}, {MediaTrackKind::screen, 0}};
    const auto fewer = TimelineTrackResolver::resolve(mediaPath(), partial);
    EXPECT_FALSE(fewer.webcam.has_value());
    ASSERT_EQ(fewer.audioByKind.size(), 1u);
    EXPECT_EQ(fewer.audioByKind[0].second.index, 3);
}

TEST_F(TimelineTrackResolverTest, EveryBrokenPromiseIsRefusedWithItsCase) {
    using Case = TimelineTrackResolverError::Case;
    struct Row {
        void (*breakPromise)(ProjectManifest&);
        Case errorCase;
        std::string message;
    };
    const std::vector<Row> rows{
        {[](ProjectManifest& m) { m.media.tracks.back().trackIndex = 4; }, Case::missingTrack,
         "项目媒体缺少 Manifest 指定的第 4 条轨道。"},
        {[](ProjectManifest& m) { m.media.tracks.front().trackIndex = -1; }, Case::missingTrack,
         "项目媒体缺少 Manifest 指定的第 -1 条轨道。"},
        {[](ProjectManifest& m) { m.webcam->trackIndex = 7; }, Case::missingTrack,
         "项目媒体缺少 Manifest 指定的第 7 条轨道。"},
        // System audio pointing at the webcam's video track.
        {[](ProjectManifest& m) {
             m.media.tracks[1] = {MediaTrackKind::systemAudio, 1};
         },
         Case::mediaTypeMismatch, "项目媒体第 1 条轨道类型错误，应为 audio。"},
        {[](ProjectManifest& m) { m.media.tracks[0].trackIndex = 2; }, Case::mediaTypeMismatch,
         "项目媒体第 2 条轨道类型错误，应为 video。"},
        {[](ProjectManifest& m) { m.webcam->trackIndex = 3; }, Case::mediaTypeMismatch,
         "项目媒体第 3 条轨道类型错误，应为 video。"},
        {[](ProjectManifest& m) { m.media.tracks.erase(m.media.tracks.begin()); },
         Case::missingScreenDescription, "Manifest 没有屏幕轨道描述。"},
    };
    for (const Row& row : rows) {
        ProjectManifest broken = manifest();
        row.breakPromise(broken);
        const auto error = testing::thrown<TimelineTrackResolverError>(
            [&] { TimelineTrackResolver::resolve(mediaPath(), broken); });
        ASSERT_TRUE(error) << row.message;
        EXPECT_EQ(error->errorCase(), row.errorCase) << row.message;
        EXPECT_EQ(error->message(), row.message);
    }
}

} // namespace
} // namespace rilo

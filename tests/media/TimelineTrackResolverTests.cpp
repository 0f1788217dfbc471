#include "media/TimelineTrackResolver.h"
#include "support/MediaFixture.h"
#include "support/TemporaryDirectory.h"

#include <fstream>
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

    static TimelineTrackResolverError resolveFailure(const ProjectManifest& manifest) {
        try {
            TimelineTrackResolver::resolve(mediaPath(), manifest);
        } catch (const TimelineTrackResolverError& error) {
            return error;
        }
        throw std::logic_error("the manifest resolved");
    }

    static inline std::unique_ptr<testing::TemporaryDirectory> directory_;
    static inline testing::RecordingMovieLayout layout_;
};

TEST_F(TimelineTrackResolverTest, FindsEveryTrackTheManifestPromises) {
    const auto media = probeMediaFile(mediaPath());
    const auto resolved = TimelineTrackResolver::resolve(mediaPath(), manifest());

    EXPECT_EQ(resolved.screen, media.tracks[0]);
    EXPECT_EQ(resolved.screen.pixelSize, PixelSize(320, 180));
    ASSERT_TRUE(resolved.webcam.has_value());
    EXPECT_EQ(*resolved.webcam, media.tracks[1]);
    EXPECT_EQ(resolved.webcam->pixelSize, PixelSize(160, 120));
    ASSERT_EQ(resolved.audioByKind.size(), 2u);
    EXPECT_EQ(resolved.audioByKind[0].first, MediaTrackKind::systemAudio);
    EXPECT_EQ(resolved.audioByKind[0].second, media.tracks[2]);
    EXPECT_EQ(resolved.audioByKind[1].first, MediaTrackKind::microphone);
    EXPECT_EQ(resolved.audioByKind[1].second, media.tracks[3]);
}

TEST_F(TimelineTrackResolverTest, TakesOnlyWhatTheManifestNames) {
    // A manifest may name fewer tracks than the file holds, in any order.
    ProjectManifest partial = manifest();
    partial.webcam.reset();
    partial.media.tracks = {{MediaTrackKind::microphone, 3}, {MediaTrackKind::screen, 0}};
    const auto resolved = TimelineTrackResolver::resolve(mediaPath(), partial);
    EXPECT_EQ(resolved.screen.index, 0);
    EXPECT_FALSE(resolved.webcam.has_value());
    ASSERT_EQ(resolved.audioByKind.size(), 1u);
    EXPECT_EQ(resolved.audioByKind[0].first, MediaTrackKind::microphone);
    EXPECT_EQ(resolved.audioByKind[0].second.index, 3);
}

TEST_F(TimelineTrackResolverTest, AnIndexPastTheFileIsAMissingTrack) {
    ProjectManifest pastTheEnd = manifest();
    pastTheEnd.media.tracks.back().trackIndex = 4;
    auto error = resolveFailure(pastTheEnd);
    EXPECT_EQ(error.errorCase(), TimelineTrackResolverError::Case::missingTrack);
    EXPECT_EQ(error.index(), 4);
    EXPECT_EQ(error.message(), "项目媒体缺少 Manifest 指定的第 4 条轨道。");

    ProjectManifest negative = manifest();
    negative.media.tracks.front().trackIndex = -1;
    EXPECT_EQ(resolveFailure(negative).message(), "项目媒体缺少 Manifest 指定的第 -1 条轨道。");

    ProjectManifest webcamPastTheEnd = manifest();
    webcamPastTheEnd.webcam->trackIndex = 7;
    error = resolveFailure(webcamPastTheEnd);
    EXPECT_EQ(error.errorCase(), TimelineTrackResolverError::Case::missingTrack);
    EXPECT_EQ(error.message(), "项目媒体缺少 Manifest 指定的第 7 条轨道。");
}

TEST_F(TimelineTrackResolverTest, ATrackOfAnotherMediaTypeIsAMismatch) {
    // System audio pointing at the webcam's video track.
    ProjectManifest audioOnVideo = manifest();
    audioOnVideo.media.tracks[1] = {MediaTrackKind::systemAudio, 1};
    auto error = resolveFailure(audioOnVideo);
    EXPECT_EQ(error.errorCase(), TimelineTrackResolverError::Case::mediaTypeMismatch);
    EXPECT_EQ(error.index(), 1);
    EXPECT_EQ(error.expectedMediaType(), MediaType::audio);
    EXPECT_EQ(error.message(), "项目媒体第 1 条轨道类型错误，应为 audio。");

    // The screen pointing at an audio track.
    ProjectManifest screenOnAudio = manifest();
    screenOnAudio.media.tracks[0].trackIndex = 2;
    error = resolveFailure(screenOnAudio);
    EXPECT_EQ(error.expectedMediaType(), MediaType::video);
    EXPECT_EQ(error.message(), "项目媒体第 2 条轨道类型错误，应为 video。");

    // The webcam pointing at the microphone.
    ProjectManifest webcamOnAudio = manifest();
    webcamOnAudio.webcam->trackIndex = 3;
    EXPECT_EQ(resolveFailure(webcamOnAudio).message(), "项目媒体第 3 条轨道类型错误，应为 video。");
}

TEST_F(TimelineTrackResolverTest, AManifestWithoutAScreenDescriptionIsRefused) {
    ProjectManifest audioOnly = manifest();
    audioOnly.media.tracks = {{MediaTrackKind::systemAudio, 2}, {MediaTrackKind::microphone, 3}};
    auto error = resolveFailure(audioOnly);
    EXPECT_EQ(error.errorCase(), TimelineTrackResolverError::Case::missingScreenDescription);
    EXPECT_EQ(error.message(), "Manifest 没有屏幕轨道描述。");

    ProjectManifest empty = manifest();
    empty.media.tracks.clear();
    EXPECT_EQ(resolveFailure(empty).errorCase(), TimelineTrackResolverError::Case::missingScreenDescription);
}

TEST_F(TimelineTrackResolverTest, AFileThatIsNoMovieFailsBeforeAnyTrackIsLookedAt) {
    const auto notAMovie = *directory_ / "notes.mov";
    std::ofstream(notAMovie) << "plain text";
    try {
        TimelineTrackResolver::resolve(notAMovie, manifest());
        ADD_FAILURE() << "resolved";
    } catch (const MediaProbeError& error) {
        EXPECT_EQ(error.message(), "无法打开项目媒体：" + notAMovie.string());
    }
}

} // namespace
} // namespace rilo

#include "media/MediaProbe.h"
#include "support/MediaFixture.h"
#include "support/TemporaryDirectory.h"
#include "support/Thrown.h"

#include <cmath>
#include <gtest/gtest.h>

namespace rilo {
namespace {

using testing::RecordingMovieOptions;
using testing::VideoTrackOptions;

constexpr std::int64_t oneMillisecond = 1'000'000;

void expectNear(ProjectTime actual, ProjectTime expected, std::int64_t toleranceNanoseconds) {
    EXPECT_LE(std::llabs(actual.nanoseconds - expected.nanoseconds), toleranceNanoseconds)
        << actual.nanoseconds << " ns, expected " << expected.nanoseconds << " ns";
}

TEST(MediaProbe, ReadsTheTracksOfARecordingInTheOrderTheRecorderAddsThem) {
    testing::TemporaryDirectory directory;
    const auto path = directory / "recording.mov";
    RecordingMovieOptions spec;
    spec.webcam = VideoTrackOptions{PixelSize(160, 120), 30};
    const auto layout = testing::writeRecordingMovie(path, spec);

    const MediaFileInfo info = probeMediaFile(path);
    expectNear(info.duration, ProjectTime::fromSeconds(3), 2 * oneMillisecond);
    EXPECT_TRUE(info.hasVideoTrack());
    ASSERT_EQ(info.tracks.size(), 4u);
    for (std::size_t index = 0; index < info.tracks.size(); ++index) {
        EXPECT_EQ(info.tracks[index].index, static_cast<std::int64_t>(index));
        expectNear(info.tracks[index].timeRange.end(), ProjectTime::fromSeconds(3), 2 * oneMillisecond);
    }

    const auto& screen = info.tracks[0];
    EXPECT_EQ(screen.mediaType, MediaType::video);
    EXPECT_EQ(screen.codecName, layout.videoCodecName);
    EXPECT_EQ(screen.pixelSize, PixelSize(320, 180));
    const auto& webcam = info.tracks[1];
    EXPECT_EQ(webcam.mediaType, MediaType::video);
    EXPECT_EQ(webcam.pixelSize, PixelSize(160, 120));
    for (const auto& audio : {info.tracks[2], info.tracks[3]}) {
        EXPECT_EQ(audio.mediaType, MediaType::audio);
        EXPECT_EQ(audio.codecName, "aac");
        EXPECT_EQ(audio.sampleRate, 48'000);
        EXPECT_EQ(audio.channelCount, 2);
    }
}

TEST(MediaProbe, ARecordingCutOffAfterSomeFragmentsKeepsWhatIsWhole) {
    testing::TemporaryDirectory directory;
    const auto path = directory / "interrupted.mov";
    testing::writeRecordingMovie(path);
    std::filesystem::resize_file(path, std::filesystem::file_size(path) * 6 / 10);

    const MediaFileInfo info = probeMediaFile(path);
    EXPECT_TRUE(info.hasVideoTrack());
    ASSERT_EQ(info.tracks.size(), 3u);
    // Fragments close on the keyframes, one a second.
    EXPECT_GE(info.duration, ProjectTime::fromSeconds(1));
    EXPECT_LT(info.duration, ProjectTime::fromSeconds(3));
    EXPECT_EQ(info.tracks[0].timeRange.duration.nanoseconds % 1'000'000'000, 0);
}

TEST(MediaProbe, WhatIsNoReadableMovieCannotBeOpened) {
    testing::TemporaryDirectory directory;
    const auto expectCannotOpen = [](const std::filesystem::path& path) {
        SCOPED_TRACE(path.string());
        const auto error = testing::thrown<MediaProbeError>([&] { probeMediaFile(path); });
        ASSERT_TRUE(error) << "opened";
        EXPECT_EQ(error->errorCase(), MediaProbeError::Case::cannotOpen);
        EXPECT_EQ(error->message(), "无法打开项目媒体：" + path.string());
    };

    expectCannotOpen(directory / "missing.mov");

    // Without fragments the track descriptions come last, so a file that
    // stops halfway has none.
    const auto truncated = directory / "truncated.mov";
    RecordingMovieOptions spec;
    spec.duration = ProjectTime::fromMilliseconds(2'000);
    spec.screen = VideoTrackOptions{PixelSize(640, 360), 25};
    spec.systemAudio.reset();
    spec.microphone.reset();
    spec.fragmented = false;
    testing::writeRecordingMovie(truncated, spec);
    const MediaFileInfo whole = probeMediaFile(truncated);
    ASSERT_EQ(whole.tracks.size(), 1u);
    EXPECT_EQ(whole.tracks[0].pixelSize, PixelSize(640, 360));
    expectNear(whole.duration, ProjectTime::fromSeconds(2), 2 * oneMillisecond);
    std::filesystem::resize_file(truncated, std::filesystem::file_size(truncated) / 2);
    expectCannotOpen(truncated);
}

} // namespace
} // namespace rilo

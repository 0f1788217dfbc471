#include "media/MediaProbe.h"
#include "support/MediaFixture.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <gtest/gtest.h>
#include <numeric>

namespace rilo {
namespace {

using testing::AudioTrackSpec;
using testing::RecordingMovieSpec;
using testing::VideoTrackSpec;

constexpr std::int64_t oneMillisecond = 1'000'000;

void expectNear(ProjectTime actual, ProjectTime expected, std::int64_t toleranceNanoseconds) {
    EXPECT_LE(std::llabs(actual.nanoseconds - expected.nanoseconds), toleranceNanoseconds)
        << actual.nanoseconds << " ns, expected " << expected.nanoseconds << " ns";
}

// The loudest sample between two times of a 48 kHz track.
float peakBetween(const std::vector<float>& samples, double fromSeconds, double toSeconds) {
    const auto from = std::min(samples.size(), static_cast<std::size_t>(fromSeconds * 48'000));
    const auto to = std::min(samples.size(), static_cast<std::size_t>(toSeconds * 48'000));
    float peak = 0;
    for (auto i = from; i < to; ++i) {
        peak = std::max(peak, std::fabs(samples[i]));
    }
    return peak;
}

TEST(MediaProbe, ReadsTheTracksOfARecordingInTheOrderTheRecorderAddsThem) {
    testing::TemporaryDirectory directory;
    const auto path = directory / "recording.mov";
    RecordingMovieSpec spec;
    spec.webcam = VideoTrackSpec{PixelSize(160, 120), 30};
    const auto layout = testing::writeRecordingMovie(path, spec);

    const MediaFileInfo info = probeMediaFile(path);
    expectNear(info.duration, ProjectTime::fromSeconds(3), 2 * oneMillisecond);
    EXPECT_TRUE(info.hasVideoTrack());
    ASSERT_EQ(info.tracks.size(), 4u);
    for (std::size_t index = 0; index < info.tracks.size(); ++index) {
        const auto& track = info.tracks[index];
        SCOPED_TRACE(index);
        EXPECT_EQ(track.index, static_cast<std::int64_t>(index));
        EXPECT_EQ(track.timeRange.start, ProjectTime::zero());
        expectNear(track.timeRange.end(), ProjectTime::fromSeconds(3), 2 * oneMillisecond);
    }

    const auto& screen = info.tracks[0];
    EXPECT_EQ(screen.mediaType, MediaType::video);
    EXPECT_EQ(screen.codecName, layout.videoCodecName);
    EXPECT_EQ(screen.pixelSize, PixelSize(320, 180));
    EXPECT_FALSE(screen.sampleRate.has_value());
    const auto& webcam = info.tracks[1];
    EXPECT_EQ(webcam.mediaType, MediaType::video);
    EXPECT_EQ(webcam.pixelSize, PixelSize(160, 120));
    for (const auto& audio : {info.tracks[2], info.tracks[3]}) {
        EXPECT_EQ(audio.mediaType, MediaType::audio);
        EXPECT_EQ(audio.codecName, "aac");
        EXPECT_EQ(audio.sampleRate, 48'000);
        EXPECT_EQ(audio.channelCount, 2);
        EXPECT_FALSE(audio.pixelSize.has_value());
    }
}

TEST(MediaProbe, FollowsTheSizeRateAndLengthOfTheMovie) {
    testing::TemporaryDirectory directory;
    const auto path = directory / "screen-only.mov";
    RecordingMovieSpec spec;
    spec.duration = ProjectTime::fromMilliseconds(2'000);
    spec.screen = VideoTrackSpec{PixelSize(640, 360), 25};
    spec.systemAudio.reset();
    spec.microphone.reset();
    spec.fragmented = false;
    testing::writeRecordingMovie(path, spec);

    const MediaFileInfo info = probeMediaFile(path);
    ASSERT_EQ(info.tracks.size(), 1u);
    EXPECT_EQ(info.tracks[0].pixelSize, PixelSize(640, 360));
    expectNear(info.duration, ProjectTime::fromSeconds(2), 2 * oneMillisecond);
    // Fifty frames at 25 fps, each showing its own number.
    std::vector<std::int64_t> expected(50);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(testing::readFrameNumbers(path, 0), expected);
}

TEST(MediaProbe, FixturePicturesAndSoundsAreWhereTheyWereAskedFor) {
    testing::TemporaryDirectory directory;
    const auto path = directory / "recording.mov";
    RecordingMovieSpec spec;
    spec.webcam = VideoTrackSpec{PixelSize(160, 120), 30};
    spec.microphone = AudioTrackSpec::speech(std::vector<ProjectTimeRange>{
        {ProjectTime::fromMilliseconds(500), ProjectTime::fromMilliseconds(500)},
        {ProjectTime::fromMilliseconds(2'000), ProjectTime::fromMilliseconds(600)},
    });
    testing::writeRecordingMovie(path, spec);

    std::vector<std::int64_t> frameNumbers(90);
    std::iota(frameNumbers.begin(), frameNumbers.end(), 0);
    EXPECT_EQ(testing::readFrameNumbers(path, 0), frameNumbers);
    EXPECT_EQ(testing::readFrameNumbers(path, 1), frameNumbers);

    const auto systemAudio = testing::readAudioSamples(path, 2);
    EXPECT_NEAR(peakBetween(systemAudio, 0.05, 2.95), 0.3, 0.05);
    // The tone starts at time 0 with a rising sine: priming is not heard.
    EXPECT_NEAR(systemAudio[10], 0.3 * std::sin(2 * 3.141592653589793 * 440 * 10 / 48'000.0), 0.03);

    // Audible inside the ranges, silent outside them (with a margin for the
    // codec's spread at the edges).
    const auto microphone = testing::readAudioSamples(path, 3);
    EXPECT_GT(peakBetween(microphone, 0.55, 0.95), 0.2);
    EXPECT_GT(peakBetween(microphone, 2.05, 2.55), 0.2);
    EXPECT_LT(peakBetween(microphone, 0.0, 0.45), 0.01);
    EXPECT_LT(peakBetween(microphone, 1.05, 1.95), 0.01);
    EXPECT_LT(peakBetween(microphone, 2.65, 3.0), 0.01);
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
        try {
            probeMediaFile(path);
            ADD_FAILURE() << "opened";
        } catch (const MediaProbeError& error) {
            EXPECT_EQ(error.errorCase(), MediaProbeError::Case::cannotOpen);
            EXPECT_EQ(error.message(), "无法打开项目媒体：" + path.string());
        }
    };

    expectCannotOpen(directory / "missing.mov");
    const auto empty = directory / "empty.mov";
    std::ofstream(empty).close();
    expectCannotOpen(empty);
    const auto text = directory / "text.mov";
    std::ofstream(text) << "this is no movie, only a few words of text";
    expectCannotOpen(text);

    // Without fragments the track descriptions come last, so a file that
    // stops halfway has none.
    const auto truncated = directory / "truncated.mov";
    RecordingMovieSpec spec;
    spec.fragmented = false;
    testing::writeRecordingMovie(truncated, spec);
    std::filesystem::resize_file(truncated, std::filesystem::file_size(truncated) / 2);
    expectCannotOpen(truncated);
}

} // namespace
} // namespace rilo

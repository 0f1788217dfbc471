#include "media/VideoTrackDecoder.h"
#include "support/MediaFixture.h"
#include "support/TemporaryDirectory.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

namespace rilo {
namespace {

using testing::RecordingMovieOptions;

constexpr std::int64_t framesPerSecond = 30;
constexpr int pictureWidth = 640;

// The time of frame `index` as the export grid asks for it: whole
// nanoseconds, truncated.
ProjectTime frameTime(std::int64_t index) {
    return ProjectTime{index * 1'000'000'000 / framesPerSecond};
}

// The fixture's screen ramp moves 4 pixels a frame, so the place of its one
// sharp drop in luma tells the frame number (modulo width / 4).
std::int64_t frameNumber(const DecodedVideoFrame& frame) {
    const VideoFramePlanes planes = frame.planes();
    EXPECT_EQ(planes.width, pictureWidth);
    const std::uint8_t* row =
        planes.data[0] + static_cast<std::ptrdiff_t>(planes.height / 2) * planes.strides[0];
    int dropAt = 0;
    int largestDrop = 0;
    for (int x = 1; x < planes.width; ++x) {
        const int drop = row[x - 1] - row[x];
        if (drop > largestDrop) {
            largestDrop = drop;
            dropAt = x;
        }
    }
    return largestDrop < 100 ? 0 : (dropAt + 2) / 4;
}

class VideoTrackDecoderTest : public ::testing::Test {
protected:
    void SetUp() override {
        RecordingMovieOptions options;
        options.screen = {PixelSize(pictureWidth, 360), framesPerSecond};
        options.microphone.reset();
        testing::writeRecordingMovie(path, options);
    }

    std::int64_t numberAt(VideoTrackDecoder& decoder, ProjectTime time) {
        const DecodedVideoFrame* frame = decoder.frameAt(time);
        return frame == nullptr ? -1 : frameNumber(*frame);
    }

    testing::TemporaryDirectory directory;
    std::filesystem::path path = directory / "recording.mov";
};

TEST_F(VideoTrackDecoderTest, AnswersTheLastFrameAtOrBeforeEachTime) {
    VideoTrackDecoder decoder(path, 0);

    EXPECT_EQ(numberAt(decoder, ProjectTime::fromMilliseconds(-500)), 0);
    const DecodedVideoFrame* first = decoder.frameAt(ProjectTime::zero());
    EXPECT_EQ(first->presentationTime(), ProjectTime::zero());
    EXPECT_EQ(first->planes().layout, VideoPixelLayout::yuv420p);
    EXPECT_EQ(first->planes().height, 360);

    // On the grid, just before the next frame, and halfway between frames.
    for (std::int64_t index = 0; index < 40; ++index) {
        EXPECT_EQ(numberAt(decoder, frameTime(index)), index) << "at frame " << index;
        EXPECT_EQ(numberAt(decoder, frameTime(index + 1) - ProjectTime{2}), index) << "before " << index + 1;
    }
    EXPECT_EQ(numberAt(decoder, frameTime(40) + ProjectTime::fromMilliseconds(16)), 40);
    EXPECT_EQ(decoder.frameAt(frameTime(41))->presentationTime(), frameTime(41));

    // A track that ended earlier keeps showing its last frame.
    EXPECT_EQ(numberAt(decoder, ProjectTime::fromSeconds(10)), 89);
    EXPECT_EQ(numberAt(decoder, ProjectTime::fromSeconds(11)), 89);
}

TEST_F(VideoTrackDecoderTest, JumpsBackAndFarAheadLandOnTheRightFrame) {
    VideoTrackDecoder decoder(path, 0);
    EXPECT_EQ(numberAt(decoder, frameTime(2)), 2);
    // Past two keyframes: skipped, not decoded through.
    EXPECT_EQ(numberAt(decoder, frameTime(75) + ProjectTime{5}), 75);
    EXPECT_EQ(numberAt(decoder, frameTime(76)), 76);
    // Back into an earlier second, then within the same second.
    EXPECT_EQ(numberAt(decoder, frameTime(5)), 5);
    EXPECT_EQ(numberAt(decoder, frameTime(44)), 44);
    EXPECT_EQ(numberAt(decoder, frameTime(43)), 43);
    // Back before the first frame after having left it.
    EXPECT_EQ(numberAt(decoder, ProjectTime{-1}), 0);
    EXPECT_EQ(numberAt(decoder, frameTime(1)), 1);
    // Just over a second ahead, from the middle of a second.
    EXPECT_EQ(numberAt(decoder, frameTime(33)), 33);
    EXPECT_EQ(numberAt(decoder, frameTime(33) + ProjectTime::fromMilliseconds(1100)), 66);
}

TEST_F(VideoTrackDecoderTest, AFileCutShortEndsAtItsLastGoodFrame) {
    std::filesystem::resize_file(path, std::filesystem::file_size(path) * 6 / 10);
    VideoTrackDecoder decoder(path, 0);

    const std::int64_t last = numberAt(decoder, ProjectTime::fromSeconds(10));
    EXPECT_GT(last, 10);
    EXPECT_LT(last, 89);
    EXPECT_EQ(numberAt(decoder, frameTime(3)), 3);
    EXPECT_EQ(numberAt(decoder, ProjectTime::fromSeconds(20)), last);
}

TEST_F(VideoTrackDecoderTest, ATrackThatIsNotVideoOrHasNoFrameIsRefused) {
    const auto audioTrack = testing::thrown<VideoTrackDecoderError>([&] { VideoTrackDecoder(path, 1); });
    ASSERT_TRUE(audioTrack);
    EXPECT_EQ(audioTrack->errorCase(), VideoTrackDecoderErrorCase::cannotOpenTrack);
    EXPECT_EQ(audioTrack->message(), "无法读取项目媒体轨道。");
    EXPECT_TRUE(testing::thrown<VideoTrackDecoderError>([&] { VideoTrackDecoder(path, 7); }));

    // The track descriptions survive, but not one picture.
    std::filesystem::resize_file(path, 2'000);
    EXPECT_TRUE(testing::thrown<VideoTrackDecoderError>([&] { VideoTrackDecoder(path, 0); }));
}

} // namespace
} // namespace rilo

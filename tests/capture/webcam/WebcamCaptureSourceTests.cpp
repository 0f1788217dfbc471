#include "capture/CaptureDeviceErrors.h"
#include "capture/MediaTime.h"
#include "capture/webcam/WebcamCaptureSources.h"
#include "support/ProcessRunner.h"
#include "support/TemporaryDirectory.h"
#include "support/Thrown.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace rilo {
namespace {

using namespace std::chrono_literals;

std::int64_t hostNow() {
    return static_cast<std::int64_t>(hostUptimeNanoseconds());
}

// What a source hands over, with the host time each picture arrived.
class Delivery {
public:
    WebcamCaptureSource::FrameHandler frameHandler() {
        return [this](const VideoSampleBuffer& sample) {
            const std::lock_guard lock(mutex_);
            samples_.push_back(sample);
            arrivals_.push_back(hostNow());
            changed_.notify_all();
        };
    }
    WebcamCaptureSource::InterruptionHandler interruptionHandler() {
        return [this](const std::string& message) {
            const std::lock_guard lock(mutex_);
            interruptions_.push_back(message);
            changed_.notify_all();
        };
    }

    bool waitForPictures(std::size_t count, std::chrono::seconds timeout = 10s) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return samples_.size() >= count; });
    }
    bool waitForInterruption(std::chrono::seconds timeout = 10s) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return !interruptions_.empty(); });
    }

    std::vector<VideoSampleBuffer> samples() const {
        const std::lock_guard lock(mutex_);
        return samples_;
    }
    std::vector<std::int64_t> arrivals() const {
        const std::lock_guard lock(mutex_);
        return arrivals_;
    }
    std::vector<std::string> interruptions() const {
        const std::lock_guard lock(mutex_);
        return interruptions_;
    }
    std::size_t pictureCount() const {
        const std::lock_guard lock(mutex_);
        return samples_.size();
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<VideoSampleBuffer> samples_;
    std::vector<std::int64_t> arrivals_;
    std::vector<std::string> interruptions_;
};

// Lets the source deliver for `duration`, then stops it.
void play(WebcamCaptureSource& source, Delivery& delivery, std::chrono::milliseconds duration) {
    source.start(delivery.frameHandler(), delivery.interruptionHandler());
    std::this_thread::sleep_for(duration);
    source.stop();
}

// A short movie of FFmpeg's moving test picture.
std::filesystem::path makeMovie(const testing::TemporaryDirectory& directory, const std::string& size,
                                const std::string& duration) {
    const std::filesystem::path movie = directory / ("webcam-" + size + ".mkv");
    const testing::ProcessResult result = testing::runProcess(
        "/usr/bin/ffmpeg",
        {"-hide_banner", "-loglevel", "error", "-f", "lavfi", "-i", "testsrc2=size=" + size + ":rate=30",
         "-t", duration, "-c:v", "mpeg4", "-q:v", "1", "-pix_fmt", "yuv420p", "-y", movie.string()});
    EXPECT_EQ(result.exitCode, 0) << result.standardError;
    return movie;
}

bool samePixels(const CapturedImage& first, const CapturedImage& second) {
    for (int row = 0; row < first.height; ++row) {
        if (!std::equal(first.planes[0] + row * first.bytesPerRow[0],
                        first.planes[0] + row * first.bytesPerRow[0] + first.width,
                        second.planes[0] + row * second.bytesPerRow[0])) {
            return false;
        }
    }
    return true;
}

TEST(WebcamCaptureSourceTests, PatternDeliversChangingPicturesAtCameraPaceStampedWithTheHostClock) {
    const auto source = makeWebcamCaptureSource("pattern");
    const WebcamCaptureConfiguration configuration = source->configuration();
    EXPECT_EQ(configuration.pixelSize, PixelSize(1280, 720));
    EXPECT_EQ(configuration.framesPerSecond, 30);

    Delivery delivery;
    const std::int64_t startedAt = hostNow();
    play(*source, delivery, 1500ms);
    const auto samples = delivery.samples();
    const auto arrivals = delivery.arrivals();

    // About 45 pictures; a source that doesn't wait would give hundreds.
    ASSERT_GE(samples.size(), 20u);
    EXPECT_LE(samples.size(), 60u);
    for (std::size_t index = 0; index < samples.size(); ++index) {
        const VideoSampleBuffer& sample = samples[index];
        ASSERT_TRUE(sample.isValid());
        ASSERT_TRUE(sample.image);
        EXPECT_EQ(sample.image->width, 1280);
        EXPECT_EQ(sample.image->height, 720);
        ASSERT_NE(sample.image->planes[0], nullptr);
        const std::int64_t stamp = nanosecondsFromMediaTime(sample.presentationTime);
        EXPECT_GE(stamp, startedAt);
        EXPECT_LE(stamp, arrivals[index]);
        if (index > 0) {
            EXPECT_LT(nanosecondsFromMediaTime(samples[index - 1].presentationTime), stamp);
        }
    }
    const double seconds = static_cast<double>(nanosecondsFromMediaTime(samples.back().presentationTime) -
                                               nanosecondsFromMediaTime(samples.front().presentationTime)) /
                           1e9;
    EXPECT_NEAR(static_cast<double>(samples.size() - 1) / seconds, 30.0, 6.0);
    EXPECT_FALSE(samePixels(*samples.front().image, *samples.back().image));
}

TEST(WebcamCaptureSourceTests, FilePlaysInALoopAtItsOwnPaceAndSize) {
    const testing::TemporaryDirectory directory;
    const auto movie = makeMovie(directory, "960x540", "0.5");
    const auto source = makeWebcamCaptureSource("file:" + movie.string());
    const WebcamCaptureConfiguration configuration = source->configuration();
    EXPECT_EQ(configuration.deviceID, "file:" + movie.string());
    EXPECT_EQ(configuration.pixelSize, PixelSize(960, 540));
    EXPECT_EQ(configuration.framesPerSecond, 30);

    Delivery delivery;
    play(*source, delivery, 2000ms);
    const auto samples = delivery.samples();

    // The movie has 15 pictures; two seconds at its pace are about 60.
    EXPECT_GT(samples.size(), 25u);
    EXPECT_LE(samples.size(), 80u);
    EXPECT_TRUE(delivery.interruptions().empty());
    for (std::size_t index = 1; index < samples.size(); ++index) {
        EXPECT_LT(samples[index - 1].presentationTime, samples[index].presentationTime);
    }
    ASSERT_FALSE(samples.empty());
    EXPECT_EQ(samples.back().image->width, 960);
    EXPECT_EQ(samples.back().image->height, 540);
}

TEST(WebcamCaptureSourceTests, PicturesOfOddEdgesArriveAtTheEvenSizeReported) {
    const testing::TemporaryDirectory directory;
    const auto movie = makeMovie(directory, "321x181", "0.2");
    const auto source = makeWebcamCaptureSource("file:" + movie.string());
    EXPECT_EQ(source->configuration().pixelSize, PixelSize(320, 180));

    Delivery delivery;
    source->start(delivery.frameHandler(), delivery.interruptionHandler());
    ASSERT_TRUE(delivery.waitForPictures(2));
    source->stop();
    const auto image = delivery.samples().front().image;
    EXPECT_EQ(image->width, 320);
    EXPECT_EQ(image->height, 180);
    EXPECT_GE(image->bytesPerRow[0], 320);
}

TEST(WebcamCaptureSourceTests, DevicesThatCantBeReadAreReportedByName) {
    const testing::TemporaryDirectory directory;
    const std::filesystem::path notAMovie = directory / "notes.txt";
    std::ofstream(notAMovie) << "not a movie";

    EXPECT_EQ(testing::thrownMessage<WebcamCaptureError>(
                  [] { makeWebcamCaptureSource("/dev/video-rilo-missing"); }),
              "摄像头“/dev/video-rilo-missing”当前不可用。");
    EXPECT_EQ(testing::thrownMessage<WebcamCaptureError>(
                  [&] { makeWebcamCaptureSource("file:" + (directory / "missing.mkv").string()); }),
              "摄像头“" + (directory / "missing.mkv").string() + "”当前不可用。");
    EXPECT_EQ(testing::thrownCase<WebcamCaptureError>(
                  [&] { makeWebcamCaptureSource("file:" + notAMovie.string()); }),
              WebcamCaptureErrorCase::deviceUnavailable);
    // A node that exists but is no camera.
    EXPECT_EQ(testing::thrownCase<WebcamCaptureError>([] { makeWebcamCaptureSource("/dev/null"); }),
              WebcamCaptureErrorCase::cannotStart);
}

TEST(WebcamCaptureSourceTests, NoPictureArrivesAfterStopAndAStoppedSourceStartsAgain) {
    const auto source = makeWebcamCaptureSource("pattern");
    Delivery delivery;
    source->start(delivery.frameHandler(), delivery.interruptionHandler());
    ASSERT_TRUE(delivery.waitForPictures(3));

    const auto stopBegan = std::chrono::steady_clock::now();
    source->stop();
    EXPECT_LT(std::chrono::steady_clock::now() - stopBegan, 1s);
    const std::size_t countAtStop = delivery.pictureCount();
    source->stop();
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(delivery.pictureCount(), countAtStop);

    source->start(delivery.frameHandler(), delivery.interruptionHandler());
    EXPECT_TRUE(delivery.waitForPictures(countAtStop + 3));
    source->stop();
    EXPECT_TRUE(delivery.interruptions().empty());
}

TEST(WebcamCaptureSourceTests, AHandlerThatStopsTheSourceGetsNoFurtherPicture) {
    const auto source = makeWebcamCaptureSource("pattern");
    Delivery delivery;
    const auto record = delivery.frameHandler();
    source->start(
        [&](const VideoSampleBuffer& sample) {
            record(sample);
            source->stop();
        },
        delivery.interruptionHandler());
    ASSERT_TRUE(delivery.waitForPictures(1));
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(delivery.pictureCount(), 1u);
}

TEST(WebcamCaptureSourceTests, AFileThatGoesAwayWhilePlayingInterruptsOnceThenStaysQuiet) {
    const testing::TemporaryDirectory directory;
    const auto movie = makeMovie(directory, "960x540", "0.5");
    const auto source = makeWebcamCaptureSource("file:" + movie.string());
    Delivery delivery;
    source->start(delivery.frameHandler(), delivery.interruptionHandler());
    ASSERT_TRUE(delivery.waitForPictures(2));
    std::filesystem::resize_file(movie, 0);

    ASSERT_TRUE(delivery.waitForInterruption());
    const std::size_t countAtInterruption = delivery.pictureCount();
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(delivery.pictureCount(), countAtInterruption);
    EXPECT_EQ(delivery.interruptions(), std::vector<std::string>{"摄像头捕获会话发生运行错误"});
    source->stop();
}

} // namespace
} // namespace rilo

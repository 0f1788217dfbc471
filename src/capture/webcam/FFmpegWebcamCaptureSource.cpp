#include "capture/webcam/FFmpegWebcamCaptureSource.h"

#include "capture/MediaTime.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <new>
#include <optional>
#include <stdexcept>
#include <utility>

namespace rilo::webcam {
namespace {

constexpr const char* runtimeErrorMessage = "摄像头捕获会话发生运行错误";

constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;
// How long a live device's read waits before asking again.
constexpr std::chrono::milliseconds deviceIdleWait{2};
// At most this many pictures a device held before start() are skipped.
constexpr int mostHeldPictures = 64;

std::int64_t hostNow() noexcept {
    return static_cast<std::int64_t>(hostUptimeNanoseconds());
}

// Sleeps until `duration` has passed or a stop is requested.
void sleepFor(std::chrono::nanoseconds duration, std::stop_token stopToken) {
    std::mutex mutex;
    std::condition_variable_any wakeUp;
    std::unique_lock lock(mutex);
    wakeUp.wait_for(lock, stopToken, duration, [] { return false; });
}

// Tells from a device's first picture whether its time stamps are host clock
// times: a V4L2 driver stamps with CLOCK_MONOTONIC, but some stamp with the
// wall clock or not at all. A time stamp within the last ten seconds of the
// host clock counts as one.
class DeviceCaptureTimes {
public:
    std::int64_t captureTime(std::optional<std::int64_t> deviceNanoseconds, std::int64_t arrivalNanoseconds) {
        if (!usesHostClock_) {
            usesHostClock_ = deviceNanoseconds &&
                             *deviceNanoseconds <= arrivalNanoseconds + nanosecondsPerSecond &&
                             *deviceNanoseconds >= arrivalNanoseconds - 10 * nanosecondsPerSecond;
        }
        if (*usesHostClock_ && deviceNanoseconds) {
            return std::min(*deviceNanoseconds, arrivalNanoseconds);
        }
        return arrivalNanoseconds;
    }

private:
    std::optional<bool> usesHostClock_;
};

// Hands pictures over at the pace of their time stamps, as a camera would.
// A picture without a usable time stamp (the first after a rewind, say)
// follows its predecessor by one nominal frame. Having fallen behind, the
// pacer starts afresh from now instead of hurrying to catch up.
class RealTimePacer {
public:
    explicit RealTimePacer(std::int64_t nominalIntervalNanoseconds)
        : nominalIntervalNanoseconds_(nominalIntervalNanoseconds) {}

    // Waits for the picture's turn; answers the host time it is handed over.
    std::int64_t waitForTurn(std::optional<std::int64_t> presentationNanoseconds, std::stop_token stopToken) {
        if (!hasStarted_) {
            hasStarted_ = true;
            deadline_ = hostNow();
        } else {
            std::int64_t interval = nominalIntervalNanoseconds_;
            if (hasPreviousPresentation_ && presentationNanoseconds) {
                const std::int64_t step = *presentationNanoseconds - previousPresentation_;
                if (step > 0 && step < nanosecondsPerSecond) {
                    interval = step;
                }
            }
            deadline_ += interval;
        }
        hasPreviousPresentation_ = presentationNanoseconds.has_value();
        previousPresentation_ = presentationNanoseconds.value_or(0);

        const std::int64_t now = hostNow();
        if (deadline_ > now) {
            sleepFor(std::chrono::nanoseconds(deadline_ - now), stopToken);
        } else if (now - deadline_ > lagToleranceNanoseconds) {
            deadline_ = now;
        }
        return hostNow();
    }

    // The next picture starts a new pass through the input.
    void restartPass() noexcept { hasPreviousPresentation_ = false; }

private:
    static constexpr std::int64_t lagToleranceNanoseconds = 100'000'000;

    std::int64_t nominalIntervalNanoseconds_;
    bool hasStarted_ = false;
    std::int64_t deadline_ = 0;
    bool hasPreviousPresentation_ = false;
    std::int64_t previousPresentation_ = 0;
};

// Wraps decoded pictures as captured images of one size, scaling those of
// another size (a device that gave a size it was not asked for, a file
// that changes size or has odd edges).
class PictureConformer {
public:
    explicit PictureConformer(PixelSize size)
        : width_(static_cast<int>(size.width))
        , height_(static_cast<int>(size.height)) {}

    std::shared_ptr<const CapturedImage> image(Frame picture) {
        if (picture->width != width_ || picture->height != height_) {
            picture = scaled(*picture);
        }
        const std::shared_ptr<const AVFrame> owner(picture.release(), ffmpeg::FrameDeleter{});
        auto image = std::make_shared<CapturedImage>();
        image->width = owner->width;
        image->height = owner->height;
        image->pixelFormat = owner->format;
        for (std::size_t plane = 0; plane < image->planes.size(); ++plane) {
            image->planes[plane] = owner->data[plane];
            image->bytesPerRow[plane] = owner->linesize[plane];
        }
        image->owner = owner;
        return image;
    }

private:
    Frame scaled(const AVFrame& picture) {
        const auto inputFormat = static_cast<AVPixelFormat>(picture.format);
        const AVPixelFormat outputFormat =
            sws_isSupportedOutput(inputFormat) > 0 ? inputFormat : AV_PIX_FMT_YUV420P;
        scaler_.reset(sws_getCachedContext(scaler_.release(), picture.width, picture.height, inputFormat,
                                           width_, height_, outputFormat, SWS_BILINEAR, nullptr, nullptr,
                                           nullptr));
        if (!scaler_) {
            throw std::runtime_error("no scaler for the pictures");
        }
        Frame output(av_frame_alloc());
        if (!output) {
            throw std::bad_alloc();
        }
        output->width = width_;
        output->height = height_;
        output->format = outputFormat;
        if (av_frame_get_buffer(output.get(), 0) < 0 || av_frame_copy_props(output.get(), &picture) < 0) {
            throw std::bad_alloc();
        }
        sws_scale(scaler_.get(), picture.data, picture.linesize, 0, picture.height, output->data,
                  output->linesize);
        return output;
    }

    int width_;
    int height_;
    Scaler scaler_;
};

Frame newFrame() {
    Frame frame(av_frame_alloc());
    if (!frame) {
        throw std::bad_alloc();
    }
    return frame;
}

} // namespace

FFmpegWebcamCaptureSource::FFmpegWebcamCaptureSource(std::unique_ptr<WebcamInput> input,
                                                     WebcamCaptureConfiguration configuration, Pacing pacing)
    : input_(std::move(input))
    , configuration_(std::move(configuration))
    , pacing_(pacing) {}

FFmpegWebcamCaptureSource::~FFmpegWebcamCaptureSource() {
    stop();
    const std::lock_guard lock(lifecycleMutex_);
    if (thread_.joinable()) {
        // Destroyed by its own handler: the loop touches nothing of the
        // source once that handler returns.
        thread_.detach();
    }
}

void FFmpegWebcamCaptureSource::start(FrameHandler handler, InterruptionHandler interruptionHandler) {
    for (;;) {
        stop();
        const std::lock_guard lock(lifecycleMutex_);
        if (thread_.get_id() == std::this_thread::get_id()) {
            throw std::logic_error("a webcam source can't be started from its own handler");
        }
        if (!thread_.joinable()) {
            thread_ = std::jthread(
                [this, handler = std::move(handler), interruptionHandler = std::move(interruptionHandler)](
                    std::stop_token stopToken) { deliverPictures(stopToken, handler, interruptionHandler); });
            return;
        }
    }
}

void FFmpegWebcamCaptureSource::stop() {
    std::jthread thread;
    {
        const std::lock_guard lock(lifecycleMutex_);
        if (!thread_.joinable()) {
            return;
        }
        thread_.request_stop();
        if (thread_.get_id() == std::this_thread::get_id()) {
            // Asked by a handler: the loop ends as soon as that handler
            // returns, and a later stop() or the destructor joins it.
            return;
        }
        thread = std::move(thread_);
    }
    thread.join();
}

void FFmpegWebcamCaptureSource::deliverPictures(std::stop_token stopToken, const FrameHandler& frameHandler,
                                                const InterruptionHandler& interruptionHandler) {
    try {
        PictureConformer conformer(configuration_.pixelSize);
        DeviceCaptureTimes deviceTimes;
        RealTimePacer pacer(nanosecondsPerSecond / std::max<std::int64_t>(configuration_.framesPerSecond, 1));
        // A device fills its buffers while nobody reads; those pictures are
        // older than the recording and are passed over.
        bool skipsHeldPictures = pacing_ == Pacing::liveDevice;
        int skippedPictures = 0;
        bool hasPictureSinceRewind = false;
        Frame picture = newFrame();

        while (!stopToken.stop_requested()) {
            const WebcamInput::ReadResult result = input_->read(*picture);
            if (result == WebcamInput::ReadResult::notYet) {
                skipsHeldPictures = false;
                sleepFor(deviceIdleWait, stopToken);
                continue;
            }
            if (result == WebcamInput::ReadResult::endOfStream) {
                // A camera that ends is gone; a file without a single picture can't loop.
                if (pacing_ == Pacing::liveDevice || !hasPictureSinceRewind) {
                    throw std::runtime_error("the input ended");
                }
                input_->rewind();
                pacer.restartPass();
                hasPictureSinceRewind = false;
                continue;
            }
            hasPictureSinceRewind = true;
            if (skipsHeldPictures && skippedPictures < mostHeldPictures) {
                ++skippedPictures;
                continue;
            }
            skipsHeldPictures = false;

            const std::optional<std::int64_t> presentation = input_->presentationNanoseconds(*picture);
            const std::int64_t captureTime = pacing_ == Pacing::liveDevice
                                                 ? deviceTimes.captureTime(presentation, hostNow())
                                                 : pacer.waitForTurn(presentation, stopToken);
            if (stopToken.stop_requested()) {
                break;
            }
            const VideoSampleBuffer sample{
                MediaTime::nanoseconds(captureTime), conformer.image(std::move(picture)), {}};
            picture = newFrame();
            frameHandler(sample);
        }
    } catch (...) {
        if (!stopToken.stop_requested() && interruptionHandler) {
            try {
                interruptionHandler(runtimeErrorMessage);
            } catch (...) {
                // The handler's own trouble can't be reported anywhere else.
            }
        }
    }
}

} // namespace rilo::webcam

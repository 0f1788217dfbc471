#include "capture/webcam/WebcamCaptureSources.h"

#include "capture/CaptureDeviceErrors.h"
#include "capture/webcam/FFmpegWebcamCaptureSource.h"
#include "capture/webcam/V4l2Devices.h"
#include "capture/webcam/WebcamInput.h"

#include <cerrno>
#include <cmath>
#include <filesystem>
#include <string_view>

namespace rilo {
namespace {

using webcam::FFmpegWebcamCaptureSource;
using webcam::WebcamInput;
using webcam::WebcamInputError;
using webcam::WebcamInputRequest;

constexpr std::string_view patternDevice = "pattern";
constexpr std::string_view filePrefix = "file:";
constexpr std::int64_t defaultFramesPerSecond = 30;

struct CameraSize {
    int width;
    int height;
};
// The sizes a camera is asked for, the preferred first.
constexpr CameraSize cameraSizes[] = {{1280, 720}, {960, 540}};

std::int64_t roundedFramesPerSecond(const WebcamInput& input) {
    const auto rate = input.framesPerSecond();
    if (!rate || !std::isfinite(*rate) || *rate < 1 || *rate > 1000) {
        return defaultFramesPerSecond;
    }
    return std::llround(*rate);
}

std::unique_ptr<WebcamCaptureSource> makePatternSource() {
    const PixelSize size(1280, 720);
    std::unique_ptr<WebcamInput> input;
    try {
        input = std::make_unique<WebcamInput>(WebcamInputRequest{
            .formatName = "lavfi",
            .url = "testsrc2=size=1280x720:rate=30",
            .options = {},
            .nonBlocking = false,
            .probesStreams = false,
        });
    } catch (const WebcamInputError&) {
        throw WebcamCaptureError::cannotStart();
    }
    WebcamCaptureConfiguration configuration{
        .deviceID = std::string(patternDevice),
        .deviceName = std::string(patternDevice),
        .pixelSize = size,
        .framesPerSecond = defaultFramesPerSecond,
    };
    return std::make_unique<FFmpegWebcamCaptureSource>(std::move(input), std::move(configuration),
                                                       FFmpegWebcamCaptureSource::Pacing::realTimePlayback);
}

std::unique_ptr<WebcamCaptureSource> makeFileSource(const std::string& device, const std::string& path) {
    std::unique_ptr<WebcamInput> input;
    try {
        input = std::make_unique<WebcamInput>(WebcamInputRequest{
            .formatName = {},
            .url = path,
            .options = {},
            .nonBlocking = false,
            .probesStreams = true,
        });
    } catch (const WebcamInputError&) {
        throw WebcamCaptureError::deviceUnavailable(path);
    }
    if (input->width() <= 0 || input->height() <= 0) {
        throw WebcamCaptureError::deviceUnavailable(path);
    }
    // Encoders need even edges; pictures of odd ones are scaled to fit.
    WebcamCaptureConfiguration configuration{
        .deviceID = device,
        .deviceName = std::filesystem::path(path).filename().string(),
        .pixelSize = PixelSize(input->width(), input->height()),
        .framesPerSecond = roundedFramesPerSecond(*input),
    };
    return std::make_unique<FFmpegWebcamCaptureSource>(std::move(input), std::move(configuration),
                                                       FFmpegWebcamCaptureSource::Pacing::realTimePlayback);
}

std::unique_ptr<WebcamCaptureSource> makeCameraSource(const std::string& path) {
    std::error_code error;
    if (!std::filesystem::exists(path, error)) {
        throw WebcamCaptureError::deviceUnavailable(path);
    }
    const auto descriptor = webcam::v4l2CaptureDevice(path);

    // The driver answers a size it can't give with the nearest it can; such
    // a camera is asked for the smaller size, and what it gives then is
    // scaled to that.
    std::unique_ptr<WebcamInput> input;
    PixelSize size;
    for (const CameraSize& candidate : cameraSizes) {
        // The device takes one reader at a time.
        input.reset();
        try {
            input = std::make_unique<WebcamInput>(WebcamInputRequest{
                .formatName = "video4linux2",
                .url = path,
                .options =
                    {
                        {"video_size",
                         std::to_string(candidate.width) + "x" + std::to_string(candidate.height)},
                        // The kernel's own time stamps, which are CLOCK_MONOTONIC
                        // times for almost every driver; the other modes move
                        // them to the wall clock.
                        {"timestamps", "default"},
                    },
                // Reads must not wait for a camera that stalls, so that stop() is prompt.
                .nonBlocking = true,
                .probesStreams = false,
            });
        } catch (const WebcamInputError& failure) {
            if (failure.code() == AVERROR(ENOENT) || failure.code() == AVERROR(ENODEV)) {
                throw WebcamCaptureError::deviceUnavailable(path);
            }
            continue;
        }
        size = PixelSize(candidate.width, candidate.height);
        if (input->width() == candidate.width && input->height() == candidate.height) {
            break;
        }
    }
    if (!input) {
        throw WebcamCaptureError::cannotStart();
    }
    WebcamCaptureConfiguration configuration{
        .deviceID = path,
        .deviceName = descriptor ? descriptor->name : path,
        .pixelSize = size,
        .framesPerSecond = roundedFramesPerSecond(*input),
    };
    return std::make_unique<FFmpegWebcamCaptureSource>(std::move(input), std::move(configuration),
                                                       FFmpegWebcamCaptureSource::Pacing::liveDevice);
}

} // namespace

std::unique_ptr<WebcamCaptureSource> makeWebcamCaptureSource(const std::string& device) {
    if (device == patternDevice) {
        return makePatternSource();
    }
    if (device.starts_with(filePrefix)) {
        return makeFileSource(device, device.substr(filePrefix.size()));
    }
    return makeCameraSource(device);
}

} // namespace rilo

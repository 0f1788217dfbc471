#pragma once

// The platform's stream of screen frames for one source. One implementation
// per windowing system.
//
// Contract:
// - startCapture() begins delivering and returns once the first frame is
//   under way or the stream has failed (throwing the failure). Frames go to
//   the output on the stream's own thread, one at a time, at most at the
//   configured rate. A frame the stream could not take in time is delivered
//   without an image, so that it is counted as dropped.
// - Each frame's presentation time is on the host clock
//   (hostUptimeNanoseconds), and its attachments say where it lies.
// - The cursor is never drawn into the pictures.
// - A failure after start goes once to streamDidStop and delivery ends.
// - stopCapture() returns once the output will not be called again; it may
//   be called more than once.

#include "capture/CaptureSampleBuffers.h"
#include "shared/Geometry.h"

#include <cstdint>
#include <exception>
#include <optional>

namespace rilo {

struct ScreenStreamConfiguration {
    PixelSize size; // encoded size; pictures are scaled to fit with their aspect kept
    std::int64_t framesPerSecond = 60;
    std::int64_t queueDepth = 5;         // pictures that may be in use at once
    std::optional<RectValue> sourceRect; // an area of the display, in its points
};

class ScreenCaptureStreamOutput {
public:
    virtual ~ScreenCaptureStreamOutput() = default;
    virtual void streamDidOutputScreenFrame(const VideoSampleBuffer& sample) = 0;
    virtual void streamDidStop(std::exception_ptr error) = 0;
};

class ScreenCaptureStream {
public:
    virtual ~ScreenCaptureStream() = default;
    virtual void startCapture(const ScreenStreamConfiguration& configuration,
                              ScreenCaptureStreamOutput& output) = 0;
    virtual void stopCapture() = 0;
};

// What the platform tells about the source while it is recorded.
class CaptureSourceMonitor {
public:
    virtual ~CaptureSourceMonitor() = default;
    // A window source's frame on the desktop now, in global points; nothing
    // when it can't be had (the window is gone).
    virtual std::optional<RectValue> currentWindowFrame() = 0;
    // The display of an area source now: its size in points and its pixel
    // scale; nothing when it is gone.
    struct DisplayState {
        SizeValue size;
        double pointPixelScale = 1;
    };
    virtual std::optional<DisplayState> currentDisplay() = 0;
};

} // namespace rilo

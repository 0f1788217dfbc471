#pragma once

// The webcam of a recording. One implementation per kind of device: a V4L2
// camera, and sources that play a file or a pattern at the camera's pace
// (for machines without a camera, and for tests).
//
// Contract:
// - The source is opened when it is made (throwing WebcamCaptureError), so
//   that configuration() is known before the recording starts.
// - start() begins delivering frames; the handler is called on the source's
//   own thread with each picture, stamped with the host clock time
//   (hostUptimeNanoseconds) at which it was captured.
// - Trouble after start goes to the interruption handler as a message; the
//   source keeps trying or goes quiet, it never ends the recording.
// - stop() returns once the handler will not be called again; it may be
//   called more than once.

#include "capture/CaptureSampleBuffers.h"
#include "project/document/CaptureSamples.h"

#include <functional>
#include <string>

namespace rilo {

class WebcamCaptureSource {
public:
    using FrameHandler = std::function<void(const VideoSampleBuffer&)>;
    using InterruptionHandler = std::function<void(const std::string& message)>;

    virtual ~WebcamCaptureSource() = default;

    virtual WebcamCaptureConfiguration configuration() const = 0;
    virtual void start(FrameHandler handler, InterruptionHandler interruptionHandler) = 0;
    virtual void stop() = 0;
};

} // namespace rilo

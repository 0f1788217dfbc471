#pragma once

// A webcam read from an FFmpeg input on a thread of its own, behind the
// WebcamCaptureSource contract.
//
// - A live device's pictures carry the time the device took them when it
//   stamps them with the host clock (V4L2 drivers stamp with CLOCK_MONOTONIC),
//   else the time they arrived. Pictures the device held before start() are
//   skipped.
// - A file or a pattern is played at its own pace from start() on, in a loop,
//   and each picture carries the host time it is handed over.
// - Every picture is handed over at the configuration's pixel size, in the
//   pixel format the input decodes to.
// - A failing read, an input that ends, or a frame handler that throws ends
//   the delivery: the interruption handler hears of it once, and the source
//   stays quiet until it is stopped.

#include "capture/WebcamCaptureSource.h"
#include "capture/webcam/WebcamInput.h"

#include <memory>
#include <mutex>
#include <stop_token>
#include <thread>

namespace rilo::webcam {

class FFmpegWebcamCaptureSource final : public WebcamCaptureSource {
public:
    enum class Pacing { liveDevice, realTimePlayback };

    FFmpegWebcamCaptureSource(std::unique_ptr<WebcamInput> input, WebcamCaptureConfiguration configuration,
                              Pacing pacing);
    ~FFmpegWebcamCaptureSource() override;

    WebcamCaptureConfiguration configuration() const override { return configuration_; }
    // Starting a source that runs first stops it, then delivers to the new
    // handlers; a stopped source starts again where it left off.
    void start(FrameHandler handler, InterruptionHandler interruptionHandler) override;
    // Called from one of the handlers, it returns at once; the handlers are
    // not called again once that handler has returned.
    void stop() override;

private:
    void deliverPictures(std::stop_token stopToken, const FrameHandler& frameHandler,
                         const InterruptionHandler& interruptionHandler);

    const std::unique_ptr<WebcamInput> input_;
    const WebcamCaptureConfiguration configuration_;
    const Pacing pacing_;
    std::mutex lifecycleMutex_; // guards thread_
    std::jthread thread_;
};

} // namespace rilo::webcam

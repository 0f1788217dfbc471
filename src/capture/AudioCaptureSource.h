#pragma once

// One live sound input of a recording: the system audio (what the default
// output plays) or a microphone. One implementation per sound server,
// chosen when the recording is set up.
//
// Contract:
// - start() begins capture and returns once sound is flowing or has failed
//   (throws the source's LocalizedError, with nothing left running).
// - The handler is called on the source's own thread with 48 kHz stereo float
//   buffers, each stamped with the host clock time (hostUptimeNanoseconds) at
//   which its first frame was captured. Consecutive buffers follow one
//   another without overlap.
// - stop() ends capture and returns once the handler will not be called
//   again. It may be called more than once, and before start().
// - A failure after start (the device vanished, the server went away) goes
//   once to the failure handler, on the source's thread, and capture ends.

#include "capture/CaptureSampleBuffers.h"

#include <functional>
#include <string>

namespace rilo {

class AudioCaptureSource {
public:
    using SampleHandler = std::function<void(const AudioSampleBuffer&)>;
    using FailureHandler = std::function<void(const std::string& message)>;

    virtual ~AudioCaptureSource() = default;

    virtual void start(SampleHandler handler, FailureHandler failureHandler) = 0;
    virtual void stop() = 0;
    // The name people know the device by, for the manifest and the report.
    virtual std::string deviceName() const = 0;
};

} // namespace rilo

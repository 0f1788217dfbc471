#pragma once

// Sound from the PulseAudio server (or PipeWire through pipewire-pulse): the
// system audio, which is the monitor of the default output, or one microphone.
// Both are PulseAudioCaptureSource, an AudioCaptureSource.
//
// The server converts whatever the device delivers to 48 kHz stereo float.
// Buffers hold about 10 ms each and arrive on the source's capture thread. A
// buffer is stamped with the host time at which its first frame was captured
// (for the system audio: mixed for the output): the time the data arrived,
// less what the server says it spent in the source and on the way, less the
// sound that arrived with and before it. Buffers follow one another exactly
// at 48 kHz; only when that count and the estimate part by more than 20 ms is
// the count set anew from the estimate, leaving a gap or dropping the frames
// that would overlap.
//
// start() and stop() are called from one thread at a time, never from the
// handlers. start() throws SystemAudioCaptureError::unavailable (system audio)
// or MicrophoneCaptureError::deviceUnavailable (microphone) when there is no
// server or no such device; a failure after that reaches the failure handler
// with the same texts. deviceName() of the system audio is the default output
// found by the last start(), empty before.

#include "capture/AudioCaptureSource.h"
#include "project/document/CaptureSamples.h"

#include <memory>

namespace rilo {

// The sound of the default output, found anew at every start().
std::unique_ptr<AudioCaptureSource> makeSystemAudioCaptureSource();
// The microphone of that descriptor, whose id is the server's source name.
std::unique_ptr<AudioCaptureSource> makeMicrophoneCaptureSource(const MicrophoneDeviceDescriptor& microphone);

} // namespace rilo

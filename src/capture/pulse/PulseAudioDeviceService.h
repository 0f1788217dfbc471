#pragma once

// The microphones and the system audio output that the sound server offers.
// Each call asks the server afresh, so devices plugged in or out since are
// seen; calls block for at most a few seconds when the server does not answer.

#include "project/document/CaptureSamples.h"

#include <optional>
#include <string>
#include <vector>

namespace rilo {

class PulseAudioDeviceService {
public:
    // The sources that are not monitors of an output, in the server's order.
    // isSystemDefault marks the server's default source. Empty when no sound
    // server can be reached.
    std::vector<MicrophoneDeviceDescriptor> microphones() const;

    // With an identifier (other than "default"): that microphone, else
    // MicrophoneCaptureError::deviceUnavailable. Without one: the system
    // default, else the first microphone, else MicrophoneCaptureError::noDevice.
    MicrophoneDeviceDescriptor resolveMicrophone(const std::optional<std::string>& selectedDeviceID) const;

    // The source that replays the default output: what the system audio
    // recording listens to. Throws SystemAudioCaptureError::unavailable when
    // there is no server or no output.
    std::string systemAudioMonitorSourceName() const;
    // The name people know the default output by. Throws like
    // systemAudioMonitorSourceName().
    std::string systemAudioOutputDeviceName() const;
};

} // namespace rilo

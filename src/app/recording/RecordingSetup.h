#pragma once

// What the recording setup holds when a recording is asked for, and whether
// it may start: the first problem found, in a fixed order, is the one people
// are told about.
//
// On an X11 desktop nothing asks for screen recording or input monitoring
// permission, and sound and video devices are open to the user's programs:
// the application reports every permission as granted (granted()). The
// device lists are the sound server's microphones (PulseAudioDeviceService)
// and the webcams found (availableWebcams(), plus any test source offered).

#include "project/document/CaptureSamples.h"
#include "project/document/ProjectManifest.h"

#include <optional>
#include <string>
#include <vector>

namespace rilo {

struct PermissionSnapshot {
    bool screenRecording = false;
    bool microphone = false;
    bool camera = false;
    bool inputMonitoring = false;

    static PermissionSnapshot granted() noexcept { return {true, true, true, true}; }
    friend bool operator==(const PermissionSnapshot&, const PermissionSnapshot&) = default;
};

struct RecordingSetupState {
    std::optional<CaptureSourceDescriptor> selectedSource;
    PermissionSnapshot permissions;
    RecordingOptions options;
    std::vector<MicrophoneDeviceDescriptor> microphoneDevices;
    std::vector<WebcamDeviceDescriptor> webcamDevices;
    bool webcamPreviewIsRunning = false;

    friend bool operator==(const RecordingSetupState&, const RecordingSetupState&) = default;
};

namespace RecordingSetupValidation {

inline constexpr const char* setupNotReadyMessage = "当前录制设置尚未准备完成。";

// The text of the first failing check, or nothing when the setup may record:
// a source, the permissions its kind needs, then the microphone (permission,
// chosen device still listed), then the webcam (permission, chosen device
// still listed, preview running).
std::optional<std::string> firstProblem(const RecordingSetupState& setup);

} // namespace RecordingSetupValidation

} // namespace rilo

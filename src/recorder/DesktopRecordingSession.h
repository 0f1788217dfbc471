#pragma once

// One screen recording of the X11 desktop, put together from the platform's
// parts: frames, mouse, cursor shapes and source watching through X11, the
// system audio and a microphone through PulseAudio, and a webcam. Used by the
// headless recorder and by the application's recording flow.
//
// Every device is opened before the package is made, so a display, sound
// server or webcam that can't be had leaves nothing behind: the call throws
// the device's error (WebcamCaptureError, SystemAudioCaptureError,
// MicrophoneCaptureError, CaptureContentError...). Then the package is made
// in the store and the session returned, not yet started.

#include "capture/ScreenRecordingSession.h"
#include "capture/pulse/PulseAudioDeviceService.h"
#include "capture/x11/X11Connection.h"
#include "project/document/WebcamOverlay.h"

#include <memory>
#include <optional>

namespace rilo::recorder {

struct DesktopRecordingRequest {
    CaptureSourceDescriptor source;
    // The webcam, when captured, is options.webcamDeviceID (see makeWebcamCaptureSource).
    RecordingOptions options;
    // The resolved microphone, when the options capture one.
    std::optional<MicrophoneDeviceDescriptor> microphone;
    // The overlay of the first timeline, when there is a webcam.
    WebcamOverlay webcamOverlay;
};

std::unique_ptr<ScreenRecordingSession>
makeDesktopRecordingSession(ProjectStore& store, const std::shared_ptr<x11::X11Connection>& connection,
                            const DesktopRecordingRequest& request, const PulseAudioDeviceService& sound,
                            ScreenRecordingSession::LiveStatusHandler liveStatusHandler,
                            ScreenRecordingSession::FailureHandler failureHandler);

} // namespace rilo::recorder

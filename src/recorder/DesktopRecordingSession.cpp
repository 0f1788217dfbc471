#include "recorder/DesktopRecordingSession.h"

#include "capture/RecordingMachineFacts.h"
#include "capture/pulse/PulseAudioCaptureSource.h"
#include "capture/webcam/WebcamCaptureSources.h"
#include "capture/x11/X11CaptureContent.h"
#include "capture/x11/X11CursorShapeProvider.h"
#include "capture/x11/X11MouseEventTap.h"
#include "capture/x11/X11ScreenCaptureStream.h"

namespace rilo::recorder {

std::unique_ptr<ScreenRecordingSession>
makeDesktopRecordingSession(ProjectStore& store, const std::shared_ptr<x11::X11Connection>& connection,
                            const DesktopRecordingRequest& request, const PulseAudioDeviceService& sound,
                            ScreenRecordingSession::LiveStatusHandler liveStatusHandler,
                            ScreenRecordingSession::FailureHandler failureHandler) {
    const CaptureSourceDescriptor& source = request.source;
    const RecordingOptions& options = request.options;

    ScreenRecordingInputs inputs;
    std::optional<MicrophoneDeviceDescriptor> microphone;
    if (options.capturesMicrophone) {
        microphone =
            request.microphone ? *request.microphone : sound.resolveMicrophone(options.microphoneDeviceID);
        inputs.microphone = makeMicrophoneCaptureSource(*microphone);
    }
    std::optional<std::string> systemAudioOutput;
    if (options.capturesSystemAudio) {
        systemAudioOutput = sound.systemAudioOutputDeviceName();
        inputs.systemAudio = makeSystemAudioCaptureSource();
    }
    std::optional<WebcamCaptureConfiguration> webcamConfiguration;
    if (options.capturesWebcam) {
        inputs.webcam = makeWebcamCaptureSource(options.webcamDeviceID.value_or(""));
        webcamConfiguration = inputs.webcam->configuration();
    }
    inputs.stream = std::make_unique<x11::X11ScreenCaptureStream>(connection, source);
    inputs.mouseTap = std::make_unique<x11::X11MouseEventTap>(connection->displayName());
    try {
        inputs.cursorShapeProvider = std::make_shared<x11::X11CursorShapeProvider>(connection);
    } catch (const LocalizedError&) {
        // Without the cursor's image the renderer draws its arrow; the session notes it.
    }
    inputs.sourceMonitor = std::make_shared<x11::X11CaptureSourceMonitor>(connection, source);

    RecordingOptions recordedOptions = options;
    if (microphone) {
        recordedOptions.microphoneDeviceID = microphone->id;
    }
    ProjectStore::CreatedProject project =
        store.create(source, recordedOptions, source.initialPixelSize, microphone, webcamConfiguration);
    return std::make_unique<ScreenRecordingSession>(
        store, std::move(project), std::move(inputs),
        webcamConfiguration ? std::optional<WebcamOverlay>(request.webcamOverlay) : std::nullopt,
        currentMachineFacts(systemAudioOutput), std::move(liveStatusHandler), std::move(failureHandler));
}

} // namespace rilo::recorder

#pragma once

// The way from "record" to a running recording and back: validating the
// setup, the countdown with its sounds, making and starting the session,
// pause, stop, discard and the failure of a running recording. The
// application model owns one flow, hands it the setup at each start, and
// shows what it publishes: phase(), recordingSetupMessage(),
// recordingLiveStatus() and diagnostics(), after each call of
// Handlers::changed.
//
// Threads: every member is called on the main thread, and every handler is
// called there. The session's own threads reach the flow only through the
// main run loop; their news is dropped when it comes from a session that is
// no longer the flow's, or after the flow is gone. stop() of a session runs
// on a thread of the flow's, and its outcome comes back through the run
// loop; the flow waits for it when destroyed. The run loop, the store, the
// sound service and the desktop connection outlive the flow.
//
// Failures: every problem before the recording runs becomes
// recordingSetupMessage() with the phase back at idle; a running recording
// that fails ends in failed(text), its project kept on disk marked failed.
// The stop gate lets only the first of stop, discard and failure through.
//
// Sources on X11: displays, windows and areas. A phone or tablet source has
// no session on this platform and ends the start with
// CaptureContentError::sourceUnavailable.

#include "app/recording/RecordingCueSounds.h"
#include "app/recording/RecordingLaunchCoordinator.h"
#include "app/recording/RecordingPhase.h"
#include "app/recording/RecordingPreferences.h"
#include "app/recording/RecordingSetup.h"
#include "app/recording/RecordingStopGate.h"
#include "capture/RecordingLiveStatus.h"
#include "capture/ScreenRecordingSession.h"
#include "capture/pulse/PulseAudioDeviceService.h"
#include "capture/x11/X11Connection.h"
#include "shared/MainRunLoop.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

namespace rilo {

class RecordingFlow {
public:
    struct Services {
        MainRunLoop& mainRunLoop;
        ProjectStore& store;
        // The desktop that is recorded.
        std::shared_ptr<x11::X11Connection> desktop;
        const PulseAudioDeviceService& sound;
        // Where the cue sounds lie (<directory>/countdown-tick.wav, ...).
        std::filesystem::path soundsDirectory;
    };

    // What the application does at the flow's word; each may be empty.
    struct Handlers {
        // Something published has changed.
        std::function<void()> changed;
        // A recording has finished: the project to show. Called while the
        // phase is still finalizing; the flow is idle right after.
        std::function<void(const ProjectSnapshot&, const DiagnosticReport&)> showResult;
        // Bring the recording setup to the front (it has a message to show).
        std::function<void()> activateRecordingSetup;
        // Start the setup's previews again after a recording that didn't happen.
        std::function<void()> restartRecordingSetupPreviews;
        // The countdown is about to begin: the live picture of the source stops.
        std::function<void()> stopSourcePreview;
    };

    // Everything a start needs from the setup screen.
    struct StartRequest {
        RecordingSetupState setup;
        RecordingLaunchPreferences launch;
        WebcamOverlay webcamOverlay = WebcamOverlay::newRecording();
    };

    RecordingFlow(Services services, Handlers handlers);
    ~RecordingFlow();
    RecordingFlow(const RecordingFlow&) = delete;
    RecordingFlow& operator=(const RecordingFlow&) = delete;

    const RecordingPhase& phase() const noexcept { return phase_; }
    const std::optional<std::string>& recordingSetupMessage() const noexcept {
        return recordingSetupMessage_;
    }
    const RecordingLiveStatus& recordingLiveStatus() const noexcept { return recordingLiveStatus_; }
    // Notes about the launch that don't stop it (a cue sound that couldn't play).
    const std::vector<std::string>& diagnostics() const noexcept { return diagnostics_; }
    bool hasSession() const noexcept { return session_ != nullptr; }

    // Whether a recording may start now: the flow is idle and the setup has no problem.
    bool canStartRecording(const RecordingSetupState& setup) const;
    // Why not: the setup's first problem, else RecordingSetupValidation::setupNotReadyMessage.
    std::string recordingValidationFailureReason(const RecordingSetupState& setup) const;

    // Checks the setup, then counts down and starts the session.
    void startRecording(const StartRequest& request);
    // Ends a countdown in progress quietly, back to the setup.
    void cancelRecordingCountdown();
    // Finishes the running recording; the project goes to showResult.
    void stopRecording();
    void toggleRecordingPause();
    // Ends the running recording and removes what it recorded.
    void discardRecording();
    // The interface could not arrange its windows for the recording.
    void handleRecordingPresentationFailure(const std::string& description);
    // The failure has been seen: from failed back to idle.
    void dismissFailure();
    // The webcam placement chosen while recording, for the first timeline.
    void updateWebcamOverlay(const WebcamOverlay& overlay);

    // The source as it stands now on the desktop: a display's or window's
    // current geometry, an area on its display's current geometry. Throws
    // CaptureContentError::sourceUnavailable.
    CaptureSourceDescriptor effectiveCaptureSource(const CaptureSourceDescriptor& source) const;

private:
    struct Launch {
        CaptureSourceDescriptor source;
        RecordingOptions options;
        WebcamOverlay webcamOverlay;
        std::vector<WebcamDeviceDescriptor> webcamDevices;
    };

    void setPhase(RecordingPhase phase);
    void notify() const;
    void runCountdown(Launch launch, RecordingLaunchPreferences preferences, std::stop_token stop);
    void finishCountdown(const Launch& launch, const std::stop_token& stop);
    void startRecordingSession(const Launch& launch, std::optional<MicrophoneDeviceDescriptor> microphone);
    std::optional<MicrophoneDeviceDescriptor> resolveMicrophone(const RecordingOptions& options) const;
    void verifyRecordable(const CaptureSourceDescriptor& source) const;
    // A problem before the recording runs: the message, back to the setup.
    void failSetup(const std::string& message);
    // The countdown or start was cancelled: back to idle without a word.
    void returnQuietly();
    void receiveRecordingLiveStatus(std::uint64_t generation, const RecordingLiveStatus& status);
    void failActiveRecording(std::uint64_t generation, const std::string& reason);
    void finishStop(std::uint64_t generation, std::optional<RecordingSessionResult> result,
                    const std::string& failure);
    // Runs `task` on the main thread later, unless the flow is gone by then.
    void postToMain(std::function<void()> task);

    Services services_;
    Handlers handlers_;

    RecordingPhase phase_;
    std::optional<std::string> recordingSetupMessage_;
    RecordingLiveStatus recordingLiveStatus_;
    std::vector<std::string> diagnostics_;

    std::shared_ptr<int> lifetime_ = std::make_shared<int>(0);
    RecordingCueSounds cueSounds_;
    RecordingLaunchCoordinator launchCoordinator_;
    std::stop_source countdownTask_;

    RecordingStopGate recordingStopGate_;
    std::unique_ptr<ScreenRecordingSession> session_;
    // Tells the news of one session from that of an earlier one.
    std::uint64_t sessionGeneration_ = 0;
    // Stops the session off the main thread; destroyed (joined) before the session.
    std::jthread finalizingTask_;
};

} // namespace rilo

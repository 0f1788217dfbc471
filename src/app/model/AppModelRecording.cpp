// The recording: the setup's choices and their keeping, and the flow from
// "record" to the finished project, whose phases are the model's.

#include "app/model/AppModel.h"
#include "app/model/AppModelTasks.h"
#include "capture/webcam/WebcamCaptureSources.h"

namespace rilo {

namespace {

AppModelPhase modelPhase(const RecordingPhase& phase) {
    using Kind = AppModelPhase::Kind;
    switch (phase.kind) {
    case RecordingPhase::Kind::validating:
        return AppModelPhase::of(Kind::validating);
    case RecordingPhase::Kind::countingDown:
        return AppModelPhase::countingDown(phase.secondsLeft);
    case RecordingPhase::Kind::preparing:
        return AppModelPhase::of(Kind::preparing);
    case RecordingPhase::Kind::recording:
        return AppModelPhase::of(Kind::recording);
    case RecordingPhase::Kind::finalizing:
        return AppModelPhase::of(Kind::finalizing);
    case RecordingPhase::Kind::failed:
        return AppModelPhase::failed(phase.failureMessage);
    case RecordingPhase::Kind::idle:
        break;
    }
    return AppModelPhase::of(Kind::idle);
}

} // namespace

// ---- Recording setup ----

void AppModel::loadRecordingPreferences() {
    if (!environment_.userDefaults) {
        return;
    }
    recordingSetup_ = RecordingSetupPreferences::load(*environment_.userDefaults);
    recordingLaunch_ = RecordingLaunchPreferences::load(*environment_.userDefaults);
}

void AppModel::saveRecordingPreferences() {
    if (environment_.userDefaults) {
        try {
            recordingSetup_.save(*environment_.userDefaults);
            recordingLaunch_.save(*environment_.userDefaults);
        } catch (...) {
            recordingSetupMessage_ = describeFailure(std::current_exception());
        }
    }
    changed();
}

void AppModel::selectRecordingSource(std::optional<CaptureSourceDescriptor> source) {
    selectedSource_ = std::move(source);
    changed();
}

void AppModel::setRecordingOptions(const RecordingOptions& options) {
    recordingSetup_.options = options;
    saveRecordingPreferences();
}

void AppModel::selectMicrophone(std::optional<std::string> deviceID) {
    recordingSetup_.options.microphoneDeviceID = std::move(deviceID);
    saveRecordingPreferences();
}

void AppModel::setWebcamEnabled(bool enabled) {
    recordingSetup_.options.capturesWebcam = enabled;
    saveRecordingPreferences();
}

void AppModel::selectWebcam(std::optional<std::string> deviceID) {
    recordingSetup_.options.webcamDeviceID = std::move(deviceID);
    saveRecordingPreferences();
}

void AppModel::setRecordingWebcamOverlay(const WebcamOverlay& overlay) {
    recordingSetup_.webcamOverlay = overlay;
    if (recordingFlow_) {
        recordingFlow_->updateWebcamOverlay(overlay);
    }
    saveRecordingPreferences();
}

void AppModel::setRecordingWebcamPanelCenter(std::optional<PointValue> center) {
    recordingSetup_.webcamPanelCenter = center;
    saveRecordingPreferences();
}

void AppModel::setCountdownSeconds(std::int64_t seconds) {
    recordingLaunch_.countdownSeconds = (seconds == 0 || seconds == 3 || seconds == 5) ? seconds : 3;
    saveRecordingPreferences();
}

void AppModel::setPlaysCountdownSound(bool playsSound) {
    recordingLaunch_.playsCountdownSound = playsSound;
    saveRecordingPreferences();
}

void AppModel::setWebcamPreviewIsRunning(bool running) {
    webcamPreviewIsRunning_ = running;
    changed();
}

void AppModel::refreshRecordingDevices() {
    microphoneDevices_ = sound_.microphones();
    webcamDevices_ = availableWebcams();
    changed();
}

// ---- Recording ----

bool AppModel::isRecordingUnderWay() const noexcept {
    switch (phase_.kind) {
    case Phase::Kind::validating:
    case Phase::Kind::countingDown:
    case Phase::Kind::preparing:
    case Phase::Kind::recording:
    case Phase::Kind::finalizing:
        return true;
    default:
        return false;
    }
}

bool AppModel::ensureRecordingFlow() {
    if (recordingFlow_) {
        return true;
    }
    if (!projectStore_) {
        recordingSetupMessage_ =
            projectLibraryMessage_.value_or(RecordingSetupValidation::setupNotReadyMessage);
        return false;
    }
    try {
        std::shared_ptr<x11::X11Connection> desktop = environment_.desktop;
        if (!desktop) {
            desktop = std::make_shared<x11::X11Connection>(environment_.desktopDisplayName);
        }
        RecordingFlow::Handlers handlers;
        handlers.changed = [this] { recordingFlowChanged(); };
        handlers.showResult = [this](const ProjectSnapshot& snapshot, const DiagnosticReport& report) {
            recordingFinished(snapshot, report);
        };
        handlers.activateRecordingSetup = [this] { showsRecentProjects_ = false; };
        // The store holds nothing in memory but its directory: the flow makes
        // and finishes its package beside the store thread's work, which never
        // touches a package still recording.
        recordingFlow_ = std::make_unique<RecordingFlow>(
            RecordingFlow::Services{mainRunLoop_, *projectStore_, std::move(desktop), sound_,
                                    environment_.soundsDirectory},
            std::move(handlers));
    } catch (...) {
        recordingSetupMessage_ = describeFailure(std::current_exception());
        return false;
    }
    return true;
}

void AppModel::startRecording() {
    if (phase_.kind != Phase::Kind::idle) {
        // The editor, a failure or a recording is shown: nothing starts.
        recordingSetupMessage_ = RecordingSetupValidation::setupNotReadyMessage;
        changed();
        return;
    }
    if (!ensureRecordingFlow()) {
        showsRecentProjects_ = false;
        changed();
        return;
    }
    RecordingFlow::StartRequest request;
    request.setup.selectedSource = selectedSource_;
    request.setup.permissions = permissions_;
    request.setup.options = recordingSetup_.options;
    request.setup.microphoneDevices = microphoneDevices_;
    request.setup.webcamDevices = webcamDevices_;
    request.setup.webcamPreviewIsRunning = webcamPreviewIsRunning_;
    request.launch = recordingLaunch_;
    request.webcamOverlay = recordingSetup_.webcamOverlay;
    // Whatever the flow says about this start is news.
    recordingSetupMessage_.reset();
    lastFlowSetupMessage_.reset();
    recordingFlow_->startRecording(request);
}

void AppModel::cancelRecordingCountdown() {
    if (recordingFlow_) {
        recordingFlow_->cancelRecordingCountdown();
    }
}

void AppModel::stopRecording() {
    if (recordingFlow_) {
        recordingFlow_->stopRecording();
    }
}

void AppModel::toggleRecordingPause() {
    if (recordingFlow_) {
        recordingFlow_->toggleRecordingPause();
    }
}

void AppModel::discardRecording() {
    if (recordingFlow_) {
        recordingFlow_->discardRecording();
    }
}

void AppModel::handleRecordingPresentationFailure(const std::string& description) {
    if (recordingFlow_) {
        recordingFlow_->handleRecordingPresentationFailure(description);
    }
}

void AppModel::recordingFlowChanged() {
    const RecordingFlow& flow = *recordingFlow_;
    if (flow.phase().kind != RecordingPhase::Kind::idle) {
        phase_ = modelPhase(flow.phase());
    } else if (isRecordingUnderWay() && !opensRecordingResult_) {
        phase_ = Phase::of(Phase::Kind::idle);
    }
    if (flow.recordingSetupMessage() != lastFlowSetupMessage_) {
        lastFlowSetupMessage_ = flow.recordingSetupMessage();
        recordingSetupMessage_ = lastFlowSetupMessage_;
    }
    if (phase_.kind == Phase::Kind::validating) {
        // A start that got this far leaves no earlier message standing.
        recordingSetupMessage_.reset();
    }
    recordingLiveStatus_ = flow.recordingLiveStatus();
    recordingDiagnostics_ = flow.diagnostics();
    changed();
}

void AppModel::recordingFinished(const ProjectSnapshot& snapshot, const DiagnosticReport& report) {
    showResult(snapshot, report);
    // Set after showResult has reset the editor; cleared once it is shown or
    // could not be.
    opensRecordingResult_ = true;
    refreshRecentProjects();
}

} // namespace rilo

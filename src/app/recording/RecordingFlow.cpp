#include "app/recording/RecordingFlow.h"

#include "capture/CaptureContent.h"
#include "capture/CaptureDeviceErrors.h"
#include "capture/x11/X11CaptureContent.h"
#include "recorder/DesktopRecordingSession.h"

#include <unistd.h>

namespace rilo {
namespace {

std::int32_t currentProcessID() {
    return static_cast<std::int32_t>(getpid());
}

constexpr const char* discardFailurePrefix = "录制已停止，但临时文件删除失败：";

} // namespace

RecordingFlow::RecordingFlow(Services services, Handlers handlers)
    : services_(std::move(services))
    , handlers_(std::move(handlers))
    , cueSounds_(services_.soundsDirectory,
                 [&loop = services_.mainRunLoop, alive = std::weak_ptr<int>(lifetime_),
                  this](const std::string& line) {
                     loop.post([alive, this, line] {
                         if (alive.expired()) {
                             return;
                         }
                         diagnostics_.push_back(line);
                         notify();
                     });
                 })
    , launchCoordinator_(services_.mainRunLoop, cueSounds_) {}

RecordingFlow::~RecordingFlow() {
    lifetime_.reset();
    countdownTask_.request_stop();
    if (finalizingTask_.joinable()) {
        finalizingTask_.join();
    }
    // A recording still running is brought down by its session; its package
    // stays for recovery.
}

bool RecordingFlow::canStartRecording(const RecordingSetupState& setup) const {
    return phase_.kind == RecordingPhase::Kind::idle && !RecordingSetupValidation::firstProblem(setup);
}

std::string RecordingFlow::recordingValidationFailureReason(const RecordingSetupState& setup) const {
    return RecordingSetupValidation::firstProblem(setup).value_or(
        RecordingSetupValidation::setupNotReadyMessage);
}

void RecordingFlow::startRecording(const StartRequest& request) {
    const RecordingSetupState& setup = request.setup;
    if (!canStartRecording(setup)) {
        recordingSetupMessage_ = recordingValidationFailureReason(setup);
        if (handlers_.activateRecordingSetup) {
            handlers_.activateRecordingSetup();
        }
        notify();
        return;
    }
    recordingSetupMessage_.reset();
    setPhase(RecordingPhase::validating());

    Launch launch{*setup.selectedSource, setup.options, request.webcamOverlay, setup.webcamDevices};
    try {
        if (launch.source.kind == CaptureSourceKind::device) {
            throw CaptureContentError::sourceUnavailable();
        }
        resolveMicrophone(launch.options);
        launch.source = effectiveCaptureSource(launch.source);
        verifyRecordable(launch.source);
    } catch (const std::exception& error) {
        recordingSetupMessage_ = error.what();
        setPhase(RecordingPhase::idle());
        return;
    }
    if (handlers_.stopSourcePreview) {
        handlers_.stopSourcePreview();
    }

    countdownTask_ = std::stop_source();
    postToMain([this, launch = std::move(launch), preferences = request.launch,
                stop = countdownTask_.get_token()] { runCountdown(launch, preferences, stop); });
}

void RecordingFlow::runCountdown(Launch launch, RecordingLaunchPreferences preferences,
                                 std::stop_token stop) {
    if (stop.stop_requested()) {
        returnQuietly();
        return;
    }
    const int seconds = static_cast<int>(preferences.countdownSeconds);
    if (seconds > 0) {
        setPhase(RecordingPhase::countingDown(seconds));
    }
    launchCoordinator_.countDown(
        seconds, preferences.playsCountdownSound, stop,
        [this](int remaining) {
            if (phase_.kind == RecordingPhase::Kind::countingDown) {
                setPhase(RecordingPhase::countingDown(remaining));
            }
        },
        [this, launch = std::move(launch), stop] { finishCountdown(launch, stop); });
}

void RecordingFlow::finishCountdown(const Launch& launch, const std::stop_token& stop) {
    if (stop.stop_requested()) {
        returnQuietly();
        return;
    }
    setPhase(RecordingPhase::preparing());
    try {
        // The microphone may have gone during the countdown.
        startRecordingSession(launch, resolveMicrophone(launch.options));
    } catch (const std::exception& error) {
        failSetup(error.what());
    }
}

void RecordingFlow::startRecordingSession(const Launch& launch,
                                          std::optional<MicrophoneDeviceDescriptor> microphone) {
    RecordingOptions options = launch.options;
    if (options.capturesWebcam && !options.webcamDeviceID) {
        if (launch.webcamDevices.empty()) {
            throw WebcamCaptureError::noDevice();
        }
        options.webcamDeviceID = launch.webcamDevices.front().id;
    }

    const std::uint64_t generation = sessionGeneration_ + 1;
    MainRunLoop& loop = services_.mainRunLoop;
    const std::weak_ptr<int> alive = lifetime_;
    // Called on the session's threads: they only hand the news to the main thread.
    auto liveStatusHandler = [&loop, alive, this, generation](const RecordingLiveStatus& status) {
        loop.post([alive, this, generation, status] {
            if (!alive.expired()) {
                receiveRecordingLiveStatus(generation, status);
            }
        });
    };
    auto failureHandler = [&loop, alive, this, generation](const std::string& reason) {
        loop.post([alive, this, generation, reason] {
            if (!alive.expired()) {
                failActiveRecording(generation, reason);
            }
        });
    };
    // Webcam, sound and screen are opened before the package is made; a
    // device that fails leaves nothing behind.
    std::unique_ptr<ScreenRecordingSession> session = recorder::makeDesktopRecordingSession(
        services_.store, services_.desktop,
        {launch.source, options, std::move(microphone), launch.webcamOverlay}, services_.sound,
        std::move(liveStatusHandler), std::move(failureHandler));

    sessionGeneration_ = generation;
    recordingStopGate_.reset();
    session_ = std::move(session);
    try {
        session_->start();
    } catch (const std::exception& error) {
        session_->fail(error.what());
        session_.reset();
        throw;
    }
    recordingLiveStatus_ = RecordingLiveStatus::initial(options);
    setPhase(RecordingPhase::recording());
}

void RecordingFlow::cancelRecordingCountdown() {
    countdownTask_.request_stop();
    if (phase_.kind != RecordingPhase::Kind::countingDown) {
        return;
    }
    phase_ = RecordingPhase::idle();
    if (handlers_.activateRecordingSetup) {
        handlers_.activateRecordingSetup();
    }
    if (handlers_.restartRecordingSetupPreviews) {
        handlers_.restartRecordingSetupPreviews();
    }
    notify();
}

void RecordingFlow::stopRecording() {
    if (!session_ || phase_.kind != RecordingPhase::Kind::recording || !recordingStopGate_.request()) {
        return;
    }
    recordingLiveStatus_.transportState = RecordingTransportState::stopping;
    setPhase(RecordingPhase::finalizing());

    if (finalizingTask_.joinable()) {
        finalizingTask_.join();
    }
    finalizingTask_ =
        std::jthread([session = session_.get(), &loop = services_.mainRunLoop,
                      alive = std::weak_ptr<int>(lifetime_), this, generation = sessionGeneration_] {
            std::optional<RecordingSessionResult> result;
            std::string failure;
            try {
                result = session->stop();
            } catch (const std::exception& error) {
                failure = error.what();
                session->fail(failure);
            }
            loop.post([alive, this, generation, result = std::move(result), failure]() mutable {
                if (!alive.expired()) {
                    finishStop(generation, std::move(result), failure);
                }
            });
        });
}

void RecordingFlow::finishStop(std::uint64_t generation, std::optional<RecordingSessionResult> result,
                               const std::string& failure) {
    if (generation != sessionGeneration_) {
        return;
    }
    if (finalizingTask_.joinable()) {
        finalizingTask_.join();
    }
    session_.reset();
    if (!result) {
        setPhase(RecordingPhase::failed(failure));
        return;
    }
    // Handed on while still finalizing, so that the application goes from
    // finalizing straight to the project it shows.
    if (handlers_.showResult) {
        handlers_.showResult(result->snapshot, result->report);
    }
    setPhase(RecordingPhase::idle());
}

void RecordingFlow::toggleRecordingPause() {
    if (!session_ || phase_.kind != RecordingPhase::Kind::recording) {
        return;
    }
    if (recordingLiveStatus_.transportState == RecordingTransportState::recording) {
        session_->pause();
    } else if (recordingLiveStatus_.transportState == RecordingTransportState::paused) {
        session_->resume();
    } else {
        return;
    }
    recordingLiveStatus_ = session_->liveStatus();
    notify();
}

void RecordingFlow::discardRecording() {
    if (!session_ || phase_.kind != RecordingPhase::Kind::recording || !recordingStopGate_.request()) {
        return;
    }
    try {
        session_->discard();
    } catch (const std::exception& error) {
        recordingSetupMessage_ = std::string(discardFailurePrefix) + error.what();
    }
    session_.reset();
    phase_ = RecordingPhase::idle();
    if (handlers_.activateRecordingSetup) {
        handlers_.activateRecordingSetup();
    }
    if (handlers_.restartRecordingSetupPreviews) {
        handlers_.restartRecordingSetupPreviews();
    }
    notify();
}

void RecordingFlow::failActiveRecording(std::uint64_t generation, const std::string& reason) {
    const bool running =
        phase_.kind == RecordingPhase::Kind::preparing || phase_.kind == RecordingPhase::Kind::recording;
    if (generation != sessionGeneration_ || !session_ || !running || !recordingStopGate_.request()) {
        return;
    }
    recordingLiveStatus_.transportState = RecordingTransportState::stopping;
    setPhase(RecordingPhase::finalizing());
    session_->fail(reason);
    session_.reset();
    setPhase(RecordingPhase::failed(reason));
}

void RecordingFlow::handleRecordingPresentationFailure(const std::string& description) {
    switch (phase_.kind) {
    case RecordingPhase::Kind::preparing:
    case RecordingPhase::Kind::recording:
        failActiveRecording(sessionGeneration_, description);
        break;
    case RecordingPhase::Kind::countingDown:
        cancelRecordingCountdown();
        recordingSetupMessage_ = description;
        notify();
        break;
    default:
        break;
    }
}

void RecordingFlow::dismissFailure() {
    if (phase_.kind == RecordingPhase::Kind::failed) {
        setPhase(RecordingPhase::idle());
    }
}

void RecordingFlow::updateWebcamOverlay(const WebcamOverlay& overlay) {
    if (session_) {
        session_->updateWebcamOverlay(overlay);
    }
}

CaptureSourceDescriptor RecordingFlow::effectiveCaptureSource(const CaptureSourceDescriptor& source) const {
    const x11::X11CaptureContent content(services_.desktop);
    switch (source.kind) {
    case CaptureSourceKind::display:
        return content.display(source.nativeID);
    case CaptureSourceKind::window:
        return content.window(source.nativeID, currentProcessID());
    case CaptureSourceKind::area:
        if (source.areaSourceRect) {
            return DisplayCaptureGeometry::croppedSource(content.display(source.nativeID),
                                                         *source.areaSourceRect);
        }
        break;
    case CaptureSourceKind::device:
        break;
    }
    throw CaptureContentError::sourceUnavailable();
}

std::optional<MicrophoneDeviceDescriptor>
RecordingFlow::resolveMicrophone(const RecordingOptions& options) const {
    if (!options.capturesMicrophone) {
        return std::nullopt;
    }
    return services_.sound.resolveMicrophone(options.microphoneDeviceID);
}

void RecordingFlow::verifyRecordable(const CaptureSourceDescriptor& source) const {
    // X11 can't leave a window out of a picture of the screen: a display or
    // area is recorded only when none of this program's windows shows on it.
    // Screen recording and input monitoring need no permission on X11.
    x11::X11CaptureContent(services_.desktop).verifyOwnWindowsExcluded(source, currentProcessID());
}

void RecordingFlow::failSetup(const std::string& message) {
    recordingSetupMessage_ = message;
    phase_ = RecordingPhase::idle();
    if (handlers_.activateRecordingSetup) {
        handlers_.activateRecordingSetup();
    }
    if (handlers_.restartRecordingSetupPreviews) {
        handlers_.restartRecordingSetupPreviews();
    }
    notify();
}

void RecordingFlow::returnQuietly() {
    if (phase_.kind == RecordingPhase::Kind::idle) {
        return;
    }
    phase_ = RecordingPhase::idle();
    if (handlers_.restartRecordingSetupPreviews) {
        handlers_.restartRecordingSetupPreviews();
    }
    notify();
}

void RecordingFlow::receiveRecordingLiveStatus(std::uint64_t generation, const RecordingLiveStatus& status) {
    if (generation != sessionGeneration_ || !session_ || recordingStopGate_.isRequested) {
        return;
    }
    recordingLiveStatus_ = status;
    notify();
}

void RecordingFlow::setPhase(RecordingPhase phase) {
    phase_ = std::move(phase);
    notify();
}

void RecordingFlow::notify() const {
    if (handlers_.changed) {
        handlers_.changed();
    }
}

void RecordingFlow::postToMain(std::function<void()> task) {
    services_.mainRunLoop.post([alive = std::weak_ptr<int>(lifetime_), task = std::move(task)] {
        if (!alive.expired()) {
            task();
        }
    });
}

} // namespace rilo

// The transport of a screen recording: pause and resume on the capture
// lock, and the three ways a session ends (stop, discard, fail).

#include "capture/ScreenRecordingSession.h"
#include "scene/AutoZoomEngine.h"

#include <algorithm>
#include <iterator>

namespace rilo {

// Transport.

void ScreenRecordingSession::pause() {
    onCaptureQueue([this] {
        if (transportState_ != RecordingTransportState::recording) {
            return;
        }
        transportState_ = RecordingTransportState::paused;
        ++pauseCount_;
        clock_.pause();
        const std::lock_guard guard(liveStatusLock_);
        liveStatus_.transportState = RecordingTransportState::paused;
        liveStatus_.microphoneLevel.reset();
    });
    publishStatus(true);
}

void ScreenRecordingSession::resume() {
    bool resumed = false;
    onCaptureQueue([&] {
        if (transportState_ != RecordingTransportState::paused) {
            return;
        }
        transportState_ = RecordingTransportState::resuming;
        resumed = true;
        const std::lock_guard guard(liveStatusLock_);
        liveStatus_.transportState = RecordingTransportState::resuming;
    });
    if (resumed) {
        publishStatus(true);
    }
}

void ScreenRecordingSession::stopInputs(bool ignoreFailures) {
    if (inputsStopped_) {
        return;
    }
    inputsStopped_ = true;
    if (mouseRecorder_) {
        mouseRecorder_->stop();
    }
    cursorShapeTask_ = {};
    areaMonitorTask_ = {};
    const auto attempt = [ignoreFailures](auto&& work) {
        try {
            work();
        } catch (...) {
            if (!ignoreFailures) {
                throw;
            }
        }
    };
    if (inputs_.webcam) {
        attempt([&] { inputs_.webcam->stop(); });
    }
    attempt([&] { inputs_.stream->stopCapture(); });
    for (AudioCaptureSource* sound : {inputs_.systemAudio.get(), inputs_.microphone.get()}) {
        if (sound != nullptr) {
            attempt([&] { sound->stop(); });
        }
    }
    // A sample still under way finishes before this returns.
    onCaptureQueue([] {});
}

void ScreenRecordingSession::flushChunkStores() {
    eventStore_.flush();
    geometryStore_.flush();
    cursorShapeStore_.flush();
}

RecordingSessionResult ScreenRecordingSession::stop() {
    onCaptureQueue([this] {
        transportState_ = RecordingTransportState::stopping;
        clock_.pause();
    });
    stopInputs(false);
    {
        const std::lock_guard guard(metricsLock_);
        if (streamError_) {
            std::rethrow_exception(streamError_);
        }
    }
    flushChunkStores();
    const RecordingMediaWriterResult written = mediaWriter_->finish();
    if (written.videoFrames == 0) {
        throw ScreenRecordingSessionError::noVideoFrames();
    }

    std::vector<std::string> notes;
    {
        const std::lock_guard guard(metricsLock_);
        metrics_.videoFrames = written.videoFrames;
        metrics_.systemAudioSamples = written.systemAudioSamples;
        metrics_.microphoneSamples = written.microphoneSamples;
        if (inputs_.webcam) {
            metrics_.webcamFrames = written.webcamFrames;
            metrics_.maximumWebcamOffsetNanoseconds = written.maximumWebcamOffsetNanoseconds;
            metrics_.droppedWebcamFrames =
                metrics_.droppedWebcamFrames.value_or(0) + written.droppedWebcamFrames;
        }
        metrics_.maximumAVDriftNanoseconds = written.maximumAVDriftNanoseconds;
        metrics_.droppedVideoFrames += written.droppedVideoFrames;
        metrics_.pauseCount = pauseCount_;
        metrics_.pausedDurationNanoseconds =
            std::max<std::int64_t>(0, nanosecondsFromMediaTime(sourceTimeOffset_));
        metrics_.writerStatus = "completed";
        manifest_.metrics = metrics_;
        notes = diagnosticNotes_;
    }
    manifest_.updatedAt = IsoDate::now();
    manifest_.duration = written.duration;
    manifest_.cursorAssets = cursorAssetStore_.descriptors();

    const std::vector<MouseEvent> events = ChunkStore<MouseEvent>::readAll(package_.eventsDirectory());
    std::optional<WebcamOverlay> overlay;
    {
        const std::lock_guard guard(webcamOverlayLock_);
        overlay = webcamOverlay_;
    }
    store_.writeTimeline(
        makeInitialTimeline(written.duration, inputs_.webcam ? overlay : std::nullopt, events), package_);
    DiagnosticReport report =
        DiagnosticReport::make(manifest_, false, std::move(notes), machineFacts_, queueDepth);
    store_.writeReport(report, package_);
    package_ = store_.finish(package_, manifest_);
    ProjectSnapshot snapshot = store_.loadSnapshot(package_);
    return {package_, std::move(snapshot), std::move(report)};
}

void ScreenRecordingSession::discard() {
    onCaptureQueue([this] {
        transportState_ = RecordingTransportState::discarding;
        clock_.pause();
        const std::lock_guard guard(liveStatusLock_);
        liveStatus_.transportState = RecordingTransportState::discarding;
        liveStatus_.microphoneLevel.reset();
    });
    publishStatus(true);
    stopInputs(true);
    mediaWriter_->cancel();
    store_.discardRecording(package_);
}

void ScreenRecordingSession::fail(const std::string& reason) {
    onCaptureQueue([this] { transportState_ = RecordingTransportState::stopping; });
    stopInputs(true);
    try {
        flushChunkStores();
    } catch (...) {
        // What reached the disk stays for recovery.
    }
    // The movie is closed where it stands: its fragments are what recovery reads.
    mediaWriter_.reset();
    try {
        ProjectManifest manifest = manifest_;
        manifest.metrics = metrics();
        store_.markFailed(package_, manifest, reason);
    } catch (...) {
        // The package stays as it is, for recovery.
    }
}

EditTimeline ScreenRecordingSession::makeInitialTimeline(ProjectTime duration,
                                                         const std::optional<WebcamOverlay>& webcamOverlay,
                                                         const std::vector<MouseEvent>& recordedEvents) {
    EditTimeline timeline = EditTimeline::empty();
    timeline.segments.push_back(TimelineSegment{Uuid::random(), ProjectTimeRange{ProjectTime{}, duration}});
    timeline.motionBlurAmount = EditTimeline::defaultMotionBlurAmount;
    timeline.webcamOverlay = webcamOverlay;
    std::vector<MouseEvent> visible;
    std::copy_if(recordedEvents.begin(), recordedEvents.end(), std::back_inserter(visible),
                 [](const MouseEvent& event) { return event.isVisibleInsideSource(); });
    timeline.zooms = AutoZoomEngine{}.makeSegments(visible, duration);
    return timeline;
}

} // namespace rilo

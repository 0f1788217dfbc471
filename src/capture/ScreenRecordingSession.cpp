#include "capture/ScreenRecordingSession.h"

#include "capture/AudioLevelMeter.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace rilo {
namespace {

// Sleeps for the duration or until a stop is requested; false on a stop.
bool sleepFor(const std::stop_token& stop, std::chrono::nanoseconds duration) {
    std::mutex mutex;
    std::condition_variable_any wakeUp;
    std::unique_lock lock(mutex);
    return !wakeUp.wait_for(lock, stop, duration, [] { return false; }) && !stop.stop_requested();
}

std::string describe(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& caught) {
        return caught.what();
    } catch (...) {
        return "未知错误";
    }
}

// The peak resident size of this process (VmHWM), in bytes.
std::optional<std::uint64_t> peakResidentBytes() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmHWM:", 0) == 0) {
            std::istringstream fields(line.substr(6));
            std::uint64_t kilobytes = 0;
            if (fields >> kilobytes) {
                return kilobytes * 1024;
            }
        }
    }
    return std::nullopt;
}

template <class T>
ChunkStore<T> makeChunkStore(const std::filesystem::path& directory, ProjectTime T::*time) {
    return ChunkStore<T>(directory, recordingChunkMaximumCount, recordingChunkMaximumSpanNanoseconds,
                         [time](const T& sample) { return sample.*time; });
}

bool contains(const RectValue& outer, const RectValue& inner) noexcept {
    return inner.x >= outer.x && inner.y >= outer.y && inner.maxX() <= outer.maxX() &&
           inner.maxY() <= outer.maxY();
}

} // namespace

ScreenRecordingSession::ScreenRecordingSession(ProjectStore& store, ProjectStore::CreatedProject project,
                                               ScreenRecordingInputs inputs,
                                               std::optional<WebcamOverlay> webcamOverlay,
                                               DiagnosticReport::MachineFacts machineFacts,
                                               LiveStatusHandler liveStatusHandler,
                                               FailureHandler failureHandler)
    : store_(store)
    , package_(std::move(project.package))
    , manifest_(std::move(project.manifest))
    , source_(manifest_.source)
    , options_(manifest_.options)
    , inputs_(std::move(inputs))
    , machineFacts_(std::move(machineFacts))
    , liveStatusHandler_(std::move(liveStatusHandler))
    , failureHandler_(std::move(failureHandler))
    , geometryTracker_(manifest_.encodedPixelSize, source_.globalFrame, std::nullopt)
    , eventStore_(makeChunkStore(package_.eventsDirectory(), &MouseEvent::time))
    , geometryStore_(makeChunkStore(package_.geometryDirectory(), &GeometrySample::time))
    , cursorShapeStore_(makeChunkStore(package_.cursorEventsDirectory(), &CursorShapeSample::time))
    , cursorAssetStore_(package_.cursorAssetsDirectory())
    , webcamOverlay_(std::move(webcamOverlay))
    , liveStatus_(RecordingLiveStatus::initial(options_))
    , lastKnownGlobalFrame_(source_.globalFrame) {
    std::optional<WebcamCaptureConfiguration> webcamConfiguration;
    if (inputs_.webcam) {
        webcamConfiguration = inputs_.webcam->configuration();
        metrics_.webcamFrames = 0;
        metrics_.droppedWebcamFrames = 0;
    }
    mediaWriter_ = std::make_unique<RecordingMediaWriter>(package_.mediaURL(), manifest_.encodedPixelSize,
                                                          options_, webcamConfiguration);
}

ScreenRecordingSession::~ScreenRecordingSession() {
    stopInputs(true);
}

void ScreenRecordingSession::start() {
    if (inputs_.webcam) {
        inputs_.webcam->start([this](const VideoSampleBuffer& sample) { processWebcam(sample); },
                              [this](const std::string& message) { noteWebcamInterruption(message); });
    }
    const auto audioFailure = [this](const std::string& message) {
        reportFatalError(std::make_exception_ptr(LocalizedError(message)));
    };
    if (inputs_.systemAudio) {
        inputs_.systemAudio->start(
            [this](const AudioSampleBuffer& sample) {
                processAudio(sample, RecordingAudioTrack::systemAudio);
            },
            audioFailure);
    }
    if (inputs_.microphone) {
        inputs_.microphone->start(
            [this](const AudioSampleBuffer& sample) {
                processAudio(sample, RecordingAudioTrack::microphone);
            },
            audioFailure);
    }

    ScreenStreamConfiguration configuration;
    configuration.size = manifest_.encodedPixelSize;
    configuration.framesPerSecond = options_.framesPerSecond;
    configuration.queueDepth = queueDepth;
    configuration.sourceRect = source_.areaSourceRect;
    try {
        inputs_.stream->startCapture(configuration, *this);
        mouseRecorder_ = std::make_unique<MouseEventRecorder>(
            std::move(inputs_.mouseTap), clock_, geometryTracker_,
            [this](const MouseEvent& event) { recordMouseEvent(event); });
        mouseRecorder_->start();
    } catch (...) {
        stopInputs(true);
        throw;
    }
    cursorShapeTask_ = std::jthread([this](const std::stop_token& stop) { runCursorSampling(stop); });
    if (source_.areaSourceRect && inputs_.sourceMonitor) {
        areaMonitorTask_ = std::jthread([this](const std::stop_token& stop) { runAreaMonitor(stop); });
    }
}

// The screen pipeline.

void ScreenRecordingSession::streamDidOutputScreenFrame(const VideoSampleBuffer& sample) {
    try {
        processScreen(sample);
    } catch (...) {
        reportFatalError(std::current_exception());
    }
}

void ScreenRecordingSession::streamDidStop(std::exception_ptr error) {
    reportFatalError(std::move(error));
}

void ScreenRecordingSession::processScreen(const VideoSampleBuffer& sample) {
    const ScreenFrameAttachments& attachments = sample.attachments;
    const bool usable = sample.isValid() && sample.image && attachments.status == 0 &&
                        attachments.displayTimeHostUnits.has_value();
    const std::lock_guard guard(captureQueue_);
    if (!usable) {
        if (!isTerminal(transportState_) && transportState_ != RecordingTransportState::paused) {
            countDroppedVideoFrame();
        }
        return;
    }
    const std::uint64_t displayTime = *attachments.displayTimeHostUnits;
    const std::optional<OutputTiming> timing = outputVideoTiming(sample.presentationTime, displayTime);
    if (!timing) {
        return;
    }
    if (timing->started) {
        updatePeakMemory();
    } else if (!timing->resumed && clock_.observe(timing->output, displayTime)) {
        const std::lock_guard metricsGuard(metricsLock_);
        metrics_.timeDiscontinuities = metrics_.timeDiscontinuities.value_or(0) + 1;
    }
    const std::optional<ProjectTime> time = clock_.projectTimeForVideoPTS(timing->output);
    if (!time) {
        return;
    }
    if (const std::optional<ClockAnchor> anchor =
            clock_.recordDiagnosticAnchor(timing->output, displayTime)) {
        {
            const std::lock_guard metricsGuard(metricsLock_);
            metrics_.maximumClockOffsetNanoseconds = std::max<std::int64_t>(
                metrics_.maximumClockOffsetNanoseconds, std::abs(anchor->offsetNanoseconds));
        }
        updatePeakMemory();
    }
    if (const std::optional<GeometrySample> geometry =
            geometryTracker_.update(*time, geometryMetadata(attachments, *time))) {
        geometryStore_.append(*geometry);
        const std::lock_guard metricsGuard(metricsLock_);
        ++metrics_.geometryRevisions;
    }
    eventStore_.flushIfDue(*time);
    geometryStore_.flushIfDue(*time);
    cursorShapeStore_.flushIfDue(*time);
    const std::optional<VideoSampleBuffer> retimed = SampleBufferRetimer::retimed(sample, timing->output);
    if (!retimed) {
        throw ScreenRecordingSessionError::sampleRetimingFailed();
    }
    mediaWriter_->append(*retimed);
    lastOutputScreenPTS_ = timing->output;
    {
        const std::lock_guard statusGuard(liveStatusLock_);
        liveStatus_.elapsed = *time;
    }
    publishStatus(false);
}

std::optional<ScreenRecordingSession::OutputTiming>
ScreenRecordingSession::outputVideoTiming(MediaTime input, std::uint64_t displayTimeHostUnits) {
    switch (transportState_) {
    case RecordingTransportState::recording: {
        OutputTiming timing{input - sourceTimeOffset_};
        if (!clock_.isStarted()) {
            clock_.start(timing.output, displayTimeHostUnits);
            timing.started = true;
        }
        return timing;
    }
    case RecordingTransportState::resuming: {
        OutputTiming timing{
            resumedOutputPTS(input, lastOutputScreenPTS_, sourceTimeOffset_, options_.framesPerSecond)};
        sourceTimeOffset_ = input - timing.output;
        transportState_ = RecordingTransportState::recording;
        if (!clock_.isStarted()) {
            clock_.start(timing.output, displayTimeHostUnits);
            timing.started = true;
        } else {
            clock_.resume(timing.output, displayTimeHostUnits);
            timing.resumed = true;
        }
        {
            const std::lock_guard statusGuard(liveStatusLock_);
            liveStatus_.transportState = RecordingTransportState::recording;
        }
        publishStatus(true);
        return timing;
    }
    case RecordingTransportState::pausing:
    case RecordingTransportState::paused:
    case RecordingTransportState::stopping:
    case RecordingTransportState::discarding:
        break;
    }
    return std::nullopt;
}

MediaTime ScreenRecordingSession::resumedOutputPTS(MediaTime input, std::optional<MediaTime> last,
                                                   MediaTime sourceTimeOffset, std::int64_t framesPerSecond) {
    if (!last) {
        return input - sourceTimeOffset;
    }
    const auto timescale = static_cast<std::int32_t>(std::max<std::int64_t>(framesPerSecond, 1));
    return *last + MediaTime{1, timescale, true};
}

GeometryFrameMetadata ScreenRecordingSession::geometryMetadata(const ScreenFrameAttachments& attachments,
                                                               ProjectTime time) {
    GeometryFrameMetadata metadata{attachments.screenRect.value_or(RectValue{}),
                                   attachments.contentRect.value_or(RectValue{}),
                                   attachments.scaleFactor.value_or(1.0)};
    if (source_.areaSourceRect) {
        metadata.screenRect = source_.globalFrame;
        metadata.contentRect = {0, 0, source_.globalFrame.width, source_.globalFrame.height};
        metadata.scaleFactor = source_.pointPixelScale.value_or(metadata.scaleFactor);
    } else if (source_.kind == CaptureSourceKind::window) {
        if (!lastGeometryProbeNanoseconds_ ||
            time.nanoseconds - *lastGeometryProbeNanoseconds_ >= geometryProbeIntervalNanoseconds) {
            if (inputs_.sourceMonitor) {
                if (const std::optional<RectValue> frame = inputs_.sourceMonitor->currentWindowFrame();
                    frame && frame->width > 0 && frame->height > 0) {
                    lastKnownGlobalFrame_ = *frame;
                }
            }
            lastGeometryProbeNanoseconds_ = time.nanoseconds;
        }
        metadata.screenRect = lastKnownGlobalFrame_;
    }
    return metadata;
}

// Sound and webcam.

void ScreenRecordingSession::processAudio(const AudioSampleBuffer& sample, RecordingAudioTrack track) {
    try {
        const std::lock_guard guard(captureQueue_);
        if (transportState_ != RecordingTransportState::recording || !clock_.isStarted()) {
            return;
        }
        const MediaTime offset = MediaTime::nanoseconds(0) - sourceTimeOffset_;
        const std::optional<AudioSampleBuffer> shifted = SampleBufferRetimer::shifted(sample, offset);
        if (!shifted) {
            return;
        }
        mediaWriter_->append(*shifted, track);
        if (track == RecordingAudioTrack::microphone) {
            bool measure = false;
            {
                const std::lock_guard statusGuard(liveStatusLock_);
                measure = meterThrottle_.shouldPublish(hostUptimeNanoseconds());
            }
            if (measure) {
                if (const std::optional<double> level = AudioLevelMeter::normalizedLevel(sample)) {
                    {
                        const std::lock_guard statusGuard(liveStatusLock_);
                        liveStatus_.microphoneLevel = level;
                    }
                    publishStatus(false);
                }
            }
        }
    } catch (...) {
        reportFatalError(std::current_exception());
    }
}

void ScreenRecordingSession::processWebcam(const VideoSampleBuffer& sample) {
    try {
        const std::lock_guard guard(captureQueue_);
        if (!sample.isValid() || !sample.image) {
            countDroppedWebcamFrame();
            return;
        }
        const std::int64_t hostNanoseconds = nanosecondsFromMediaTime(sample.presentationTime);
        const std::optional<ProjectTime> time =
            hostNanoseconds < 0
                ? std::nullopt
                : clock_.projectTimeForHostTimeNanoseconds(static_cast<std::uint64_t>(hostNanoseconds));
        const std::optional<MediaTime> videoTime =
            time && time->nanoseconds >= 0 ? clock_.videoPTS(*time) : std::nullopt;
        const std::optional<VideoSampleBuffer> onScreenTrack =
            videoTime ? SampleBufferRetimer::retimed(sample, *videoTime) : std::nullopt;
        if (!onScreenTrack) {
            countDroppedWebcamFrame();
            return;
        }
        mediaWriter_->appendWebcam(*onScreenTrack);
    } catch (...) {
        reportFatalError(std::current_exception());
    }
}

void ScreenRecordingSession::noteWebcamInterruption(const std::string& message) {
    {
        const std::lock_guard guard(metricsLock_);
        metrics_.webcamInterruptions = metrics_.webcamInterruptions.value_or(0) + 1;
        diagnosticNotes_.push_back(message);
    }
    {
        const std::lock_guard guard(liveStatusLock_);
        liveStatus_.webcamState = RecordingWebcamState::interrupted;
    }
    publishStatus(false);
}

// Mouse and cursor.

void ScreenRecordingSession::recordMouseEvent(const MouseEvent& event) {
    try {
        eventStore_.append(event);
        const std::lock_guard guard(metricsLock_);
        ++metrics_.mouseEvents;
    } catch (...) {
        reportFatalError(std::current_exception());
    }
}

void ScreenRecordingSession::runCursorSampling(const std::stop_token& stop) {
    do {
        const std::optional<ProjectTime> time =
            clock_.projectTimeForHostTimeNanoseconds(hostUptimeNanoseconds());
        if (time && time->nanoseconds >= 0) {
            try {
                recordCursorShape(*time);
            } catch (...) {
                reportFatalError(std::current_exception());
            }
        }
    } while (sleepFor(stop, std::chrono::milliseconds(34)));
}

void ScreenRecordingSession::recordCursorShape(ProjectTime time) {
    if (lastCursorProbeNanoseconds_ &&
        time.nanoseconds - *lastCursorProbeNanoseconds_ < cursorProbeIntervalNanoseconds) {
        return;
    }
    lastCursorProbeNanoseconds_ = time.nanoseconds;
    const std::optional<CapturedCursorShape> shape =
        inputs_.cursorShapeProvider ? inputs_.cursorShapeProvider->captureCurrentSystemCursor()
                                    : std::nullopt;
    if (!shape) {
        if (!hasReportedCursorFallback_) {
            hasReportedCursorFallback_ = true;
            const std::lock_guard guard(metricsLock_);
            diagnosticNotes_.emplace_back(cursorFallbackNote);
        }
        return;
    }
    const CursorAssetDescriptor descriptor =
        cursorAssetStore_.store(shape->pngData, shape->logicalSize, shape->hotSpot);
    if (lastCursorAssetID_ == descriptor.id) {
        return;
    }
    cursorShapeStore_.append(CursorShapeSample{time, descriptor.id});
    lastCursorAssetID_ = descriptor.id;
}

void ScreenRecordingSession::runAreaMonitor(const std::stop_token& stop) {
    do {
        const std::optional<CaptureSourceMonitor::DisplayState> display =
            inputs_.sourceMonitor->currentDisplay();
        const bool valid =
            display &&
            contains(RectValue{0, 0, display->size.width, display->size.height}, *source_.areaSourceRect) &&
            (!source_.pointPixelScale ||
             std::abs(*source_.pointPixelScale - display->pointPixelScale) < 0.001);
        if (!valid) {
            reportFatalError(std::make_exception_ptr(ScreenRecordingSessionError::sourceRectBecameInvalid()));
            return;
        }
    } while (sleepFor(stop, std::chrono::seconds(1)));
}

// Failures, metrics and status.

void ScreenRecordingSession::reportFatalError(std::exception_ptr error) {
    bool report = false;
    {
        const std::lock_guard guard(metricsLock_);
        streamError_ = error;
        report = !hasReportedFatalError_;
        hasReportedFatalError_ = true;
    }
    if (report && failureHandler_) {
        failureHandler_(describe(error));
    }
}

void ScreenRecordingSession::updatePeakMemory() {
    const std::optional<std::uint64_t> peak = peakResidentBytes();
    const std::lock_guard guard(metricsLock_);
    if (peak) {
        metrics_.peakResidentMemoryBytes = std::max(metrics_.peakResidentMemoryBytes.value_or(0), *peak);
    }
}

void ScreenRecordingSession::countDroppedVideoFrame() {
    const std::lock_guard guard(metricsLock_);
    ++metrics_.droppedVideoFrames;
}

void ScreenRecordingSession::countDroppedWebcamFrame() {
    const std::lock_guard guard(metricsLock_);
    metrics_.droppedWebcamFrames = metrics_.droppedWebcamFrames.value_or(0) + 1;
}

void ScreenRecordingSession::publishStatus(bool immediately) {
    RecordingLiveStatus status;
    {
        const std::lock_guard guard(liveStatusLock_);
        if (!immediately && !statusThrottle_.shouldPublish(hostUptimeNanoseconds())) {
            return;
        }
        status = liveStatus_;
    }
    if (liveStatusHandler_) {
        liveStatusHandler_(status);
    }
}

RecordingMetrics ScreenRecordingSession::metrics() const {
    const std::lock_guard guard(metricsLock_);
    return metrics_;
}

RecordingLiveStatus ScreenRecordingSession::liveStatus() const {
    const std::lock_guard guard(liveStatusLock_);
    return liveStatus_;
}

RecordingMediaWriter::FrameCounts ScreenRecordingSession::liveFrameCounts() {
    const std::lock_guard guard(captureQueue_);
    RecordingMediaWriter::FrameCounts counts =
        mediaWriter_ ? mediaWriter_->frameCounts() : RecordingMediaWriter::FrameCounts{};
    counts.dropped += metrics().droppedVideoFrames;
    return counts;
}

void ScreenRecordingSession::updateWebcamOverlay(const WebcamOverlay& overlay) {
    const std::lock_guard guard(webcamOverlayLock_);
    webcamOverlay_ = overlay;
}

} // namespace rilo

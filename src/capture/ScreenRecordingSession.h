#pragma once

// ScreenRecordingSession is one recording of a display, a window or an area.
// It owns the screen stream and joins the clock, geometry tracker, mouse
// recorder, cursor sampling, media writer and sample chunk stores into one
// pipeline, and owns the transport: pause, resume, stop, discard and the
// failure path. When it ends well it leaves a finished package with a first
// timeline (whose zooms come from the recorded clicks) and a diagnostic report.
//
// Threads: every sample and every transport change passes through one
// capture lock, taken for the bookkeeping of one sample at a time (the
// writer and the chunk stores never wait for the disk there), so that after
// pause() or stop() returns no further sample is written. Mouse events
// arrive on the tap's thread, cursor shapes are sampled on a thread of the
// session's, and an area source is watched on another. The handlers are
// called with no lock of the session held, from any of these threads.
//
// The screen frame is the pacemaker: sound, webcam and mouse data are kept
// only once the first screen frame has started the clock. A session is used
// once; a failure reported through the failure handler is followed by the
// owner's call of fail().

#include "capture/AudioCaptureSource.h"
#include "capture/CursorShapeProvider.h"
#include "capture/GeometryTracker.h"
#include "capture/MouseEventRecorder.h"
#include "capture/RecordingClock.h"
#include "capture/RecordingLiveStatus.h"
#include "capture/ScreenCaptureStream.h"
#include "capture/WebcamCaptureSource.h"
#include "capture/writer/RecordingMediaWriter.h"
#include "project/document/DiagnosticReport.h"
#include "project/store/ChunkStore.h"
#include "project/store/CursorAssetStore.h"
#include "project/store/ProjectStore.h"
#include "shared/Errors.h"

#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace rilo {

enum class ScreenRecordingSessionErrorCase {
    invalidFrameMetadata,
    noVideoFrames,
    sourceRectBecameInvalid,
    sampleRetimingFailed
};

class ScreenRecordingSessionError : public CaseError<ScreenRecordingSessionErrorCase> {
public:
    static ScreenRecordingSessionError invalidFrameMetadata() {
        return {Case::invalidFrameMetadata, "ScreenCaptureKit 返回了无效帧元数据。"};
    }
    static ScreenRecordingSessionError noVideoFrames() {
        return {Case::noVideoFrames, "录制没有收到有效屏幕帧。"};
    }
    static ScreenRecordingSessionError sourceRectBecameInvalid() {
        return {Case::sourceRectBecameInvalid, "录制显示器的分辨率、缩放或连接状态已变化，裁剪录制已停止。"};
    }
    static ScreenRecordingSessionError sampleRetimingFailed() {
        return {Case::sampleRetimingFailed, "录制媒体时间戳压缩失败。"};
    }

private:
    using CaseError::CaseError;
};

struct RecordingSessionResult {
    ProjectPackage package;
    ProjectSnapshot snapshot;
    DiagnosticReport report;
};

// What the application asks of any recording, of the screen or of a device.
class RecordingSession {
public:
    virtual ~RecordingSession() = default;
    virtual void start() = 0;
    virtual void pause() = 0;
    virtual void resume() = 0;
    virtual RecordingSessionResult stop() = 0;
    virtual void discard() = 0;
    // Brings the session down after a failure and marks the project failed,
    // keeping what was recorded for recovery.
    virtual void fail(const std::string& reason) = 0;
    virtual void updateWebcamOverlay(const WebcamOverlay& overlay) = 0;
};

// The platform's parts of one screen recording.
struct ScreenRecordingInputs {
    std::unique_ptr<ScreenCaptureStream> stream;
    std::unique_ptr<MouseEventTap> mouseTap;
    std::shared_ptr<CursorShapeProvider> cursorShapeProvider; // none: the arrow is drawn
    std::shared_ptr<CaptureSourceMonitor> sourceMonitor;
    std::unique_ptr<AudioCaptureSource> systemAudio; // when the options capture it
    std::unique_ptr<AudioCaptureSource> microphone;  // when the options capture it
    std::unique_ptr<WebcamCaptureSource> webcam;     // when the options capture it
};

class ScreenRecordingSession final : public RecordingSession, private ScreenCaptureStreamOutput {
public:
    using LiveStatusHandler = std::function<void(const RecordingLiveStatus&)>;
    using FailureHandler = std::function<void(const std::string& message)>;

    static constexpr std::int64_t queueDepth = 5;
    static constexpr std::int64_t cursorProbeIntervalNanoseconds = 33'333'333;
    static constexpr std::int64_t geometryProbeIntervalNanoseconds = 100'000'000;
    static constexpr const char* cursorFallbackNote = "系统光标形状不可用，录制与渲染已降级为Arrow。";

    // The package was made by store.create for this source and these options.
    ScreenRecordingSession(ProjectStore& store, ProjectStore::CreatedProject project,
                           ScreenRecordingInputs inputs, std::optional<WebcamOverlay> webcamOverlay,
                           DiagnosticReport::MachineFacts machineFacts, LiveStatusHandler liveStatusHandler,
                           FailureHandler failureHandler);
    ~ScreenRecordingSession() override;

    void start() override;
    void pause() override;
    void resume() override;
    RecordingSessionResult stop() override;
    void discard() override;
    void fail(const std::string& reason) override;
    void updateWebcamOverlay(const WebcamOverlay& overlay) override;

    const ProjectPackage& package() const noexcept { return package_; }
    RecordingMetrics metrics() const;
    RecordingLiveStatus liveStatus() const;
    // Screen frames written and dropped so far, for a live display.
    RecordingMediaWriter::FrameCounts liveFrameCounts();

    // The first timeline of a recording: one segment over the whole take, the
    // webcam overlay when there is a webcam, and the zooms of the clicks
    // inside the source.
    static EditTimeline makeInitialTimeline(ProjectTime duration,
                                            const std::optional<WebcamOverlay>& webcamOverlay,
                                            const std::vector<MouseEvent>& recordedEvents);

    // The output time of the first frame after a pause: one frame after the
    // last one written, or the input moved by the offset when none was.
    static MediaTime resumedOutputPTS(MediaTime input, std::optional<MediaTime> last,
                                      MediaTime sourceTimeOffset, std::int64_t framesPerSecond);

private:
    struct OutputTiming {
        MediaTime output;
        bool started = false;
        bool resumed = false;
    };

    void streamDidOutputScreenFrame(const VideoSampleBuffer& sample) override;
    void streamDidStop(std::exception_ptr error) override;

    void processScreen(const VideoSampleBuffer& sample);
    void processAudio(const AudioSampleBuffer& sample, RecordingAudioTrack track);
    void processWebcam(const VideoSampleBuffer& sample);
    std::optional<OutputTiming> outputVideoTiming(MediaTime input, std::uint64_t displayTimeHostUnits);
    GeometryFrameMetadata geometryMetadata(const ScreenFrameAttachments& attachments, ProjectTime time);
    void recordMouseEvent(const MouseEvent& event);
    void recordCursorShape(ProjectTime time);
    void runCursorSampling(const std::stop_token& stop);
    void runAreaMonitor(const std::stop_token& stop);
    void reportFatalError(std::exception_ptr error);
    void noteWebcamInterruption(const std::string& message);
    void updatePeakMemory();
    void countDroppedVideoFrame();
    void countDroppedWebcamFrame();
    void publishStatus(bool immediately);
    // Steps shared by stop, discard and fail: everything stops delivering.
    void stopInputs(bool ignoreFailures);
    void flushChunkStores();
    template <class Work>
    void onCaptureQueue(Work&& work) {
        const std::lock_guard guard(captureQueue_);
        work();
    }

    ProjectStore& store_;
    ProjectPackage package_;
    ProjectManifest manifest_;
    const CaptureSourceDescriptor source_;
    const RecordingOptions options_;
    ScreenRecordingInputs inputs_;
    const DiagnosticReport::MachineFacts machineFacts_;
    const LiveStatusHandler liveStatusHandler_;
    const FailureHandler failureHandler_;

    RecordingClock clock_;
    GeometryTracker geometryTracker_;
    ChunkStore<MouseEvent> eventStore_;
    ChunkStore<GeometrySample> geometryStore_;
    ChunkStore<CursorShapeSample> cursorShapeStore_;
    CursorAssetStore cursorAssetStore_;
    std::unique_ptr<RecordingMediaWriter> mediaWriter_;
    std::unique_ptr<MouseEventRecorder> mouseRecorder_;

    mutable std::mutex webcamOverlayLock_;
    std::optional<WebcamOverlay> webcamOverlay_;

    mutable std::mutex metricsLock_;
    RecordingMetrics metrics_;
    std::exception_ptr streamError_;
    bool hasReportedFatalError_ = false;
    std::vector<std::string> diagnosticNotes_;

    mutable std::mutex liveStatusLock_;
    RecordingLiveStatus liveStatus_;
    RecordingLiveStatusThrottle statusThrottle_;
    RecordingLiveStatusThrottle meterThrottle_;

    // Capture queue only.
    std::mutex captureQueue_;
    RecordingTransportState transportState_ = RecordingTransportState::recording;
    MediaTime sourceTimeOffset_ = MediaTime::nanoseconds(0);
    std::optional<MediaTime> lastOutputScreenPTS_;
    std::int64_t pauseCount_ = 0;
    RectValue lastKnownGlobalFrame_;
    std::optional<std::int64_t> lastGeometryProbeNanoseconds_;

    // Cursor sampling thread only.
    std::optional<std::int64_t> lastCursorProbeNanoseconds_;
    std::optional<std::string> lastCursorAssetID_;
    bool hasReportedCursorFallback_ = false;

    bool inputsStopped_ = false;
    std::jthread cursorShapeTask_;
    std::jthread areaMonitorTask_;
};

} // namespace rilo

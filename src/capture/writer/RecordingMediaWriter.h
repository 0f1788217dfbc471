#pragma once

// RecordingMediaWriter writes the one media file of a recording while it
// runs: the screen, and as configured the webcam, the system audio and the
// microphone, each a track of its own in one QuickTime movie, in that order.
//
// Screen and webcam are H.264 (no B-frames, a keyframe every 2 s, BT.709),
// tuned to keep up in real time on a small machine; sound is AAC at 48 kHz
// stereo, 192 kbit/s. The movie is fragmented about once a second, so that
// a process that dies leaves a file readable up to its last fragment.
//
// Contract:
// - append and appendWebcam are called from one thread at a time (the
//   session's capture path) and never wait: encoding and writing run on the
//   writer's own thread. When that thread is behind, a picture is dropped
//   and counted, and sound is dropped silently.
// - The file begins at the first screen frame: earlier sound is thrown away
//   and earlier webcam frames are counted as dropped.
// - A failure of encoding or writing is terminal: every later append raises
//   it, and what was written up to the last fragment stays on disk.
// - finish() completes the file; cancel() abandons it. A writer destroyed
//   without either closes the file where it stands, for recovery.

#include "capture/CaptureSampleBuffers.h"
#include "project/document/CaptureSamples.h"
#include "project/document/ProjectManifest.h"
#include "shared/Errors.h"
#include "shared/ProjectTime.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace rilo {

enum class RecordingMediaWriterErrorCase {
    cannotAddInput,
    startFailed,
    appendFailed,
    finishFailed,
    cancelled
};

class RecordingMediaWriterError : public CaseError<RecordingMediaWriterErrorCase> {
public:
    // trackName: "屏幕", "摄像头", "系统音频" or "麦克风".
    static RecordingMediaWriterError cannotAddInput(const std::string& trackName) {
        return {Case::cannotAddInput, "无法创建 " + trackName + " 媒体轨道。"};
    }
    static RecordingMediaWriterError startFailed(const std::string& detail) {
        return {Case::startFailed, "录制文件启动失败：" + detail};
    }
    static RecordingMediaWriterError appendFailed(const std::string& detail) {
        return {Case::appendFailed, "录制数据写入失败：" + detail};
    }
    static RecordingMediaWriterError finishFailed(const std::string& detail) {
        return {Case::finishFailed, "录制文件完成失败：" + detail};
    }
    static RecordingMediaWriterError cancelled() { return {Case::cancelled, "录制数据写入失败：录制已取消"}; }

private:
    using CaseError::CaseError;
};

enum class RecordingAudioTrack { systemAudio, microphone };

struct RecordingMediaWriterResult {
    ProjectTime duration; // last screen frame minus the first
    std::int64_t videoFrames = 0;
    std::int64_t droppedVideoFrames = 0;
    std::int64_t systemAudioSamples = 0;
    std::int64_t microphoneSamples = 0;
    std::int64_t webcamFrames = 0;
    std::int64_t droppedWebcamFrames = 0;
    std::int64_t maximumWebcamOffsetNanoseconds = 0;
    // How far either sound track moved against the screen over the recording.
    std::int64_t maximumAVDriftNanoseconds = 0;

    friend bool operator==(const RecordingMediaWriterResult&, const RecordingMediaWriterResult&) = default;
};

class RecordingMediaWriter {
public:
    // Removes a file at the path (a failure is raised as FileError) and makes
    // the tracks; the file itself is begun by the first screen frame.
    RecordingMediaWriter(std::filesystem::path path, PixelSize size, const RecordingOptions& options,
                         const std::optional<WebcamCaptureConfiguration>& webcamConfiguration);
    ~RecordingMediaWriter();
    RecordingMediaWriter(const RecordingMediaWriter&) = delete;
    RecordingMediaWriter& operator=(const RecordingMediaWriter&) = delete;

    // A screen frame of the encoded size.
    void append(const VideoSampleBuffer& sample);
    // Sound, in the order it was captured; a buffer not after the previous one is ignored.
    void append(const AudioSampleBuffer& sample, RecordingAudioTrack track);
    void appendWebcam(const VideoSampleBuffer& sample);

    RecordingMediaWriterResult finish();
    void cancel();

    // Screen frames taken and dropped so far; called where append is.
    struct FrameCounts {
        std::int64_t written = 0;
        std::int64_t dropped = 0;
    };
    FrameCounts frameCounts() const;

    // Pictures that may wait for the encoder before a new one is dropped.
    static constexpr int maximumPendingFrames = 4;

private:
    class State;
    std::unique_ptr<State> state_;
};

} // namespace rilo

#pragma once

// The manifest of a project package (manifest.json): what was recorded, how,
// where the media lies, and how the recording went. Optional members are left
// out of the JSON when absent.

#include "project/document/MediaTrackKind.h"
#include "shared/Geometry.h"
#include "shared/IsoDate.h"
#include "shared/Json.h"
#include "shared/ProjectTime.h"
#include "shared/Uuid.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace rilo {

enum class ProjectState { recording, finalizing, completed, recovered, failed };

enum class CaptureSourceKind { display, window, area, device };

struct CaptureSourceDescriptor {
    CaptureSourceKind kind = CaptureSourceKind::display;
    std::uint32_t nativeID = 0; // display or window number; 0 for a device
    std::string title;
    std::optional<std::string> applicationName;
    RectValue globalFrame;
    PixelSize initialPixelSize;
    std::optional<RectValue> areaSourceRect;
    std::optional<double> pointPixelScale;
    std::optional<std::string> deviceUniqueID;

    // "display-7", "window-12", "area-1", "device-<unique id>" or "device".
    std::string id() const;
    static CaptureSourceDescriptor device(const std::string& id, const std::string& name,
                                          PixelSize pixelSize);

    friend bool operator==(const CaptureSourceDescriptor&, const CaptureSourceDescriptor&) = default;
};

struct RecordingOptions {
    bool capturesSystemAudio = true;
    bool capturesMicrophone = true;
    bool capturesWebcam = false;
    bool capturesMenuBar = true;
    std::optional<std::string> microphoneDeviceID;
    std::optional<std::string> webcamDeviceID;
    std::int64_t framesPerSecond = 60;

    friend bool operator==(const RecordingOptions&, const RecordingOptions&) = default;
};

struct MediaTrack {
    MediaTrackKind kind = MediaTrackKind::screen;
    std::int64_t trackIndex = 0; // position of the track in the media file

    friend bool operator==(const MediaTrack&, const MediaTrack&) = default;
};

struct MediaAsset {
    std::string relativePath = "media/recording.mov";
    std::vector<MediaTrack> tracks;

    friend bool operator==(const MediaAsset&, const MediaAsset&) = default;
};

struct MicrophoneMediaInfo {
    std::optional<std::string> deviceID;
    std::string deviceName;

    friend bool operator==(const MicrophoneMediaInfo&, const MicrophoneMediaInfo&) = default;
};

struct WebcamMediaInfo {
    std::int64_t trackIndex = 0;
    std::string deviceID;
    std::string deviceName;
    PixelSize pixelSize;
    std::int64_t framesPerSecond = 30;

    friend bool operator==(const WebcamMediaInfo&, const WebcamMediaInfo&) = default;
};

struct CursorAssetDescriptor {
    std::string id;
    std::string relativePath;
    SizeValue logicalSize;
    PointValue hotSpot;

    friend bool operator==(const CursorAssetDescriptor&, const CursorAssetDescriptor&) = default;
};

struct RecordingMetrics {
    std::int64_t videoFrames = 0;
    std::int64_t droppedVideoFrames = 0;
    std::int64_t systemAudioSamples = 0;
    std::int64_t microphoneSamples = 0;
    std::optional<std::int64_t> webcamFrames;
    std::optional<std::int64_t> droppedWebcamFrames;
    std::optional<std::int64_t> webcamInterruptions;
    std::optional<std::int64_t> maximumWebcamOffsetNanoseconds;
    std::int64_t mouseEvents = 0;
    std::int64_t geometryRevisions = 0;
    std::int64_t maximumClockOffsetNanoseconds = 0;
    std::optional<std::int64_t> timeDiscontinuities;
    std::optional<std::int64_t> pauseCount;
    std::optional<std::int64_t> pausedDurationNanoseconds;
    std::optional<std::int64_t> maximumAVDriftNanoseconds;
    std::optional<std::uint64_t> peakResidentMemoryBytes;
    // The media writer's final state; "recoveredFragment" after recovery.
    std::optional<std::string> writerStatus;

    friend bool operator==(const RecordingMetrics&, const RecordingMetrics&) = default;
};

inline constexpr std::int64_t currentManifestVersion = 4;

struct ProjectManifest {
    // The longest recording a manifest may describe: thirty days. Time
    // arithmetic on the 60 fps grid stays far inside 64 bits below it, so a
    // damaged duration is refused on reading instead of overflowing later.
    static constexpr ProjectTime longestDuration{30LL * 24 * 3600 * 1'000'000'000};

    std::int64_t version = currentManifestVersion; // not acted on when reading
    Uuid id;
    IsoDate createdAt;
    IsoDate updatedAt;
    ProjectState state = ProjectState::recording;
    CaptureSourceDescriptor source;
    RecordingOptions options;
    PixelSize encodedPixelSize;
    ProjectTime duration; // 0 until the recording is finished
    MediaAsset media;
    std::optional<MicrophoneMediaInfo> microphone;
    std::optional<WebcamMediaInfo> webcam;
    // Absent means: read the cursor store's own index instead.
    std::optional<std::vector<CursorAssetDescriptor>> cursorAssets;
    RecordingMetrics metrics;
    std::optional<std::string> failureReason;

    friend bool operator==(const ProjectManifest&, const ProjectManifest&) = default;
};

} // namespace rilo

namespace rilo::json {

template <>
struct EnumNames<ProjectState> {
    static constexpr std::array<std::pair<ProjectState, std::string_view>, 5> entries{{
        {ProjectState::recording, "recording"},
        {ProjectState::finalizing, "finalizing"},
        {ProjectState::completed, "completed"},
        {ProjectState::recovered, "recovered"},
        {ProjectState::failed, "failed"},
    }};
};

template <>
struct EnumNames<CaptureSourceKind> {
    static constexpr std::array<std::pair<CaptureSourceKind, std::string_view>, 4> entries{{
        {CaptureSourceKind::display, "display"},
        {CaptureSourceKind::window, "window"},
        {CaptureSourceKind::area, "area"},
        {CaptureSourceKind::device, "device"},
    }};
};

#define RILO_DECLARE_CODEC(Type)                                                                             \
    template <>                                                                                              \
    struct Codec<Type> {                                                                                     \
        static Type decode(const Json& value, const std::string& path);                                      \
        static Json encode(const Type& value);                                                               \
    }

RILO_DECLARE_CODEC(CaptureSourceDescriptor);
RILO_DECLARE_CODEC(RecordingOptions);
RILO_DECLARE_CODEC(MediaTrack);
RILO_DECLARE_CODEC(MediaAsset);
RILO_DECLARE_CODEC(MicrophoneMediaInfo);
RILO_DECLARE_CODEC(WebcamMediaInfo);
RILO_DECLARE_CODEC(CursorAssetDescriptor);
RILO_DECLARE_CODEC(RecordingMetrics);
RILO_DECLARE_CODEC(ProjectManifest);

#undef RILO_DECLARE_CODEC

} // namespace rilo::json

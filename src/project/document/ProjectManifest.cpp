#include "project/document/ProjectManifest.h"

#include "shared/ValueCodecs.h"

#include <filesystem>

namespace rilo {

std::string CaptureSourceDescriptor::id() const {
    if (kind == CaptureSourceKind::device) {
        return deviceUniqueID ? "device-" + *deviceUniqueID : std::string("device");
    }
    return std::string(json::rawValue(kind)) + "-" + std::to_string(nativeID);
}

CaptureSourceDescriptor CaptureSourceDescriptor::device(const std::string& id, const std::string& name,
                                                        PixelSize pixelSize) {
    CaptureSourceDescriptor descriptor;
    descriptor.kind = CaptureSourceKind::device;
    descriptor.nativeID = 0;
    descriptor.title = name;
    descriptor.globalFrame = {0, 0, static_cast<double>(pixelSize.width),
                              static_cast<double>(pixelSize.height)};
    descriptor.initialPixelSize = pixelSize;
    descriptor.deviceUniqueID = id;
    return descriptor;
}

} // namespace rilo

namespace rilo::json {

CaptureSourceDescriptor Codec<CaptureSourceDescriptor>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    CaptureSourceDescriptor source;
    source.kind = reader.required<CaptureSourceKind>("kind");
    source.nativeID = reader.required<std::uint32_t>("nativeID");
    source.title = reader.required<std::string>("title");
    source.applicationName = reader.optional<std::string>("applicationName");
    source.globalFrame = reader.required<RectValue>("globalFrame");
    source.initialPixelSize = reader.required<PixelSize>("initialPixelSize");
    source.areaSourceRect = reader.optional<RectValue>("areaSourceRect");
    source.pointPixelScale = reader.optional<double>("pointPixelScale");
    source.deviceUniqueID = reader.optional<std::string>("deviceUniqueID");
    return source;
}

Json Codec<CaptureSourceDescriptor>::encode(const CaptureSourceDescriptor& source) {
    return ObjectBuilder()
        .set("kind", source.kind)
        .set("nativeID", source.nativeID)
        .set("title", source.title)
        .setIfPresent("applicationName", source.applicationName)
        .set("globalFrame", source.globalFrame)
        .set("initialPixelSize", source.initialPixelSize)
        .setIfPresent("areaSourceRect", source.areaSourceRect)
        .setIfPresent("pointPixelScale", source.pointPixelScale)
        .setIfPresent("deviceUniqueID", source.deviceUniqueID)
        .build();
}

RecordingOptions Codec<RecordingOptions>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    const RecordingOptions defaults;
    RecordingOptions options;
    options.capturesSystemAudio = reader.valueOr("capturesSystemAudio", defaults.capturesSystemAudio);
    options.capturesMicrophone = reader.valueOr("capturesMicrophone", defaults.capturesMicrophone);
    options.capturesWebcam = reader.valueOr("capturesWebcam", defaults.capturesWebcam);
    options.capturesMenuBar = reader.valueOr("capturesMenuBar", defaults.capturesMenuBar);
    options.microphoneDeviceID = reader.optional<std::string>("microphoneDeviceID");
    options.webcamDeviceID = reader.optional<std::string>("webcamDeviceID");
    options.framesPerSecond = reader.valueOr("framesPerSecond", defaults.framesPerSecond);
    return options;
}

Json Codec<RecordingOptions>::encode(const RecordingOptions& options) {
    return ObjectBuilder()
        .set("capturesSystemAudio", options.capturesSystemAudio)
        .set("capturesMicrophone", options.capturesMicrophone)
        .set("capturesWebcam", options.capturesWebcam)
        .set("capturesMenuBar", options.capturesMenuBar)
        .setIfPresent("microphoneDeviceID", options.microphoneDeviceID)
        .setIfPresent("webcamDeviceID", options.webcamDeviceID)
        .set("framesPerSecond", options.framesPerSecond)
        .build();
}

namespace {

// A file of the package is named relative to the package's directory, and
// only below it: a damaged or crafted manifest must not make the program read
// elsewhere.
std::string packageRelativePath(const ObjectReader& reader, const std::string& path) {
    std::string relativePath = reader.required<std::string>("relativePath");
    const std::filesystem::path named(relativePath);
    bool staysInside = !relativePath.empty() && named.is_relative() && !named.has_root_name();
    for (const auto& part : named) {
        staysInside = staysInside && part != "..";
    }
    if (!staysInside) {
        throwTypeMismatch(joinPath(path, "relativePath"), "包内的相对路径");
    }
    return relativePath;
}

} // namespace

MediaTrack Codec<MediaTrack>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    return {reader.required<MediaTrackKind>("kind"), reader.required<std::int64_t>("trackIndex")};
}

Json Codec<MediaTrack>::encode(const MediaTrack& track) {
    return ObjectBuilder().set("kind", track.kind).set("trackIndex", track.trackIndex).build();
}

MediaAsset Codec<MediaAsset>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    return {packageRelativePath(reader, path), reader.required<std::vector<MediaTrack>>("tracks")};
}

Json Codec<MediaAsset>::encode(const MediaAsset& media) {
    return ObjectBuilder().set("relativePath", media.relativePath).set("tracks", media.tracks).build();
}

MicrophoneMediaInfo Codec<MicrophoneMediaInfo>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    return {reader.optional<std::string>("deviceID"), reader.required<std::string>("deviceName")};
}

Json Codec<MicrophoneMediaInfo>::encode(const MicrophoneMediaInfo& microphone) {
    return ObjectBuilder()
        .setIfPresent("deviceID", microphone.deviceID)
        .set("deviceName", microphone.deviceName)
        .build();
}

WebcamMediaInfo Codec<WebcamMediaInfo>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    WebcamMediaInfo webcam;
    webcam.trackIndex = reader.required<std::int64_t>("trackIndex");
    webcam.deviceID = reader.required<std::string>("deviceID");
    webcam.deviceName = reader.required<std::string>("deviceName");
    webcam.pixelSize = reader.required<PixelSize>("pixelSize");
    webcam.framesPerSecond = reader.required<std::int64_t>("framesPerSecond");
    return webcam;
}

Json Codec<WebcamMediaInfo>::encode(const WebcamMediaInfo& webcam) {
    return ObjectBuilder()
        .set("trackIndex", webcam.trackIndex)
        .set("deviceID", webcam.deviceID)
        .set("deviceName", webcam.deviceName)
        .set("pixelSize", webcam.pixelSize)
        .set("framesPerSecond", webcam.framesPerSecond)
        .build();
}

CursorAssetDescriptor Codec<CursorAssetDescriptor>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    return {reader.required<std::string>("id"), packageRelativePath(reader, path),
            reader.required<SizeValue>("logicalSize"), reader.required<PointValue>("hotSpot")};
}

Json Codec<CursorAssetDescriptor>::encode(const CursorAssetDescriptor& asset) {
    return ObjectBuilder()
        .set("id", asset.id)
        .set("relativePath", asset.relativePath)
        .set("logicalSize", asset.logicalSize)
        .set("hotSpot", asset.hotSpot)
        .build();
}

RecordingMetrics Codec<RecordingMetrics>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    RecordingMetrics metrics;
    metrics.videoFrames = reader.required<std::int64_t>("videoFrames");
    metrics.droppedVideoFrames = reader.required<std::int64_t>("droppedVideoFrames");
    metrics.systemAudioSamples = reader.required<std::int64_t>("systemAudioSamples");
    metrics.microphoneSamples = reader.required<std::int64_t>("microphoneSamples");
    metrics.webcamFrames = reader.optional<std::int64_t>("webcamFrames");
    metrics.droppedWebcamFrames = reader.optional<std::int64_t>("droppedWebcamFrames");
    metrics.webcamInterruptions = reader.optional<std::int64_t>("webcamInterruptions");
    metrics.maximumWebcamOffsetNanoseconds = reader.optional<std::int64_t>("maximumWebcamOffsetNanoseconds");
    metrics.mouseEvents = reader.required<std::int64_t>("mouseEvents");
    metrics.geometryRevisions = reader.required<std::int64_t>("geometryRevisions");
    metrics.maximumClockOffsetNanoseconds = reader.required<std::int64_t>("maximumClockOffsetNanoseconds");
    metrics.timeDiscontinuities = reader.optional<std::int64_t>("timeDiscontinuities");
    metrics.pauseCount = reader.optional<std::int64_t>("pauseCount");
    metrics.pausedDurationNanoseconds = reader.optional<std::int64_t>("pausedDurationNanoseconds");
    metrics.maximumAVDriftNanoseconds = reader.optional<std::int64_t>("maximumAVDriftNanoseconds");
    metrics.peakResidentMemoryBytes = reader.optional<std::uint64_t>("peakResidentMemoryBytes");
    metrics.writerStatus = reader.optional<std::string>("writerStatus");
    return metrics;
}

Json Codec<RecordingMetrics>::encode(const RecordingMetrics& metrics) {
    return ObjectBuilder()
        .set("videoFrames", metrics.videoFrames)
        .set("droppedVideoFrames", metrics.droppedVideoFrames)
        .set("systemAudioSamples", metrics.systemAudioSamples)
        .set("microphoneSamples", metrics.microphoneSamples)
        .setIfPresent("webcamFrames", metrics.webcamFrames)
        .setIfPresent("droppedWebcamFrames", metrics.droppedWebcamFrames)
        .setIfPresent("webcamInterruptions", metrics.webcamInterruptions)
        .setIfPresent("maximumWebcamOffsetNanoseconds", metrics.maximumWebcamOffsetNanoseconds)
        .set("mouseEvents", metrics.mouseEvents)
        .set("geometryRevisions", metrics.geometryRevisions)
        .set("maximumClockOffsetNanoseconds", metrics.maximumClockOffsetNanoseconds)
        .setIfPresent("timeDiscontinuities", metrics.timeDiscontinuities)
        .setIfPresent("pauseCount", metrics.pauseCount)
        .setIfPresent("pausedDurationNanoseconds", metrics.pausedDurationNanoseconds)
        .setIfPresent("maximumAVDriftNanoseconds", metrics.maximumAVDriftNanoseconds)
        .setIfPresent("peakResidentMemoryBytes", metrics.peakResidentMemoryBytes)
        .setIfPresent("writerStatus", metrics.writerStatus)
        .build();
}

ProjectManifest Codec<ProjectManifest>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    ProjectManifest manifest;
    manifest.version = reader.required<std::int64_t>("version");
    manifest.id = reader.required<Uuid>("id");
    manifest.createdAt = reader.required<IsoDate>("createdAt");
    manifest.updatedAt = reader.required<IsoDate>("updatedAt");
    manifest.state = reader.required<ProjectState>("state");
    manifest.source = reader.required<CaptureSourceDescriptor>("source");
    manifest.options = reader.required<RecordingOptions>("options");
    manifest.encodedPixelSize = reader.required<PixelSize>("encodedPixelSize");
    manifest.duration = reader.required<ProjectTime>("duration");
    if (manifest.duration < ProjectTime{0} || manifest.duration > ProjectManifest::longestDuration) {
        throwTypeMismatch(joinPath(path, "duration"), "范围内的整数");
    }
    manifest.media = reader.required<MediaAsset>("media");
    manifest.microphone = reader.optional<MicrophoneMediaInfo>("microphone");
    manifest.webcam = reader.optional<WebcamMediaInfo>("webcam");
    manifest.cursorAssets = reader.optional<std::vector<CursorAssetDescriptor>>("cursorAssets");
    manifest.metrics = reader.required<RecordingMetrics>("metrics");
    manifest.failureReason = reader.optional<std::string>("failureReason");
    return manifest;
}

Json Codec<ProjectManifest>::encode(const ProjectManifest& manifest) {
    return ObjectBuilder()
        .set("version", manifest.version)
        .set("id", manifest.id)
        .set("createdAt", manifest.createdAt)
        .set("updatedAt", manifest.updatedAt)
        .set("state", manifest.state)
        .set("source", manifest.source)
        .set("options", manifest.options)
        .set("encodedPixelSize", manifest.encodedPixelSize)
        .set("duration", manifest.duration)
        .set("media", manifest.media)
        .setIfPresent("microphone", manifest.microphone)
        .setIfPresent("webcam", manifest.webcam)
        .setIfPresent("cursorAssets", manifest.cursorAssets)
        .set("metrics", manifest.metrics)
        .setIfPresent("failureReason", manifest.failureReason)
        .build();
}

} // namespace rilo::json

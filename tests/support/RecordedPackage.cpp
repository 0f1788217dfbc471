#include "support/RecordedPackage.h"

#include "media/PngCodec.h"
#include "project/store/ChunkStore.h"
#include "project/store/CursorAssetStore.h"

#include <algorithm>

namespace rilo::testing {

namespace {

// The pointer glides from one click to the next; clicks press and release.
std::vector<MouseEvent> mouseTrack(const RecordedPackageOptions& spec, const GeometrySample& geometry) {
    std::vector<MouseEvent> events;
    const ProjectTime frame{16'666'666};
    PointValue position{0.5, 0.5};
    std::size_t nextClick = 0;
    for (ProjectTime t = ProjectTime::zero(); t < spec.movie.duration; t = t + frame) {
        MouseEvent event;
        event.time = t;
        event.rawTimestampNanoseconds = static_cast<std::uint64_t>(t.nanoseconds) + 5'000'000'000ULL;
        event.geometryRevision = geometry.revision;
        event.isInsideSource = true;
        if (nextClick < spec.clicks.size()) {
            const auto& [clickTime, target] = spec.clicks[nextClick];
            const double remaining =
                std::max(1.0, static_cast<double>((clickTime - t).nanoseconds) / frame.nanoseconds);
            position = {position.x + (target.x - position.x) / remaining,
                        position.y + (target.y - position.y) / remaining};
            if (t >= clickTime) {
                position = target;
                event.button = MouseButton::left;
                event.phase = MousePhase::down;
            }
        }
        event.normalizedPoint = position;
        event.localPoint = {position.x * geometry.globalWindowFrame.width,
                            position.y * geometry.globalWindowFrame.height};
        event.globalPoint = {event.localPoint.x + geometry.globalWindowFrame.x,
                             event.localPoint.y + geometry.globalWindowFrame.y};
        if (std::any_of(spec.stillRanges.begin(), spec.stillRanges.end(),
                        [&](const ProjectTimeRange& still) { return still.contains(t); })) {
            continue;
        }
        events.push_back(event);
        if (event.phase == MousePhase::down) {
            MouseEvent release = event;
            release.time = t + ProjectTime::fromMilliseconds(80);
            release.rawTimestampNanoseconds += 80'000'000;
            release.phase = MousePhase::up;
            events.push_back(release);
            t = release.time;
            ++nextClick;
        }
    }
    return events;
}

template <class T>
void writeChunks(const std::filesystem::path& directory, const std::vector<T>& samples,
                 std::function<ProjectTime(const T&)> time) {
    ChunkStore<T> store(directory, recordingChunkMaximumCount, recordingChunkMaximumSpanNanoseconds,
                        std::move(time));
    for (const T& sample : samples) {
        store.append(sample);
    }
    store.flush();
}

std::string arrowCursorPng() {
    constexpr int size = 16;
    std::vector<std::uint8_t> rgba(size * size * 4, 0);
    for (int y = 0; y < size; ++y) {
        for (int x = 0; x <= y / 2; ++x) {
            std::uint8_t* pixel = &rgba[static_cast<std::size_t>((y * size + x) * 4)];
            pixel[3] = 255; // black arrow, opaque
        }
    }
    return encodePng(size, size, rgba);
}

} // namespace

RecordedPackage makeRecordedPackage(ProjectStore& store) {
    const RecordedPackageOptions defaults;
    return makeRecordedPackage(store, defaults);
}

RecordedPackage makeRecordedPackage(ProjectStore& store, const RecordedPackageOptions& spec) {
    CaptureSourceDescriptor source;
    source.kind = CaptureSourceKind::display;
    source.nativeID = 1;
    source.title = "测试显示器";
    source.globalFrame = {0, 0, 1280, 720};
    source.initialPixelSize = spec.movie.screen.pixelSize;
    source.pointPixelScale = 1;

    RecordingOptions options;
    options.capturesSystemAudio = spec.movie.systemAudio.has_value();
    options.capturesMicrophone = spec.movie.microphone.has_value();
    std::optional<MicrophoneDeviceDescriptor> microphone;
    if (spec.movie.microphone) {
        microphone = MicrophoneDeviceDescriptor{"test-microphone", "测试麦克风", true};
    }
    // The movie's layout below sets the manifest's webcam, when there is one.
    auto [package, manifest] =
        store.create(source, options, spec.movie.screen.pixelSize, microphone, std::nullopt);

    const RecordingMovieLayout layout = writeRecordingMovie(package.mediaURL(), spec.movie);
    layout.applyTo(manifest);

    RecordedPackage result;
    GeometrySample geometry;
    geometry.time = ProjectTime::zero();
    geometry.revision = 1;
    geometry.globalWindowFrame = source.globalFrame;
    geometry.sourceContentSize = {source.globalFrame.width, source.globalFrame.height};
    geometry.encodedPixelSize = spec.movie.screen.pixelSize;
    geometry.contentRectInEncodedFrame = {0, 0, static_cast<double>(spec.movie.screen.pixelSize.width),
                                          static_cast<double>(spec.movie.screen.pixelSize.height)};
    result.geometry = {geometry};
    result.mouseEvents = mouseTrack(spec, geometry);
    writeChunks<GeometrySample>(package.geometryDirectory(), result.geometry,
                                [](const GeometrySample& sample) { return sample.time; });
    writeChunks<MouseEvent>(package.eventsDirectory(), result.mouseEvents,
                            [](const MouseEvent& event) { return event.time; });

    CursorAssetStore cursors(package.cursorAssetsDirectory());
    result.cursorAsset = cursors.store(arrowCursorPng(), {16, 16}, {0, 0});
    writeChunks<CursorShapeSample>(package.cursorEventsDirectory(),
                                   {CursorShapeSample{ProjectTime::zero(), result.cursorAsset.id}},
                                   [](const CursorShapeSample& sample) { return sample.time; });

    manifest.cursorAssets = cursors.descriptors();
    manifest.metrics.videoFrames = layout.duration.nanoseconds * layout.screenFramesPerSecond / 1'000'000'000;
    manifest.metrics.mouseEvents = static_cast<std::int64_t>(result.mouseEvents.size());
    manifest.metrics.geometryRevisions = 1;
    manifest.metrics.writerStatus = "completed";
    if (spec.finished) {
        manifest.state = ProjectState::finalizing;
        store.updateManifest(manifest, package);
        package = store.finish(package, manifest);
        manifest = store.readManifest(package);
    } else {
        store.updateManifest(manifest, package);
    }
    result.package = package;
    result.manifest = manifest;
    return result;
}

} // namespace rilo::testing

#include "support/PackageFixtures.h"

#include "shared/Files.h"

#include <fstream>

namespace rilo::testing {

ProjectManifest sampleManifest(const Uuid& id, IsoDate updatedAt, ProjectState state) {
    ProjectManifest manifest;
    manifest.id = id;
    manifest.createdAt = IsoDate{updatedAt.secondsSinceEpoch - 600};
    manifest.updatedAt = updatedAt;
    manifest.state = state;
    manifest.source.kind = CaptureSourceKind::display;
    manifest.source.nativeID = 1;
    manifest.source.title = "内建显示器 / Built-in";
    manifest.source.globalFrame = {0, 0, 1512, 982};
    manifest.source.initialPixelSize = PixelSize(3024, 1964);
    manifest.source.pointPixelScale = 2;
    manifest.options.microphoneDeviceID = "mic-1";
    manifest.encodedPixelSize = PixelSize(3024, 1964);
    manifest.duration = ProjectTime{12'345'678'901};
    manifest.media.tracks = {
        {MediaTrackKind::screen, 0}, {MediaTrackKind::systemAudio, 1}, {MediaTrackKind::microphone, 2}};
    manifest.microphone = MicrophoneMediaInfo{"mic-1", "USB Microphone"};
    manifest.webcam = WebcamMediaInfo{3, "cam-1", "Webcam", PixelSize(1280, 720), 30};
    manifest.cursorAssets =
        std::vector<CursorAssetDescriptor>{{"ab12", "cursor/assets/ab12.png", {32, 32}, {0.25, 0.125}}};
    manifest.metrics.videoFrames = 740;
    manifest.metrics.mouseEvents = 1200;
    manifest.metrics.peakResidentMemoryBytes = 123'456'789;
    manifest.metrics.writerStatus = "completed";
    return manifest;
}

ProjectPackage writePackage(const std::filesystem::path& library, const ProjectManifest& manifest,
                            const PackageOptions& options) {
    const ProjectPackage package{library / (manifest.id.string() + options.suffix)};
    for (const auto& directory : package.creationDirectories()) {
        std::filesystem::create_directories(directory);
    }
    writeFileAtomically(package.manifestURL(), json::encodeDocument(manifest));
    if (options.withMedia) {
        std::ofstream(package.mediaURL()) << "media";
    }
    return package;
}

} // namespace rilo::testing

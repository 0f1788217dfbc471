// The life of a package: creation for the recorder, finishing, failing,
// recovery, deletion and loading. The rules on names and locations of
// removals are enforced here, at one place: nothing outside the library, no
// symbolic link and no name that is not a UUID is ever removed.

#include "project/caption/CaptionCodecs.h"
#include "project/document/TimelineCodecs.h"
#include "project/store/ChunkStore.h"
#include "project/store/CursorAssetStore.h"
#include "project/store/ProjectStore.h"
#include "shared/Files.h"
#include "shared/Sha256.h"

#include <algorithm>
#include <system_error>

namespace rilo {

namespace {

constexpr std::string_view backgroundsPrefix = "assets/backgrounds/";

// Absolute, with "." and ".." resolved and no trailing separator; symbolic
// links are not followed (a link must be seen as one).
std::filesystem::path standardized(const std::filesystem::path& path) {
    std::filesystem::path result = std::filesystem::absolute(path).lexically_normal();
    if (!result.has_filename() && result.has_parent_path() && result != result.root_path()) {
        result = result.parent_path();
    }
    return result;
}

std::optional<Uuid> uuidBefore(const std::string& name, std::string_view suffix) {
    if (!name.ends_with(suffix)) {
        return std::nullopt;
    }
    return Uuid::parse(std::string_view(name).substr(0, name.size() - suffix.size()));
}

bool isSymbolicLink(const std::filesystem::path& path) {
    std::error_code error;
    return std::filesystem::is_symlink(std::filesystem::symlink_status(path, error));
}

void check(const std::error_code& error, const std::string& what, const std::filesystem::path& path) {
    if (error) {
        throw FileError(what + path.string() + "（" + error.message() + "）");
    }
}

bool isContentID(const std::string& id) {
    return id.size() == 64 && std::all_of(id.begin(), id.end(), [](char c) {
               return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
           });
}

std::vector<std::filesystem::path> libraryEntries(const std::filesystem::path& library) {
    std::vector<std::filesystem::path> entries;
    std::error_code error;
    std::filesystem::directory_iterator iterator(library, error);
    check(error, "无法读取项目目录：", library);
    for (const auto& entry : iterator) {
        if (!entry.path().filename().string().starts_with(".")) {
            entries.push_back(entry.path());
        }
    }
    std::sort(entries.begin(), entries.end());
    return entries;
}

// <UUID>.rilo.tmp (or .rilo) becomes <UUID>.rilo beside it; what is there
// already is replaced. The old package is first renamed to
// <UUID>.rilo.discarding and removed only once the new one stands in its
// place, so that a crash never leaves a partly removed package under the
// finished name; a leftover .rilo.discarding is removed at the next start.
ProjectPackage moveToFinalName(const ProjectPackage& package) {
    const std::filesystem::path root = standardized(package.rootURL);
    const std::string stem = root.stem().stem().string();
    const std::filesystem::path finalURL = root.parent_path() / (stem + std::string(finishedPackageSuffix));
    const std::filesystem::path discardingURL =
        root.parent_path() / (stem + std::string(discardingPackageSuffix));
    std::error_code error;
    const bool replaces =
        finalURL != root && std::filesystem::exists(std::filesystem::symlink_status(finalURL, error));
    if (replaces) {
        std::filesystem::remove_all(discardingURL, error);
        check(error, "无法替换项目：", finalURL);
        std::filesystem::rename(finalURL, discardingURL, error);
        check(error, "无法替换项目：", finalURL);
    }
    std::filesystem::rename(root, finalURL, error);
    if (error && replaces) {
        std::error_code ignored;
        std::filesystem::rename(discardingURL, finalURL, ignored);
    }
    check(error, "无法移动项目：", root);
    if (replaces) {
        std::filesystem::remove_all(discardingURL, error);
        check(error, "无法替换项目：", finalURL);
    }
    return ProjectPackage{finalURL};
}

} // namespace

ProjectStore::CreatedProject ProjectStore::create(const CaptureSourceDescriptor& source,
                                                  const RecordingOptions& options, PixelSize encodedPixelSize,
                                                  const std::optional<MicrophoneDeviceDescriptor>& microphone,
                                                  const std::optional<WebcamCaptureConfiguration>& webcam) {
    const Uuid id = Uuid::random();
    const ProjectPackage package{projectsDirectory_ / (id.string() + std::string(unfinishedPackageSuffix))};
    for (const auto& directory : package.creationDirectories()) {
        std::error_code error;
        std::filesystem::create_directories(directory, error);
        check(error, "无法创建项目目录：", directory);
    }

    // The screen is track 0; a webcam takes track 1, then the audio follows.
    std::vector<MediaTrack> tracks{{MediaTrackKind::screen, 0}};
    std::int64_t nextIndex = webcam ? 2 : 1;
    if (options.capturesSystemAudio) {
        tracks.push_back({MediaTrackKind::systemAudio, nextIndex++});
    }
    if (options.capturesMicrophone) {
        tracks.push_back({MediaTrackKind::microphone, nextIndex});
    }

    ProjectManifest manifest;
    manifest.version = currentManifestVersion;
    manifest.id = id;
    manifest.createdAt = IsoDate::now();
    manifest.updatedAt = manifest.createdAt;
    manifest.state = ProjectState::recording;
    manifest.source = source;
    manifest.options = options;
    manifest.encodedPixelSize = encodedPixelSize;
    manifest.duration = ProjectTime::zero();
    manifest.media = MediaAsset{"media/recording.mov", tracks};
    if (microphone) {
        manifest.microphone = MicrophoneMediaInfo{microphone->id, microphone->name};
    }
    if (webcam) {
        manifest.webcam = WebcamMediaInfo{1, webcam->deviceID, webcam->deviceName, webcam->pixelSize,
                                          webcam->framesPerSecond};
    }
    manifest.cursorAssets = std::vector<CursorAssetDescriptor>{};
    writeFileAtomically(package.manifestURL(), json::encodeDocument(manifest));

    EditTimeline timeline = EditTimeline::empty();
    if (source.kind == CaptureSourceKind::device) {
        // A missing catalog only means no frame: a recording is never refused for it.
        try {
            if (const auto assetID = deviceFrameCatalog_().defaultAssetID(encodedPixelSize)) {
                timeline.deviceFrame = DeviceFrameEdit{true, *assetID};
            }
        } catch (const LocalizedError&) {
        }
    }
    writeFileAtomically(package.timelineURL(), json::encodeDocument(timeline));
    return {package, manifest};
}

void ProjectStore::updateManifest(const ProjectManifest& manifest, const ProjectPackage& package) {
    writeFileAtomically(package.manifestURL(), json::encodeDocument(manifest));
}

void ProjectStore::writeCanvasBackgroundAsset(const CanvasBackgroundAssetPayload& payload,
                                              const ProjectPackage& package) {
    const CanvasBackgroundImage& image = payload.descriptor;
    if (!isContentID(image.id) || image.relativePath != std::string(backgroundsPrefix) + image.id + ".jpg" ||
        sha256Hex(payload.imageData) != image.id) {
        throw ProjectStoreError::invalidProjectLocation();
    }
    std::error_code error;
    std::filesystem::create_directories(package.canvasBackgroundsDirectory(), error);
    check(error, "无法创建目录：", package.canvasBackgroundsDirectory());
    writeFileAtomically(package.rootURL / image.relativePath, payload.imageData);
}

void ProjectStore::writeReport(const DiagnosticReport& report, const ProjectPackage& package) {
    writeFileAtomically(package.reportURL(), json::encodeDocument(report));
}

ProjectPackage ProjectStore::finish(const ProjectPackage& package, ProjectManifest manifest) {
    manifest.state = ProjectState::completed;
    manifest.updatedAt = IsoDate::now();
    updateManifest(manifest, package);
    return moveToFinalName(package);
}

void ProjectStore::markFailed(const ProjectPackage& package, ProjectManifest manifest,
                              const std::string& reason) {
    manifest.state = ProjectState::failed;
    manifest.updatedAt = IsoDate::now();
    manifest.failureReason = reason;
    updateManifest(manifest, package);
}

void ProjectStore::deleteProject(const ProjectPackage& project) {
    const std::filesystem::path root = standardized(project.rootURL);
    if (root.extension() != "." + std::string(projectPackageExtension) ||
        root.parent_path() != standardized(projectsDirectory_)) {
        throw ProjectStoreError::invalidProjectLocation();
    }
    std::error_code error;
    std::filesystem::remove_all(root, error);
    check(error, "无法删除项目：", root);
}

void ProjectStore::discardRecording(const ProjectPackage& package) {
    const std::filesystem::path root = standardized(package.rootURL);
    const std::string name = root.filename().string();
    const auto id = uuidBefore(name, unfinishedPackageSuffix);
    if (!id || root.parent_path() != standardized(projectsDirectory_) || isSymbolicLink(root)) {
        throw ProjectStoreError::invalidProjectLocation();
    }
    const std::filesystem::path target =
        root.parent_path() /
        (name.substr(0, name.size() - unfinishedPackageSuffix.size()) + std::string(discardingPackageSuffix));
    std::error_code error;
    if (std::filesystem::exists(std::filesystem::symlink_status(target, error))) {
        throw ProjectStoreError::invalidProjectLocation();
    }
    std::filesystem::rename(root, target, error);
    check(error, "无法丢弃录制：", root);
    // A crash here leaves the .rilo.discarding, which the next start removes.
    std::filesystem::remove_all(target, error);
    check(error, "无法丢弃录制：", target);
}

void ProjectStore::cleanupDiscardedRecordings() {
    const std::filesystem::path library = standardized(projectsDirectory_);
    for (const auto& entry : libraryEntries(projectsDirectory_)) {
        const std::filesystem::path path = standardized(entry);
        const std::string name = path.filename().string();
        if (!name.ends_with(discardingPackageSuffix) || path.parent_path() != library ||
            !uuidBefore(name, discardingPackageSuffix) || isSymbolicLink(path)) {
            continue;
        }
        std::error_code error;
        std::filesystem::remove_all(path, error);
        check(error, "无法删除已丢弃的录制：", path);
    }
}

std::vector<ProjectPackage> ProjectStore::recoverableProjects(const MediaAssetInspector& inspector) const {
    std::vector<ProjectPackage> packages;
    for (const auto& entry : libraryEntries(projectsDirectory_)) {
        if (!entry.filename().string().ends_with(unfinishedPackageSuffix)) {
            continue;
        }
        const ProjectPackage package{entry};
        std::error_code error;
        if (!std::filesystem::is_regular_file(package.manifestURL(), error)) {
            continue;
        }
        try {
            const MediaAssetSummary media = inspector.inspect(package.mediaURL());
            if (media.duration > ProjectTime::zero() && media.videoTrackCount > 0) {
                packages.push_back(package);
            }
        } catch (const std::exception&) {
            // Media that cannot be read is simply not recoverable.
        }
    }
    return packages;
}

ProjectPackage ProjectStore::markRecovered(const ProjectPackage& package, ProjectTime duration) {
    ProjectManifest manifest = readManifest(package);
    manifest.state = ProjectState::recovered;
    manifest.updatedAt = IsoDate::now();
    if (duration > ProjectTime::zero()) {
        manifest.duration = duration;
    }
    manifest.metrics.mouseEvents =
        static_cast<std::int64_t>(ChunkStore<MouseEvent>::readAll(package.eventsDirectory()).size());
    manifest.metrics.geometryRevisions =
        static_cast<std::int64_t>(ChunkStore<GeometrySample>::readAll(package.geometryDirectory()).size());
    manifest.cursorAssets = CursorAssetStore::readDescriptors(package.cursorAssetsDirectory());
    manifest.metrics.writerStatus = "recoveredFragment";
    updateManifest(manifest, package);
    return moveToFinalName(package);
}

ProjectSnapshot ProjectStore::loadSnapshot(const ProjectPackage& package) const {
    ProjectSnapshot snapshot;
    snapshot.packageURL = package.rootURL;
    snapshot.manifest = readManifest(package);
    const ProjectManifest& manifest = snapshot.manifest;

    snapshot.mouseEvents = ChunkStore<MouseEvent>::readAll(package.eventsDirectory());
    snapshot.geometry = ChunkStore<GeometrySample>::readAll(package.geometryDirectory());
    snapshot.cursorShapeSamples = ChunkStore<CursorShapeSample>::readAll(package.cursorEventsDirectory());

    const auto descriptors = manifest.cursorAssets
                                 ? *manifest.cursorAssets
                                 : CursorAssetStore::readDescriptors(package.cursorAssetsDirectory());
    snapshot.cursorAssets = CursorAssetStore::readPayloads(package.rootURL, descriptors);

    snapshot.timeline = readTimeline(package, manifest.duration, manifest.webcam.has_value());

    if (const std::optional<CaptionDocument> captions = captionsState(package).document) {
        snapshot.captions = captions->validated(manifest.duration);
    }

    // A background image that is missing or was changed on disk is left out:
    // the canvas falls back to its colours.
    if (const auto& image = snapshot.timeline.canvas.image; image && isContentID(image->id)) {
        try {
            std::string bytes = readFileBytes(package.canvasBackgroundsDirectory() / (image->id + ".jpg"));
            if (sha256Hex(bytes) == image->id) {
                snapshot.canvasBackgroundAssets.push_back({*image, std::move(bytes)});
            }
        } catch (const FileError&) {
        }
    }
    return snapshot;
}

} // namespace rilo

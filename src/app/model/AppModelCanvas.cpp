// Canvas backgrounds: the wallpapers offered in the picker, and a picture
// made into the open project's background (imported on a thread of its own,
// written into the package on the store thread, then set on the canvas
// through the timeline session).

#include "app/model/AppModel.h"
#include "app/model/AppModelTasks.h"

#include <algorithm>

namespace rilo {

namespace {

const char* const loadingSystemWallpapersTitle = "正在读取系统壁纸…";
const char* const noSystemWallpapersTitle = "没有找到本机系统壁纸";
const char* const noSystemWallpapersDetail = "没有找到本机可用的系统壁纸，你仍可上传图片。";
const char* const loadingDesktopWallpapersTitle = "正在读取当前壁纸…";
const char* const noDesktopWallpapersTitle = "没有可用的当前壁纸";
const char* const noDesktopWallpapersDetail = "当前壁纸不可读取，你仍可上传本机图片。";

} // namespace

// ---- Listings ----

void AppModel::loadSystemCanvasBackgrounds() {
    systemCanvasBackgroundTask_.request_stop();
    const std::uint64_t generation = ++systemCanvasBackgroundGeneration_;
    isLoadingSystemCanvasBackgrounds_ = true;
    changed();
    std::weak_ptr<AppModel*> weak = alive_;
    systemCanvasBackgroundTask_ = backgroundThreads_.start(
        [service = canvasBackgroundService_, generation, weak, &loop = mainRunLoop_](std::stop_token stop) {
            auto wallpapers = std::make_shared<std::vector<SystemCanvasBackgroundCandidate>>();
            try {
                *wallpapers = service->systemWallpapers();
            } catch (const std::exception&) {
                // The listing drops what it cannot read; anything else leaves
                // it empty, and uploading still works.
            }
            if (stop.stop_requested()) {
                return;
            }
            loop.post([weak, wallpapers, generation] {
                const auto model = weak.lock();
                if (!model || (*model)->systemCanvasBackgroundGeneration_ != generation) {
                    return;
                }
                AppModel& self = **model;
                self.systemCanvasBackgrounds_ = std::move(*wallpapers);
                self.isLoadingSystemCanvasBackgrounds_ = false;
                self.hasListedSystemCanvasBackgrounds_ = true;
                self.changed();
            });
        });
}

void AppModel::loadDesktopWallpapers() {
    desktopWallpaperTask_.request_stop();
    const std::uint64_t generation = ++desktopWallpaperGeneration_;
    isLoadingDesktopWallpapers_ = true;
    changed();
    std::weak_ptr<AppModel*> weak = alive_;
    desktopWallpaperTask_ = backgroundThreads_.start(
        [service = canvasBackgroundService_, generation, weak, &loop = mainRunLoop_](std::stop_token stop) {
            auto wallpapers = std::make_shared<std::vector<DesktopWallpaperCandidate>>();
            try {
                *wallpapers = service->currentWallpapers();
            } catch (const std::exception&) {
                // As for the system wallpapers: an empty list.
            }
            if (stop.stop_requested()) {
                return;
            }
            loop.post([weak, wallpapers, generation] {
                const auto model = weak.lock();
                if (!model || (*model)->desktopWallpaperGeneration_ != generation) {
                    return;
                }
                AppModel& self = **model;
                self.desktopWallpapers_ = std::move(*wallpapers);
                self.isLoadingDesktopWallpapers_ = false;
                self.hasListedDesktopWallpapers_ = true;
                self.changed();
            });
        });
}

std::optional<CanvasBackgroundListingStatus> AppModel::systemCanvasBackgroundStatus() const {
    if (isLoadingSystemCanvasBackgrounds_) {
        return CanvasBackgroundListingStatus{loadingSystemWallpapersTitle, std::nullopt};
    }
    if (hasListedSystemCanvasBackgrounds_ && systemCanvasBackgrounds_.empty()) {
        return CanvasBackgroundListingStatus{noSystemWallpapersTitle, noSystemWallpapersDetail};
    }
    return std::nullopt;
}

std::optional<CanvasBackgroundListingStatus> AppModel::desktopWallpaperStatus() const {
    if (isLoadingDesktopWallpapers_) {
        return CanvasBackgroundListingStatus{loadingDesktopWallpapersTitle, std::nullopt};
    }
    if (hasListedDesktopWallpapers_ && desktopWallpapers_.empty()) {
        return CanvasBackgroundListingStatus{noDesktopWallpapersTitle, noDesktopWallpapersDetail};
    }
    return std::nullopt;
}

// ---- Import ----

void AppModel::importCanvasBackground(const std::filesystem::path& file) {
    startCanvasBackgroundImport([file](const CanvasBackgroundService& service) {
        return service.importImage(file, CanvasBackgroundImageSource::uploaded, std::nullopt);
    });
}

void AppModel::importCanvasBackground(const SystemCanvasBackgroundCandidate& wallpaper) {
    startCanvasBackgroundImport(
        [file = wallpaper.resourceURL, id = wallpaper.id](const CanvasBackgroundService& service) {
            return service.importImage(file, CanvasBackgroundImageSource::desktopWallpaper, id);
        });
}

void AppModel::importCanvasBackground(const DesktopWallpaperCandidate& wallpaper) {
    startCanvasBackgroundImport(
        [image = wallpaper.image, id = wallpaper.selectionID](const CanvasBackgroundService& service) {
            return service.importImage(image, CanvasBackgroundImageSource::desktopWallpaper, id);
        });
}

void AppModel::startCanvasBackgroundImport(CanvasBackgroundImport import) {
    if (!currentSnapshot_ || !timelineSession_) {
        return;
    }
    canvasBackgroundImportTask_.request_stop();
    const std::uint64_t generation = ++canvasBackgroundImportGeneration_;
    isImportingCanvasBackground_ = true;
    canvasBackgroundMessage_.reset();
    changed();
    std::weak_ptr<AppModel*> weak = alive_;
    canvasBackgroundImportTask_ =
        backgroundThreads_.start([service = canvasBackgroundService_, import = std::move(import), generation,
                                  weak, &loop = mainRunLoop_](std::stop_token stop) {
            auto payload = std::make_shared<std::optional<CanvasBackgroundAssetPayload>>();
            std::exception_ptr failure;
            try {
                payload->emplace(import(*service));
            } catch (...) {
                failure = std::current_exception();
            }
            if (stop.stop_requested()) {
                return;
            }
            loop.post([weak, payload, failure, generation] {
                const auto model = weak.lock();
                if (!model) {
                    return;
                }
                if (*payload) {
                    (*model)->storeCanvasBackground(generation, std::move(**payload));
                } else {
                    (*model)->canvasBackgroundFailed(generation, describeFailure(failure));
                }
            });
        });
}

void AppModel::storeCanvasBackground(std::uint64_t generation, CanvasBackgroundAssetPayload payload) {
    if (generation != canvasBackgroundImportGeneration_ || !currentSnapshot_) {
        return;
    }
    const ProjectPackage package{currentSnapshot_->packageURL};
    auto stored = std::make_shared<CanvasBackgroundAssetPayload>(std::move(payload));
    onStore<bool>(
        [package, stored](ProjectStore& store) {
            store.writeCanvasBackgroundAsset(*stored, package);
            return true;
        },
        [this, generation, stored](std::optional<bool> written, std::exception_ptr failure) {
            if (!written) {
                canvasBackgroundFailed(generation, describeFailure(failure));
                return;
            }
            if (generation != canvasBackgroundImportGeneration_ || !currentSnapshot_ || !timelineSession_) {
                return;
            }
            isImportingCanvasBackground_ = false;
            applyCanvasBackground(*stored);
            changed();
        });
}

void AppModel::applyCanvasBackground(const CanvasBackgroundAssetPayload& payload) {
    std::vector<CanvasBackgroundAssetPayload>& assets = currentSnapshot_->canvasBackgroundAssets;
    const bool known =
        std::any_of(assets.begin(), assets.end(), [&](const CanvasBackgroundAssetPayload& asset) {
            return asset.descriptor.id == payload.descriptor.id;
        });
    if (!known) {
        assets.push_back(payload);
    }
    CanvasEdit canvas = timelineSession_->timeline().canvas;
    canvas.image = payload.descriptor;
    // The session's change persists the timeline and makes the step undoable.
    timelineSession_->updateCanvas(canvas);
    if (!known) {
        // The renderers take their pictures from the snapshot a player is
        // made with: a new picture needs a new player.
        rebuildPlayer(timelineSession_->timeline());
    }
}

void AppModel::canvasBackgroundFailed(std::uint64_t generation, const std::string& message) {
    if (generation != canvasBackgroundImportGeneration_) {
        return;
    }
    isImportingCanvasBackground_ = false;
    canvasBackgroundMessage_ = message;
    changed();
}

} // namespace rilo

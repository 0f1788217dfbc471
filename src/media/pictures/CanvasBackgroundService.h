#pragma once

// Turns a picture into a background asset of a project: a picked file, a
// system wallpaper, or the wallpaper now on the desktop. Whatever is chosen
// is normalised into a JPEG that the project owns, so that the project stays
// whole after the original file goes away; the application stores the
// payload with ProjectStore::writeCanvasBackgroundAsset.
//
// The service holds only where it looks (the wallpaper folders and the
// desktop's settings, given by the caller); its operations read files and
// decode pictures on the calling thread, and any number of threads may call
// at once. The interface runs them off its main thread.
//
// Failures: an import throws CanvasBackgroundServiceError. The listings never
// throw: a folder that is missing, or a picture that does not decode, only
// drops out of the list.

#include "media/PngCodec.h"
#include "media/pictures/CanvasBackgroundServiceError.h"
#include "media/pictures/DesktopWallpaperSettings.h"
#include "project/document/CanvasEdit.h"
#include "project/store/ProjectSnapshot.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace rilo {

// A picture of a wallpaper folder, offered in the picker.
struct SystemCanvasBackgroundCandidate {
    // The file's path, which is unique.
    std::string id;
    // The file's name without extension; for a wallpaper package
    // (<name>/contents/images/<size>.jpg) the package's name and the size.
    std::string title;
    // The name of the wallpaper folder it was found in.
    std::string category;
    std::filesystem::path resourceURL;
    RgbaImage thumbnail;

    friend bool operator==(const SystemCanvasBackgroundCandidate&,
                           const SystemCanvasBackgroundCandidate&) = default;
};

// The picture a desktop setting names as the wallpaper now.
struct DesktopWallpaperCandidate {
    // The setting that names it (DesktopWallpaperReference::settingID).
    std::string id;
    // The same for the same setting and the same picture bytes, so that the
    // picker can show which entry a project's background came from.
    std::string selectionID;
    // The picture file's name.
    std::string displayName;
    RgbaImage image;
    RgbaImage thumbnail;

    friend bool operator==(const DesktopWallpaperCandidate&, const DesktopWallpaperCandidate&) = default;
};

class CanvasBackgroundService {
public:
    // The longest edge of a stored background.
    static constexpr int maximumDimension = 4096;
    static constexpr double jpegQuality = 0.95;
    // The longest edge of a picker thumbnail.
    static constexpr int thumbnailMaximumDimension = 320;

    CanvasBackgroundService(std::vector<std::filesystem::path> systemWallpaperDirectories,
                            DesktopWallpaperSettings desktopWallpaperSettings);

    const std::vector<std::filesystem::path>& systemWallpaperDirectories() const noexcept {
        return systemWallpaperDirectories_;
    }

    // Every picture of the wallpaper folders that decodes, folder by folder
    // in the given order, by path within a folder.
    std::vector<SystemCanvasBackgroundCandidate> systemWallpapers() const;
    // The pictures the desktop's settings name now; empty where none can be
    // read.
    std::vector<DesktopWallpaperCandidate> currentWallpapers() const;

    // The background asset made from a PNG or JPEG file. Throws
    // unreadableImage when the file cannot be read or decoded,
    // imageConversionFailed when it cannot be converted.
    CanvasBackgroundAssetPayload importImage(const std::filesystem::path& file,
                                             CanvasBackgroundImageSource source,
                                             const std::optional<std::string>& selectionID) const;
    // The same from a picture in memory (such as a current wallpaper).
    CanvasBackgroundAssetPayload importImage(const RgbaImage& image, CanvasBackgroundImageSource source,
                                             const std::optional<std::string>& selectionID) const;

    // The one road by which a picture becomes an asset: scaled down to fit
    // maximumDimension (never enlarged), made opaque as drawing it onto
    // black would (colour times alpha), encoded as JPEG at jpegQuality; the
    // id is the SHA-256 of the JPEG bytes and the file
    // assets/backgrounds/<id>.jpg, so that the same picture is stored once.
    // Throws imageConversionFailed.
    static CanvasBackgroundAssetPayload assetPayload(const RgbaImage& image,
                                                     CanvasBackgroundImageSource source,
                                                     const std::optional<std::string>& selectionID);

    // The picture files of a folder and its subfolders, by path: names
    // ending ".thumbnail" are skipped, and so are the preview pictures that
    // wallpaper packages keep directly in their contents folder. A missing
    // folder has none.
    static std::vector<std::filesystem::path>
    systemWallpaperImageURLs(const std::filesystem::path& directory);

    // A picture file decoded and scaled down to fit the dimension. Throws
    // unreadableImage.
    static RgbaImage decodeThumbnail(const std::filesystem::path& file, int maximumDimension);

private:
    std::vector<std::filesystem::path> systemWallpaperDirectories_;
    DesktopWallpaperSettings desktopWallpaperSettings_;
};

} // namespace rilo

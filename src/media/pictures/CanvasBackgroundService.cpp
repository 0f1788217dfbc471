#include "media/pictures/CanvasBackgroundService.h"

#include "media/ImageDecoding.h"
#include "media/JpegCodec.h"
#include "media/pictures/PictureScaling.h"
#include "shared/Files.h"
#include "shared/Sha256.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <system_error>
#include <utility>

namespace rilo {

namespace fs = std::filesystem;

namespace {

using Case = CanvasBackgroundServiceErrorCase;

// How deep wallpaper folders are searched: a wallpaper package's pictures
// lie three levels below the folder (<name>/contents/images/).
constexpr int maximumFolderDepth = 6;

// What drawing the picture onto an opaque black bitmap gives: each colour
// weighted by its alpha, and alpha dropped.
RgbaImage flattenedOntoBlack(const RgbaImage& image) {
    RgbaImage opaque = image;
    for (std::size_t offset = 0; offset + 3 < opaque.pixels.size(); offset += 4) {
        const unsigned alpha = opaque.pixels[offset + 3];
        if (alpha == 255) {
            continue;
        }
        for (std::size_t channel = 0; channel < 3; ++channel) {
            opaque.pixels[offset + channel] =
                static_cast<std::uint8_t>((opaque.pixels[offset + channel] * alpha + 127) / 255);
        }
        opaque.pixels[offset + 3] = 255;
    }
    return opaque;
}

RgbaImage decodedFile(const fs::path& file) {
    try {
        return decodeImage(readFileBytes(file));
    } catch (const FileError&) {
        throw CanvasBackgroundServiceError(Case::unreadableImage);
    } catch (const ImageDecodingError&) {
        throw CanvasBackgroundServiceError(Case::unreadableImage);
    }
}

RgbaImage thumbnailOf(const RgbaImage& image, int maximumDimension) {
    try {
        return scaledImage(
            image, fittedPictureSize({image.width, image.height}, {maximumDimension, maximumDimension}),
            PictureScalingQuality::thumbnail);
    } catch (const PictureScalingError&) {
        throw CanvasBackgroundServiceError(Case::imageConversionFailed);
    }
}

// "/usr/share/backgrounds/" and "/usr/share/backgrounds" both give "backgrounds".
std::string folderName(const fs::path& directory) {
    const fs::path normal = directory.lexically_normal();
    return normal.has_filename() ? normal.filename().string() : normal.parent_path().filename().string();
}

// A wallpaper package keeps its pictures in <name>/contents/images*/; they
// are named by their size, so the package's name leads the title.
std::string titleOf(const fs::path& file) {
    const fs::path images = file.parent_path();
    const fs::path contents = images.parent_path();
    if (images.filename().string().starts_with("images") && contents.filename() == "contents" &&
        contents.has_parent_path()) {
        return contents.parent_path().filename().string() + " (" + file.stem().string() + ")";
    }
    return file.stem().string();
}

} // namespace

CanvasBackgroundService::CanvasBackgroundService(std::vector<fs::path> systemWallpaperDirectories,
                                                 DesktopWallpaperSettings desktopWallpaperSettings)
    : systemWallpaperDirectories_(std::move(systemWallpaperDirectories))
    , desktopWallpaperSettings_(std::move(desktopWallpaperSettings)) {}

CanvasBackgroundAssetPayload
CanvasBackgroundService::assetPayload(const RgbaImage& image, CanvasBackgroundImageSource source,
                                      const std::optional<std::string>& selectionID) {
    const PictureSize size =
        fittedPictureSize({image.width, image.height}, {maximumDimension, maximumDimension});
    std::string jpeg;
    try {
        const RgbaImage scaled = scaledImage(flattenedOntoBlack(image), size, PictureScalingQuality::high);
        jpeg = encodeJpeg(scaled.width, scaled.height, scaled.pixels, jpegQuality);
    } catch (const PictureScalingError&) {
        throw CanvasBackgroundServiceError(Case::imageConversionFailed);
    } catch (const JpegCodecError&) {
        throw CanvasBackgroundServiceError(Case::imageConversionFailed);
    }
    CanvasBackgroundAssetPayload payload;
    payload.descriptor.id = sha256Hex(jpeg);
    payload.descriptor.relativePath = "assets/backgrounds/" + payload.descriptor.id + ".jpg";
    payload.descriptor.pixelSize = PixelSize::unnormalized(size.width, size.height);
    payload.descriptor.source = source;
    payload.descriptor.selectionID = selectionID;
    payload.imageData = std::move(jpeg);
    return payload;
}

CanvasBackgroundAssetPayload
CanvasBackgroundService::importImage(const fs::path& file, CanvasBackgroundImageSource source,
                                     const std::optional<std::string>& selectionID) const {
    return assetPayload(decodedFile(file), source, selectionID);
}

CanvasBackgroundAssetPayload
CanvasBackgroundService::importImage(const RgbaImage& image, CanvasBackgroundImageSource source,
                                     const std::optional<std::string>& selectionID) const {
    return assetPayload(image, source, selectionID);
}

std::vector<fs::path> CanvasBackgroundService::systemWallpaperImageURLs(const fs::path& directory) {
    std::vector<fs::path> urls;
    std::error_code error;
    // Distributions link wallpaper packages in from elsewhere, so links to
    // folders are followed; the depth limit ends a loop of links.
    fs::recursive_directory_iterator entry(directory,
                                           fs::directory_options::skip_permission_denied |
                                               fs::directory_options::follow_directory_symlink,
                                           error);
    for (; !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
        const fs::path& path = entry->path();
        std::error_code ignored;
        const bool isThumbnail = path.filename().string().ends_with(".thumbnail");
        if ((isThumbnail || entry.depth() >= maximumFolderDepth) && entry->is_directory(ignored)) {
            entry.disable_recursion_pending();
        }
        // Wallpaper packages keep a preview (contents/screenshot.png) beside
        // their pictures.
        if (!isThumbnail && entry->is_regular_file(ignored) &&
            LinuxDesktopWallpapers::hasPictureExtension(path) &&
            path.parent_path().filename() != "contents") {
            urls.push_back(path);
        }
    }
    std::sort(urls.begin(), urls.end());
    return urls;
}

RgbaImage CanvasBackgroundService::decodeThumbnail(const fs::path& file, int maximumDimension) {
    return thumbnailOf(decodedFile(file), maximumDimension);
}

std::vector<SystemCanvasBackgroundCandidate> CanvasBackgroundService::systemWallpapers() const {
    std::vector<SystemCanvasBackgroundCandidate> candidates;
    for (const fs::path& directory : systemWallpaperDirectories_) {
        for (const fs::path& file : systemWallpaperImageURLs(directory)) {
            try {
                candidates.push_back({file.string(), titleOf(file), folderName(directory), file,
                                      decodeThumbnail(file, thumbnailMaximumDimension)});
            } catch (const CanvasBackgroundServiceError&) {
                // A picture that does not decode is not offered.
            }
        }
    }
    return candidates;
}

std::vector<DesktopWallpaperCandidate> CanvasBackgroundService::currentWallpapers() const {
    std::vector<DesktopWallpaperCandidate> candidates;
    for (const DesktopWallpaperReference& reference :
         LinuxDesktopWallpapers::currentWallpaperReferences(desktopWallpaperSettings_)) {
        try {
            const std::string bytes = readFileBytes(reference.imagePath);
            DesktopWallpaperCandidate candidate;
            candidate.image = decodeImage(bytes);
            candidate.thumbnail = thumbnailOf(candidate.image, thumbnailMaximumDimension);
            const std::string pictureDigest = sha256Hex(bytes);
            const std::array<std::string_view, 3> identity{reference.settingID, "\n", pictureDigest};
            candidate.id = reference.settingID;
            candidate.selectionID = sha256Hex(identity);
            candidate.displayName = reference.imagePath.filename().string();
            candidates.push_back(std::move(candidate));
        } catch (const LocalizedError&) {
            // Unreadable or not a picture: the desktop shows something we
            // cannot offer.
        }
    }
    return candidates;
}

} // namespace rilo

#pragma once

// The cover of a project in the library: the first picture of its media
// file (at time 0, or the first frame within a second after it), turned as
// the track's display matrix says and fitted into 640 x 360.
//
// A cover is kept under the caller's cache key twice: in a memory cache
// bounded in bytes, and as a JPEG file in the cache folder given at
// construction (named by the SHA-256 of the key, written atomically), so
// that a later run finds it without opening the media. The key must change
// when the media does (the library uses the project's id). A cache file that
// is damaged is made again; failing to write one is not a failure.
//
// Any thread may call; each call that makes a cover opens the media file on
// its own. Throws ProjectCoverServiceError when no picture can be made.

#include "media/PngCodec.h"
#include "media/pictures/PictureMemoryCache.h"
#include "media/pictures/PictureScaling.h"
#include "shared/Errors.h"

#include <cstddef>
#include <filesystem>
#include <string>

namespace rilo {

enum class ProjectCoverServiceErrorCase { thumbnailGenerationFailed };

class ProjectCoverServiceError : public CaseError<ProjectCoverServiceErrorCase> {
public:
    ProjectCoverServiceError()
        : CaseError(Case::thumbnailGenerationFailed, "无法从项目媒体生成缩略图。") {}
};

class ProjectCoverService {
public:
    static constexpr PictureSize maximumSize{640, 360};
    static constexpr double jpegQuality = 0.9;

    ProjectCoverService(std::filesystem::path cacheDirectory, std::size_t memoryCacheCapacityBytes);

    RgbaImage cover(const std::filesystem::path& mediaURL, const std::string& cacheKey);

    // The cache file of a key.
    std::filesystem::path cacheFile(const std::string& cacheKey) const;

private:
    std::filesystem::path cacheDirectory_;
    PictureMemoryCache cache_;
};

} // namespace rilo

#pragma once

// What the library needs to know of a recorded media file, and no more. The
// project layer links no media library: an implementation over the media
// decoder is handed in by the caller (see src/media).

#include "shared/ProjectTime.h"

#include <cstdint>
#include <filesystem>

namespace rilo {

struct MediaAssetSummary {
    ProjectTime duration;
    std::int64_t videoTrackCount = 0;
};

class MediaAssetInspector {
public:
    virtual ~MediaAssetInspector() = default;
    // Throws when the file cannot be read as media.
    virtual MediaAssetSummary inspect(const std::filesystem::path& mediaURL) const = 0;
};

} // namespace rilo

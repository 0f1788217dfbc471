#pragma once

#include "project/store/MediaAssetInspector.h"

namespace rilo {

// Reads a media file's duration and video tracks through FFmpeg.
class FFmpegMediaAssetInspector final : public MediaAssetInspector {
public:
    MediaAssetSummary inspect(const std::filesystem::path& mediaURL) const override;
};

} // namespace rilo

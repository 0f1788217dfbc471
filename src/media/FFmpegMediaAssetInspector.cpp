#include "media/FFmpegMediaAssetInspector.h"

#include "media/MediaProbe.h"

#include <algorithm>

namespace rilo {

MediaAssetSummary FFmpegMediaAssetInspector::inspect(const std::filesystem::path& mediaURL) const {
    const MediaFileInfo info = probeMediaFile(mediaURL);
    const auto videoTracks =
        std::count_if(info.tracks.begin(), info.tracks.end(),
                      [](const MediaTrackInfo& track) { return track.mediaType == MediaType::video; });
    return {info.duration, static_cast<std::int64_t>(videoTracks)};
}

} // namespace rilo

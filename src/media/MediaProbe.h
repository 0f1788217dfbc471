#pragma once

// What a media file holds, read from its container (a codec decodes at most a
// few packets where the container leaves something out): its duration and its tracks in file order, each with
// its media type, codec and picture size or sample rate. The track positions are the ones the manifest's
// track indices count.
//
// Reading is synchronous and touches only the file; it may be called from any
// thread. Nothing is kept open after a call returns.

#include "shared/Errors.h"
#include "shared/Geometry.h"
#include "shared/ProjectTime.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace rilo {

enum class MediaType { video, audio, other };

// "video", "audio" or "other": the words the media library uses, and the ones
// that error messages show.
std::string_view mediaTypeName(MediaType type) noexcept;

struct MediaTrackInfo {
    // Position among all tracks of the file, counting from 0.
    std::int64_t index = 0;
    MediaType mediaType = MediaType::other;
    // The codec's short name, such as "h264" or "aac".
    std::string codecName;
    // Video tracks only; as the container states it.
    std::optional<PixelSize> pixelSize;
    // Audio tracks only.
    std::optional<std::int64_t> sampleRate;
    std::optional<std::int64_t> channelCount;
    // The stretch of the file's time line that the track presents, starting
    // at 0 or later; empty when the file does not tell. Samples that a codec
    // only needs to start up (audio priming) lie before 0 and are not counted.
    ProjectTimeRange timeRange;

    friend bool operator==(const MediaTrackInfo&, const MediaTrackInfo&) = default;
};

struct MediaFileInfo {
    // The end of the track that ends last; 0 when no track tells its length.
    ProjectTime duration;
    std::vector<MediaTrackInfo> tracks;

    bool hasVideoTrack() const noexcept;

    friend bool operator==(const MediaFileInfo&, const MediaFileInfo&) = default;
};

// A media file that is missing, unreadable, not a media file, or cut off
// before its track descriptions.
class MediaProbeError : public LocalizedError {
public:
    enum class Case {
        cannotOpen,
        cannotReadTracks,
    };

    static MediaProbeError cannotOpen(const std::filesystem::path& path) {
        return {Case::cannotOpen, "无法打开项目媒体：" + path.string()};
    }
    static MediaProbeError cannotReadTracks(const std::filesystem::path& path) {
        return {Case::cannotReadTracks, "无法读取项目媒体的轨道：" + path.string()};
    }

    Case errorCase() const noexcept { return case_; }

private:
    MediaProbeError(Case errorCase, const std::string& message)
        : LocalizedError(message)
        , case_(errorCase) {}

    Case case_;
};

// Opens the file and reads its track list. Throws MediaProbeError.
MediaFileInfo probeMediaFile(const std::filesystem::path& path);

} // namespace rilo

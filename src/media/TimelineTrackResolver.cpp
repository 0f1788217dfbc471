#include "media/TimelineTrackResolver.h"

#include <algorithm>
#include <string>

namespace rilo {

TimelineTrackResolverError::TimelineTrackResolverError(Case errorCase, const std::string& message,
                                                       std::int64_t index, std::optional<MediaType> expected)
    : LocalizedError(message)
    , case_(errorCase)
    , index_(index)
    , expected_(expected) {}

TimelineTrackResolverError TimelineTrackResolverError::missingTrack(std::int64_t index) {
    return {Case::missingTrack, "项目媒体缺少 Manifest 指定的第 " + std::to_string(index) + " 条轨道。",
            index, std::nullopt};
}

TimelineTrackResolverError TimelineTrackResolverError::mediaTypeMismatch(std::int64_t index,
                                                                         MediaType expected) {
    return {Case::mediaTypeMismatch,
            "项目媒体第 " + std::to_string(index) + " 条轨道类型错误，应为 " +
                std::string(mediaTypeName(expected)) + "。",
            index, expected};
}

TimelineTrackResolverError TimelineTrackResolverError::missingScreenDescription() {
    return {Case::missingScreenDescription, "Manifest 没有屏幕轨道描述。", 0, std::nullopt};
}

namespace TimelineTrackResolver {

const MediaTrackInfo& track(std::int64_t index, MediaType expected, const MediaFileInfo& media) {
    if (index < 0 || static_cast<std::uint64_t>(index) >= media.tracks.size()) {
        throw TimelineTrackResolverError::missingTrack(index);
    }
    const MediaTrackInfo& found = media.tracks[static_cast<std::size_t>(index)];
    if (found.mediaType != expected) {
        throw TimelineTrackResolverError::mediaTypeMismatch(index, expected);
    }
    return found;
}

ResolvedTimelineTracks resolve(const MediaFileInfo& media, const ProjectManifest& manifest) {
    const auto& descriptions = manifest.media.tracks;
    const auto screen =
        std::find_if(descriptions.begin(), descriptions.end(), [](const MediaTrack& description) {
            return description.kind == MediaTrackKind::screen;
        });
    if (screen == descriptions.end()) {
        throw TimelineTrackResolverError::missingScreenDescription();
    }

    ResolvedTimelineTracks resolved{track(screen->trackIndex, MediaType::video, media), std::nullopt, {}};
    if (manifest.webcam) {
        resolved.webcam = track(manifest.webcam->trackIndex, MediaType::video, media);
    }
    for (const auto& description : descriptions) {
        if (description.kind != MediaTrackKind::screen) {
            resolved.audioByKind.emplace_back(description.kind,
                                              track(description.trackIndex, MediaType::audio, media));
        }
    }
    return resolved;
}

ResolvedTimelineTracks resolve(const std::filesystem::path& mediaPath, const ProjectManifest& manifest) {
    return resolve(probeMediaFile(mediaPath), manifest);
}

} // namespace TimelineTrackResolver

} // namespace rilo

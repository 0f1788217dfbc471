#pragma once

// Finds in a recording's media file the tracks that its manifest promises.
// Everything that describes, changes or renders a project goes through here
// first, so that a broken media file fails early and with a clear text.
//
// A manifest's track index is a position among all tracks of the file, in the
// order the recorder added them: screen, webcam, system audio, microphone.

#include "media/MediaProbe.h"
#include "project/document/MediaTrackKind.h"
#include "project/document/ProjectManifest.h"
#include "shared/Errors.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <utility>
#include <vector>

namespace rilo {

struct ResolvedTimelineTracks {
    MediaTrackInfo screen;
    std::optional<MediaTrackInfo> webcam;
    // One pair for each audio track of the manifest, in the manifest's order.
    std::vector<std::pair<MediaTrackKind, MediaTrackInfo>> audioByKind;

    friend bool operator==(const ResolvedTimelineTracks&, const ResolvedTimelineTracks&) = default;
};

class TimelineTrackResolverError : public LocalizedError {
public:
    enum class Case {
        missingTrack,
        mediaTypeMismatch,
        missingScreenDescription,
    };

    static TimelineTrackResolverError missingTrack(std::int64_t index);
    static TimelineTrackResolverError mediaTypeMismatch(std::int64_t index, MediaType expected);
    static TimelineTrackResolverError missingScreenDescription();

    Case errorCase() const noexcept { return case_; }
    // The manifest's track index; 0 for a missing screen description.
    std::int64_t index() const noexcept { return index_; }
    // What the manifest says the track is; for a type mismatch only.
    std::optional<MediaType> expectedMediaType() const noexcept { return expected_; }

private:
    TimelineTrackResolverError(Case errorCase, const std::string& message, std::int64_t index,
                               std::optional<MediaType> expected);

    Case case_;
    std::int64_t index_;
    std::optional<MediaType> expected_;
};

namespace TimelineTrackResolver {

// Reads the file and resolves the manifest's tracks in it. Throws
// MediaProbeError when the file cannot be read, TimelineTrackResolverError
// when it lacks a promised track.
ResolvedTimelineTracks resolve(const std::filesystem::path& mediaPath, const ProjectManifest& manifest);

// The same for a file that has been read already. The screen is the first
// screen description of the manifest; the webcam is the manifest's webcam
// entry; every other description is an audio track.
ResolvedTimelineTracks resolve(const MediaFileInfo& media, const ProjectManifest& manifest);

// The track at a manifest index, which must exist and be of the expected type.
const MediaTrackInfo& track(std::int64_t index, MediaType expected, const MediaFileInfo& media);

} // namespace TimelineTrackResolver

} // namespace rilo

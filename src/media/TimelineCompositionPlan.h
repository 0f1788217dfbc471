#pragma once

// How the recorded media plays once cut and sped up: for every track that the
// manifest promises, the list of source ranges laid onto the sequence axis
// with their playback rates. Readers (the player, the exporter, the audio
// mixer) obey this list; nothing else in the media file is reinterpreted.
//
// The player reads the screen and audio tracks as one stream and the webcam
// as a second; the exporter reads all of them. Both read the same plan.
//
// Building is synchronous and touches the media file only to read its track
// list; a built plan is an immutable value, shared freely between threads.

#include "media/MediaProbe.h"
#include "project/document/MediaTrackKind.h"
#include "project/engine/TimelineMapper.h"
#include "project/store/ProjectSnapshot.h"
#include "shared/Errors.h"
#include "shared/ProjectTime.h"

#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace rilo {

// One stretch of a track placed on the sequence axis: the source range plays
// over the sequence range at the rate, pitch kept for audio. A rate of 1
// means the two ranges have the same length; otherwise the source range is
// stretched or squeezed to fill the sequence range.
struct TimelineCompositionInsert {
    ProjectTimeRange sourceRange;
    ProjectTimeRange sequenceRange;
    TimelinePlaybackRate playbackRate = TimelinePlaybackRate::normal();

    friend bool operator==(const TimelineCompositionInsert&, const TimelineCompositionInsert&) = default;
};

// A track of the media file and its inserts, in sequence order and without
// overlap. Where the track has no data (it starts late or ends early) there
// is no insert, and readers leave a hole: black or silence.
struct TimelineCompositionTrack {
    MediaTrackInfo source;
    std::vector<TimelineCompositionInsert> inserts;

    friend bool operator==(const TimelineCompositionTrack&, const TimelineCompositionTrack&) = default;
};

struct TimelineCompositionAudioTrack {
    MediaTrackKind kind = MediaTrackKind::systemAudio;
    TimelineCompositionTrack track;
    // The amplitude factor for the whole project: 1 for audio that belongs
    // to the screen, the timeline's mix setting for system audio and the
    // microphone (0 when muted).
    float linearVolume = 1;

    friend bool operator==(const TimelineCompositionAudioTrack&,
                           const TimelineCompositionAudioTrack&) = default;
};

struct TimelineCompositionPlan {
    TimelineMapper mapper;
    TimelineCompositionTrack screen;
    std::optional<TimelineCompositionTrack> webcam;
    // One entry for each audio track of the media, in the manifest's order; a
    // project recorded without a microphone has no microphone entry.
    std::vector<TimelineCompositionAudioTrack> audio;

    // Equal to mapper.sequenceDuration(): the build checks it.
    ProjectTime duration() const noexcept { return mapper.sequenceDuration(); }

    friend bool operator==(const TimelineCompositionPlan&, const TimelineCompositionPlan&) = default;
};

enum class TimelineCompositionBuilderErrorCase {
    cannotCreateTrack,
    durationMismatch,
};

class TimelineCompositionBuilderError : public CaseError<TimelineCompositionBuilderErrorCase> {
public:
    // The media type shows as the word of mediaTypeName: "video" or "audio".
    static TimelineCompositionBuilderError cannotCreateTrack(MediaType mediaType) {
        return {Case::cannotCreateTrack,
                "无法创建 " + std::string(mediaTypeName(mediaType)) + " Composition 轨道。", mediaType};
    }
    static TimelineCompositionBuilderError durationMismatch() {
        return {Case::durationMismatch, "Composition 时长与 TimelineMapper 不一致。", std::nullopt};
    }

    // The type of the track that could not be made.
    std::optional<MediaType> mediaType() const noexcept { return mediaType_; }

private:
    TimelineCompositionBuilderError(Case errorCase, const std::string& message,
                                    std::optional<MediaType> mediaType)
        : CaseError(errorCase, message)
        , mediaType_(mediaType) {}

    std::optional<MediaType> mediaType_;
};

namespace TimelineCompositionBuilder {

// Reads the track list of the snapshot's media, then builds as below. Throws
// MediaProbeError when the media cannot be read, TimelineTrackResolverError
// when it lacks a promised track, and CancellationError when stop is
// requested before a track is laid out.
TimelineCompositionPlan build(const ProjectSnapshot& snapshot, std::stop_token stop);

// The same for media that has been read already; pure. The mapper is made
// from the timeline and the manifest's duration (its validation error passes
// through). Each segment's source range is intersected with each track's own
// time range; its sequence start rounds down and its end rounds up to whole
// nanoseconds, kept within the segment's sequence range. Throws
// cannotCreateTrack for a track that no decoder of this system reads, and
// durationMismatch when the longest track does not reach the end of the
// sequence (the media is shorter than the manifest says).
TimelineCompositionPlan build(const ProjectSnapshot& snapshot, const MediaFileInfo& media,
                              std::stop_token stop);

} // namespace TimelineCompositionBuilder

} // namespace rilo

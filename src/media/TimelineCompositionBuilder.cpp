#include "media/TimelineCompositionPlan.h"
#include "media/TimelineTrackResolver.h"
#include "project/document/TimelineRateMath.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <algorithm>

namespace rilo {

namespace {

void checkCancellation(const std::stop_token& stop) {
    if (stop.stop_requested()) {
        throw CancellationError();
    }
}

bool hasDecoder(const MediaTrackInfo& track) {
    const AVCodecDescriptor* descriptor = avcodec_descriptor_get_by_name(track.codecName.c_str());
    return descriptor != nullptr && avcodec_find_decoder(descriptor->id) != nullptr;
}

// The part of one segment that the track holds, placed on the sequence axis;
// none when the track holds nothing of it. The start rounds down and the end
// up, so that the insert covers what it shows; the end stays within the
// segment, so that neighbouring inserts never overlap.
std::optional<TimelineCompositionInsert> insertFor(const TimelineSegmentProjection& projection,
                                                   const ProjectTimeRange& trackRange, MediaType mediaType) {
    const ProjectTimeRange& segmentRange = projection.segment.sourceRange;
    const ProjectTime lower = std::max(segmentRange.start, trackRange.start);
    const ProjectTime upper = std::min(segmentRange.end(), trackRange.end());
    if (lower >= upper) {
        return std::nullopt;
    }
    const TimelinePlaybackRate rate = projection.segment.playbackRate;
    const auto sequenceOffset = TimelineRateMath::sequenceNanoseconds(
        (lower - segmentRange.start).nanoseconds, rate, TimelineRateRounding::down);
    const auto sequenceEnd = TimelineRateMath::sequenceNanoseconds((upper - segmentRange.start).nanoseconds,
                                                                   rate, TimelineRateRounding::up);
    if (!sequenceOffset || !sequenceEnd) {
        throw TimelineCompositionBuilderError::cannotCreateTrack(mediaType);
    }
    const std::int64_t segmentLength = projection.sequenceRange.duration.nanoseconds;
    const std::int64_t clampedEnd = std::min(*sequenceEnd, segmentLength);
    if (*sequenceOffset >= clampedEnd) {
        return std::nullopt;
    }
    const ProjectTime start = projection.sequenceRange.start + ProjectTime{*sequenceOffset};
    return TimelineCompositionInsert{ProjectTimeRange::fromStartEnd(lower, upper),
                                     ProjectTimeRange{start, ProjectTime{clampedEnd - *sequenceOffset}},
                                     rate};
}

TimelineCompositionTrack layOut(const MediaTrackInfo& source, const TimelineMapper& mapper,
                                const std::stop_token& stop) {
    checkCancellation(stop);
    if (!hasDecoder(source)) {
        throw TimelineCompositionBuilderError::cannotCreateTrack(source.mediaType);
    }
    // A file that does not tell a track's stretch is taken to hold the whole
    // source; readers leave holes where the data turns out to be missing.
    const ProjectTimeRange trackRange = source.timeRange.duration > ProjectTime::zero()
                                            ? source.timeRange
                                            : ProjectTimeRange{ProjectTime::zero(), mapper.sourceDuration()};
    TimelineCompositionTrack track{source, {}};
    for (const auto& projection : mapper.projections()) {
        if (auto insert = insertFor(projection, trackRange, source.mediaType)) {
            track.inserts.push_back(*insert);
        }
    }
    return track;
}

ProjectTime endOf(const TimelineCompositionTrack& track) {
    return track.inserts.empty() ? ProjectTime::zero() : track.inserts.back().sequenceRange.end();
}

float volumeOf(MediaTrackKind kind, const AudioMixEdit& mix) {
    const auto settings = mix.settings(kind);
    return settings ? settings->linearGain() : 1.0F;
}

} // namespace

namespace TimelineCompositionBuilder {

TimelineCompositionPlan build(const ProjectSnapshot& snapshot, const MediaFileInfo& media,
                              std::stop_token stop) {
    const ResolvedTimelineTracks resolved = TimelineTrackResolver::resolve(media, snapshot.manifest);
    TimelineCompositionPlan plan;
    plan.mapper = TimelineMapper(snapshot.timeline, snapshot.manifest.duration);

    plan.screen = layOut(resolved.screen, plan.mapper, stop);
    ProjectTime duration = endOf(plan.screen);
    if (resolved.webcam) {
        plan.webcam = layOut(*resolved.webcam, plan.mapper, stop);
        duration = std::max(duration, endOf(*plan.webcam));
    }
    for (const auto& [kind, source] : resolved.audioByKind) {
        TimelineCompositionAudioTrack audio{kind, layOut(source, plan.mapper, stop),
                                            volumeOf(kind, snapshot.timeline.audioMix)};
        duration = std::max(duration, endOf(audio.track));
        plan.audio.push_back(std::move(audio));
    }

    if (duration != plan.mapper.sequenceDuration()) {
        throw TimelineCompositionBuilderError::durationMismatch();
    }
    return plan;
}

TimelineCompositionPlan build(const ProjectSnapshot& snapshot, std::stop_token stop) {
    checkCancellation(stop);
    return build(snapshot, probeMediaFile(snapshot.mediaURL()), std::move(stop));
}

} // namespace TimelineCompositionBuilder

} // namespace rilo

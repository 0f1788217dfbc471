#include "cli/ProjectInspector.h"

#include <algorithm>

namespace rilo::cli::ProjectInspector {

CLIProjectDescription describe(const ProjectSnapshot& snapshot, const std::string& timelineDigest) {
    const ProjectManifest& manifest = snapshot.manifest;
    const EditTimeline& timeline = snapshot.timeline;
    const TimelineMapper mapper(timeline, manifest.duration);

    CLIProjectDescription description;
    description.id = manifest.id.string();
    description.packagePath = snapshot.packageURL.string();
    description.manifestVersion = manifest.version;
    description.timelineSchema = timeline.schemaVersion;
    description.state = std::string(json::rawValue(manifest.state));
    description.sourceWidth = manifest.encodedPixelSize.width;
    description.sourceHeight = manifest.encodedPixelSize.height;
    description.sourceDurationMilliseconds = manifest.duration.cliMilliseconds();
    description.sequenceDurationMilliseconds = mapper.sequenceDuration().cliMilliseconds();
    description.segments = segmentDescriptions(mapper);
    description.zooms = zoomDescriptions(timeline);
    description.canvas = timeline.canvas;
    description.cursor = timeline.cursor;
    description.webcam = timeline.webcamOverlay;
    description.audio = timeline.audioMix;
    description.tracks = trackPresence(manifest);
    description.clickMilliseconds = clickMilliseconds(snapshot.mouseEvents);
    if (snapshot.captions) {
        description.captionCueCount = static_cast<std::int64_t>(snapshot.captions->cues.size());
        description.captionLanguage = snapshot.captions->language;
    }
    description.timelineDigest = timelineDigest;
    return description;
}

std::vector<CLISegmentDescription> segmentDescriptions(const TimelineMapper& mapper) {
    std::vector<CLISegmentDescription> descriptions;
    descriptions.reserve(mapper.projections().size());
    for (const TimelineSegmentProjection& projection : mapper.projections()) {
        const TimelineSegment& segment = projection.segment;
        descriptions.push_back(
            {segment.id.string(), segment.sourceRange.start.cliMilliseconds(),
             segment.sourceRange.end().cliMilliseconds(), projection.sequenceRange.start.cliMilliseconds(),
             projection.sequenceRange.end().cliMilliseconds(), segment.playbackRate.multiplier()});
    }
    return descriptions;
}

std::vector<CLIZoomDescription> zoomDescriptions(const EditTimeline& timeline) {
    std::vector<CLIZoomDescription> descriptions;
    descriptions.reserve(timeline.zooms.size());
    for (std::size_t index = 0; index < timeline.zooms.size(); ++index) {
        const ZoomSegment& zoom = timeline.zooms[index];
        descriptions.push_back({static_cast<std::int64_t>(index), zoom.id.string(),
                                zoom.startTime.cliMilliseconds(), zoom.endTime.cliMilliseconds(),
                                zoom.focusPoint.x, zoom.focusPoint.y, zoom.scale});
    }
    return descriptions;
}

CLITimelineSummary timelineSummary(const EditTimeline& timeline, const TimelineMapper& mapper) {
    const auto speedSegments =
        std::count_if(timeline.segments.begin(), timeline.segments.end(), [](const TimelineSegment& segment) {
            return segment.playbackRate != TimelinePlaybackRate::normal();
        });
    return {mapper.sequenceDuration().cliMilliseconds(),
            static_cast<std::int64_t>(timeline.segments.size()),
            static_cast<std::int64_t>(speedSegments),
            static_cast<std::int64_t>(timeline.zooms.size()),
            timeline.canvas,
            timeline.cursor,
            timeline.webcamOverlay,
            timeline.audioMix};
}

std::map<std::string, bool> trackPresence(const ProjectManifest& manifest) {
    const auto promises = [&](MediaTrackKind kind) {
        return std::any_of(manifest.media.tracks.begin(), manifest.media.tracks.end(),
                           [kind](const MediaTrack& track) { return track.kind == kind; });
    };
    return {{"screen", promises(MediaTrackKind::screen)},
            {"webcam", manifest.webcam.has_value()},
            {"systemAudio", promises(MediaTrackKind::systemAudio)},
            {"microphone", promises(MediaTrackKind::microphone)}};
}

std::vector<std::int64_t> clickMilliseconds(const std::vector<MouseEvent>& mouseEvents) {
    std::vector<std::int64_t> clicks;
    for (const MouseEvent& event : mouseEvents) {
        if (event.phase == MousePhase::down && event.button == MouseButton::left &&
            event.isVisibleInsideSource()) {
            clicks.push_back(event.time.cliMilliseconds());
        }
    }
    return clicks;
}

std::vector<CLICaptionCueDescription> cueDescriptions(const CaptionDocument& document,
                                                      const TimelineMapper& mapper) {
    std::vector<CLICaptionCueDescription> descriptions;
    descriptions.reserve(document.cues.size());
    for (const CaptionCue& cue : document.cues) {
        CLICaptionCueDescription description;
        description.id = cue.id.string();
        description.sourceStartMilliseconds = cue.start.cliMilliseconds();
        description.sourceEndMilliseconds = cue.end.cliMilliseconds();
        for (const ProjectTimeRange& range :
             mapper.projectedRanges(ProjectTimeRange::fromStartEnd(cue.start, cue.end))) {
            description.sequenceRanges.push_back(CLIRange::from(range));
        }
        description.text = cue.text;
        for (const CaptionWord& word : cue.words) {
            description.words.push_back(
                {word.start.cliMilliseconds(), word.end.cliMilliseconds(), word.text});
        }
        for (const CaptionHighlight& highlight : cue.highlights) {
            description.highlights.push_back({highlight.text, highlight.occurrence});
        }
        descriptions.push_back(std::move(description));
    }
    return descriptions;
}

CLISpanDescription spanDescription(const ProjectTimeRange& span, const TimelineMapper& mapper) {
    CLISpanDescription description{span.start.cliMilliseconds(), span.end().cliMilliseconds(), {}};
    for (const ProjectTimeRange& projected : mapper.projectedRanges(span)) {
        description.sequenceRanges.push_back(CLIRange::from(projected));
    }
    return description;
}

} // namespace rilo::cli::ProjectInspector

#include "ui/timeline/TimelineDragInteractions.h"

#include "app/editing/TimelineAnnotationEditing.h"
#include "project/caption/CaptionDocumentEngine.h"
#include "project/engine/TimelineEditEngine.h"
#include "project/engine/TimelineEffectEngine.h"

#include <algorithm>
#include <iterator>
#include <vector>

namespace rilo {
namespace {

// What a press remembers of a timed element: where it lay in source time and
// the kept segment the drag belongs to.
struct Anchor {
    Uuid segmentID;
    ProjectTime sourceStart;
    ProjectTime sourceEnd;
    ProjectTime sequenceStart;
    ProjectTime sequenceEnd;
};

std::optional<Uuid> segmentAt(ProjectTime sequenceTime, const TimelineMapper& mapper) {
    const std::optional<TimelineMappedTime> mapped = mapper.mappedTimeForSequenceTime(sequenceTime);
    return mapped ? std::optional(mapped->segmentID) : std::nullopt;
}

std::optional<Anchor> anchor(ProjectTime sourceStart, ProjectTime sourceEnd, TimelineZoomDragPart part,
                             ProjectTime anchorSequenceTime, const TimelineMapper& mapper) {
    if (sourceEnd <= sourceStart) {
        return std::nullopt;
    }
    const ProjectTimeRange sourceRange = ProjectTimeRange::fromStartEnd(sourceStart, sourceEnd);
    const std::vector<ProjectTimeRange> blocks = mapper.projectedRanges(sourceRange);
    if (blocks.empty()) {
        return std::nullopt;
    }
    std::optional<Uuid> segmentID;
    if (part.edge == TimelineZoomEdge::end) {
        segmentID = segmentAt(blocks.back().end() - ProjectTime{1}, mapper);
    } else if (part.edge == TimelineZoomEdge::start) {
        segmentID = segmentAt(blocks.front().start, mapper);
    } else {
        segmentID = segmentAt(anchorSequenceTime, mapper);
        const auto projection = segmentID ? mapper.projectionForSegmentID(*segmentID) : std::nullopt;
        if (!projection || !projection->segment.sourceRange.intersection(sourceRange)) {
            segmentID = segmentAt(blocks.front().start, mapper);
        }
    }
    if (!segmentID) {
        return std::nullopt;
    }
    return Anchor{*segmentID, sourceStart, sourceEnd, blocks.front().start, blocks.back().end()};
}

// The drag's target in source time, held inside the segment: for a body the
// new start (so that the whole stays inside), for an edge its new place,
// measured from where that edge shows.
std::optional<ProjectTime> heldTarget(TimelineZoomDragPart part, ProjectTime originalStart,
                                      ProjectTime originalEnd, const Uuid& segmentID, ProjectTime anchorTime,
                                      ProjectTime previewTime, const TimelineMapper& mapper) noexcept {
    const std::optional<TimelineSegmentProjection> projection = mapper.projectionForSegmentID(segmentID);
    if (!projection) {
        return std::nullopt;
    }
    const ProjectTimeRange segment = projection->segment.sourceRange;
    const std::int64_t delta = previewTime.nanoseconds - anchorTime.nanoseconds;
    if (part.isBody()) {
        const ProjectTime length = originalEnd - originalStart;
        if (length > segment.duration) {
            return std::nullopt;
        }
        const std::optional<ProjectTime> start =
            mapper.sourceTimeByApplyingSequenceDelta(delta, originalStart, segmentID);
        if (!start) {
            return std::nullopt;
        }
        return std::clamp(*start, segment.start, segment.end() - length);
    }
    const ProjectTime original = part.edge == TimelineZoomEdge::start ? originalStart : originalEnd;
    const std::optional<ProjectTime> moved = mapper.sourceTimeByApplyingSequenceDelta(
        delta, std::clamp(original, segment.start, segment.end()), segmentID);
    if (!moved) {
        return std::nullopt;
    }
    return std::clamp(*moved, segment.start, segment.end());
}

TimelineZoomDragPart effectPart(CaptionDragPart part) noexcept {
    switch (part) {
    case CaptionDragPart::start:
        return TimelineZoomDragPart::edgeOf(TimelineZoomEdge::start);
    case CaptionDragPart::end:
        return TimelineZoomDragPart::edgeOf(TimelineZoomEdge::end);
    case CaptionDragPart::body:
        break;
    }
    return TimelineZoomDragPart::body();
}

template <typename Element>
const Element* findByID(const std::vector<Element>& elements, const Uuid& id) {
    const auto found =
        std::ranges::find_if(elements, [&](const Element& element) { return element.id == id; });
    return found == elements.end() ? nullptr : &*found;
}

// Runs the engine operation of the dragged part with the target, or returns
// the document as it was when the drag did not move or cannot.
template <typename Document, typename Move, typename Start, typename End>
Document release(const Document& document, TimelineZoomDragPart part, bool moved,
                 std::optional<ProjectTime> target, Move move, Start start, End end) {
    if (!moved || !target) {
        return document;
    }
    if (part.isBody()) {
        return move(*target);
    }
    return part.edge == TimelineZoomEdge::start ? start(*target) : end(*target);
}

} // namespace

ProjectTimeRange CaptionDragInteraction::previewSequenceRange() const noexcept {
    const ProjectTime delta = previewSequenceTime - anchorSequenceTime;
    switch (part) {
    case CaptionDragPart::start:
        return ProjectTimeRange::fromStartEnd(std::min(originalSequenceStart + delta, originalSequenceEnd),
                                              originalSequenceEnd);
    case CaptionDragPart::end:
        return ProjectTimeRange::fromStartEnd(originalSequenceStart,
                                              std::max(originalSequenceEnd + delta, originalSequenceStart));
    case CaptionDragPart::body:
        break;
    }
    return {originalSequenceStart + delta, originalSequenceEnd - originalSequenceStart};
}

namespace TimelineDragInteractions {

std::optional<TimelineZoomInteraction> beginZoom(const Uuid& zoomID, TimelineZoomDragPart part,
                                                 ProjectTime anchorSequenceTime, const EditTimeline& timeline,
                                                 const TimelineMapper& mapper) {
    const ZoomSegment* zoom = findByID(timeline.zooms, zoomID);
    if (!zoom) {
        return std::nullopt;
    }
    const std::optional<Anchor> found =
        anchor(zoom->startTime, zoom->endTime, part, anchorSequenceTime, mapper);
    if (!found) {
        return std::nullopt;
    }
    return TimelineZoomInteraction{zoomID,          part,          found->segmentID,  anchorSequenceTime,
                                   zoom->startTime, zoom->endTime, anchorSequenceTime};
}

std::optional<TimelineWebcamFullscreenInteraction>
beginWebcamFullscreen(const Uuid& intervalID, TimelineZoomDragPart part, ProjectTime anchorSequenceTime,
                      const EditTimeline& timeline, const TimelineMapper& mapper) {
    const WebcamFullscreenSegment* interval = findByID(timeline.webcamFullscreenSegments, intervalID);
    if (!interval) {
        return std::nullopt;
    }
    const std::optional<Anchor> found =
        anchor(interval->startTime, interval->endTime, part, anchorSequenceTime, mapper);
    if (!found) {
        return std::nullopt;
    }
    return TimelineWebcamFullscreenInteraction{
        intervalID,        part, found->segmentID, anchorSequenceTime, interval->startTime, interval->endTime,
        anchorSequenceTime};
}

std::optional<TimelineAnnotationInteraction>
beginAnnotation(const Uuid& annotationID, TimelineZoomDragPart part, ProjectTime anchorSequenceTime,
                const EditTimeline& timeline, const TimelineMapper& mapper) {
    const AnnotationElement* annotation = findByID(timeline.annotations, annotationID);
    if (!annotation) {
        return std::nullopt;
    }
    const std::optional<Anchor> found =
        anchor(annotation->startTime, annotation->endTime, part, anchorSequenceTime, mapper);
    if (!found) {
        return std::nullopt;
    }
    return TimelineAnnotationInteraction{annotationID,          part,
                                         found->segmentID,      anchorSequenceTime,
                                         annotation->startTime, annotation->endTime,
                                         anchorSequenceTime};
}

std::optional<TimelineTrimInteraction> beginTrim(const Uuid& segmentID, TimelineTrimEdge edge,
                                                 ProjectTime anchorSequenceTime,
                                                 const TimelineMapper& mapper) {
    const std::optional<TimelineSegmentProjection> projection = mapper.projectionForSegmentID(segmentID);
    if (!projection) {
        return std::nullopt;
    }
    const ProjectTimeRange range = projection->segment.sourceRange;
    return TimelineTrimInteraction{segmentID, edge, anchorSequenceTime,
                                   edge == TimelineTrimEdge::start ? range.start : range.end(),
                                   anchorSequenceTime};
}

std::optional<CaptionDragInteraction> beginCaption(const Uuid& cueID, CaptionDragPart part,
                                                   ProjectTime anchorSequenceTime,
                                                   const CaptionDocument& captions,
                                                   const TimelineMapper& mapper) {
    const CaptionCue* cue = findByID(captions.cues, cueID);
    if (!cue) {
        return std::nullopt;
    }
    const std::optional<Anchor> found =
        anchor(cue->start, cue->end, effectPart(part), anchorSequenceTime, mapper);
    if (!found) {
        return std::nullopt;
    }
    return CaptionDragInteraction{cueID,
                                  found->segmentID,
                                  part,
                                  anchorSequenceTime,
                                  found->sequenceStart,
                                  found->sequenceEnd,
                                  cue->start,
                                  cue->end,
                                  anchorSequenceTime};
}

std::optional<ProjectTime> targetSourceTime(const TimelineZoomInteraction& interaction,
                                            const TimelineMapper& mapper) noexcept {
    return heldTarget(interaction.part, interaction.originalSourceStart, interaction.originalSourceEnd,
                      interaction.segmentID, interaction.anchorSequenceTime, interaction.previewSequenceTime,
                      mapper);
}

std::optional<ProjectTime> targetSourceTime(const TimelineWebcamFullscreenInteraction& interaction,
                                            const TimelineMapper& mapper) noexcept {
    return heldTarget(interaction.part, interaction.originalSourceStart, interaction.originalSourceEnd,
                      interaction.sourceSegmentID, interaction.anchorSequenceTime,
                      interaction.previewSequenceTime, mapper);
}

std::optional<ProjectTime> targetSourceTime(const TimelineAnnotationInteraction& interaction,
                                            const TimelineMapper& mapper) noexcept {
    return heldTarget(interaction.part, interaction.originalSourceStart, interaction.originalSourceEnd,
                      interaction.segmentID, interaction.anchorSequenceTime, interaction.previewSequenceTime,
                      mapper);
}

std::optional<ProjectTime> targetSourceTime(const CaptionDragInteraction& interaction,
                                            const TimelineMapper& mapper) noexcept {
    return heldTarget(effectPart(interaction.part), interaction.originalSourceStart,
                      interaction.originalSourceEnd, interaction.segmentID, interaction.anchorSequenceTime,
                      interaction.previewSequenceTime, mapper);
}

std::optional<ProjectTime> targetSourceTime(const TimelineTrimInteraction& interaction,
                                            const TimelineMapper& mapper) noexcept {
    return mapper.sourceTimeByApplyingSequenceDelta(interaction.previewSequenceTime.nanoseconds -
                                                        interaction.anchorSequenceTime.nanoseconds,
                                                    interaction.originalSourceTime, interaction.segmentID);
}

EditTimeline applied(const TimelineZoomInteraction& interaction, const EditTimeline& timeline,
                     const TimelineMapper& mapper) {
    const ProjectTime duration = mapper.sourceDuration();
    const Uuid& id = interaction.zoomID;
    return release(
        timeline, interaction.part, interaction.previewSequenceTime != interaction.anchorSequenceTime,
        targetSourceTime(interaction, mapper),
        [&](ProjectTime t) { return TimelineEffectEngine::moveZoom(timeline, id, t, duration); },
        [&](ProjectTime t) { return TimelineEffectEngine::updateZoomStart(timeline, id, t, duration); },
        [&](ProjectTime t) { return TimelineEffectEngine::updateZoomEnd(timeline, id, t, duration); });
}

EditTimeline applied(const TimelineWebcamFullscreenInteraction& interaction, const EditTimeline& timeline,
                     const TimelineMapper& mapper) {
    const ProjectTime duration = mapper.sourceDuration();
    const Uuid& id = interaction.segmentID;
    return release(
        timeline, interaction.part, interaction.previewSequenceTime != interaction.anchorSequenceTime,
        targetSourceTime(interaction, mapper),
        [&](ProjectTime t) { return TimelineEffectEngine::moveWebcamFullscreen(timeline, id, t, duration); },
        [&](ProjectTime t) {
            return TimelineEffectEngine::updateWebcamFullscreenStart(timeline, id, t, duration);
        },
        [&](ProjectTime t) {
            return TimelineEffectEngine::updateWebcamFullscreenEnd(timeline, id, t, duration);
        });
}

EditTimeline applied(const TimelineAnnotationInteraction& interaction, const EditTimeline& timeline,
                     const TimelineMapper& mapper) {
    const ProjectTime duration = mapper.sourceDuration();
    const Uuid& id = interaction.annotationID;
    return release(
        timeline, interaction.part, interaction.previewSequenceTime != interaction.anchorSequenceTime,
        targetSourceTime(interaction, mapper),
        [&](ProjectTime t) {
            return TimelineAnnotationEditing::moveAnnotation(timeline, id, t, interaction.segmentID,
                                                             duration);
        },
        [&](ProjectTime t) {
            return TimelineAnnotationEditing::updateAnnotationStart(timeline, id, t, duration);
        },
        [&](ProjectTime t) {
            return TimelineAnnotationEditing::updateAnnotationEnd(timeline, id, t, duration);
        });
}

EditTimeline applied(const TimelineTrimInteraction& interaction, const EditTimeline& timeline,
                     const TimelineMapper& mapper) {
    const std::optional<ProjectTime> target = targetSourceTime(interaction, mapper);
    const auto found = std::ranges::find_if(timeline.segments, [&](const TimelineSegment& segment) {
        return segment.id == interaction.segmentID;
    });
    if (interaction.previewSequenceTime == interaction.anchorSequenceTime || !target ||
        found == timeline.segments.end()) {
        return timeline;
    }
    // A trim stops at the neighbouring segment (the source's ends for the
    // first and last) and keeps one grid frame of the segment.
    const ProjectTimeRange range = found->sourceRange;
    const ProjectTime duration = mapper.sourceDuration();
    if (interaction.edge == TimelineTrimEdge::start) {
        const ProjectTime lower =
            found == timeline.segments.begin() ? ProjectTime::zero() : std::prev(found)->sourceRange.end();
        const ProjectTime upper =
            TimelineFrameGrid::floorBoundary(range.end() - TimelineFrameGrid::minimumDuration);
        if (upper < lower) {
            return timeline;
        }
        return TimelineEditEngine::trimStart(timeline, interaction.segmentID,
                                             std::clamp(*target, lower, upper), duration);
    }
    const ProjectTime lower =
        TimelineFrameGrid::ceilingBoundary(range.start + TimelineFrameGrid::minimumDuration);
    const ProjectTime upper =
        std::next(found) == timeline.segments.end() ? duration : std::next(found)->sourceRange.start;
    if (upper < lower) {
        return timeline;
    }
    return TimelineEditEngine::trimEnd(timeline, interaction.segmentID, std::clamp(*target, lower, upper),
                                       duration);
}

CaptionDocument applied(const CaptionDragInteraction& interaction, const CaptionDocument& captions,
                        const TimelineMapper& mapper) {
    const ProjectTime duration = mapper.sourceDuration();
    const Uuid& id = interaction.cueID;
    return release(
        captions, effectPart(interaction.part),
        interaction.previewSequenceTime != interaction.anchorSequenceTime,
        targetSourceTime(interaction, mapper),
        [&](ProjectTime t) { return CaptionDocumentEngine::moveCue(captions, id, t, duration); },
        [&](ProjectTime t) { return CaptionDocumentEngine::trimStart(captions, id, t, duration); },
        [&](ProjectTime t) { return CaptionDocumentEngine::trimEnd(captions, id, t, duration); });
}

} // namespace TimelineDragInteractions

} // namespace rilo

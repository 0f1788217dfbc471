#include "app/editing/TimelineAnnotationEditing.h"

#include "project/document/TimelineValidator.h"
#include "project/engine/TimelineMapper.h"

#include <algorithm>
#include <vector>

namespace rilo::TimelineAnnotationEditing {

namespace {

constexpr double minimumEdge = 0.02;

AnnotationElement& annotationWithID(EditTimeline& timeline, const Uuid& id) {
    const auto found = std::find_if(timeline.annotations.begin(), timeline.annotations.end(),
                                    [&](const AnnotationElement& annotation) { return annotation.id == id; });
    if (found == timeline.annotations.end()) {
        throw AnnotationEditingError(AnnotationEditingError::Case::notFound);
    }
    return *found;
}

EditTimeline validated(EditTimeline timeline, ProjectTime sourceDuration) {
    TimelineValidator::validateContent(timeline, sourceDuration);
    return timeline;
}

} // namespace

InsertedAnnotation addAnnotation(const EditTimeline& timeline, AnnotationKind kind, ProjectTime sequenceTime,
                                 ProjectTime sourceDuration, double outputAspectRatio) {
    const TimelineMapper mapper(timeline, sourceDuration);
    const std::optional<TimelineMappedTime> mapped = mapper.mappedTimeForSequenceTime(sequenceTime);
    if (!mapped) {
        throw AnnotationEditingError(AnnotationEditingError::Case::invalidRange);
    }
    const std::optional<TimelineSegmentProjection> projection =
        mapper.projectionForSegmentID(mapped->segmentID);
    const std::optional<ProjectTime> end = mapper.sourceTimeByApplyingSequenceDelta(
        insertedSequenceNanoseconds, mapped->sourceTime, mapped->segmentID);
    if (!projection || !end || *end > projection->segment.sourceRange.end()) {
        throw AnnotationEditingError(AnnotationEditingError::Case::invalidRange);
    }

    EditTimeline result = timeline;
    std::stable_sort(
        result.annotations.begin(), result.annotations.end(),
        [](const AnnotationElement& a, const AnnotationElement& b) { return a.zIndex < b.zIndex; });
    for (std::size_t index = 0; index < result.annotations.size(); ++index) {
        result.annotations[index].zIndex = static_cast<std::int64_t>(index);
    }
    const AnnotationElement inserted = AnnotationElement::defaultAnnotation(
        kind, mapped->sourceTime, *end, static_cast<std::int64_t>(result.annotations.size()),
        outputAspectRatio);
    result.annotations.push_back(inserted);
    return {validated(std::move(result), sourceDuration), inserted.id};
}

EditTimeline removeAnnotation(const EditTimeline& timeline, const Uuid& id, ProjectTime sourceDuration) {
    EditTimeline result = timeline;
    annotationWithID(result, id);
    std::erase_if(result.annotations,
                  [&](const AnnotationElement& annotation) { return annotation.id == id; });
    return validated(std::move(result), sourceDuration);
}

EditTimeline moveAnnotation(const EditTimeline& timeline, const Uuid& id, ProjectTime startTime,
                            const Uuid& segmentID, ProjectTime sourceDuration) {
    EditTimeline result = timeline;
    AnnotationElement& annotation = annotationWithID(result, id);
    const auto segment =
        std::find_if(result.segments.begin(), result.segments.end(),
                     [&](const TimelineSegment& candidate) { return candidate.id == segmentID; });
    if (segment == result.segments.end()) {
        return timeline;
    }
    const ProjectTime length = annotation.endTime - annotation.startTime;
    if (length > segment->sourceRange.duration) {
        return timeline;
    }
    const ProjectTime start = std::clamp(TimelineFrameGrid::nearestBoundary(startTime),
                                         segment->sourceRange.start, segment->sourceRange.end() - length);
    annotation.startTime = start;
    annotation.endTime = start + length;
    return validated(std::move(result), sourceDuration);
}

EditTimeline updateAnnotationStart(const EditTimeline& timeline, const Uuid& id, ProjectTime startTime,
                                   ProjectTime sourceDuration) {
    EditTimeline result = timeline;
    AnnotationElement& annotation = annotationWithID(result, id);
    const ProjectTime latest = annotation.endTime - TimelineFrameGrid::minimumDuration;
    annotation.startTime =
        std::min(std::max(TimelineFrameGrid::nearestBoundary(startTime), ProjectTime::zero()), latest);
    return validated(std::move(result), sourceDuration);
}

EditTimeline updateAnnotationEnd(const EditTimeline& timeline, const Uuid& id, ProjectTime endTime,
                                 ProjectTime sourceDuration) {
    EditTimeline result = timeline;
    AnnotationElement& annotation = annotationWithID(result, id);
    const ProjectTime earliest = annotation.startTime + TimelineFrameGrid::minimumDuration;
    annotation.endTime =
        std::max(std::min(TimelineFrameGrid::nearestBoundary(endTime), sourceDuration), earliest);
    return validated(std::move(result), sourceDuration);
}

EditTimeline updateAnnotationBounds(const EditTimeline& timeline, const Uuid& id, RectValue bounds,
                                    ProjectTime sourceDuration) {
    EditTimeline result = timeline;
    AnnotationElement& annotation = annotationWithID(result, id);
    RectValue kept;
    kept.width = std::clamp(bounds.width, minimumEdge, 1.0);
    kept.height = std::clamp(bounds.height, minimumEdge, 1.0);
    kept.x = std::clamp(bounds.x, 0.0, 1.0 - kept.width);
    kept.y = std::clamp(bounds.y, 0.0, 1.0 - kept.height);
    annotation.bounds = kept;
    return validated(std::move(result), sourceDuration);
}

EditTimeline updateAnnotationArrow(const EditTimeline& timeline, const Uuid& id, PointValue startPoint,
                                   PointValue endPoint, ProjectTime sourceDuration) {
    EditTimeline result = timeline;
    AnnotationElement& annotation = annotationWithID(result, id);
    annotation.startPoint = startPoint.clamped();
    annotation.endPoint = endPoint.clamped();
    return validated(std::move(result), sourceDuration);
}

} // namespace rilo::TimelineAnnotationEditing

// The session's zooms, webcam and annotations: the timed effects that live in
// source time beside the segment list.

#include "app/editing/TimelineAnnotationEditing.h"
#include "app/editing/TimelineEditingSession.h"
#include "project/engine/TimelineEffectEngine.h"
#include "project/engine/TimelineMapper.h"
#include "scene/AutoZoomEngine.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace rilo {

namespace {

constexpr std::int64_t manualZoomSequenceNanoseconds = 1'000'000'000;
constexpr std::int64_t manualZoomTransitionSequenceNanoseconds = 300'000'000;
constexpr double manualZoomScale = 1.7;
constexpr std::int64_t manualWebcamFullscreenSequenceNanoseconds = 5'000'000'000;

// Where an element inserted at the playhead goes: from the source time under
// it to `sequenceNanoseconds` of output later, inside that segment. None when
// the playhead shows nothing or the span would cross the segment's end.
struct PlayheadSpan {
    TimelineMappedTime mapped;
    ProjectTime end;
};

std::optional<PlayheadSpan> spanAtPlayhead(const TimelineMapper& mapper, ProjectTime sequenceTime,
                                           std::int64_t sequenceNanoseconds) {
    const std::optional<TimelineMappedTime> mapped = mapper.mappedTimeForSequenceTime(sequenceTime);
    if (!mapped) {
        return std::nullopt;
    }
    const std::optional<TimelineSegmentProjection> projection =
        mapper.projectionForSegmentID(mapped->segmentID);
    const std::optional<ProjectTime> end =
        mapper.sourceTimeByApplyingSequenceDelta(sequenceNanoseconds, mapped->sourceTime, mapped->segmentID);
    if (!projection || !end || *end > projection->segment.sourceRange.end()) {
        return std::nullopt;
    }
    return PlayheadSpan{*mapped, *end};
}

// The start for an element of this length dragged to `sourceTime` inside the
// segment, or none when the segment is unknown or too short for it.
std::optional<ProjectTime> startInsideSegment(const EditTimeline& timeline, const Uuid& segmentID,
                                              ProjectTime sourceTime, ProjectTime length) {
    const auto segment =
        std::find_if(timeline.segments.begin(), timeline.segments.end(),
                     [&](const TimelineSegment& candidate) { return candidate.id == segmentID; });
    if (segment == timeline.segments.end() || length > segment->sourceRange.duration) {
        return std::nullopt;
    }
    return std::clamp(sourceTime, segment->sourceRange.start, segment->sourceRange.end() - length);
}

// The id of the element of `after` that `before` did not have.
template <class Element>
std::optional<Uuid> insertedID(const std::vector<Element>& before, const std::vector<Element>& after) {
    for (const Element& element : after) {
        const bool existed = std::any_of(before.begin(), before.end(), [&](const Element& candidate) {
            return candidate.id == element.id;
        });
        if (!existed) {
            return element.id;
        }
    }
    return std::nullopt;
}

} // namespace

// ---- Zooms ----

void TimelineEditingSession::selectZoom(std::optional<Uuid> zoomID) {
    perform([&] { setSelection(selectedZoomID_, zoomID); });
}

void TimelineEditingSession::addZoom(ProjectTime sequenceTime) {
    perform([&] {
        const TimelineMapper mapper(timeline_, sourceDuration_);
        const std::optional<PlayheadSpan> span =
            spanAtPlayhead(mapper, sequenceTime, manualZoomSequenceNanoseconds);
        const std::optional<ProjectTime> transitionEnd =
            span ? mapper.sourceTimeByApplyingSequenceDelta(manualZoomTransitionSequenceNanoseconds,
                                                            span->mapped.sourceTime, span->mapped.segmentID)
                 : std::nullopt;
        if (!span || !transitionEnd) {
            throw TimelineEffectError(TimelineEffectError::Case::zoomRangeInvalid);
        }
        const std::int64_t transitionNanoseconds = (*transitionEnd - span->mapped.sourceTime).nanoseconds;
        EditTimeline next = TimelineEffectEngine::addZoom(
            timeline_, ProjectTimeRange::fromStartEnd(span->mapped.sourceTime, span->end), {0.5, 0.5},
            manualZoomScale, sourceDuration_, transitionNanoseconds, transitionNanoseconds);
        const std::optional<Uuid> zoomID = insertedID(timeline_.zooms, next.zooms);
        applyMutationResult(std::move(next));
        setSelection(selectedZoomID_, zoomID);
    });
}

void TimelineEditingSession::removeSelectedZoom() {
    perform([&] {
        if (!selectedZoomID_) {
            return;
        }
        applyMutationResult(TimelineEffectEngine::removeZoom(timeline_, *selectedZoomID_, sourceDuration_));
        setSelection(selectedZoomID_, std::nullopt);
    });
}

void TimelineEditingSession::moveZoom(const Uuid& zoomID, ProjectTime sourceTime, const Uuid& segmentID) {
    perform([&] {
        const auto zoom = std::find_if(timeline_.zooms.begin(), timeline_.zooms.end(),
                                       [&](const ZoomSegment& candidate) { return candidate.id == zoomID; });
        if (zoom == timeline_.zooms.end()) {
            throw TimelineEffectError(TimelineEffectError::Case::zoomNotFound);
        }
        const std::optional<ProjectTime> start =
            startInsideSegment(timeline_, segmentID, sourceTime, zoom->endTime - zoom->startTime);
        if (start) {
            applyMutationResult(TimelineEffectEngine::moveZoom(timeline_, zoomID, *start, sourceDuration_));
        }
    });
}

void TimelineEditingSession::updateZoomStart(const Uuid& zoomID, ProjectTime sourceTime) {
    perform([&] {
        applyMutationResult(
            TimelineEffectEngine::updateZoomStart(timeline_, zoomID, sourceTime, sourceDuration_));
    });
}

void TimelineEditingSession::updateZoomEnd(const Uuid& zoomID, ProjectTime sourceTime) {
    perform([&] {
        applyMutationResult(
            TimelineEffectEngine::updateZoomEnd(timeline_, zoomID, sourceTime, sourceDuration_));
    });
}

void TimelineEditingSession::updateZoomScale(const Uuid& zoomID, double scale) {
    perform([&] {
        applyMutationResult(TimelineEffectEngine::updateZoomScale(timeline_, zoomID, scale, sourceDuration_));
    });
}

void TimelineEditingSession::updateZoomFocus(const Uuid& zoomID, PointValue focusPoint) {
    perform([&] {
        applyMutationResult(
            TimelineEffectEngine::updateZoomFocus(timeline_, zoomID, focusPoint, sourceDuration_));
    });
}

void TimelineEditingSession::regenerateAutoZooms(const std::vector<MouseEvent>& events) {
    perform([&] {
        std::vector<MouseEvent> visible;
        std::copy_if(events.begin(), events.end(), std::back_inserter(visible),
                     [](const MouseEvent& event) { return event.isVisibleInsideSource(); });
        std::vector<ZoomSegment> zooms = AutoZoomEngine{}.makeSegments(visible, sourceDuration_);
        applyMutationResult(TimelineEffectEngine::replaceZooms(timeline_, std::move(zooms), sourceDuration_));
    });
}

// ---- Webcam ----

void TimelineEditingSession::selectWebcamFullscreen(std::optional<Uuid> intervalID) {
    perform([&] { setSelection(selectedWebcamFullscreenID_, intervalID); });
}

void TimelineEditingSession::addWebcamFullscreen(ProjectTime sequenceTime) {
    perform([&] {
        const TimelineMapper mapper(timeline_, sourceDuration_);
        const std::optional<PlayheadSpan> span =
            spanAtPlayhead(mapper, sequenceTime, manualWebcamFullscreenSequenceNanoseconds);
        if (!span) {
            throw TimelineEffectError(TimelineEffectError::Case::webcamFullscreenRangeInvalid);
        }
        EditTimeline next = TimelineEffectEngine::addWebcamFullscreen(
            timeline_, ProjectTimeRange::fromStartEnd(span->mapped.sourceTime, span->end), sourceDuration_);
        const std::optional<Uuid> intervalID =
            insertedID(timeline_.webcamFullscreenSegments, next.webcamFullscreenSegments);
        applyMutationResult(std::move(next));
        setSelection(selectedWebcamFullscreenID_, intervalID);
    });
}

void TimelineEditingSession::removeSelectedWebcamFullscreen() {
    perform([&] {
        if (!selectedWebcamFullscreenID_) {
            return;
        }
        applyMutationResult(TimelineEffectEngine::removeWebcamFullscreen(
            timeline_, *selectedWebcamFullscreenID_, sourceDuration_));
        setSelection(selectedWebcamFullscreenID_, std::nullopt);
    });
}

void TimelineEditingSession::moveWebcamFullscreen(const Uuid& intervalID, ProjectTime sourceTime,
                                                  const Uuid& segmentID) {
    perform([&] {
        const auto interval = std::find_if(
            timeline_.webcamFullscreenSegments.begin(), timeline_.webcamFullscreenSegments.end(),
            [&](const WebcamFullscreenSegment& candidate) { return candidate.id == intervalID; });
        if (interval == timeline_.webcamFullscreenSegments.end()) {
            throw TimelineEffectError(TimelineEffectError::Case::webcamFullscreenNotFound);
        }
        const std::optional<ProjectTime> start =
            startInsideSegment(timeline_, segmentID, sourceTime, interval->endTime - interval->startTime);
        if (start) {
            applyMutationResult(
                TimelineEffectEngine::moveWebcamFullscreen(timeline_, intervalID, *start, sourceDuration_));
        }
    });
}

void TimelineEditingSession::updateWebcamFullscreenStart(const Uuid& intervalID, ProjectTime sourceTime) {
    perform([&] {
        applyMutationResult(TimelineEffectEngine::updateWebcamFullscreenStart(timeline_, intervalID,
                                                                              sourceTime, sourceDuration_));
    });
}

void TimelineEditingSession::updateWebcamFullscreenEnd(const Uuid& intervalID, ProjectTime sourceTime) {
    perform([&] {
        applyMutationResult(TimelineEffectEngine::updateWebcamFullscreenEnd(timeline_, intervalID, sourceTime,
                                                                            sourceDuration_));
    });
}

void TimelineEditingSession::upsertWebcamKeyframe(ProjectTime sourceTime, PointValue center,
                                                  double diameter) {
    perform([&] {
        EditTimeline next = TimelineEffectEngine::upsertWebcamKeyframe(
            timeline_, sourceTime, center, diameter, sourceDuration_, outputAspectRatio());
        // The keyframe that was added, or else the one that was updated in place.
        std::optional<Uuid> keyframeID = insertedID(timeline_.webcamKeyframes, next.webcamKeyframes);
        if (!keyframeID) {
            for (const WebcamOverlayKeyframe& keyframe : next.webcamKeyframes) {
                if (std::find(timeline_.webcamKeyframes.begin(), timeline_.webcamKeyframes.end(), keyframe) ==
                    timeline_.webcamKeyframes.end()) {
                    keyframeID = keyframe.id;
                }
            }
        }
        applyMutationResult(std::move(next));
        if (keyframeID) {
            setSelection(selectedWebcamKeyframeID_, keyframeID);
        }
    });
}

void TimelineEditingSession::moveWebcamGlobally(ProjectTime sourceTime, PointValue target) {
    perform([&] {
        applyMutationResult(
            TimelineEffectEngine::moveWebcamGlobally(timeline_, sourceTime, target, outputAspectRatio()));
    });
}

void TimelineEditingSession::resizeWebcamGlobally(ProjectTime sourceTime, double targetDiameter) {
    perform([&] {
        applyMutationResult(TimelineEffectEngine::resizeWebcamGlobally(timeline_, sourceTime, targetDiameter,
                                                                       outputAspectRatio()));
    });
}

void TimelineEditingSession::removeSelectedWebcamKeyframe() {
    perform([&] {
        if (!selectedWebcamKeyframeID_) {
            return;
        }
        applyMutationResult(
            TimelineEffectEngine::removeWebcamKeyframe(timeline_, *selectedWebcamKeyframeID_));
        setSelection(selectedWebcamKeyframeID_, std::nullopt);
    });
}

void TimelineEditingSession::selectWebcamKeyframe(std::optional<Uuid> keyframeID) {
    perform([&] { setSelection(selectedWebcamKeyframeID_, keyframeID); });
}

// ---- Annotations ----

void TimelineEditingSession::addAnnotation(AnnotationKind kind, ProjectTime sequenceTime) {
    perform([&] {
        TimelineAnnotationEditing::InsertedAnnotation inserted = TimelineAnnotationEditing::addAnnotation(
            timeline_, kind, sequenceTime, sourceDuration_, outputAspectRatio());
        applyMutationResult(std::move(inserted.timeline));
        setSelection(selectedAnnotationID_, inserted.annotationID);
    });
}

void TimelineEditingSession::selectAnnotation(std::optional<Uuid> annotationID) {
    perform([&] { setSelection(selectedAnnotationID_, annotationID); });
}

void TimelineEditingSession::removeSelectedAnnotation() {
    perform([&] {
        if (!selectedAnnotationID_) {
            return;
        }
        applyMutationResult(
            TimelineAnnotationEditing::removeAnnotation(timeline_, *selectedAnnotationID_, sourceDuration_));
        setSelection(selectedAnnotationID_, std::nullopt);
    });
}

void TimelineEditingSession::moveAnnotation(const Uuid& annotationID, ProjectTime sourceTime,
                                            const Uuid& segmentID) {
    perform([&] {
        applyMutationResult(TimelineAnnotationEditing::moveAnnotation(timeline_, annotationID, sourceTime,
                                                                      segmentID, sourceDuration_));
    });
}

void TimelineEditingSession::updateAnnotationStart(const Uuid& annotationID, ProjectTime sourceTime) {
    perform([&] {
        applyMutationResult(TimelineAnnotationEditing::updateAnnotationStart(timeline_, annotationID,
                                                                             sourceTime, sourceDuration_));
    });
}

void TimelineEditingSession::updateAnnotationEnd(const Uuid& annotationID, ProjectTime sourceTime) {
    perform([&] {
        applyMutationResult(TimelineAnnotationEditing::updateAnnotationEnd(timeline_, annotationID,
                                                                           sourceTime, sourceDuration_));
    });
}

void TimelineEditingSession::updateAnnotationBounds(const Uuid& annotationID, RectValue bounds) {
    perform([&] {
        applyMutationResult(TimelineAnnotationEditing::updateAnnotationBounds(timeline_, annotationID, bounds,
                                                                              sourceDuration_));
    });
}

void TimelineEditingSession::updateAnnotationArrow(const Uuid& annotationID, PointValue startPoint,
                                                   PointValue endPoint) {
    perform([&] {
        applyMutationResult(TimelineAnnotationEditing::updateAnnotationArrow(
            timeline_, annotationID, startPoint, endPoint, sourceDuration_));
    });
}

} // namespace rilo

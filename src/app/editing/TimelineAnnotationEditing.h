#pragma once

// The editor's operations on the static annotations of a timeline: insertion
// at the playhead, removal, moving inside a segment, trimming either end, and
// the geometry of shapes and arrows.
//
// Pure functions over EditTimeline: each returns a new timeline that passed
// TimelineValidator::validateContent, or throws and leaves its input as it
// was. Times are source times unless a name says otherwise; moved and trimmed
// times snap to the 60 fps grid. Errors: AnnotationEditingError, and the
// TimelineValidationError or TimelineEffectError of a result that fails
// validation (for example a seventeenth annotation at one time).

#include "app/editing/AnnotationEditingError.h"
#include "project/document/EditTimeline.h"
#include "shared/Geometry.h"
#include "shared/ProjectTime.h"
#include "shared/Uuid.h"

namespace rilo::TimelineAnnotationEditing {

// How long a new annotation shows, in sequence time.
inline constexpr std::int64_t insertedSequenceNanoseconds = 5'000'000'000;

struct InsertedAnnotation {
    EditTimeline timeline;
    Uuid annotationID;

    friend bool operator==(const InsertedAnnotation&, const InsertedAnnotation&) = default;
};

// A default annotation of the kind from the source time under the sequence
// time to five seconds of output later, which must not pass the end of that
// segment (invalidRange, as is a sequence time that shows nothing). The
// others are renumbered 0, 1, 2, ... in zIndex order and the new one goes on
// top. A circle is made round for an output of outputAspectRatio.
InsertedAnnotation addAnnotation(const EditTimeline& timeline, AnnotationKind kind, ProjectTime sequenceTime,
                                 ProjectTime sourceDuration, double outputAspectRatio);

// notFound for an unknown id, here and below.
EditTimeline removeAnnotation(const EditTimeline& timeline, const Uuid& id, ProjectTime sourceDuration);

// Keeps the length and puts the start at the snapped time, clamped so that
// the annotation stays inside the segment: an annotation cannot be dragged
// across a cut. One longer than the segment, or a segment that is not in the
// timeline, leaves the timeline as it is.
EditTimeline moveAnnotation(const EditTimeline& timeline, const Uuid& id, ProjectTime startTime,
                            const Uuid& segmentID, ProjectTime sourceDuration);

// The snapped start, from 0 to one grid frame before the end; the end stays.
EditTimeline updateAnnotationStart(const EditTimeline& timeline, const Uuid& id, ProjectTime startTime,
                                   ProjectTime sourceDuration);
// The snapped end, from one grid frame after the start to the source end.
EditTimeline updateAnnotationEnd(const EditTimeline& timeline, const Uuid& id, ProjectTime endTime,
                                 ProjectTime sourceDuration);

// The bounds of a shape, kept on the output: each edge at least 0.02 and at
// most 1, then moved inside the unit square. Bounds on an arrow fail
// validation.
EditTimeline updateAnnotationBounds(const EditTimeline& timeline, const Uuid& id, RectValue bounds,
                                    ProjectTime sourceDuration);
// The end points of an arrow, each clamped to the unit square. Points on a
// shape, or points closer than 0.02, fail validation.
EditTimeline updateAnnotationArrow(const EditTimeline& timeline, const Uuid& id, PointValue startPoint,
                                   PointValue endPoint, ProjectTime sourceDuration);

} // namespace rilo::TimelineAnnotationEditing

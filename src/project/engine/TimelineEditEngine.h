#pragma once

// The structural edits of a timeline's segment list: split at the playhead,
// trim either end of a segment, delete a segment, keep only a sequence range
// and remove source ranges. Pure functions: each takes a timeline and returns
// a new, validated one, or throws and leaves its input as it was. Edit times
// snap to the nearest boundary of the 60 fps grid.
//
// Effects stored in source time (zooms, webcam data) stay where they are;
// reconciling zooms with cuts is the plan engine's business. The one other
// member that an edit touches: an annotation that no longer shows anywhere
// in the edited result is removed (a split removes nothing, so it never
// does).
//
// Errors: TimelineEditError, and the TimelineValidationError or
// TimelineEffectError of a timeline that fails validation, unchanged.

#include "project/document/EditTimeline.h"
#include "project/engine/TimelineEditError.h"
#include "shared/ProjectTime.h"
#include "shared/Uuid.h"

#include <vector>

namespace rilo::TimelineEditEngine {

// Splits the segment under the sequence time into two at the snapped source
// position. The left half keeps the id, so a selection survives; the right
// half gets a fresh one. Both keep the rate. Throws noSegmentAtPlayhead when
// nothing plays there (the very end of the sequence included) and
// splitAtBoundary when either half would be shorter than one grid frame.
EditTimeline split(const EditTimeline& timeline, ProjectTime sequenceTime, ProjectTime sourceDuration);

// Moves the segment's start to the snapped source time, anywhere from the end
// of the previous segment (0 for the first) to one grid frame before its own
// end; the end, id and rate stay. Trimming may bring back removed content up
// to the neighbour, which never moves. Throws segmentNotFound or
// trimOutsideHandles.
EditTimeline trimStart(const EditTimeline& timeline, const Uuid& segmentID, ProjectTime sourceTime,
                       ProjectTime sourceDuration);

// Moves the segment's end to the snapped source time, anywhere from one grid
// frame after its start to the start of the next segment (the source end for
// the last). Throws segmentNotFound or trimOutsideHandles.
EditTimeline trimEnd(const EditTimeline& timeline, const Uuid& segmentID, ProjectTime sourceTime,
                     ProjectTime sourceDuration);

// Removes the segment; what follows closes up. The last segment cannot be
// deleted (cannotDeleteLastSegment, checked before the id is looked up);
// an unknown id is segmentNotFound.
EditTimeline rippleDelete(const EditTimeline& timeline, const Uuid& segmentID, ProjectTime sourceDuration);

// Keeps only what the sequence range shows. Each segment it touches leaves
// one piece with snapped ends, dropped when shorter than one grid frame; a
// piece keeps its segment's id only when it starts where the segment did.
// Throws invalidRange for a range that is empty, negative, past the end of
// the sequence or that leaves nothing.
EditTimeline retainingSequenceRange(const EditTimeline& timeline, const ProjectTimeRange& sequenceRange,
                                    ProjectTime sourceDuration);

// The cutting primitive: removes each source range, snapped to the grid, in
// the order given (the ranges are neither merged nor sorted here). A cut
// segment leaves a left piece with its id and a right piece that takes the
// id only when there is no left piece; a remainder shorter than one grid
// frame goes with the cut. Throws invalidRange for no non-empty range, a
// range outside the source or a cut that removes nothing, and
// cannotDeleteLastSegment when nothing would remain.
EditTimeline removeSourceRanges(const EditTimeline& timeline,
                                const std::vector<ProjectTimeRange>& sourceRanges,
                                ProjectTime sourceDuration);

} // namespace rilo::TimelineEditEngine

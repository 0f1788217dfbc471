#pragma once

// Playback rate changes over source ranges of the retained content. A rate
// belongs to a segment, so a change splits segments at the ends of its range
// and rewrites the middle. Pure functions over timeline values: each returns
// a new, validated timeline or throws and leaves its input as it was. Ranges
// snap to the nearest boundary of the 60 fps grid. No member other than the
// segment list (and the schema version) changes: effects live in source time.
//
// Errors: TimelineSpeedError, and the TimelineValidationError or
// TimelineEffectError of a timeline that fails validation, unchanged; a piece
// that at its new rate plays for less than one grid frame fails with
// sequenceSegmentTooShort.

#include "project/document/EditTimeline.h"
#include "project/engine/TimelineSpeedError.h"
#include "shared/ProjectTime.h"

#include <vector>

namespace rilo {

// One requested rate over a source range.
struct TimelineSpeedChange {
    ProjectTimeRange range;
    TimelinePlaybackRate rate;

    friend bool operator==(const TimelineSpeedChange&, const TimelineSpeedChange&) = default;
};

// The outcome of a batch: the final timeline and the changes as applied.
struct TimelineSpeedResult {
    EditTimeline timeline;
    std::vector<TimelineSpeedChange> normalizedChanges;

    friend bool operator==(const TimelineSpeedResult&, const TimelineSpeedResult&) = default;
};

namespace TimelineSpeedEngine {

// Plays the snapped source range at the rate. The range must lie wholly in
// retained content, so it never spans a cut. Overlapped segments are split
// at the range's ends: the part before keeps the old rate and the id, the
// changed part takes the id when nothing lies before it, and the part after
// gets a fresh id. A remainder shorter than one grid frame joins the changed
// part, so the change may reach up to a frame past the range on either side.
// Neighbours of equal rate are not joined. The result has the current schema.
//
// Throws invalidRate, invalidRange (shorter than a grid frame or outside the
// source), rangeOutsideRetainedContent, or noChange when every overlapped
// segment already plays at the rate.
EditTimeline settingRate(TimelinePlaybackRate rate, const ProjectTimeRange& sourceRange,
                         const EditTimeline& timeline, ProjectTime sourceDuration);

// Normalises the changes, then applies each in turn with settingRate; any
// failure discards the whole batch. An empty normalised list returns the
// timeline unchanged.
TimelineSpeedResult applying(const std::vector<TimelineSpeedChange>& changes, const EditTimeline& timeline,
                             ProjectTime sourceDuration);

// Checks each change (invalidRate, then invalidRange for a snapped range
// shorter than a grid frame), snaps the ranges and sorts them by start, then
// end. Ranges of equal rate that overlap or touch merge; ranges of different
// rates may touch but not overlap (conflictingRanges).
std::vector<TimelineSpeedChange> normalized(const std::vector<TimelineSpeedChange>& changes);

} // namespace TimelineSpeedEngine

} // namespace rilo

#pragma once

// The only conversion between the two time axes of a project. Source time is
// the position inside the recorded media, where every effect, caption and
// annotation is stored; sequence time is the position in the edited result,
// after cuts and playback rates, where the playhead and the export run.
//
// A TimelineMapper is an immutable value built from one timeline and the
// source duration; a changed timeline gets a new mapper. Construction
// validates the timeline and is the only operation that throws. Queries
// report absence with an empty optional or an empty array. Having no mutable
// state, a mapper is shared freely between threads.
//
// The point mappings are O(log n) in the number of segments and never
// allocate: they are called for every rendered frame and every thumbnail.
// The range operations allocate their one result array.

#include "project/document/EditTimeline.h"
#include "shared/ProjectTime.h"
#include "shared/Uuid.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace rilo {

// One kept segment and where it lands on the sequence axis. The segment's id
// is the projection's identity.
struct TimelineSegmentProjection {
    TimelineSegment segment;
    ProjectTimeRange sequenceRange;

    friend bool operator==(const TimelineSegmentProjection&, const TimelineSegmentProjection&) = default;
};

// The answer of a point mapping: the same instant on both axes, and the
// segment that holds it.
struct TimelineMappedTime {
    Uuid segmentID;
    ProjectTime sourceTime;
    ProjectTime sequenceTime;

    friend bool operator==(const TimelineMappedTime&, const TimelineMappedTime&) = default;
};

class TimelineMapper {
public:
    // A mapper without projections: it maps nothing and its durations are 0.
    TimelineMapper() = default;

    // Validates the timeline against the source duration and lays its
    // segments end to end on the sequence axis, each at its own rate. Throws
    // the timeline's validation error, sequenceDurationOverflow included.
    TimelineMapper(const EditTimeline& timeline, ProjectTime sourceDuration);

    ProjectTime sourceDuration() const noexcept { return sourceDuration_; }
    // The sum of the projected lengths.
    ProjectTime sequenceDuration() const noexcept { return sequenceDuration_; }
    // In timeline order; sorted on both axes, and the sequence ranges follow
    // one another from 0 without a gap.
    const std::vector<TimelineSegmentProjection>& projections() const noexcept { return projections_; }

    // The source instant shown at sequence time t, for 0 <= t < sequenceDuration.
    // The result lies strictly inside its segment's source range.
    std::optional<TimelineMappedTime> mappedTimeForSequenceTime(ProjectTime t) const noexcept;
    // Where source time s plays, for 0 <= s < sourceDuration; none when s lies
    // in removed content.
    std::optional<TimelineMappedTime> mappedTimeForSourceTime(ProjectTime s) const noexcept;
    // As mappedTimeForSequenceTime, and the very end of the sequence maps to
    // the source end of the last segment, which may lie before the source end.
    std::optional<ProjectTime> sourceTimeForSequenceBoundary(ProjectTime t) const noexcept;

    // Linear in the number of segments; of two segments with the same id the
    // first in timeline order answers.
    std::optional<TimelineSegmentProjection> projectionForSegmentID(const Uuid& segmentID) const noexcept;

    // Where source time s shows on the sequence axis, or, when it was cut,
    // the start of the next kept segment (the end of the sequence after the
    // last one). Total.
    ProjectTime nearestSequenceBoundaryToDeletedSourceTime(ProjectTime s) const noexcept;

    // The sequence ranges that show the source range: one for each segment
    // that keeps part of it, in order and never merged, so that a range over
    // a cut gives two ranges that touch. Starts round down and ends up, so the
    // result always covers what is kept of the range.
    std::vector<ProjectTimeRange> projectedRanges(const ProjectTimeRange& sourceRange) const;
    // The mirror image: the source ranges shown during a sequence range.
    std::vector<ProjectTimeRange> sourceRanges(const ProjectTimeRange& sequenceRange) const;

    // The source position that lies delta nanoseconds of sequence time away
    // from sourceTime, at the rate of the given segment. Not clamped to the
    // segment. None for an unknown segment or when the arithmetic fails. The
    // segment is looked up as in projectionForSegmentID.
    std::optional<ProjectTime> sourceTimeByApplyingSequenceDelta(std::int64_t sequenceDelta,
                                                                 ProjectTime sourceTime,
                                                                 const Uuid& segmentID) const noexcept;

    // Whether every nanosecond of the source range is kept by some segment.
    bool retainsEntireSourceRange(const ProjectTimeRange& sourceRange) const noexcept;

    friend bool operator==(const TimelineMapper& a, const TimelineMapper& b) noexcept {
        return a.sourceDuration_ == b.sourceDuration_ && a.sequenceDuration_ == b.sequenceDuration_ &&
               a.projections_ == b.projections_;
    }

private:
    const TimelineSegmentProjection* projectionAtSequenceTime(ProjectTime t) const noexcept;
    const TimelineSegmentProjection* projectionAtSourceTime(ProjectTime s) const noexcept;
    const TimelineSegmentProjection* findProjection(const Uuid& segmentID) const noexcept;

    ProjectTime sourceDuration_;
    ProjectTime sequenceDuration_;
    std::vector<TimelineSegmentProjection> projections_;

    // Search keys, derived from projections_ at construction and kept in
    // contiguous arrays so that a lookup touches as little memory as it can.
    std::vector<std::int64_t> sequenceStarts_;
    std::vector<std::int64_t> sourceStarts_;
};

} // namespace rilo

#include "project/engine/TimelineMapper.h"

#include "project/document/TimelineRateMath.h"
#include "project/document/TimelineValidationError.h"
#include "project/document/TimelineValidator.h"

#include <algorithm>
#include <iterator>
#include <limits>

namespace rilo {

namespace {

// The index of the last start not after value, or none when value lies
// before every start. The starts are sorted ascending.
std::optional<std::size_t> lastStartAtOrBefore(const std::vector<std::int64_t>& starts,
                                               std::int64_t value) noexcept {
    const auto after = std::upper_bound(starts.begin(), starts.end(), value);
    if (after == starts.begin()) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(std::distance(starts.begin(), after) - 1);
}

// Where a walk over the projections for a range starting at value may begin:
// every projection before the one holding value ends at or before it.
std::size_t firstCandidate(const std::vector<std::int64_t>& starts, std::int64_t value) noexcept {
    return lastStartAtOrBefore(starts, value).value_or(0);
}

// An offset into a range of the given length, kept strictly before its end.
std::int64_t clampedInside(std::int64_t offset, std::int64_t length) noexcept {
    return std::min(offset, std::max<std::int64_t>(length - 1, 0));
}

} // namespace

TimelineMapper::TimelineMapper(const EditTimeline& timeline, ProjectTime sourceDuration)
    : sourceDuration_(sourceDuration) {
    TimelineValidator::validateContent(timeline, sourceDuration);

    const std::size_t count = timeline.segments.size();
    projections_.reserve(count);
    sequenceStarts_.reserve(count);
    sourceStarts_.reserve(count);

    // Each projected length is converted once from the segment's whole source
    // length; it is never a sum of smaller conversions nor snapped to a frame.
    std::int64_t cursor = 0;
    for (const TimelineSegment& segment : timeline.segments) {
        const auto length =
            TimelineRateMath::sequenceDuration(segment.sourceRange.duration, segment.playbackRate);
        std::int64_t next = 0;
        if (!length || __builtin_add_overflow(cursor, length->nanoseconds, &next)) {
            throw TimelineValidationError::sequenceDurationOverflow(segment.id);
        }
        projections_.push_back({segment, {ProjectTime{cursor}, *length}});
        sequenceStarts_.push_back(cursor);
        sourceStarts_.push_back(segment.sourceRange.start.nanoseconds);
        cursor = next;
    }
    sequenceDuration_ = ProjectTime{cursor};
}

const TimelineSegmentProjection* TimelineMapper::projectionAtSequenceTime(ProjectTime t) const noexcept {
    const auto index = lastStartAtOrBefore(sequenceStarts_, t.nanoseconds);
    if (!index) {
        return nullptr;
    }
    const TimelineSegmentProjection& projection = projections_[*index];
    return t < projection.sequenceRange.end() ? &projection : nullptr;
}

const TimelineSegmentProjection* TimelineMapper::projectionAtSourceTime(ProjectTime s) const noexcept {
    const auto index = lastStartAtOrBefore(sourceStarts_, s.nanoseconds);
    if (!index) {
        return nullptr;
    }
    const TimelineSegmentProjection& projection = projections_[*index];
    return s < projection.segment.sourceRange.end() ? &projection : nullptr;
}

const TimelineSegmentProjection* TimelineMapper::findProjection(const Uuid& segmentID) const noexcept {
    const auto found =
        std::find_if(projections_.begin(), projections_.end(),
                     [&](const TimelineSegmentProjection& p) { return p.segment.id == segmentID; });
    return found == projections_.end() ? nullptr : &*found;
}

std::optional<TimelineMappedTime> TimelineMapper::mappedTimeForSequenceTime(ProjectTime t) const noexcept {
    if (t.nanoseconds < 0 || t >= sequenceDuration_) {
        return std::nullopt;
    }
    const TimelineSegmentProjection* projection = projectionAtSequenceTime(t);
    if (projection == nullptr) {
        return std::nullopt;
    }
    const TimelineSegment& segment = projection->segment;
    const auto sourceOffset =
        TimelineRateMath::sourceNanoseconds((t - projection->sequenceRange.start).nanoseconds,
                                            segment.playbackRate, TimelineRateRounding::nearest);
    if (!sourceOffset) {
        return std::nullopt;
    }
    const std::int64_t offset = clampedInside(*sourceOffset, segment.sourceRange.duration.nanoseconds);
    return TimelineMappedTime{segment.id, segment.sourceRange.start + ProjectTime{offset}, t};
}

std::optional<TimelineMappedTime> TimelineMapper::mappedTimeForSourceTime(ProjectTime s) const noexcept {
    if (s.nanoseconds < 0 || s >= sourceDuration_) {
        return std::nullopt;
    }
    const TimelineSegmentProjection* projection = projectionAtSourceTime(s);
    if (projection == nullptr) {
        return std::nullopt;
    }
    const TimelineSegment& segment = projection->segment;
    const auto sequenceOffset = TimelineRateMath::sequenceNanoseconds(
        (s - segment.sourceRange.start).nanoseconds, segment.playbackRate, TimelineRateRounding::nearest);
    if (!sequenceOffset) {
        return std::nullopt;
    }
    const std::int64_t offset =
        clampedInside(*sequenceOffset, projection->sequenceRange.duration.nanoseconds);
    return TimelineMappedTime{segment.id, s, projection->sequenceRange.start + ProjectTime{offset}};
}

std::optional<ProjectTime> TimelineMapper::sourceTimeForSequenceBoundary(ProjectTime t) const noexcept {
    if (t == sequenceDuration_) {
        if (projections_.empty()) {
            return std::nullopt;
        }
        return projections_.back().segment.sourceRange.end();
    }
    const auto mapped = mappedTimeForSequenceTime(t);
    if (!mapped) {
        return std::nullopt;
    }
    return mapped->sourceTime;
}

std::optional<TimelineSegmentProjection>
TimelineMapper::projectionForSegmentID(const Uuid& segmentID) const noexcept {
    const TimelineSegmentProjection* projection = findProjection(segmentID);
    if (projection == nullptr) {
        return std::nullopt;
    }
    return *projection;
}

ProjectTime TimelineMapper::nearestSequenceBoundaryToDeletedSourceTime(ProjectTime s) const noexcept {
    if (const auto mapped = mappedTimeForSourceTime(s)) {
        return mapped->sequenceTime;
    }
    const auto following = std::upper_bound(sourceStarts_.begin(), sourceStarts_.end(), s.nanoseconds);
    if (following != sourceStarts_.end()) {
        return projections_[static_cast<std::size_t>(std::distance(sourceStarts_.begin(), following))]
            .sequenceRange.start;
    }
    return sequenceDuration_;
}

std::vector<ProjectTimeRange> TimelineMapper::projectedRanges(const ProjectTimeRange& sourceRange) const {
    std::vector<ProjectTimeRange> result;
    const ProjectTime rangeEnd = sourceRange.end();
    for (std::size_t index = firstCandidate(sourceStarts_, sourceRange.start.nanoseconds);
         index < projections_.size(); ++index) {
        const TimelineSegmentProjection& projection = projections_[index];
        const ProjectTimeRange& segmentRange = projection.segment.sourceRange;
        if (segmentRange.start >= rangeEnd) {
            break; // this and every later segment begins after the range
        }
        const ProjectTime lower = std::max(sourceRange.start, segmentRange.start);
        const ProjectTime upper = std::min(rangeEnd, segmentRange.end());
        if (lower >= upper) {
            continue;
        }
        const TimelinePlaybackRate rate = projection.segment.playbackRate;
        const auto sequenceA = TimelineRateMath::sequenceNanoseconds((lower - segmentRange.start).nanoseconds,
                                                                     rate, TimelineRateRounding::down);
        const auto sequenceB = TimelineRateMath::sequenceNanoseconds((upper - segmentRange.start).nanoseconds,
                                                                     rate, TimelineRateRounding::up);
        if (!sequenceA || !sequenceB) {
            continue;
        }
        const std::int64_t length = projection.sequenceRange.duration.nanoseconds;
        const std::int64_t clampedA = std::min(*sequenceA, length);
        const std::int64_t clampedB = std::min(std::max(*sequenceB, clampedA), length);
        if (*sequenceA >= clampedB) {
            continue;
        }
        result.push_back(
            {projection.sequenceRange.start + ProjectTime{clampedA}, ProjectTime{clampedB - clampedA}});
    }
    return result;
}

std::vector<ProjectTimeRange> TimelineMapper::sourceRanges(const ProjectTimeRange& sequenceRange) const {
    std::vector<ProjectTimeRange> result;
    const ProjectTime rangeEnd = sequenceRange.end();
    for (std::size_t index = firstCandidate(sequenceStarts_, sequenceRange.start.nanoseconds);
         index < projections_.size(); ++index) {
        const TimelineSegmentProjection& projection = projections_[index];
        const ProjectTimeRange& projected = projection.sequenceRange;
        if (projected.start >= rangeEnd) {
            break;
        }
        const ProjectTime lower = std::max(sequenceRange.start, projected.start);
        const ProjectTime upper = std::min(rangeEnd, projected.end());
        if (lower >= upper) {
            continue;
        }
        const TimelinePlaybackRate rate = projection.segment.playbackRate;
        const auto sourceA = TimelineRateMath::sourceNanoseconds((lower - projected.start).nanoseconds, rate,
                                                                 TimelineRateRounding::down);
        const auto sourceB = TimelineRateMath::sourceNanoseconds((upper - projected.start).nanoseconds, rate,
                                                                 TimelineRateRounding::up);
        if (!sourceA || !sourceB) {
            continue;
        }
        const ProjectTimeRange& segmentRange = projection.segment.sourceRange;
        const std::int64_t length = segmentRange.duration.nanoseconds;
        const std::int64_t clampedA = std::min(*sourceA, length);
        const std::int64_t clampedB = std::min(std::max(*sourceB, clampedA), length);
        if (*sourceA >= clampedB) {
            continue;
        }
        result.push_back({segmentRange.start + ProjectTime{clampedA}, ProjectTime{clampedB - clampedA}});
    }
    return result;
}

std::optional<ProjectTime>
TimelineMapper::sourceTimeByApplyingSequenceDelta(std::int64_t sequenceDelta, ProjectTime sourceTime,
                                                  const Uuid& segmentID) const noexcept {
    const TimelineSegmentProjection* projection = findProjection(segmentID);
    if (projection == nullptr || sequenceDelta == std::numeric_limits<std::int64_t>::min()) {
        return std::nullopt;
    }
    const auto magnitude =
        TimelineRateMath::sourceNanoseconds(sequenceDelta < 0 ? -sequenceDelta : sequenceDelta,
                                            projection->segment.playbackRate, TimelineRateRounding::nearest);
    if (!magnitude) {
        return std::nullopt;
    }
    std::int64_t result = 0;
    if (__builtin_add_overflow(sourceTime.nanoseconds, sequenceDelta < 0 ? -*magnitude : *magnitude,
                               &result)) {
        return std::nullopt;
    }
    return ProjectTime{result};
}

bool TimelineMapper::retainsEntireSourceRange(const ProjectTimeRange& sourceRange) const noexcept {
    if (projections_.empty()) {
        return sourceRange.duration == ProjectTime::zero();
    }
    std::int64_t kept = 0;
    for (const TimelineSegmentProjection& projection : projections_) {
        if (const auto overlap = sourceRange.intersection(projection.segment.sourceRange)) {
            kept = checkedAdd(kept, overlap->duration.nanoseconds);
        }
    }
    return kept == sourceRange.duration.nanoseconds;
}

} // namespace rilo

#include "project/engine/TimelineEditEngine.h"

#include "project/document/TimelineRateMath.h"
#include "project/document/TimelineValidator.h"
#include "project/engine/TimelineMapper.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <utility>

namespace rilo::TimelineEditEngine {

namespace {

constexpr ProjectTime minimum = TimelineFrameGrid::minimumDuration;

ProjectTime snap(ProjectTime t) noexcept {
    return TimelineFrameGrid::nearestBoundary(t);
}

std::optional<std::size_t> indexOfSegment(const EditTimeline& timeline, const Uuid& segmentID) {
    const auto found = std::find_if(timeline.segments.begin(), timeline.segments.end(),
                                    [&](const TimelineSegment& segment) { return segment.id == segmentID; });
    if (found == timeline.segments.end()) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(std::distance(timeline.segments.begin(), found));
}

// The closing step of every edit that changed the segment list: annotations
// that no longer show anywhere are dropped (one that keeps any piece stays
// whole, with its stored times), then the result is validated.
EditTimeline finished(EditTimeline candidate, ProjectTime sourceDuration) {
    const TimelineMapper mapper(candidate, sourceDuration);
    std::erase_if(candidate.annotations, [&](const AnnotationElement& annotation) {
        const auto range = ProjectTimeRange::fromStartEnd(annotation.startTime, annotation.endTime);
        return mapper.projectedRanges(range).empty();
    });
    TimelineValidator::validateContent(candidate, sourceDuration);
    return candidate;
}

// The source range of one projection shown during a sequence range, snapped
// to the grid; none when the overlap is empty or less than a grid frame.
// Offsets convert with the start rounded down and the end rounded up, each
// clamped to the segment, as TimelineMapper::sourceRanges does.
std::optional<TimelineSegment> retainedPiece(const TimelineSegmentProjection& projection,
                                             const ProjectTimeRange& sequenceRange) {
    const ProjectTimeRange& projected = projection.sequenceRange;
    const ProjectTime lower = std::max(sequenceRange.start, projected.start);
    const ProjectTime upper = std::min(sequenceRange.end(), projected.end());
    if (lower >= upper) {
        return std::nullopt;
    }
    const TimelineSegment& segment = projection.segment;
    const auto sourceA = TimelineRateMath::sourceNanoseconds(
        (lower - projected.start).nanoseconds, segment.playbackRate, TimelineRateRounding::down);
    const auto sourceB = TimelineRateMath::sourceNanoseconds((upper - projected.start).nanoseconds,
                                                             segment.playbackRate, TimelineRateRounding::up);
    if (!sourceA || !sourceB) {
        return std::nullopt;
    }
    const std::int64_t length = segment.sourceRange.duration.nanoseconds;
    const std::int64_t clampedA = std::min(*sourceA, length);
    const std::int64_t clampedB = std::min(std::max(*sourceB, clampedA), length);
    if (clampedB <= clampedA) {
        return std::nullopt;
    }
    const ProjectTime start = snap(segment.sourceRange.start + ProjectTime{clampedA});
    const ProjectTime end = snap(segment.sourceRange.start + ProjectTime{clampedB});
    if (end - start < minimum) {
        return std::nullopt;
    }
    const Uuid id = start == segment.sourceRange.start ? segment.id : Uuid::random();
    return TimelineSegment{id, ProjectTimeRange::fromStartEnd(start, end), segment.playbackRate};
}

// A cut range snapped to the grid, its duration floored at 0.
ProjectTimeRange snappedRange(const ProjectTimeRange& range) noexcept {
    const ProjectTime start = snap(range.start);
    const ProjectTime end = snap(range.end());
    return {start, std::max(end - start, ProjectTime::zero())};
}

// The segments left after removing one range. A remainder shorter than a
// grid frame disappears with the cut.
std::vector<TimelineSegment> removingRange(const std::vector<TimelineSegment>& segments,
                                           const ProjectTimeRange& cut) {
    std::vector<TimelineSegment> result;
    result.reserve(segments.size() + 1);
    for (const TimelineSegment& segment : segments) {
        if (!segment.sourceRange.intersection(cut)) {
            result.push_back(segment);
            continue;
        }
        const ProjectTime segmentStart = segment.sourceRange.start;
        const ProjectTime segmentEnd = segment.sourceRange.end();
        bool madeLeftPiece = false;
        if (cut.start - segmentStart >= minimum) {
            result.push_back(
                {segment.id, ProjectTimeRange::fromStartEnd(segmentStart, cut.start), segment.playbackRate});
            madeLeftPiece = true;
        }
        const ProjectTime rightStart = std::max(segmentStart, cut.end());
        if (segmentEnd - rightStart >= minimum) {
            result.push_back({madeLeftPiece ? Uuid::random() : segment.id,
                              ProjectTimeRange::fromStartEnd(rightStart, segmentEnd), segment.playbackRate});
        }
    }
    return result;
}

} // namespace

EditTimeline split(const EditTimeline& timeline, ProjectTime sequenceTime, ProjectTime sourceDuration) {
    const TimelineMapper mapper(timeline, sourceDuration);
    const auto mapped = mapper.mappedTimeForSequenceTime(snap(sequenceTime));
    if (!mapped) {
        throw TimelineEditError(TimelineEditError::Case::noSegmentAtPlayhead);
    }
    const auto index = indexOfSegment(timeline, mapped->segmentID);
    if (!index) {
        throw TimelineEditError(TimelineEditError::Case::noSegmentAtPlayhead);
    }
    const TimelineSegment segment = timeline.segments[*index];
    // Snapped on both axes: the sequence position picks the frame shown, the
    // source position puts the cut on the source's own grid.
    const ProjectTime cut = snap(mapped->sourceTime);
    const ProjectTime left = cut - segment.sourceRange.start;
    const ProjectTime right = segment.sourceRange.end() - cut;
    if (left < minimum || right < minimum) {
        throw TimelineEditError(TimelineEditError::Case::splitAtBoundary);
    }

    EditTimeline result = timeline;
    auto position = result.segments.begin() + static_cast<std::ptrdiff_t>(*index);
    position->sourceRange = {segment.sourceRange.start, left};
    result.segments.insert(std::next(position), {Uuid::random(), {cut, right}, segment.playbackRate});
    TimelineValidator::validateContent(result, sourceDuration);
    return result;
}

EditTimeline trimStart(const EditTimeline& timeline, const Uuid& segmentID, ProjectTime sourceTime,
                       ProjectTime sourceDuration) {
    const auto index = indexOfSegment(timeline, segmentID);
    if (!index) {
        throw TimelineEditError(TimelineEditError::Case::segmentNotFound);
    }
    const TimelineSegment& segment = timeline.segments[*index];
    const ProjectTime end = segment.sourceRange.end();
    const ProjectTime earliest =
        *index == 0 ? ProjectTime::zero() : timeline.segments[*index - 1].sourceRange.end();
    const ProjectTime latest = end - minimum;
    const ProjectTime start = snap(sourceTime);
    if (start < earliest || start > latest) {
        throw TimelineEditError(TimelineEditError::Case::trimOutsideHandles);
    }

    EditTimeline result = timeline;
    result.segments[*index].sourceRange = ProjectTimeRange::fromStartEnd(start, end);
    return finished(std::move(result), sourceDuration);
}

EditTimeline trimEnd(const EditTimeline& timeline, const Uuid& segmentID, ProjectTime sourceTime,
                     ProjectTime sourceDuration) {
    const auto index = indexOfSegment(timeline, segmentID);
    if (!index) {
        throw TimelineEditError(TimelineEditError::Case::segmentNotFound);
    }
    const TimelineSegment& segment = timeline.segments[*index];
    const ProjectTime start = segment.sourceRange.start;
    const ProjectTime earliest = start + minimum;
    const ProjectTime latest = *index + 1 == timeline.segments.size()
                                   ? sourceDuration
                                   : timeline.segments[*index + 1].sourceRange.start;
    const ProjectTime end = snap(sourceTime);
    if (end < earliest || end > latest) {
        throw TimelineEditError(TimelineEditError::Case::trimOutsideHandles);
    }

    EditTimeline result = timeline;
    result.segments[*index].sourceRange = ProjectTimeRange::fromStartEnd(start, end);
    return finished(std::move(result), sourceDuration);
}

EditTimeline rippleDelete(const EditTimeline& timeline, const Uuid& segmentID, ProjectTime sourceDuration) {
    if (timeline.segments.size() < 2) {
        throw TimelineEditError(TimelineEditError::Case::cannotDeleteLastSegment);
    }
    const auto index = indexOfSegment(timeline, segmentID);
    if (!index) {
        throw TimelineEditError(TimelineEditError::Case::segmentNotFound);
    }

    EditTimeline result = timeline;
    result.segments.erase(result.segments.begin() + static_cast<std::ptrdiff_t>(*index));
    return finished(std::move(result), sourceDuration);
}

EditTimeline retainingSequenceRange(const EditTimeline& timeline, const ProjectTimeRange& sequenceRange,
                                    ProjectTime sourceDuration) {
    const TimelineMapper mapper(timeline, sourceDuration);
    // The end is compared as a remaining length so that no sum can overflow.
    if (sequenceRange.duration <= ProjectTime::zero() || sequenceRange.start < ProjectTime::zero() ||
        sequenceRange.start > mapper.sequenceDuration() ||
        sequenceRange.duration > mapper.sequenceDuration() - sequenceRange.start) {
        throw TimelineEditError(TimelineEditError::Case::invalidRange);
    }

    std::vector<TimelineSegment> pieces;
    for (const TimelineSegmentProjection& projection : mapper.projections()) {
        if (auto piece = retainedPiece(projection, sequenceRange)) {
            pieces.push_back(std::move(*piece));
        }
    }
    if (pieces.empty()) {
        throw TimelineEditError(TimelineEditError::Case::invalidRange);
    }

    EditTimeline result = timeline;
    result.segments = std::move(pieces);
    return finished(std::move(result), sourceDuration);
}

EditTimeline removeSourceRanges(const EditTimeline& timeline,
                                const std::vector<ProjectTimeRange>& sourceRanges,
                                ProjectTime sourceDuration) {
    std::vector<ProjectTimeRange> cuts;
    cuts.reserve(sourceRanges.size());
    for (const ProjectTimeRange& range : sourceRanges) {
        const ProjectTimeRange snapped = snappedRange(range);
        if (snapped.duration > ProjectTime::zero()) {
            cuts.push_back(snapped);
        }
    }
    if (cuts.empty()) {
        throw TimelineEditError(TimelineEditError::Case::invalidRange);
    }
    for (const ProjectTimeRange& cut : cuts) {
        if (cut.start < ProjectTime::zero() || cut.end() > sourceDuration) {
            throw TimelineEditError(TimelineEditError::Case::invalidRange);
        }
    }

    std::vector<TimelineSegment> working = timeline.segments;
    for (const ProjectTimeRange& cut : cuts) {
        working = removingRange(working, cut);
    }
    if (working.empty()) {
        throw TimelineEditError(TimelineEditError::Case::cannotDeleteLastSegment);
    }
    // A cut that removes nothing is an error, not a no-op.
    if (working == timeline.segments) {
        throw TimelineEditError(TimelineEditError::Case::invalidRange);
    }

    EditTimeline result = timeline;
    result.segments = std::move(working);
    return finished(std::move(result), sourceDuration);
}

} // namespace rilo::TimelineEditEngine

#include "project/engine/TimelineSpeedEngine.h"

#include "project/document/TimelineValidator.h"
#include "project/engine/TimelineMapper.h"

#include <algorithm>
#include <utility>

namespace rilo::TimelineSpeedEngine {

namespace {

constexpr ProjectTime minimum = TimelineFrameGrid::minimumDuration;

ProjectTime snap(ProjectTime t) noexcept {
    return TimelineFrameGrid::nearestBoundary(t);
}

// The range snapped to the grid, its duration floored at 0.
ProjectTimeRange snappedRange(const ProjectTimeRange& range) noexcept {
    const ProjectTime start = snap(range.start);
    const ProjectTime end = snap(range.end());
    return {start, std::max(end - start, ProjectTime::zero())};
}

// Appends the pieces of one segment overlapped by the change [changeStart,
// changeEnd).
void appendChangedPieces(std::vector<TimelineSegment>& result, const TimelineSegment& segment,
                         ProjectTime changeStart, ProjectTime changeEnd, TimelinePlaybackRate rate) {
    const ProjectTime a = segment.sourceRange.start;
    const ProjectTime b = segment.sourceRange.end();
    ProjectTime c = std::max(changeStart, a);
    ProjectTime f = std::min(changeEnd, b);
    // A remainder too short to be a segment of its own is changed as well.
    if (c > a && c - a < minimum) {
        c = a;
    }
    if (f < b && b - f < minimum) {
        f = b;
    }
    const bool hasLeftPiece = a < c;
    if (hasLeftPiece) {
        result.push_back({segment.id, ProjectTimeRange::fromStartEnd(a, c), segment.playbackRate});
    }
    result.push_back(
        {hasLeftPiece ? Uuid::random() : segment.id, ProjectTimeRange::fromStartEnd(c, f), rate});
    if (f < b) {
        result.push_back({Uuid::random(), ProjectTimeRange::fromStartEnd(f, b), segment.playbackRate});
    }
}

} // namespace

EditTimeline settingRate(TimelinePlaybackRate rate, const ProjectTimeRange& sourceRange,
                         const EditTimeline& timeline, ProjectTime sourceDuration) {
    if (!rate.isValid()) {
        throw TimelineSpeedError(TimelineSpeedError::Case::invalidRate);
    }
    const ProjectTimeRange range = snappedRange(sourceRange);
    if (range.duration < minimum || range.start < ProjectTime::zero() || range.end() > sourceDuration) {
        throw TimelineSpeedError(TimelineSpeedError::Case::invalidRange);
    }

    const TimelineMapper mapper(timeline, sourceDuration);
    if (!mapper.retainsEntireSourceRange(range)) {
        throw TimelineSpeedError(TimelineSpeedError::Case::rangeOutsideRetainedContent);
    }
    const bool changesSomething =
        std::any_of(timeline.segments.begin(), timeline.segments.end(), [&](const TimelineSegment& segment) {
            return segment.sourceRange.intersection(range) && segment.playbackRate != rate;
        });
    if (!changesSomething) {
        throw TimelineSpeedError(TimelineSpeedError::Case::noChange);
    }

    EditTimeline result = timeline;
    result.schemaVersion = EditTimeline::currentSchemaVersion;
    std::vector<TimelineSegment> segments;
    segments.reserve(timeline.segments.size() + 2);
    for (const TimelineSegment& segment : timeline.segments) {
        if (segment.sourceRange.intersection(range)) {
            appendChangedPieces(segments, segment, range.start, range.end(), rate);
        } else {
            segments.push_back(segment);
        }
    }
    result.segments = std::move(segments);
    TimelineValidator::validateContent(result, sourceDuration);
    return result;
}

TimelineSpeedResult applying(const std::vector<TimelineSpeedChange>& changes, const EditTimeline& timeline,
                             ProjectTime sourceDuration) {
    TimelineSpeedResult result{timeline, normalized(changes)};
    for (const TimelineSpeedChange& change : result.normalizedChanges) {
        result.timeline = settingRate(change.rate, change.range, result.timeline, sourceDuration);
    }
    return result;
}

std::vector<TimelineSpeedChange> normalized(const std::vector<TimelineSpeedChange>& changes) {
    std::vector<TimelineSpeedChange> snapped;
    snapped.reserve(changes.size());
    for (const TimelineSpeedChange& change : changes) {
        if (!change.rate.isValid()) {
            throw TimelineSpeedError(TimelineSpeedError::Case::invalidRate);
        }
        const ProjectTimeRange range = snappedRange(change.range);
        if (range.duration < minimum) {
            throw TimelineSpeedError(TimelineSpeedError::Case::invalidRange);
        }
        snapped.push_back({range, change.rate});
    }
    std::stable_sort(snapped.begin(), snapped.end(),
                     [](const TimelineSpeedChange& a, const TimelineSpeedChange& b) {
                         if (a.range.start != b.range.start) {
                             return a.range.start < b.range.start;
                         }
                         return a.range.end() < b.range.end();
                     });

    std::vector<TimelineSpeedChange> result;
    for (const TimelineSpeedChange& change : snapped) {
        if (result.empty()) {
            result.push_back(change);
            continue;
        }
        TimelineSpeedChange& last = result.back();
        const ProjectTime lastEnd = last.range.end();
        const bool otherRate = change.rate != last.rate;
        if (change.range.start < lastEnd && otherRate) {
            throw TimelineSpeedError(TimelineSpeedError::Case::conflictingRanges);
        }
        if (otherRate || change.range.start > lastEnd) {
            result.push_back(change);
        } else {
            last.range =
                ProjectTimeRange::fromStartEnd(last.range.start, std::max(lastEnd, change.range.end()));
        }
    }
    return result;
}

} // namespace rilo::TimelineSpeedEngine

#pragma once

// Short ways to write times, ranges and segments in engine tests.

#include "project/document/EditTimeline.h"
#include "shared/ProjectTime.h"

#include <set>
#include <utility>
#include <vector>

namespace rilo::testing {

constexpr ProjectTime ms(std::int64_t milliseconds) {
    return ProjectTime::fromMilliseconds(milliseconds);
}
constexpr ProjectTime ns(std::int64_t nanoseconds) {
    return ProjectTime{nanoseconds};
}
inline ProjectTime frame(std::int64_t index) {
    return TimelineFrameGrid::boundaryForFrame(index);
}
inline ProjectTimeRange between(ProjectTime start, ProjectTime end) {
    return ProjectTimeRange::fromStartEnd(start, end);
}
inline TimelineSegment segment(ProjectTime start, ProjectTime end, std::int64_t permille = 1000) {
    return {Uuid::random(), between(start, end), {permille}};
}
inline EditTimeline timelineOf(std::vector<TimelineSegment> segments, std::vector<ZoomSegment> zooms = {}) {
    EditTimeline timeline;
    timeline.segments = std::move(segments);
    timeline.zooms = std::move(zooms);
    return timeline;
}
// How many distinct ids the segments have.
inline std::size_t distinctSegmentIDs(const EditTimeline& timeline) {
    std::set<Uuid> ids;
    for (const TimelineSegment& segment : timeline.segments) {
        ids.insert(segment.id);
    }
    return ids.size();
}

} // namespace rilo::testing

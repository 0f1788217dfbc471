#pragma once

// Which frames the strip above the timeline shows: about one thumbnail for
// every 88 pixels of timeline, never more than two a second, each segment
// starting with a frame of its own, and only what is on screen. Pure
// functions over a TimelineMapper.

#include "media/pictures/PictureScaling.h"
#include "project/engine/TimelineMapper.h"
#include "shared/ProjectTime.h"

#include <cstddef>
#include <string>
#include <vector>

namespace rilo {

namespace TimelineThumbnailProfile {

// A thumbnail fits in this box, keeping its aspect.
inline constexpr PictureSize maximumSize{88, 44};
// The most thumbnails one request makes.
inline constexpr std::size_t maximumCount = 300;

// The sequence time between two thumbnails: 88 / pixelsPerSecond seconds but
// at least half a second, for pixelsPerSecond of 1 or more; 88 seconds below
// (and for a value that is not a number). At least 1 ns.
ProjectTime interval(double pixelsPerSecond) noexcept;

// The sequence times to fetch within the requested range (clamped to the
// sequence): from its start in steps of interval, and the start of every
// segment inside it; ascending, without duplicates, at most maximumCount.
std::vector<ProjectTime> sequenceTimes(const TimelineMapper& mapper, double pixelsPerSecond,
                                       const ProjectTimeRange& requestedRange);

} // namespace TimelineThumbnailProfile

// A request for the thumbnails of a visible stretch of the timeline. Its
// start is aligned to a multiple of half the visible length and it reaches
// one and a half visible lengths from there, so that scrolling within half a
// length gives the same key and the same range: the application starts no
// second request for an equal key.
struct TimelineThumbnailRequestWindow {
    std::string key;
    // The sequence range to fetch; it holds the visible range.
    ProjectTimeRange requestedRange;

    static TimelineThumbnailRequestWindow make(const ProjectTimeRange& visibleRange, double pixelsPerSecond);

    friend bool operator==(const TimelineThumbnailRequestWindow&,
                           const TimelineThumbnailRequestWindow&) = default;
};

} // namespace rilo

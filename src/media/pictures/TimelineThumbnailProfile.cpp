#include "media/pictures/TimelineThumbnailProfile.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace rilo {

namespace {

constexpr double thumbnailSpacingPixels = 88;
constexpr double minimumIntervalSeconds = 0.5;
constexpr double sparseIntervalSeconds = 88;

// start + duration without overflow: the end of a range given by a caller.
ProjectTime saturatedEnd(const ProjectTimeRange& range) noexcept {
    const std::int64_t start = range.start.nanoseconds;
    const std::int64_t duration = range.duration.nanoseconds;
    if (duration > 0 && start > std::numeric_limits<std::int64_t>::max() - duration) {
        return ProjectTime{std::numeric_limits<std::int64_t>::max()};
    }
    if (duration < 0) {
        return range.start;
    }
    return ProjectTime{start + duration};
}

std::string decimal(double value) {
    char text[32];
    const auto result = std::to_chars(std::begin(text), std::end(text), value);
    return std::string(text, result.ptr);
}

} // namespace

ProjectTime TimelineThumbnailProfile::interval(double pixelsPerSecond) noexcept {
    const double seconds = pixelsPerSecond >= 1
                               ? std::max(thumbnailSpacingPixels / pixelsPerSecond, minimumIntervalSeconds)
                               : sparseIntervalSeconds;
    return ProjectTime{std::max<std::int64_t>(1, std::llround(seconds * 1e9))};
}

std::vector<ProjectTime> TimelineThumbnailProfile::sequenceTimes(const TimelineMapper& mapper,
                                                                 double pixelsPerSecond,
                                                                 const ProjectTimeRange& requestedRange) {
    const ProjectTime duration = mapper.sequenceDuration();
    const ProjectTime lower = std::clamp(requestedRange.start, ProjectTime::zero(), duration);
    const ProjectTime upper = std::min(std::max(saturatedEnd(requestedRange), lower), duration);
    const ProjectTime step = interval(pixelsPerSecond);

    // Only the first maximumCount steps can survive the cut at the end;
    // segment starts may fall between them.
    std::vector<ProjectTime> times;
    for (ProjectTime time = lower; time < upper && times.size() < maximumCount;) {
        times.push_back(time);
        if (step > upper - time) {
            break;
        }
        time = time + step;
    }
    for (const TimelineSegmentProjection& projection : mapper.projections()) {
        const ProjectTime start = projection.sequenceRange.start;
        if (start >= lower && start < upper) {
            times.push_back(start);
        }
    }
    std::sort(times.begin(), times.end());
    times.erase(std::unique(times.begin(), times.end()), times.end());
    if (times.size() > maximumCount) {
        times.resize(maximumCount);
    }
    return times;
}

TimelineThumbnailRequestWindow TimelineThumbnailRequestWindow::make(const ProjectTimeRange& visibleRange,
                                                                    double pixelsPerSecond) {
    const std::int64_t length = std::max<std::int64_t>(visibleRange.duration.nanoseconds, 0);
    const std::int64_t half = std::max<std::int64_t>(length / 2, 1);
    const std::int64_t start = std::max<std::int64_t>(visibleRange.start.nanoseconds, 0);
    const std::int64_t alignedStart = start / half * half;
    // A start anywhere in [alignedStart, alignedStart + half) with this
    // length ends inside the window.
    const std::int64_t windowLength =
        std::min(half + length, std::numeric_limits<std::int64_t>::max() - alignedStart);

    TimelineThumbnailRequestWindow window;
    window.requestedRange = {ProjectTime{alignedStart}, ProjectTime{windowLength}};
    window.key =
        std::to_string(alignedStart) + "+" + std::to_string(windowLength) + "@" + decimal(pixelsPerSecond);
    return window;
}

} // namespace rilo

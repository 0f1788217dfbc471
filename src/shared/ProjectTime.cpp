#include "shared/ProjectTime.h"

#include <algorithm>
#include <cmath>

namespace rilo {

std::optional<ProjectTimeRange> ProjectTimeRange::intersection(const ProjectTimeRange& other) const noexcept {
    const ProjectTime lower = std::max(start, other.start);
    const ProjectTime upper = std::min(end(), other.end());
    if (lower >= upper) {
        return std::nullopt;
    }
    return ProjectTimeRange::fromStartEnd(lower, upper);
}

std::optional<TimelinePlaybackRate> TimelinePlaybackRate::fromMultiplier(double multiplier) noexcept {
    if (!std::isfinite(multiplier)) {
        return std::nullopt;
    }
    const double scaled = multiplier * 1000.0;
    if (std::fabs(scaled) > 9223372036854775808.0) {
        return std::nullopt;
    }
    const double rounded = std::round(scaled); // halves away from zero
    if (std::fabs(rounded - scaled) >= 1e-6 || std::fabs(rounded) >= 9223372036854775808.0) {
        return std::nullopt;
    }
    return TimelinePlaybackRate{static_cast<std::int64_t>(rounded)};
}

namespace TimelineFrameGrid {

namespace {
constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;
constexpr std::int64_t framesPerSecond = 60;

std::int64_t floorFrame(ProjectTime t) noexcept {
    const std::int64_t clamped = std::max<std::int64_t>(t.nanoseconds, 0);
    return checkedMultiply(clamped, framesPerSecond) / nanosecondsPerSecond;
}
} // namespace

ProjectTime boundaryForFrame(std::int64_t frame) noexcept {
    return {checkedMultiply(frame, nanosecondsPerSecond) / framesPerSecond};
}

ProjectTime nearestBoundary(ProjectTime t) noexcept {
    const double frame = std::round(static_cast<double>(t.nanoseconds) * 60.0 / 1e9);
    if (!std::isfinite(frame) || std::fabs(frame) >= 9223372036854775808.0) {
        programmingFault("frame index out of range");
    }
    return boundaryForFrame(static_cast<std::int64_t>(frame));
}

ProjectTime floorBoundary(ProjectTime t) noexcept {
    return boundaryForFrame(floorFrame(t));
}

ProjectTime ceilingBoundary(ProjectTime t) noexcept {
    const std::int64_t frame = floorFrame(t);
    const ProjectTime floor = boundaryForFrame(frame);
    if (floor >= t) {
        return floor;
    }
    return boundaryForFrame(checkedAdd(frame, 1));
}

} // namespace TimelineFrameGrid
} // namespace rilo

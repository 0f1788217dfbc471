#include "ui/timeline/TimelineCoordinateSpace.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

namespace rilo {
namespace {

constexpr double nanosecondsPerSecond = 1e9;

std::int64_t saturatedNanoseconds(double nanoseconds) noexcept {
    // 2^63 is exactly representable; anything at or beyond it saturates.
    constexpr double limit = 9223372036854775808.0;
    if (std::isnan(nanoseconds)) {
        return 0;
    }
    if (nanoseconds >= limit) {
        return std::numeric_limits<std::int64_t>::max();
    }
    if (nanoseconds <= -limit) {
        return std::numeric_limits<std::int64_t>::min();
    }
    return static_cast<std::int64_t>(std::llround(nanoseconds));
}

std::int64_t saturatedAdd(std::int64_t a, std::int64_t b) noexcept {
    std::int64_t sum = 0;
    if (__builtin_add_overflow(a, b, &sum)) {
        return b > 0 ? std::numeric_limits<std::int64_t>::max() : std::numeric_limits<std::int64_t>::min();
    }
    return sum;
}

} // namespace

double TimelineCoordinateSpace::xFor(ProjectTime sequenceTime) const noexcept {
    // The difference is taken in double so that no time overflows it.
    const double offset =
        static_cast<double>(sequenceTime.nanoseconds) - static_cast<double>(visibleStart.nanoseconds);
    return offset * pixelsPerSecond / nanosecondsPerSecond;
}

ProjectTime TimelineCoordinateSpace::timeForX(double x) const noexcept {
    const std::int64_t offset = saturatedNanoseconds(x * nanosecondsPerSecond / pixelsPerSecond);
    return {saturatedAdd(visibleStart.nanoseconds, offset)};
}

ProjectTimeRange TimelineCoordinateSpace::visibleRange(double width) const noexcept {
    return {visibleStart,
            {saturatedNanoseconds(std::max(width, 0.0) * nanosecondsPerSecond / pixelsPerSecond)}};
}

std::optional<ProjectTime>
TimelineCoordinateSpace::waveformSourceTime(double x, const TimelineMapper& mapper) const noexcept {
    const std::optional<TimelineMappedTime> mapped = mapper.mappedTimeForSequenceTime(timeForX(x));
    if (!mapped) {
        return std::nullopt;
    }
    return mapped->sourceTime;
}

TimelineCoordinateSpace TimelineCoordinateSpace::zoomed(double newPixelsPerSecond,
                                                        double anchorX) const noexcept {
    const ProjectTime anchorTime = timeForX(anchorX);
    const TimelineCoordinateSpace rescaled{anchorTime, newPixelsPerSecond};
    // Shift the start so that anchorTime lands at anchorX again.
    return {rescaled.timeForX(-anchorX), newPixelsPerSecond};
}

} // namespace rilo

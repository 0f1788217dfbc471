#pragma once

// Exact time and the small time values that every layer speaks: a point or
// length in signed nanoseconds, half-open ranges, the playback rate as integer
// permille and the fixed 60 fps grid on which every edit time snaps.

#include "shared/Checked.h"
#include "shared/JsonNames.h"

#include <compare>
#include <cstdint>
#include <optional>

namespace rilo {

struct ProjectTime {
    std::int64_t nanoseconds = 0;

    static constexpr ProjectTime zero() noexcept { return {0}; }
    static constexpr ProjectTime fromMilliseconds(std::int64_t ms) noexcept {
        return {checkedMultiply(ms, 1'000'000)};
    }
    static constexpr ProjectTime fromSeconds(std::int64_t s) noexcept {
        return {checkedMultiply(s, 1'000'000'000)};
    }

    // Milliseconds for the command line, truncated towards zero.
    constexpr std::int64_t cliMilliseconds() const noexcept { return nanoseconds / 1'000'000; }
    double seconds() const noexcept { return static_cast<double>(nanoseconds) / 1e9; }

    friend constexpr auto operator<=>(ProjectTime, ProjectTime) = default;
    friend ProjectTime operator+(ProjectTime a, ProjectTime b) noexcept {
        return {checkedAdd(a.nanoseconds, b.nanoseconds)};
    }
    friend ProjectTime operator-(ProjectTime a, ProjectTime b) noexcept {
        return {checkedSubtract(a.nanoseconds, b.nanoseconds)};
    }
    friend ProjectTime operator*(ProjectTime a, std::int64_t factor) noexcept {
        return {checkedMultiply(a.nanoseconds, factor)};
    }
};

struct ProjectTimeRange {
    ProjectTime start;
    ProjectTime duration;

    ProjectTime end() const noexcept { return start + duration; }
    bool contains(ProjectTime t) const noexcept { return t >= start && t < end(); }
    // Touching ranges do not intersect: the end is outside a range.
    std::optional<ProjectTimeRange> intersection(const ProjectTimeRange& other) const noexcept;

    static ProjectTimeRange fromStartEnd(ProjectTime start, ProjectTime end) noexcept {
        return {start, end - start};
    }
    friend constexpr bool operator==(const ProjectTimeRange&, const ProjectTimeRange&) = default;
};

struct TimelinePlaybackRate {
    std::int64_t permille = 1000;

    static constexpr TimelinePlaybackRate normal() noexcept { return {1000}; }

    double multiplier() const noexcept { return static_cast<double>(permille) / 1000.0; }
    // 0.50x to 4.00x in steps of 0.01x.
    constexpr bool isValid() const noexcept {
        return permille >= 500 && permille <= 4000 && permille % 10 == 0;
    }
    // A multiplier that is not a whole number of thousandths gives no rate;
    // range checks are left to callers (isValid).
    static std::optional<TimelinePlaybackRate> fromMultiplier(double multiplier) noexcept;

    friend constexpr auto operator<=>(TimelinePlaybackRate, TimelinePlaybackRate) = default;
};

// The 60 fps grid, independent of the recording's frame rate. Boundaries are
// truncated to whole nanoseconds, so they may lie up to 1 ns before the exact
// multiple of 1/60 s; these functions are the definition.
namespace TimelineFrameGrid {
inline constexpr ProjectTime minimumDuration{16'666'666};

ProjectTime boundaryForFrame(std::int64_t frame) noexcept;
ProjectTime nearestBoundary(ProjectTime t) noexcept;
ProjectTime floorBoundary(ProjectTime t) noexcept;
ProjectTime ceilingBoundary(ProjectTime t) noexcept;
} // namespace TimelineFrameGrid

} // namespace rilo

namespace rilo::json {

// JSON keys of the time values.
template <>
struct RecordFields<ProjectTime> {
    static constexpr auto fields = std::tuple{field("nanoseconds", &ProjectTime::nanoseconds)};
};

template <>
struct RecordFields<ProjectTimeRange> {
    static constexpr auto fields =
        std::tuple{field("start", &ProjectTimeRange::start), field("duration", &ProjectTimeRange::duration)};
};

} // namespace rilo::json

#pragma once

// The time stamps of captured samples: a rational time with a flag for
// numeric validity, and the host clock that every capture backend stamps its
// samples with.

#include <cstdint>

namespace rilo {

// value / timescale seconds. A time that is not numeric (unknown, or the
// result of arithmetic on one) converts to 0 nanoseconds.
struct MediaTime {
    std::int64_t value = 0;
    std::int32_t timescale = 1'000'000'000;
    bool isNumeric = true;

    static constexpr MediaTime nanoseconds(std::int64_t value) noexcept {
        return {value, 1'000'000'000, true};
    }
    static constexpr MediaTime invalid() noexcept { return {0, 1'000'000'000, false}; }

    // Both numeric: the exact difference or sum, at the common timescale when
    // that fits, else in nanoseconds rounded half away from zero.
    friend MediaTime operator-(MediaTime a, MediaTime b) noexcept;
    friend MediaTime operator+(MediaTime a, MediaTime b) noexcept;
    // Compares the exact values; a time that is not numeric is never less or greater.
    friend bool operator<(MediaTime a, MediaTime b) noexcept;
    friend bool operator>(MediaTime a, MediaTime b) noexcept { return b < a; }
    friend bool operator==(MediaTime a, MediaTime b) noexcept;
};

// The media time in nanoseconds, rounded half away from zero; 0 when it is not numeric.
std::int64_t nanosecondsFromMediaTime(MediaTime time) noexcept;

// Nanoseconds of CLOCK_MONOTONIC: the host clock of mouse events, audio,
// webcam frames and screen frames alike.
std::uint64_t hostUptimeNanoseconds() noexcept;

} // namespace rilo

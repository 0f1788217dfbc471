#pragma once

// Conversions between source and sequence lengths at a playback rate, in
// exact integer arithmetic. A segment of source length s at permille p plays
// for s * 1000 / p nanoseconds of sequence time; the operand is split so that
// the multiplication does not overflow early. A result of none means the
// conversion is impossible: a negative operand, a permille below 1, or a
// result outside 64 bits.
//
// The two directions are not inverses of one another: converting there and
// back need not give the same time.

#include "shared/ProjectTime.h"

#include <cstdint>
#include <optional>

namespace rilo {

enum class TimelineRateRounding {
    down,
    up,
    // Ties go up.
    nearest,
};

namespace TimelineRateMath {

// source * 1000 / permille.
constexpr std::optional<std::int64_t> sequenceNanoseconds(std::int64_t source, TimelinePlaybackRate rate,
                                                          TimelineRateRounding rounding) noexcept {
    const std::int64_t permille = rate.permille;
    if (source < 0 || permille < 1) {
        return std::nullopt;
    }
    const std::int64_t quotient = source / permille;
    std::int64_t whole = 0;
    if (__builtin_mul_overflow(quotient, std::int64_t{1000}, &whole)) {
        return std::nullopt;
    }
    std::int64_t remainder = 0;
    if (__builtin_mul_overflow(source - quotient * permille, std::int64_t{1000}, &remainder)) {
        return std::nullopt;
    }
    std::int64_t bias = 0;
    switch (rounding) {
    case TimelineRateRounding::down:
        break;
    case TimelineRateRounding::up:
        bias = permille - 1;
        break;
    case TimelineRateRounding::nearest:
        bias = permille / 2;
        break;
    }
    if (__builtin_add_overflow(remainder, bias, &remainder)) {
        return std::nullopt;
    }
    std::int64_t result = 0;
    if (__builtin_add_overflow(whole, remainder / permille, &result)) {
        return std::nullopt;
    }
    return result;
}

// sequence * permille / 1000.
constexpr std::optional<std::int64_t> sourceNanoseconds(std::int64_t sequence, TimelinePlaybackRate rate,
                                                        TimelineRateRounding rounding) noexcept {
    const std::int64_t permille = rate.permille;
    if (sequence < 0 || permille < 1) {
        return std::nullopt;
    }
    std::int64_t whole = 0;
    if (__builtin_mul_overflow(sequence / 1000, permille, &whole)) {
        return std::nullopt;
    }
    std::int64_t remainder = 0;
    if (__builtin_mul_overflow(sequence % 1000, permille, &remainder)) {
        return std::nullopt;
    }
    std::int64_t bias = 0;
    switch (rounding) {
    case TimelineRateRounding::down:
        break;
    case TimelineRateRounding::up:
        bias = 999;
        break;
    case TimelineRateRounding::nearest:
        bias = 500;
        break;
    }
    if (__builtin_add_overflow(remainder, bias, &remainder)) {
        return std::nullopt;
    }
    std::int64_t result = 0;
    if (__builtin_add_overflow(whole, remainder / 1000, &result)) {
        return std::nullopt;
    }
    return result;
}

// The sequence length of a whole segment: its source length converted once,
// to the nearest nanosecond. Nothing rounds it to the frame grid.
constexpr std::optional<ProjectTime> sequenceDuration(ProjectTime sourceDuration,
                                                      TimelinePlaybackRate rate) noexcept {
    const auto nanoseconds =
        sequenceNanoseconds(sourceDuration.nanoseconds, rate, TimelineRateRounding::nearest);
    if (!nanoseconds) {
        return std::nullopt;
    }
    return ProjectTime{*nanoseconds};
}

} // namespace TimelineRateMath

} // namespace rilo

#include "capture/MediaTime.h"

#include <ctime>
#include <limits>
#include <numeric>

namespace rilo {
namespace {

__extension__ using Wide = __int128;

// Rounds numerator / denominator half away from zero (denominator > 0).
Wide roundedQuotient(Wide numerator, Wide denominator) noexcept {
    const Wide half = denominator / 2;
    return numerator >= 0 ? (numerator + half) / denominator : -((-numerator + half) / denominator);
}

std::int64_t clampToInt64(Wide value) noexcept {
    if (value > std::numeric_limits<std::int64_t>::max()) {
        return std::numeric_limits<std::int64_t>::max();
    }
    if (value < std::numeric_limits<std::int64_t>::min()) {
        return std::numeric_limits<std::int64_t>::min();
    }
    return static_cast<std::int64_t>(value);
}

// a ± b at the common timescale when it fits, else in nanoseconds.
MediaTime combine(MediaTime a, MediaTime b, int sign) noexcept {
    if (!a.isNumeric || !b.isNumeric || a.timescale <= 0 || b.timescale <= 0) {
        return MediaTime::invalid();
    }
    const std::int64_t common = std::lcm(static_cast<std::int64_t>(a.timescale), b.timescale);
    if (common <= std::numeric_limits<std::int32_t>::max()) {
        const Wide value =
            Wide(a.value) * (common / a.timescale) + sign * Wide(b.value) * (common / b.timescale);
        return {clampToInt64(value), static_cast<std::int32_t>(common), true};
    }
    const Wide scaled =
        Wide(a.value) * 1'000'000'000 * b.timescale + sign * Wide(b.value) * 1'000'000'000 * a.timescale;
    return MediaTime::nanoseconds(clampToInt64(roundedQuotient(scaled, Wide(a.timescale) * b.timescale)));
}

// The sign of a - b, exactly.
int compare(MediaTime a, MediaTime b) noexcept {
    const Wide left = Wide(a.value) * b.timescale;
    const Wide right = Wide(b.value) * a.timescale;
    return left < right ? -1 : (left > right ? 1 : 0);
}

} // namespace

MediaTime operator-(MediaTime a, MediaTime b) noexcept {
    return combine(a, b, -1);
}
MediaTime operator+(MediaTime a, MediaTime b) noexcept {
    return combine(a, b, 1);
}

bool operator<(MediaTime a, MediaTime b) noexcept {
    return a.isNumeric && b.isNumeric && a.timescale > 0 && b.timescale > 0 && compare(a, b) < 0;
}

bool operator==(MediaTime a, MediaTime b) noexcept {
    if (!a.isNumeric || !b.isNumeric) {
        return a.isNumeric == b.isNumeric;
    }
    return compare(a, b) == 0;
}

std::int64_t nanosecondsFromMediaTime(MediaTime time) noexcept {
    if (!time.isNumeric || time.timescale <= 0) {
        return 0;
    }
    return clampToInt64(roundedQuotient(Wide(time.value) * 1'000'000'000, time.timescale));
}

std::uint64_t hostUptimeNanoseconds() noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000ULL +
           static_cast<std::uint64_t>(now.tv_nsec);
}

} // namespace rilo

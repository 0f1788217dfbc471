#pragma once

#include <algorithm>

namespace rilo {

// The closed range a number of a document may take; each range is named once,
// beside the value type it belongs to, for every reader, writer and editor.
struct ValueLimits {
    double minimum = 0;
    double maximum = 0;

    // A NaN stays NaN: callers that must not keep one check for it first.
    constexpr double clamped(double value) const noexcept { return std::clamp(value, minimum, maximum); }
    // False for NaN.
    constexpr bool contains(double value) const noexcept { return value >= minimum && value <= maximum; }
};

} // namespace rilo

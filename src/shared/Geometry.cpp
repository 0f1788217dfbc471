#include "shared/Geometry.h"

#include "shared/Checked.h"

#include <algorithm>
#include <cmath>

namespace rilo {

namespace {
std::int64_t evenAtLeastTwo(std::int64_t n) noexcept {
    const std::int64_t even = n - (n % 2); // % keeps the sign of n
    return even < 2 ? 2 : even;
}

std::int64_t toInteger(double value) noexcept {
    if (!std::isfinite(value) || std::fabs(value) >= 9223372036854775808.0) {
        programmingFault("non-finite pixel size");
    }
    return static_cast<std::int64_t>(value);
}
} // namespace

PointValue PointValue::clamped() const noexcept {
    const auto unit = [](double v) { return v <= 0 ? 0.0 : (v > 1 ? 1.0 : v); };
    return {unit(x), unit(y)};
}

PixelSize::PixelSize(std::int64_t w, std::int64_t h) noexcept
    : width(evenAtLeastTwo(w))
    , height(evenAtLeastTwo(h)) {}

PixelSize PixelSize::unnormalized(std::int64_t w, std::int64_t h) noexcept {
    PixelSize size;
    size.width = w;
    size.height = h;
    return size;
}

PixelSize PixelSize::constrained(double width, double height, double longestEdge) noexcept {
    const double w = std::max(width, 2.0);
    const double h = std::max(height, 2.0);
    const double scale = std::min(longestEdge / std::max(w, h), 1.0);
    return PixelSize(toInteger(std::floor(w * scale)), toInteger(std::floor(h * scale)));
}

std::int64_t PixelSize::recommendedBitRate() const noexcept {
    const std::int64_t p = checkedMultiply(width, height);
    if (p <= 2'073'600) {
        return 12'000'000;
    }
    if (p >= 8'294'400) {
        return 50'000'000;
    }
    const bool first = p <= 3'686'400;
    const double x0 = first ? 2'073'600.0 : 3'686'400.0;
    const double x1 = first ? 3'686'400.0 : 8'294'400.0;
    const double y0 = first ? 12'000'000.0 : 24'000'000.0;
    const double y1 = first ? 24'000'000.0 : 50'000'000.0;
    return toInteger(std::round((static_cast<double>(p) - x0) / (x1 - x0) * (y1 - y0) + y0));
}

} // namespace rilo

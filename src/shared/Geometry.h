#pragma once

// Points, sizes and rectangles in doubles (positions inside a picture are
// normalised 0..1 from the top left), and even pixel sizes for encoders.

#include "shared/JsonNames.h"

#include <cstdint>

namespace rilo {

struct PointValue {
    double x = 0;
    double y = 0;

    // Each coordinate clamped to 0...1.
    PointValue clamped() const noexcept;
    friend constexpr bool operator==(const PointValue&, const PointValue&) = default;
};

struct SizeValue {
    double width = 0;
    double height = 0;
    friend constexpr bool operator==(const SizeValue&, const SizeValue&) = default;
};

struct RectValue {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    double maxX() const noexcept { return x + width; }
    double maxY() const noexcept { return y + height; }
    friend constexpr bool operator==(const RectValue&, const RectValue&) = default;
};

struct PixelSize {
    std::int64_t width = 2;
    std::int64_t height = 2;

    PixelSize() = default;
    // Normalises: each edge becomes the largest even number towards zero,
    // and at least 2, as video encoders need.
    PixelSize(std::int64_t width, std::int64_t height) noexcept;
    // Takes the numbers as they stand (decoding does this).
    static PixelSize unnormalized(std::int64_t width, std::int64_t height) noexcept;

    // Scales down (never up) so that the longest edge fits.
    static PixelSize constrained(double width, double height, double longestEdge) noexcept;

    std::int64_t pixelCount() const noexcept { return width * height; }
    // Bits per second, piecewise linear over 1080p, 1440p and 2160p.
    std::int64_t recommendedBitRate() const noexcept;

    friend constexpr bool operator==(const PixelSize&, const PixelSize&) = default;
};

} // namespace rilo

namespace rilo::json {

// JSON keys of the geometry values; every key is required.
template <>
struct RecordFields<PointValue> {
    static constexpr auto fields = std::tuple{field("x", &PointValue::x), field("y", &PointValue::y)};
};

template <>
struct RecordFields<SizeValue> {
    static constexpr auto fields =
        std::tuple{field("width", &SizeValue::width), field("height", &SizeValue::height)};
};

template <>
struct RecordFields<RectValue> {
    static constexpr auto fields =
        std::tuple{field("x", &RectValue::x), field("y", &RectValue::y), field("width", &RectValue::width),
                   field("height", &RectValue::height)};
};

// Decoded as stored, without the even-size normalisation.
template <>
struct RecordFields<PixelSize> {
    static constexpr auto fields =
        std::tuple{field("width", &PixelSize::width), field("height", &PixelSize::height)};
};

} // namespace rilo::json

#pragma once

// Where the webcam picture sits on the output: its base placement, its
// movement over time (keyframes) and the stretches where it fills the screen.
//
// WebcamOverlay::defaultValue() is what a default-constructed overlay holds. The full constructor keeps the
// corner radius and border width inside their limits, as decoding does; assigning the public fields
// afterwards does not.

#include "shared/Geometry.h"
#include "shared/JsonNames.h"
#include "shared/ProjectTime.h"
#include "shared/Uuid.h"
#include "shared/ValueLimits.h"

#include <array>
#include <string_view>
#include <utility>

namespace rilo {

enum class WebcamAspectRatio {
    source,
    square,
};

// Width over height: 16/9 for `source`, 1 for `square`.
double value(WebcamAspectRatio ratio) noexcept;

struct WebcamOverlay {
    static constexpr ValueLimits diameterLimits{0.1, 0.4};
    static constexpr ValueLimits borderWidthLimits{2, 20};

    bool isVisible = true;
    // Normalised position of the overlay's centre on the output.
    PointValue center{0.86, 0.8};
    double diameter = 0.22;
    bool isMirrored = true;
    WebcamAspectRatio aspectRatio = WebcamAspectRatio::square;
    // 0 is a sharp rectangle, 1 a full circle (or stadium).
    double cornerRadius = 1.0;
    bool showsBorder = true;
    // Border width in pixels of a 1080-line output; scaled with the output.
    double borderWidthAt1080p = 10;
    bool showsShadow = true;

    WebcamOverlay() = default;
    WebcamOverlay(bool isVisible, PointValue center, double diameter, bool isMirrored,
                  WebcamAspectRatio aspectRatio, double cornerRadius, bool showsBorder,
                  double borderWidthAt1080p, bool showsShadow) noexcept;

    // A non-finite radius becomes 0.6; otherwise clamped to 0...1.
    static double constrainedCornerRadius(double radius) noexcept;
    // A non-finite width becomes 10; otherwise clamped to 2...20.
    static double constrainedBorderWidthAt1080p(double width) noexcept;

    // The placement offered when a webcam is first shown.
    static WebcamOverlay defaultValue() { return {}; }
    // The placement of a fresh recording: bottom left, rounded, no border.
    static WebcamOverlay newRecording();

    friend bool operator==(const WebcamOverlay&, const WebcamOverlay&) = default;
};

// The overlay's centre and diameter from `time` on (source time).
struct WebcamOverlayKeyframe {
    Uuid id;
    ProjectTime time;
    PointValue center;
    double diameter = 0;

    friend bool operator==(const WebcamOverlayKeyframe&, const WebcamOverlayKeyframe&) = default;
};

// A stretch of source time in which the webcam fills the output.
struct WebcamFullscreenSegment {
    Uuid id;
    ProjectTime startTime;
    ProjectTime endTime;

    friend bool operator==(const WebcamFullscreenSegment&, const WebcamFullscreenSegment&) = default;
};

} // namespace rilo

namespace rilo::json {

template <>
struct EnumNames<WebcamAspectRatio> {
    static constexpr std::array<std::pair<WebcamAspectRatio, std::string_view>, 2> entries{{
        {WebcamAspectRatio::source, "source"},
        {WebcamAspectRatio::square, "square"},
    }};
};

} // namespace rilo::json

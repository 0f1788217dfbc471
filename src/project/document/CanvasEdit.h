#pragma once

// The canvas behind the recording: output aspect ratio, background (a preset
// colour pair or a picture), padding around the video and its corner radius.
// What belongs to an aspect ratio or a background preset (the ratio for a
// source size, a preset's colours) is given by the free functions and
// constants beside the enumerations. CanvasEdit::defaultValue() is the canvas
// of a new timeline.

#include "shared/Geometry.h"
#include "shared/JsonNames.h"
#include "shared/ValueLimits.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace rilo {

enum class CanvasAspectRatio {
    source,
    landscape16x9,
    portrait9x16,
    portrait3x4,
    portrait4x5,
};

// Width over height of the output. `source` follows the recording's size; a
// zero height is the caller's to avoid.
double value(CanvasAspectRatio ratio, SizeValue sourceSize) noexcept;

enum class CanvasBackground {
    solid,
    gradient,
};

// A colour with channels from 0 to 1.
struct CanvasColorValue {
    double red = 0;
    double green = 0;
    double blue = 0;

    friend constexpr bool operator==(const CanvasColorValue&, const CanvasColorValue&) = default;
};

// Named colour pairs (top, then bottom). Gradient presets come first, solid
// presets (whose two colours are the same) after them.
enum class CanvasBackgroundPreset {
    midnightViolet,
    deepOcean,
    graphite,
    dusk,
    darkRose,
    forestGradient,
    mintSky,
    lavenderMist,
    warmSunrise,
    aurora,
    coralSunset,
    electricLime,
    midnight,
    charcoal,
    navy,
    plum,
    forest,
    warmGray,
    snow,
    pearl,
    sand,
    sky,
    coral,
    lime,
};

namespace CanvasBackgroundPresets {

// The presets of each background group, in the order they are offered.
inline constexpr std::array<CanvasBackgroundPreset, 12> gradients{
    CanvasBackgroundPreset::midnightViolet, CanvasBackgroundPreset::deepOcean,
    CanvasBackgroundPreset::graphite,       CanvasBackgroundPreset::dusk,
    CanvasBackgroundPreset::darkRose,       CanvasBackgroundPreset::forestGradient,
    CanvasBackgroundPreset::mintSky,        CanvasBackgroundPreset::lavenderMist,
    CanvasBackgroundPreset::warmSunrise,    CanvasBackgroundPreset::aurora,
    CanvasBackgroundPreset::coralSunset,    CanvasBackgroundPreset::electricLime,
};

inline constexpr std::array<CanvasBackgroundPreset, 12> solids{
    CanvasBackgroundPreset::midnight, CanvasBackgroundPreset::charcoal, CanvasBackgroundPreset::navy,
    CanvasBackgroundPreset::plum,     CanvasBackgroundPreset::forest,   CanvasBackgroundPreset::warmGray,
    CanvasBackgroundPreset::snow,     CanvasBackgroundPreset::pearl,    CanvasBackgroundPreset::sand,
    CanvasBackgroundPreset::sky,      CanvasBackgroundPreset::coral,    CanvasBackgroundPreset::lime,
};

// The group a preset belongs to.
CanvasBackground background(CanvasBackgroundPreset preset) noexcept;
// Top colour, then bottom colour; each channel is an 8-bit value over 255.
CanvasColorValue firstColor(CanvasBackgroundPreset preset) noexcept;
CanvasColorValue secondColor(CanvasBackgroundPreset preset) noexcept;
// midnight-violet for gradients, midnight for solids.
CanvasBackgroundPreset defaultPreset(CanvasBackground background) noexcept;

} // namespace CanvasBackgroundPresets

enum class CanvasBackgroundImageSource {
    bundledLandscape,
    desktopWallpaper,
    uploaded,
};

// A picture used as the canvas background, stored inside the package.
struct CanvasBackgroundImage {
    std::string id;
    std::string relativePath;
    PixelSize pixelSize;
    CanvasBackgroundImageSource source = CanvasBackgroundImageSource::uploaded;
    std::optional<std::string> selectionID;

    friend bool operator==(const CanvasBackgroundImage&, const CanvasBackgroundImage&) = default;
};

// A default-constructed CanvasEdit is CanvasEdit::defaultValue(). A stored
// canvas without a `cornerRadius` key reads as the older, larger radius
// (legacyCornerRadius) instead.
struct CanvasEdit {
    static constexpr ValueLimits paddingLimits{0, 0.18};

    static constexpr double defaultPadding = 0.08;
    static constexpr double defaultCornerRadius = 0.015;
    static constexpr double legacyCornerRadius = 0.035;

    CanvasAspectRatio aspectRatio = CanvasAspectRatio::landscape16x9;
    CanvasBackground background = CanvasBackground::gradient;
    CanvasBackgroundPreset preset = CanvasBackgroundPreset::midnightViolet;
    std::optional<CanvasBackgroundImage> image;
    double padding = defaultPadding;
    double cornerRadius = defaultCornerRadius;

    // The canvas of a new document.
    static CanvasEdit defaultValue() { return {}; }

    friend bool operator==(const CanvasEdit&, const CanvasEdit&) = default;
};

namespace CanvasCornerRadiusRules {
// Clamped to 0...0.08.
double clamped(double radius) noexcept;
// The clamped radius rounded to the nearest 0.001.
double snapped(double radius) noexcept;
} // namespace CanvasCornerRadiusRules

} // namespace rilo

namespace rilo::json {

template <>
struct EnumNames<CanvasAspectRatio> {
    static constexpr std::array<std::pair<CanvasAspectRatio, std::string_view>, 5> entries{{
        {CanvasAspectRatio::source, "source"},
        {CanvasAspectRatio::landscape16x9, "16:9"},
        {CanvasAspectRatio::portrait9x16, "9:16"},
        {CanvasAspectRatio::portrait3x4, "3:4"},
        {CanvasAspectRatio::portrait4x5, "4:5"},
    }};
};

template <>
struct EnumNames<CanvasBackground> {
    static constexpr std::array<std::pair<CanvasBackground, std::string_view>, 2> entries{{
        {CanvasBackground::solid, "solid"},
        {CanvasBackground::gradient, "gradient"},
    }};
};

template <>
struct EnumNames<CanvasBackgroundPreset> {
    using P = CanvasBackgroundPreset;
    static constexpr std::array<std::pair<P, std::string_view>, 24> entries{{
        {P::midnightViolet, "midnight-violet"},
        {P::deepOcean, "deep-ocean"},
        {P::graphite, "graphite"},
        {P::dusk, "dusk"},
        {P::darkRose, "dark-rose"},
        {P::forestGradient, "forest-gradient"},
        {P::mintSky, "mint-sky"},
        {P::lavenderMist, "lavender-mist"},
        {P::warmSunrise, "warm-sunrise"},
        {P::aurora, "aurora"},
        {P::coralSunset, "coral-sunset"},
        {P::electricLime, "electric-lime"},
        {P::midnight, "midnight"},
        {P::charcoal, "charcoal"},
        {P::navy, "navy"},
        {P::plum, "plum"},
        {P::forest, "forest"},
        {P::warmGray, "warm-gray"},
        {P::snow, "snow"},
        {P::pearl, "pearl"},
        {P::sand, "sand"},
        {P::sky, "sky"},
        {P::coral, "coral"},
        {P::lime, "lime"},
    }};
};

template <>
struct EnumNames<CanvasBackgroundImageSource> {
    static constexpr std::array<std::pair<CanvasBackgroundImageSource, std::string_view>, 3> entries{{
        {CanvasBackgroundImageSource::bundledLandscape, "bundled-landscape"},
        {CanvasBackgroundImageSource::desktopWallpaper, "desktop-wallpaper"},
        {CanvasBackgroundImageSource::uploaded, "uploaded"},
    }};
};

} // namespace rilo::json

#include "project/document/CanvasEdit.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace rilo {

double value(CanvasAspectRatio ratio, SizeValue sourceSize) noexcept {
    switch (ratio) {
    case CanvasAspectRatio::source:
        return sourceSize.width / sourceSize.height;
    case CanvasAspectRatio::landscape16x9:
        return 16.0 / 9.0;
    case CanvasAspectRatio::portrait9x16:
        return 9.0 / 16.0;
    case CanvasAspectRatio::portrait3x4:
        return 3.0 / 4.0;
    case CanvasAspectRatio::portrait4x5:
        return 4.0 / 5.0;
    }
    return 16.0 / 9.0;
}

namespace CanvasBackgroundPresets {

namespace {

struct PresetColors {
    CanvasBackgroundPreset preset;
    std::uint32_t first;
    std::uint32_t second;
};

// 0xRRGGBB, top then bottom.
constexpr std::array<PresetColors, 24> presetColors{{
    {CanvasBackgroundPreset::midnightViolet, 0x0E131F, 0x331A52},
    {CanvasBackgroundPreset::deepOcean, 0x0F172A, 0x164E63},
    {CanvasBackgroundPreset::graphite, 0x111827, 0x374151},
    {CanvasBackgroundPreset::dusk, 0x2A1215, 0x7C2D12},
    {CanvasBackgroundPreset::darkRose, 0x29121E, 0x831843},
    {CanvasBackgroundPreset::forestGradient, 0x052E2B, 0x14532D},
    {CanvasBackgroundPreset::mintSky, 0xA7F3D0, 0xBAE6FD},
    {CanvasBackgroundPreset::lavenderMist, 0xDDD6FE, 0xFBCFE8},
    {CanvasBackgroundPreset::warmSunrise, 0xFDE68A, 0xFCA5A5},
    {CanvasBackgroundPreset::aurora, 0x0EA5E9, 0x8B5CF6},
    {CanvasBackgroundPreset::coralSunset, 0xFB7185, 0xFDBA74},
    {CanvasBackgroundPreset::electricLime, 0x22C55E, 0xD9F99D},
    {CanvasBackgroundPreset::midnight, 0x0E131F, 0x0E131F},
    {CanvasBackgroundPreset::charcoal, 0x18181B, 0x18181B},
    {CanvasBackgroundPreset::navy, 0x172554, 0x172554},
    {CanvasBackgroundPreset::plum, 0x2E1065, 0x2E1065},
    {CanvasBackgroundPreset::forest, 0x052E2B, 0x052E2B},
    {CanvasBackgroundPreset::warmGray, 0x292524, 0x292524},
    {CanvasBackgroundPreset::snow, 0xF8FAFC, 0xF8FAFC},
    {CanvasBackgroundPreset::pearl, 0xF5F3FF, 0xF5F3FF},
    {CanvasBackgroundPreset::sand, 0xFEF3C7, 0xFEF3C7},
    {CanvasBackgroundPreset::sky, 0x38BDF8, 0x38BDF8},
    {CanvasBackgroundPreset::coral, 0xFB7185, 0xFB7185},
    {CanvasBackgroundPreset::lime, 0x84CC16, 0x84CC16},
}};

const PresetColors& colorsOf(CanvasBackgroundPreset preset) noexcept {
    for (const auto& entry : presetColors) {
        if (entry.preset == preset) {
            return entry;
        }
    }
    return presetColors.front();
}

CanvasColorValue colorFromRgb(std::uint32_t rgb) noexcept {
    return {static_cast<double>((rgb >> 16) & 0xFF) / 255.0, static_cast<double>((rgb >> 8) & 0xFF) / 255.0,
            static_cast<double>(rgb & 0xFF) / 255.0};
}

} // namespace

CanvasBackground background(CanvasBackgroundPreset preset) noexcept {
    const bool isGradient = std::find(gradients.begin(), gradients.end(), preset) != gradients.end();
    return isGradient ? CanvasBackground::gradient : CanvasBackground::solid;
}

CanvasColorValue firstColor(CanvasBackgroundPreset preset) noexcept {
    return colorFromRgb(colorsOf(preset).first);
}

CanvasColorValue secondColor(CanvasBackgroundPreset preset) noexcept {
    return colorFromRgb(colorsOf(preset).second);
}

CanvasBackgroundPreset defaultPreset(CanvasBackground background) noexcept {
    return background == CanvasBackground::gradient ? CanvasBackgroundPreset::midnightViolet
                                                    : CanvasBackgroundPreset::midnight;
}

} // namespace CanvasBackgroundPresets

namespace CanvasCornerRadiusRules {

double clamped(double radius) noexcept {
    return std::min(std::max(radius, 0.0), 0.08);
}

double snapped(double radius) noexcept {
    return std::round(clamped(radius) * 1000.0) / 1000.0;
}

} // namespace CanvasCornerRadiusRules

} // namespace rilo

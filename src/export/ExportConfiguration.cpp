#include "export/ExportConfiguration.h"

#include <algorithm>
#include <cmath>

namespace rilo {

namespace {

// An edge beyond this comes only from a nonsensical source aspect; it keeps
// the arithmetic in range rather than meaning anything.
constexpr double maximumEdge = 1 << 30;

double shortEdge(ExportResolution resolution) noexcept {
    switch (resolution) {
    case ExportResolution::p720:
        return 720;
    case ExportResolution::p1080:
        return 1080;
    case ExportResolution::p1440:
        return 1440;
    case ExportResolution::p2160:
    case ExportResolution::original:
        break;
    }
    return 2160;
}

// Rounded to nearest, made even downwards, and at least 2.
std::int64_t encoderEdge(double measure) noexcept {
    auto edge = static_cast<std::int64_t>(std::round(std::clamp(measure, 0.0, maximumEdge)));
    if (edge % 2 != 0) {
        edge -= 1;
    }
    return edge < 3 ? 2 : edge;
}

double qualityFactor(ExportQuality quality) noexcept {
    switch (quality) {
    case ExportQuality::compact:
        return 0.65;
    case ExportQuality::standard:
        return 1;
    case ExportQuality::high:
        break;
    }
    return 1.5;
}

double codecFactor(ExportCodec codec) noexcept {
    return codec == ExportCodec::hevc ? 0.65 : 1;
}

// Bits a second by pixel count, linear between the points and flat outside them.
double baseBitRate(double pixels) noexcept {
    constexpr std::array<std::pair<double, double>, 4> points{{
        {921'600, 6'000'000},
        {2'073'600, 12'000'000},
        {3'686'400, 24'000'000},
        {8'294'400, 50'000'000},
    }};
    if (pixels <= points.front().first) {
        return points.front().second;
    }
    for (std::size_t i = 1; i < points.size(); ++i) {
        const auto [x1, y1] = points[i];
        if (pixels <= x1) {
            const auto [x0, y0] = points[i - 1];
            return y0 + (pixels - x0) / (x1 - x0) * (y1 - y0);
        }
    }
    return points.back().second;
}

} // namespace

ExportConfiguration ExportConfiguration::preset(ExportPreset preset) noexcept {
    switch (preset) {
    case ExportPreset::high:
        return {ExportResolution::p2160, ExportFrameRate::fps60, ExportQuality::high, ExportCodec::h264};
    case ExportPreset::compact:
        return {ExportResolution::p720, ExportFrameRate::fps30, ExportQuality::compact, ExportCodec::h264};
    case ExportPreset::standard:
        break;
    }
    return {ExportResolution::p1080, ExportFrameRate::fps60, ExportQuality::standard, ExportCodec::h264};
}

ResolvedExportConfiguration ExportConfiguration::resolved(PixelSize sourceSize,
                                                          CanvasAspectRatio aspectRatio) const {
    if (resolution == ExportResolution::original && aspectRatio != CanvasAspectRatio::source) {
        throw ExportConfigurationError::originalResolutionRequiresSourceAspect();
    }
    ResolvedExportConfiguration result;
    result.outputSize = resolvedOutputSize(sourceSize, aspectRatio);
    result.framesPerSecond = frameRate == ExportFrameRate::fps30 ? 30 : 60;
    result.bitRate = bitRate(result.outputSize, result.framesPerSecond, quality, codec);
    result.quality = quality;
    result.codec = codec;
    return result;
}

PixelSize ExportConfiguration::resolvedOutputSize(PixelSize sourceSize,
                                                  CanvasAspectRatio aspectRatio) const noexcept {
    if (resolution == ExportResolution::original) {
        return sourceSize;
    }
    const double s = shortEdge(resolution);
    double r = value(aspectRatio, SizeValue{static_cast<double>(sourceSize.width),
                                            static_cast<double>(sourceSize.height)});
    // A source without area has no form to follow; it is taken as square.
    if (!std::isfinite(r) || r <= 0) {
        r = 1;
    }
    if (r >= 1) {
        return PixelSize::unnormalized(encoderEdge(s * r), encoderEdge(s));
    }
    return PixelSize::unnormalized(encoderEdge(s), encoderEdge(s / r));
}

std::int64_t ExportConfiguration::bitRate(PixelSize outputSize, std::int32_t framesPerSecond,
                                          ExportQuality quality, ExportCodec codec) noexcept {
    const double pixels = static_cast<double>(outputSize.width) * static_cast<double>(outputSize.height);
    const double frameRateFactor = framesPerSecond == 30 ? 0.65 : 1;
    const double rate =
        std::round(baseBitRate(pixels) * frameRateFactor * qualityFactor(quality) * codecFactor(codec));
    return static_cast<std::int64_t>(std::clamp(rate, 3'000'000.0, 80'000'000.0));
}

std::int64_t ExportFileSizeEstimator::estimatedBytes(const ResolvedExportConfiguration& configuration,
                                                     ProjectTime duration) noexcept {
    constexpr double audioBitRate = 192'000;
    constexpr double containerOverhead = 1.002;
    const double seconds = std::max(duration.seconds(), 0.0);
    return static_cast<std::int64_t>(std::round(
        seconds * (static_cast<double>(configuration.bitRate) + audioBitRate) * 0.125 * containerOverhead));
}

} // namespace rilo

namespace rilo::json {

ExportConfiguration Codec<ExportConfiguration>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    const ExportConfiguration fallback;
    return {reader.valueOr("resolution", fallback.resolution),
            reader.valueOr("frameRate", fallback.frameRate), reader.valueOr("quality", fallback.quality),
            reader.valueOr("codec", fallback.codec)};
}

Json Codec<ExportConfiguration>::encode(const ExportConfiguration& configuration) {
    return ObjectBuilder()
        .set("resolution", configuration.resolution)
        .set("frameRate", configuration.frameRate)
        .set("quality", configuration.quality)
        .set("codec", configuration.codec)
        .build();
}

} // namespace rilo::json

#pragma once

// The arithmetic of an export: from the four choices of a user (resolution,
// frame rate, quality, codec) and the source, the pixel size, frame rate and
// bit rate of the output, and an estimate of the file's size. Pure; no media.

#include "project/document/CanvasEdit.h"
#include "shared/Errors.h"
#include "shared/Geometry.h"
#include "shared/Json.h"
#include "shared/ProjectTime.h"

#include <array>
#include <cstdint>
#include <string_view>
#include <utility>

namespace rilo {

// The short edge of the output: the source's own size, or 720 to 2160 lines.
enum class ExportResolution { original, p720, p1080, p1440, p2160 };
// `source` resolves to 60 frames a second, whatever the recording's rate.
enum class ExportFrameRate { source, fps30, fps60 };
enum class ExportQuality { compact, standard, high };
enum class ExportCodec { h264, hevc };
// Named bundles of resolution, frame rate and quality.
enum class ExportPreset { high, standard, compact };

struct ResolvedExportConfiguration {
    PixelSize outputSize;
    std::int32_t framesPerSecond = 60;
    std::int64_t bitRate = 0; // bits a second
    ExportQuality quality = ExportQuality::standard;
    ExportCodec codec = ExportCodec::h264;

    friend bool operator==(const ResolvedExportConfiguration&, const ResolvedExportConfiguration&) = default;
};

class ExportConfigurationError : public LocalizedError {
public:
    enum class Case { originalResolutionRequiresSourceAspect };

    static ExportConfigurationError originalResolutionRequiresSourceAspect() {
        return {Case::originalResolutionRequiresSourceAspect, "原始分辨率只能与跟随源比例一起使用。"};
    }

    Case errorCase() const noexcept { return case_; }

private:
    ExportConfigurationError(Case errorCase, const std::string& message)
        : LocalizedError(message)
        , case_(errorCase) {}

    Case case_;
};

// What the user chose. The default is the `standard` preset with H.264.
struct ExportConfiguration {
    ExportResolution resolution = ExportResolution::p1080;
    ExportFrameRate frameRate = ExportFrameRate::fps60;
    ExportQuality quality = ExportQuality::standard;
    ExportCodec codec = ExportCodec::h264;

    // high: 4k, 60, high; standard: 1080p, 60, standard; compact: 720p, 30,
    // compact. Always H.264.
    static ExportConfiguration preset(ExportPreset preset) noexcept;

    // Throws ExportConfigurationError when `original` meets a canvas aspect
    // other than `source`: the source's size has no place on another canvas.
    ResolvedExportConfiguration resolved(PixelSize sourceSize, CanvasAspectRatio aspectRatio) const;

    // `original` keeps the source's size exactly, odd or not. Otherwise the
    // short edge is the resolution's and the long edge follows the aspect;
    // each edge is rounded, made even downwards, and at least 2.
    PixelSize resolvedOutputSize(PixelSize sourceSize, CanvasAspectRatio aspectRatio) const noexcept;

    // Interpolated over pixel count (720p 6, 1080p 12, 1440p 24, 2160p 50
    // Mbit/s), scaled by frame rate (0.65 at 30), quality and codec, and
    // clamped to 3 to 80 Mbit/s.
    static std::int64_t bitRate(PixelSize outputSize, std::int32_t framesPerSecond, ExportQuality quality,
                                ExportCodec codec) noexcept;

    friend bool operator==(const ExportConfiguration&, const ExportConfiguration&) = default;
};

namespace ExportFileSizeEstimator {
// Video at the configuration's bit rate, 192 kbit/s of audio and 0.2% for
// the container. A negative duration counts as none.
std::int64_t estimatedBytes(const ResolvedExportConfiguration& configuration, ProjectTime duration) noexcept;
} // namespace ExportFileSizeEstimator

} // namespace rilo

namespace rilo::json {

template <>
struct EnumNames<ExportResolution> {
    static constexpr std::array<std::pair<ExportResolution, std::string_view>, 5> entries{{
        {ExportResolution::original, "original"},
        {ExportResolution::p720, "p720"},
        {ExportResolution::p1080, "p1080"},
        {ExportResolution::p1440, "p1440"},
        {ExportResolution::p2160, "p2160"},
    }};
};

template <>
struct EnumNames<ExportFrameRate> {
    static constexpr std::array<std::pair<ExportFrameRate, std::string_view>, 3> entries{{
        {ExportFrameRate::source, "source"},
        {ExportFrameRate::fps30, "fps30"},
        {ExportFrameRate::fps60, "fps60"},
    }};
};

template <>
struct EnumNames<ExportQuality> {
    static constexpr std::array<std::pair<ExportQuality, std::string_view>, 3> entries{{
        {ExportQuality::compact, "compact"},
        {ExportQuality::standard, "standard"},
        {ExportQuality::high, "high"},
    }};
};

template <>
struct EnumNames<ExportCodec> {
    static constexpr std::array<std::pair<ExportCodec, std::string_view>, 2> entries{{
        {ExportCodec::h264, "h264"},
        {ExportCodec::hevc, "hevc"},
    }};
};

template <>
struct EnumNames<ExportPreset> {
    static constexpr std::array<std::pair<ExportPreset, std::string_view>, 3> entries{{
        {ExportPreset::high, "high"},
        {ExportPreset::standard, "standard"},
        {ExportPreset::compact, "compact"},
    }};
};

// Every member by its case name.
template <>
struct Codec<ExportConfiguration> {
    static ExportConfiguration decode(const Json& value, const std::string& path);
    static Json encode(const ExportConfiguration& configuration);
};

} // namespace rilo::json

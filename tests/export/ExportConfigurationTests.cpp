#include "export/ExportConfiguration.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

namespace rilo {
namespace {

ExportConfiguration configuration(ExportResolution resolution,
                                  ExportFrameRate frameRate = ExportFrameRate::fps60,
                                  ExportQuality quality = ExportQuality::standard,
                                  ExportCodec codec = ExportCodec::h264) {
    return {resolution, frameRate, quality, codec};
}

TEST(ExportConfiguration, ResolvesTheTargetsOfALandscapeSource) {
    const PixelSize source(1920, 1080);
    const auto standard = configuration(ExportResolution::p1080).resolved(source, CanvasAspectRatio::source);
    EXPECT_EQ(standard, (ResolvedExportConfiguration{PixelSize(1920, 1080), 60, 12'000'000,
                                                     ExportQuality::standard, ExportCodec::h264}));

    // 12000000 * 0.65 (30 fps) * 0.65 (compact) * 0.65 (HEVC).
    const auto small = configuration(ExportResolution::p1080, ExportFrameRate::fps30, ExportQuality::compact,
                                     ExportCodec::hevc)
                           .resolved(source, CanvasAspectRatio::source);
    EXPECT_EQ(small.bitRate, 3'295'500);

    // 6000000 * 0.65^3 is below the floor.
    const auto lowest = configuration(ExportResolution::p720, ExportFrameRate::fps30, ExportQuality::compact,
                                      ExportCodec::hevc)
                            .resolved(source, CanvasAspectRatio::source);
    EXPECT_EQ(lowest.bitRate, 3'000'000);

    const auto top = configuration(ExportResolution::p2160, ExportFrameRate::source, ExportQuality::high)
                         .resolved(source, CanvasAspectRatio::source);
    EXPECT_EQ(top.outputSize, PixelSize(3840, 2160));
    EXPECT_EQ(top.framesPerSecond, 60) << "source frame rate resolves to 60";
    EXPECT_EQ(top.bitRate, 75'000'000);
}

TEST(ExportConfiguration, OutputSizesFollowTheCanvasAspect) {
    const PixelSize source(1920, 1080);
    const auto size = [&](ExportResolution resolution, CanvasAspectRatio aspect) {
        return configuration(resolution).resolvedOutputSize(source, aspect);
    };
    EXPECT_EQ(size(ExportResolution::p1440, CanvasAspectRatio::landscape16x9), PixelSize(2560, 1440));
    EXPECT_EQ(size(ExportResolution::p1080, CanvasAspectRatio::portrait9x16), PixelSize(1080, 1920));

    // r = 1279 / 719: the width rounds to 1281 and is made even downwards.
    EXPECT_EQ(configuration(ExportResolution::p720)
                  .resolvedOutputSize(PixelSize::unnormalized(1279, 719), CanvasAspectRatio::source),
              PixelSize(1280, 720));
    // A tall source follows its own form below 1.
    EXPECT_EQ(configuration(ExportResolution::p1080)
                  .resolvedOutputSize(PixelSize(1170, 2532), CanvasAspectRatio::source),
              PixelSize(1080, 2336));
}

TEST(ExportConfiguration, OriginalKeepsTheSourceOnlyOnASourceCanvas) {
    const auto original = configuration(ExportResolution::original);
    const auto odd = original.resolved(PixelSize::unnormalized(1001, 701), CanvasAspectRatio::source);
    EXPECT_EQ(odd.outputSize, PixelSize::unnormalized(1001, 701));
    const auto error = testing::thrown<ExportConfigurationError>(
        [&] { original.resolved(PixelSize(1920, 1080), CanvasAspectRatio::portrait4x5); });
    ASSERT_TRUE(error) << "resolved an original size on a 4:5 canvas";
    EXPECT_EQ(error->errorCase(), ExportConfigurationError::Case::originalResolutionRequiresSourceAspect);
    EXPECT_EQ(error->message(), "原始分辨率只能与跟随源比例一起使用。");
}

TEST(ExportConfiguration, BitRateInterpolatesBetweenItsPointsAndIsClamped) {
    const auto rate = [](std::int64_t width, std::int64_t height,
                         ExportQuality quality = ExportQuality::standard) {
        return ExportConfiguration::bitRate(PixelSize::unnormalized(width, height), 60, quality,
                                            ExportCodec::h264);
    };
    EXPECT_EQ(rate(640, 360), 6'000'000);
    EXPECT_EQ(rate(2560, 1440), 24'000'000);
    // Halfway between 1080p and 1440p in pixels.
    EXPECT_EQ(rate(1, (2'073'600 + 3'686'400) / 2), 18'000'000);
    EXPECT_EQ(rate(7680, 4320, ExportQuality::high), 75'000'000);
    // No combination reaches the ceiling, but a huge size must still be finite and clamped.
    EXPECT_LE(rate(1 << 30, 1 << 30, ExportQuality::high), 80'000'000);
}

TEST(ExportConfiguration, PresetsJsonAndFileSizeEstimate) {
    EXPECT_EQ(ExportConfiguration::preset(ExportPreset::high),
              configuration(ExportResolution::p2160, ExportFrameRate::fps60, ExportQuality::high));
    EXPECT_EQ(ExportConfiguration::preset(ExportPreset::compact),
              configuration(ExportResolution::p720, ExportFrameRate::fps30, ExportQuality::compact));

    const auto value = configuration(ExportResolution::p1440, ExportFrameRate::source, ExportQuality::high,
                                     ExportCodec::hevc);
    EXPECT_EQ(json::encodeDocument(value, json::JsonStyle::chunk),
              R"({"codec":"hevc","frameRate":"source","quality":"high","resolution":"p1440"})");
    EXPECT_EQ(json::decodeDocument<ExportConfiguration>(json::encodeDocument(value)), value);
    EXPECT_THROW(json::decodeDocument<ExportConfiguration>(R"({"resolution":"4k"})"), json::DecodingError);

    // The file size estimate counts audio and the container.
    ResolvedExportConfiguration resolved;
    resolved.bitRate = 12'000'000;
    // 10 s * 12192000 bit/s / 8 * 1.002.
    EXPECT_EQ(ExportFileSizeEstimator::estimatedBytes(resolved, ProjectTime::fromSeconds(10)), 15'270'480);
    EXPECT_EQ(ExportFileSizeEstimator::estimatedBytes(resolved, ProjectTime{-5}), 0);
}

} // namespace
} // namespace rilo

#include "project/document/EditTimeline.h"

#include <cmath>
#include <gtest/gtest.h>
#include <set>

namespace rilo {
namespace {

namespace Presets = CanvasBackgroundPresets;

TEST(CanvasBackgroundPresets, GroupsCoverEveryPresetOnceWithItsBackground) {
    std::set<CanvasBackgroundPreset> seen;
    for (const auto preset : Presets::gradients) {
        EXPECT_EQ(Presets::background(preset), CanvasBackground::gradient);
        seen.insert(preset);
    }
    for (const auto preset : Presets::solids) {
        EXPECT_EQ(Presets::background(preset), CanvasBackground::solid);
        EXPECT_EQ(Presets::firstColor(preset), Presets::secondColor(preset));
        seen.insert(preset);
    }
    EXPECT_EQ(seen.size(), json::EnumNames<CanvasBackgroundPreset>::entries.size());
    for (const auto background : {CanvasBackground::gradient, CanvasBackground::solid}) {
        EXPECT_EQ(Presets::background(Presets::defaultPreset(background)), background);
    }
}

TEST(CanvasAndWebcamValues, AspectRatiosAndClampingRules) {
    EXPECT_DOUBLE_EQ(value(CanvasAspectRatio::source, {1000, 500}), 2.0);
    EXPECT_DOUBLE_EQ(value(CanvasAspectRatio::portrait4x5, {}), 0.8);
    EXPECT_EQ(CanvasCornerRadiusRules::clamped(-0.1), 0);
    EXPECT_DOUBLE_EQ(CanvasCornerRadiusRules::snapped(0.01549), 0.015);
    EXPECT_DOUBLE_EQ(CanvasCornerRadiusRules::snapped(0.0155), 0.016);
    EXPECT_EQ(CanvasCornerRadiusRules::snapped(1), 0.08);
    EXPECT_EQ(MotionBlurRules::clamped(1.5), 1);
    EXPECT_EQ(MotionBlurRules::clamped(-0.5), 0);

    EXPECT_EQ(WebcamOverlay::constrainedCornerRadius(NAN), 0.6);
    EXPECT_EQ(WebcamOverlay::constrainedCornerRadius(INFINITY), 0.6);
    EXPECT_EQ(WebcamOverlay::constrainedCornerRadius(1.5), 1);
    EXPECT_EQ(WebcamOverlay::constrainedBorderWidthAt1080p(-INFINITY), 10);
    EXPECT_EQ(WebcamOverlay::constrainedBorderWidthAt1080p(1), 2);
    EXPECT_EQ(WebcamOverlay::constrainedBorderWidthAt1080p(12.5), 12.5);
}

TEST(AudioTrackEditValues, LinearGainAndVolume) {
    EXPECT_EQ((AudioTrackEdit{true, 6}).linearGain(), 0.0F);
    EXPECT_EQ((AudioTrackEdit{false, -90}).linearGain(), 0.001F);
    EXPECT_NEAR((AudioTrackEdit{false, -20}).linearGain(), 0.1F, 1e-6);
    EXPECT_EQ((AudioTrackEdit{false, 40}).linearGain(), (AudioTrackEdit{false, 12}).linearGain());

    const AudioTrackEdit track{false, -7};
    EXPECT_EQ(track.updatingVolume(0), (AudioTrackEdit{true, -7}));
    EXPECT_EQ((AudioTrackEdit{true, -7}).updatingVolume(1), (AudioTrackEdit{false, 0}));
    EXPECT_EQ(track.updatingVolume(3), (AudioTrackEdit{false, 0}));
    EXPECT_DOUBLE_EQ(track.updatingVolume(0.1).gainDecibels, -20);
    EXPECT_EQ(track.updatingVolume(0.0001), (AudioTrackEdit{false, -40}));

    const AudioMixEdit mix{{false, -3}, {true, 2}};
    EXPECT_EQ(mix.settings(MediaTrackKind::microphone), mix.microphone);
    EXPECT_FALSE(mix.settings(MediaTrackKind::screen));
}

TEST(AnnotationElementValues, DefaultCircleIsRoundOnTheCanvasAndStaysInsideTheWidthLimits) {
    const auto circle = [](double aspectRatio) {
        return AnnotationElement::defaultAnnotation(AnnotationKind::circle, ProjectTime{1000},
                                                    ProjectTime{5000}, 0, aspectRatio);
    };
    ASSERT_TRUE(circle(16.0 / 9.0).bounds);
    EXPECT_DOUBLE_EQ(circle(16.0 / 9.0).bounds->width, 0.22 * 9.0 / 16.0);
    EXPECT_DOUBLE_EQ(circle(16.0 / 9.0).bounds->x + circle(16.0 / 9.0).bounds->width / 2, 0.5);
    EXPECT_EQ(circle(0).bounds->width, 0.8);
    EXPECT_EQ(circle(100).bounds->width, 0.02);
    EXPECT_NE(circle(1).id, circle(1).id);
}

} // namespace
} // namespace rilo

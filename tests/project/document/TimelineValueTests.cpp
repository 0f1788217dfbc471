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
    EXPECT_EQ(Presets::gradients.front(), CanvasBackgroundPreset::midnightViolet);
    EXPECT_EQ(Presets::solids.back(), CanvasBackgroundPreset::lime);
    for (const auto background : {CanvasBackground::gradient, CanvasBackground::solid}) {
        EXPECT_EQ(Presets::background(Presets::defaultPreset(background)), background);
    }
    EXPECT_EQ(json::rawValue(CanvasBackgroundPreset::forestGradient), "forest-gradient");
    EXPECT_EQ(json::enumFromRaw<CanvasBackgroundPreset>("warm-gray"), CanvasBackgroundPreset::warmGray);
}

TEST(CanvasBackgroundPresets, ColoursAreBytesOver255) {
    EXPECT_EQ(Presets::firstColor(CanvasBackgroundPreset::midnightViolet),
              (CanvasColorValue{0x0E / 255.0, 0x13 / 255.0, 0x1F / 255.0}));
    EXPECT_EQ(Presets::secondColor(CanvasBackgroundPreset::aurora),
              (CanvasColorValue{0x8B / 255.0, 0x5C / 255.0, 0xF6 / 255.0}));
    EXPECT_EQ(Presets::firstColor(CanvasBackgroundPreset::snow),
              (CanvasColorValue{0xF8 / 255.0, 0xFA / 255.0, 0xFC / 255.0}));
    // The solid forest shares its colour with the top of the forest gradient.
    EXPECT_EQ(Presets::firstColor(CanvasBackgroundPreset::forest),
              Presets::firstColor(CanvasBackgroundPreset::forestGradient));
    EXPECT_NE(Presets::firstColor(CanvasBackgroundPreset::forestGradient),
              Presets::secondColor(CanvasBackgroundPreset::forestGradient));
}

TEST(CanvasValues, AspectRatiosAndCornerRadiusRules) {
    EXPECT_DOUBLE_EQ(value(CanvasAspectRatio::source, {1000, 500}), 2.0);
    EXPECT_DOUBLE_EQ(value(CanvasAspectRatio::landscape16x9, {1000, 500}), 16.0 / 9.0);
    EXPECT_DOUBLE_EQ(value(CanvasAspectRatio::portrait4x5, {}), 0.8);
    EXPECT_EQ(json::rawValue(CanvasAspectRatio::portrait3x4), "3:4");
    EXPECT_DOUBLE_EQ(value(WebcamAspectRatio::source), 16.0 / 9.0);
    EXPECT_DOUBLE_EQ(value(WebcamAspectRatio::square), 1.0);

    EXPECT_EQ(CanvasCornerRadiusRules::clamped(0.5), 0.08);
    EXPECT_EQ(CanvasCornerRadiusRules::clamped(-0.1), 0);
    EXPECT_DOUBLE_EQ(CanvasCornerRadiusRules::snapped(0.01549), 0.015);
    EXPECT_DOUBLE_EQ(CanvasCornerRadiusRules::snapped(0.0155), 0.016);
    EXPECT_EQ(CanvasCornerRadiusRules::snapped(1), 0.08);
    EXPECT_EQ(MotionBlurRules::clamped(1.5), 1);
    EXPECT_EQ(MotionBlurRules::clamped(-0.5), 0);
    EXPECT_EQ(MotionBlurRules::clamped(0.3), 0.3);
}

TEST(WebcamOverlayValues, PlacementsAndConstraints) {
    const WebcamOverlay standard = WebcamOverlay::defaultValue();
    EXPECT_EQ(standard.center, (PointValue{0.86, 0.8}));
    EXPECT_EQ(standard.diameter, 0.22);
    EXPECT_TRUE(standard.isVisible && standard.isMirrored && standard.showsBorder && standard.showsShadow);
    EXPECT_EQ(standard.aspectRatio, WebcamAspectRatio::square);
    EXPECT_EQ(standard.cornerRadius, 1.0);
    EXPECT_EQ(standard.borderWidthAt1080p, 10);

    WebcamOverlay expected = standard;
    expected.center = {0.14, 0.8};
    expected.cornerRadius = 0.6;
    expected.showsBorder = false;
    EXPECT_EQ(WebcamOverlay::newRecording(), expected);

    EXPECT_EQ(WebcamOverlay::constrainedCornerRadius(NAN), 0.6);
    EXPECT_EQ(WebcamOverlay::constrainedCornerRadius(INFINITY), 0.6);
    EXPECT_EQ(WebcamOverlay::constrainedCornerRadius(1.5), 1);
    EXPECT_EQ(WebcamOverlay::constrainedBorderWidthAt1080p(-INFINITY), 10);
    EXPECT_EQ(WebcamOverlay::constrainedBorderWidthAt1080p(1), 2);
    EXPECT_EQ(WebcamOverlay::constrainedBorderWidthAt1080p(12.5), 12.5);

    const WebcamOverlay built{true, {0.5, 0.5}, 0.3, false, WebcamAspectRatio::source, -2, true, 100, false};
    EXPECT_EQ(built.cornerRadius, 0);
    EXPECT_EQ(built.borderWidthAt1080p, 20);
}

TEST(AudioTrackEditValues, LinearGain) {
    EXPECT_EQ((AudioTrackEdit{true, 6}).linearGain(), 0.0F);
    EXPECT_EQ((AudioTrackEdit{false, 0}).linearGain(), 1.0F);
    EXPECT_EQ((AudioTrackEdit{false, -60}).linearGain(), 0.001F);
    EXPECT_EQ((AudioTrackEdit{false, -90}).linearGain(), 0.001F);
    EXPECT_NEAR((AudioTrackEdit{false, -20}).linearGain(), 0.1F, 1e-6);
    EXPECT_NEAR((AudioTrackEdit{false, 12}).linearGain(), 3.981072F, 1e-5);
    EXPECT_EQ((AudioTrackEdit{false, 40}).linearGain(), (AudioTrackEdit{false, 12}).linearGain());
}

TEST(AudioTrackEditValues, UpdatingVolume) {
    const AudioTrackEdit track{false, -7};
    EXPECT_EQ(track.updatingVolume(0), (AudioTrackEdit{true, -7}));
    EXPECT_EQ(track.updatingVolume(-1), (AudioTrackEdit{true, -7}));
    EXPECT_EQ((AudioTrackEdit{true, -7}).updatingVolume(1), (AudioTrackEdit{false, 0}));
    EXPECT_EQ(track.updatingVolume(3), (AudioTrackEdit{false, 0}));
    EXPECT_DOUBLE_EQ(track.updatingVolume(0.1).gainDecibels, -20);
    EXPECT_DOUBLE_EQ(track.updatingVolume(0.0001).gainDecibels, -40);
    EXPECT_FALSE(track.updatingVolume(0.0001).isMuted);

    const AudioMixEdit mix{{false, -3}, {true, 2}};
    EXPECT_EQ(mix.settings(MediaTrackKind::systemAudio), mix.systemAudio);
    EXPECT_EQ(mix.settings(MediaTrackKind::microphone), mix.microphone);
    EXPECT_FALSE(mix.settings(MediaTrackKind::screen));
}

TEST(AnnotationElementValues, DefaultAnnotationShapes) {
    const ProjectTime start{1000};
    const ProjectTime end{5000};
    const auto rectangle =
        AnnotationElement::defaultAnnotation(AnnotationKind::rectangle, start, end, 3, 16.0 / 9.0);
    EXPECT_EQ(rectangle.bounds, (RectValue{0.35, 0.4, 0.3, 0.2}));
    EXPECT_FALSE(rectangle.startPoint || rectangle.endPoint);
    EXPECT_EQ(rectangle.color, (CanvasColorValue{0.96, 0.45, 0.16}));
    EXPECT_EQ(rectangle.lineWidth, 0.006);
    EXPECT_EQ(rectangle.zIndex, 3);
    EXPECT_EQ(rectangle.startTime, start);
    EXPECT_EQ(rectangle.endTime, end);
    EXPECT_NE(rectangle.id,
              AnnotationElement::defaultAnnotation(AnnotationKind::rectangle, start, end, 3, 1).id);

    const auto arrow = AnnotationElement::defaultAnnotation(AnnotationKind::arrow, start, end, 0, 1);
    EXPECT_FALSE(arrow.bounds);
    EXPECT_EQ(arrow.startPoint, (PointValue{0.34, 0.62}));
    EXPECT_EQ(arrow.endPoint, (PointValue{0.66, 0.38}));

    const auto circle =
        AnnotationElement::defaultAnnotation(AnnotationKind::circle, start, end, 0, 16.0 / 9.0);
    ASSERT_TRUE(circle.bounds);
    EXPECT_DOUBLE_EQ(circle.bounds->width, 0.22 * 9.0 / 16.0);
    EXPECT_DOUBLE_EQ(circle.bounds->x + circle.bounds->width / 2, 0.5);
    EXPECT_EQ(circle.bounds->y, 0.39);
    EXPECT_EQ(circle.bounds->height, 0.22);
    // Degenerate and extreme aspect ratios stay inside the width limits.
    EXPECT_EQ(AnnotationElement::defaultAnnotation(AnnotationKind::circle, start, end, 0, 0).bounds->width,
              0.8);
    EXPECT_EQ(AnnotationElement::defaultAnnotation(AnnotationKind::circle, start, end, 0, 100).bounds->width,
              0.02);
    EXPECT_DOUBLE_EQ(AnnotationElement::defaultAnnotation(AnnotationKind::circle, start, end, 0, 0).bounds->x,
                     0.1);
}

TEST(EditTimelineValues, EmptyDocument) {
    const EditTimeline empty = EditTimeline::empty();
    EXPECT_EQ(empty.schemaVersion, 8);
    EXPECT_TRUE(empty.segments.empty());
    EXPECT_FALSE(empty.deviceFrame || empty.webcamOverlay);
    EXPECT_EQ(empty.motionBlurAmount, 0.5);
    EXPECT_EQ(empty.canvas, CanvasEdit::defaultValue());
    EXPECT_EQ(empty.canvas.preset, CanvasBackgroundPreset::midnightViolet);
    EXPECT_EQ(empty.canvas.padding, 0.08);
    EXPECT_EQ(empty.canvas.cornerRadius, 0.015);
    EXPECT_EQ(empty.cursor, (CursorEdit{true, 1.0, true, ClickEffectStyle::solidPulse}));
    EXPECT_EQ(empty.audioMix, (AudioMixEdit{{false, 0}, {false, 0}}));
}

} // namespace
} // namespace rilo

#include "scene/SceneEvaluator.h"
#include "scene/SceneStateCodecs.h"
#include "support/TimelineBuilders.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

namespace rilo {
namespace {

using testing::ms;
using testing::ns;

ZoomSegment zoom(ProjectTime start, ProjectTime focus, ProjectTime holdEnd, ProjectTime end,
                 PointValue focusPoint, double scale) {
    return {Uuid::random(), start, focus, holdEnd, end, focusPoint, scale};
}

MouseEvent mouse(ProjectTime time, PointValue point, MouseButton button = MouseButton::none,
                 MousePhase phase = MousePhase::moved, std::optional<bool> inside = std::nullopt) {
    MouseEvent event;
    event.time = time;
    event.normalizedPoint = point;
    event.button = button;
    event.phase = phase;
    event.isInsideSource = inside;
    return event;
}

MouseEvent leftClick(ProjectTime time, PointValue point, std::optional<bool> inside = std::nullopt) {
    return mouse(time, point, MouseButton::left, MousePhase::down, inside);
}

WebcamFullscreenSegment fullscreen(ProjectTime start, ProjectTime end) {
    return {Uuid::random(), start, end};
}

ProjectSnapshot snapshotWith(EditTimeline timeline, std::vector<MouseEvent> events = {}) {
    ProjectSnapshot snapshot;
    snapshot.manifest.encodedPixelSize = PixelSize(1920, 1080);
    snapshot.timeline = std::move(timeline);
    snapshot.mouseEvents = std::move(events);
    return snapshot;
}

double spring(std::int64_t elapsed, std::int64_t duration) {
    return SceneEvaluator::springProgress(elapsed, duration);
}

void expectCamera(const CameraState& actual, const CameraState& expected, const std::string& label) {
    EXPECT_NEAR(actual.center.x, expected.center.x, 1e-12) << label;
    EXPECT_NEAR(actual.center.y, expected.center.y, 1e-12) << label;
    EXPECT_NEAR(actual.scale, expected.scale, 1e-12) << label;
}

TEST(SceneEvaluatorTest, SpringRunsFromZeroToOne) {
    EXPECT_EQ(spring(-5, 1'000'000'000), 0.0);
    EXPECT_EQ(spring(1'000'000'000, 1'000'000'000), 1.0);
    // Over two nanoseconds the spring has not moved measurably: linear.
    EXPECT_EQ(spring(1, 2), 0.5);
    for (const std::int64_t duration : {1'000'000, 300'000'000, 2'000'000'000}) {
        for (int step = 1; step < 100; ++step) {
            const double value = spring(duration / 100 * step, duration);
            EXPECT_TRUE(value > 0 && value <= 1) << duration << " at " << step;
        }
    }
    // The spring keeps its own clock: a longer duration is further along at
    // the same fraction.
    EXPECT_GT(spring(500'000'000, 1'000'000'000), spring(50'000'000, 100'000'000));
}

TEST(SceneEvaluatorTest, ShutterIsPiecewiseLinearAndRoundsHalfAway) {
    const struct {
        double amount;
        std::int64_t shutter;
    } cases[] = {{-1, 0},          {0, 0},          {0.25, 8'333'334}, {0.5, 16'666'667}, {0.75, 58'333'334},
                 {1, 100'000'000}, {3, 100'000'000}};
    for (const auto& c : cases) {
        EXPECT_EQ(SceneEvaluator::motionBlurShutterNanoseconds(c.amount), c.shutter) << c.amount;
    }
}

TEST(SceneEvaluatorTest, ZoomStartsAndEndsWithoutAJump) {
    const CameraState target{{0.3, 0.4}, 2};
    const std::vector<ZoomSegment> zooms{zoom(ms(1'000), ms(2'000), ms(3'000), ms(4'000), target.center, 2)};
    const auto at = [&](ProjectTime t) { return SceneEvaluator::cameraState(t, zooms); };

    EXPECT_EQ(at(ms(999)), CameraState::identity());
    EXPECT_EQ(at(ms(1'000)), CameraState::identity());
    const double rising = spring(500'000'000, 1'000'000'000);
    expectCamera(at(ms(1'500)), {{0.5 - 0.2 * rising, 0.5 - 0.1 * rising}, 1 + rising}, "rising");
    EXPECT_EQ(at(ms(2'000)), target);
    EXPECT_EQ(at(ms(3'000)), target);
    const double falling = spring(250'000'000, 1'000'000'000);
    expectCamera(at(ms(3'250)), {{0.3 + 0.2 * falling, 0.4 + 0.1 * falling}, 2 - falling}, "falling");
    EXPECT_NEAR(at(ms(4'000) - ns(1)).scale, 1, 1e-6);
    EXPECT_EQ(at(ms(4'000)), CameraState::identity());

    // A zoom whose focus is its start jumps to the target after its first instant.
    const std::vector<ZoomSegment> instant{zoom(ms(0), ms(0), ms(1'000), ms(1'500), target.center, 2)};
    EXPECT_EQ(SceneEvaluator::cameraState(ms(0), instant), CameraState::identity());
    EXPECT_EQ(SceneEvaluator::cameraState(ns(1), instant), target);
}

// Touching zooms hand over from the end of the first hold to the second
// focus, across their shared boundary, without passing the resting view.
TEST(SceneEvaluatorTest, TouchingZoomsHandOverDirectly) {
    const std::vector<ZoomSegment> zooms{zoom(ms(0), ms(500), ms(1'000), ms(2'000), {0.3, 0.3}, 2),
                                         zoom(ms(2'000), ms(3'000), ms(4'000), ms(5'000), {0.7, 0.6}, 1.5)};
    const auto at = [&](ProjectTime t) { return SceneEvaluator::cameraState(t, zooms); };
    const auto handOver = [](double progress) {
        return CameraState{{0.3 + 0.4 * progress, 0.3 + 0.3 * progress}, 2 - 0.5 * progress};
    };
    expectCamera(at(ms(1'000)), handOver(0), "end of the first hold");
    expectCamera(at(ms(2'000)), handOver(spring(1'000'000'000, 2'000'000'000)), "at the boundary");
    expectCamera(at(ms(3'000)), handOver(1), "second focus");

    // Equal targets: the camera holds still and no blur pass is asked for.
    EditTimeline timeline;
    timeline.motionBlurAmount = 1;
    timeline.zooms = {zoom(ms(0), ms(500), ms(1'000), ms(2'000), {0.4, 0.4}, 2),
                      zoom(ms(2'000), ms(2'500), ms(3'000), ms(3'500), {0.4, 0.4}, 2)};
    const SceneEvaluator evaluator(snapshotWith(timeline));
    for (const std::int64_t t : {1'000, 1'990, 2'000, 2'050, 2'500}) {
        const SceneState state = evaluator.evaluate(ms(t), evaluator.defaultVisualEdits());
        EXPECT_EQ(state.camera, (CameraState{{0.4, 0.4}, 2})) << t;
        EXPECT_FALSE(state.motionBlurCamera) << t;
    }
}

TEST(SceneEvaluatorTest, MotionBlurCameraLooksOneShutterBack) {
    EditTimeline timeline;
    timeline.zooms = {zoom(ms(0), ms(1'000), ms(2'000), ms(3'000), {0.3, 0.3}, 2)};
    timeline.motionBlurAmount = 1; // 0.1 s
    const SceneEvaluator evaluator(snapshotWith(timeline));
    const auto evaluate = [&](ProjectTime t, double amount) {
        TimelineVisualEdits edits = evaluator.defaultVisualEdits();
        edits.motionBlurAmount = amount;
        return evaluator.evaluate(t, edits);
    };

    const SceneState moving = evaluate(ms(500), 1);
    EXPECT_EQ(moving.motionBlurCamera, SceneEvaluator::cameraState(ms(400), timeline.zooms));
    // Before the shutter length the earlier time is clamped to 0.
    EXPECT_EQ(evaluate(ms(50), 1).motionBlurCamera, CameraState::identity());
    EXPECT_FALSE(evaluate(ms(500), 0).motionBlurCamera);
    EXPECT_FALSE(evaluate(ms(1'500), 1).motionBlurCamera); // holding still
}

TEST(SceneEvaluatorTest, FullscreenRampsShareShortSegmentsAndSkipTouchingSides) {
    constexpr std::int64_t transition = SceneEvaluator::webcamFullscreenTransitionNanoseconds;
    const auto progress = [](ProjectTime t, const std::vector<WebcamFullscreenSegment>& segments) {
        return SceneEvaluator::webcamFullscreenProgress(t, segments, transition);
    };

    // 0.4 s: ramps of 0.2 s each, no plateau.
    const std::vector<WebcamFullscreenSegment> shortOne{fullscreen(ms(1'000), ms(1'400))};
    EXPECT_EQ(progress(ms(1'000), shortOne), 0.0);
    EXPECT_EQ(progress(ms(1'100), shortOne), spring(100'000'000, 200'000'000));
    EXPECT_EQ(progress(ms(1'300), shortOne), 1 - spring(100'000'000, 200'000'000));
    EXPECT_EQ(progress(ms(1'400), shortOne), 0.0);

    // Three touching segments, given out of order: one ramp up, one down.
    const std::vector<WebcamFullscreenSegment> chain{
        fullscreen(ms(3'000), ms(4'000)), fullscreen(ms(1'000), ms(2'000)), fullscreen(ms(2'000), ms(3'000))};
    EXPECT_EQ(progress(ms(1'100), chain), spring(100'000'000, transition));
    for (const std::int64_t t : {1'300, 1'900, 2'000, 2'100, 2'950, 3'000, 3'050, 3'700}) {
        EXPECT_EQ(progress(ms(t), chain), 1.0) << t;
    }
    EXPECT_EQ(progress(ms(3'800), chain), 1 - spring(100'000'000, transition));
    EXPECT_EQ(progress(ms(500), chain), 0.0);
}

TEST(SceneEvaluatorTest, WebcamShrinksWhileZoomedUnlessFullscreen) {
    const std::vector<ZoomSegment> single{zoom(ms(1'000), ms(2'000), ms(3'000), ms(4'000), {0.5, 0.5}, 2)};
    const auto factor = [](ProjectTime t, const std::vector<ZoomSegment>& zooms, double scale) {
        return SceneEvaluator::webcamZoomScale(t, zooms, CameraState{{0.5, 0.5}, scale});
    };
    EXPECT_EQ(factor(ms(500), single, 1), 1.0);
    EXPECT_NEAR(factor(ms(2'500), single, 2), 0.8, 1e-15);
    EXPECT_NEAR(factor(ms(1'500), single, 1.5), 0.9, 1e-15);
    // Two zoomed-in neighbours keep the webcam shrunk across the hand-over.
    const std::vector<ZoomSegment> touching{
        zoom(ms(0), ms(500), ms(1'000), ms(2'000), {0.5, 0.5}, 2),
        zoom(ms(2'000), ms(2'500), ms(3'000), ms(3'500), {0.5, 0.5}, 1.5)};
    EXPECT_EQ(factor(ms(1'500), touching, 1.7), 0.8);
    EXPECT_EQ(factor(ms(2'200), touching, 1.7), 0.8);

    EditTimeline timeline;
    timeline.webcamOverlay = WebcamOverlay::defaultValue();
    timeline.zooms = single;
    timeline.webcamFullscreenSegments = {fullscreen(ms(2'000), ms(2'700))};
    ProjectSnapshot snapshot = snapshotWith(timeline);
    EXPECT_FALSE(SceneEvaluator(snapshot).evaluate(ms(2'500), std::nullopt, std::nullopt).webcam)
        << "no webcam media";

    snapshot.manifest.webcam = WebcamMediaInfo{};
    const SceneEvaluator evaluator(snapshot);
    const auto webcamAt = [&](ProjectTime t) {
        return *evaluator.evaluate(t, evaluator.defaultVisualEdits()).webcam;
    };
    EXPECT_EQ(webcamAt(ms(500)).diameter, 0.22);
    EXPECT_EQ(webcamAt(ms(500)).fullscreenProgress, 0.0);
    // Held at scale 2 (the webcam at 0.8), going full screen, and full screen.
    EXPECT_NEAR(webcamAt(ms(2'800)).diameter, 0.22 * 0.8, 1e-12);
    const double rising = spring(100'000'000, SceneEvaluator::webcamFullscreenTransitionNanoseconds);
    EXPECT_NEAR(webcamAt(ms(2'100)).diameter, 0.22 * (1 - 0.2 * (1 - rising)), 1e-12);
    EXPECT_EQ(webcamAt(ms(2'100)).fullscreenProgress, rising);
    EXPECT_EQ(webcamAt(ms(2'350)).diameter, 0.22);
    EXPECT_EQ(webcamAt(ms(2'350)).fullscreenProgress, 1.0);
}

TEST(SceneEvaluatorTest, ClickEffectsExpireAndFollowTheCamera) {
    EditTimeline timeline;
    timeline.cursor.clickEffectStyle = ClickEffectStyle::ring; // 0.5 s
    timeline.zooms = {zoom(ms(0), ms(100), ms(5'000), ms(6'000), {0.4, 0.4}, 2)};
    const SceneEvaluator evaluator(
        snapshotWith(timeline, {leftClick(ms(1'000), {0.3, 0.3}), leftClick(ms(2'000), {0.45, 0.5}),
                                mouse(ms(2'600), {0.5, 0.5}, MouseButton::right, MousePhase::down),
                                leftClick(ms(2'700), {0.5, 0.5}, false)}));
    const auto effectAt = [&](ProjectTime t, const TimelineVisualEdits& edits) {
        return evaluator.evaluate(t, edits).clickEffect;
    };
    const TimelineVisualEdits& edits = evaluator.defaultVisualEdits();

    const auto running = effectAt(ms(2'400), edits);
    ASSERT_TRUE(running);
    EXPECT_NEAR(running->progress, 0.8, 1e-12);
    EXPECT_NEAR(running->position.x, 2 * (0.45 - 0.4) + 0.5, 1e-12);
    EXPECT_NEAR(running->position.y, 2 * (0.5 - 0.4) + 0.5, 1e-12);
    EXPECT_EQ(effectAt(ms(2'500), edits)->progress, 1.0);
    // Older clicks exist, but the latest has expired; the others are no clicks.
    EXPECT_FALSE(effectAt(ms(2'500) + ns(1), edits));
    EXPECT_FALSE(effectAt(ms(2'750), edits));
    EXPECT_FALSE(effectAt(ms(999), edits));

    TimelineVisualEdits pulse = edits;
    pulse.cursor.clickEffectStyle = ClickEffectStyle::solidPulse; // 0.35 s
    EXPECT_FALSE(effectAt(ms(2'400), pulse));
}

TEST(SceneEvaluatorTest, CursorShapeComesFromTheLastSampleAndItsAsset) {
    ProjectSnapshot snapshot =
        snapshotWith(EditTimeline{}, {mouse(ms(0), {0.1, 0.2}), mouse(ms(1'000), {0.7, 0.9}, {}, {}, false)});
    snapshot.cursorShapeSamples = {{ms(2'000), "gone"}, {ms(1'000), "arrow"}};
    snapshot.cursorAssets = {{{"arrow", "cursors/arrow.png", {24, 32}, {3, 4}}, "png"}};
    const SceneEvaluator evaluator(snapshot);
    const auto cursorAt = [&](ProjectTime t) {
        return evaluator.evaluate(t, evaluator.defaultVisualEdits()).cursor;
    };

    // Without zooms the output is the source as recorded.
    const SceneState plain = evaluator.evaluate(ms(500), evaluator.defaultVisualEdits());
    EXPECT_EQ(plain.camera, CameraState::identity());
    EXPECT_FALSE(plain.motionBlurCamera);
    EXPECT_EQ(plain.cursor.outputPosition, plain.cursor.sourcePosition);
    EXPECT_EQ(plain.cursor.sourcePosition, evaluator.cursor().position(ms(500)));
    EXPECT_TRUE(plain.cursor.visible);
    EXPECT_FALSE(plain.cursor.assetID);
    const CursorState arrow = cursorAt(ms(1'500));
    EXPECT_EQ(arrow.assetID, "arrow");
    EXPECT_EQ(arrow.logicalSize, (SizeValue{24, 32}));
    EXPECT_EQ(arrow.hotSpot, (PointValue{3, 4}));
    EXPECT_FALSE(arrow.visible); // the last sample lies outside the source
    const CursorState missing = cursorAt(ms(2'000));
    EXPECT_EQ(missing.assetID, "gone");
    EXPECT_FALSE(missing.logicalSize);
    EXPECT_FALSE(missing.hotSpot);
}

TEST(SceneEvaluatorTest, ScreenFollowsTheLastGeometrySample) {
    GeometrySample cropped;
    cropped.time = ms(1'000);
    cropped.encodedPixelSize = PixelSize(2000, 1000);
    cropped.contentRectInEncodedFrame = {100, 50, 1000, 500};
    GeometrySample empty = cropped;
    empty.time = ms(2'000);
    empty.encodedPixelSize = PixelSize::unnormalized(0, 1000);
    const std::vector<GeometrySample> geometry{cropped, empty};

    EXPECT_EQ(SceneEvaluator::screenState(ms(999), geometry), ScreenState::fullFrame());
    EXPECT_EQ(SceneEvaluator::screenState(ms(1'000), geometry), (ScreenState{{0.05, 0.05, 0.5, 0.5}}));
    EXPECT_EQ(SceneEvaluator::screenState(ms(2'000), geometry), ScreenState::fullFrame());
}

TEST(SceneEvaluatorTest, AnnotationsAndCaptionsActiveAtTheTime) {
    const auto annotation = [](const char* id, std::int64_t zIndex, ProjectTime start, ProjectTime end) {
        AnnotationElement element;
        element.id = *Uuid::parse(id);
        element.startTime = start;
        element.endTime = end;
        element.zIndex = zIndex;
        return element;
    };
    EditTimeline timeline;
    timeline.annotations = {annotation("00000000-0000-0000-0000-00000000000C", 1, ms(0), ms(5'000)),
                            annotation("00000000-0000-0000-0000-00000000000B", 0, ms(0), ms(5'000)),
                            annotation("00000000-0000-0000-0000-00000000000A", 0, ms(0), ms(5'000)),
                            annotation("00000000-0000-0000-0000-00000000000D", -1, ms(1'000), ms(2'000))};
    CaptionDocument captions;
    captions.style.appearance = CaptionAppearance::blackWithWhiteOutline;
    captions.style.fontScale = 1.1;
    captions.cues = {{Uuid::random(), ms(0), ms(3'000), "先", {}, {}},
                     {Uuid::random(), ms(1'000), ms(2'000), "后", {}, {{"后", 1}}}};
    ProjectSnapshot snapshot = snapshotWith(timeline);
    snapshot.captions = captions;
    const SceneEvaluator evaluator(snapshot);

    const SceneState state = evaluator.evaluate(ms(2'000), evaluator.defaultVisualEdits());
    std::vector<std::string> order;
    for (const auto& element : state.annotations) {
        order.push_back(element.id.string().substr(35));
    }
    EXPECT_EQ(order, (std::vector<std::string>{"A", "B", "C"}));
    EXPECT_EQ(state.caption->text, "先");

    const SceneState overlapping = evaluator.evaluate(ms(1'500), evaluator.defaultVisualEdits());
    EXPECT_EQ(overlapping.annotations.front().zIndex, -1);
    EXPECT_EQ(
        overlapping.caption,
        (CaptionState{
            captions.cues[1].id, "后", {{"后", 1}}, CaptionAppearance::blackWithWhiteOutline, 2, 1.1, 0.08}));
    EXPECT_FALSE(evaluator.evaluate(ms(1'500), evaluator.defaultVisualEdits(), std::nullopt).caption);
    captions.style.isEnabled = false;
    EXPECT_FALSE(evaluator.evaluate(ms(1'500), evaluator.defaultVisualEdits(), captions).caption);
    EXPECT_FALSE(evaluator.evaluate(ms(3'000), evaluator.defaultVisualEdits()).caption);
}

TEST(SceneEvaluatorTest, CanvasOverrideAndJsonRoundTrip) {
    EditTimeline timeline;
    timeline.webcamOverlay = WebcamOverlay::defaultValue();
    timeline.deviceFrame = DeviceFrameEdit{true, "frame"};
    timeline.zooms = {zoom(ms(0), ms(1'000), ms(2'000), ms(3'000), {0.3, 0.3}, 2)};
    timeline.annotations = {
        AnnotationElement::defaultAnnotation(AnnotationKind::arrow, ms(0), ms(900), 0, 1.6)};
    ProjectSnapshot snapshot = snapshotWith(timeline, {leftClick(ms(400), {0.2, 0.3})});
    snapshot.manifest.webcam = WebcamMediaInfo{};
    snapshot.cursorShapeSamples = {{ms(0), "arrow"}};
    snapshot.cursorAssets = {{{"arrow", "a.png", {24, 32}, {3, 4}}, ""}};
    snapshot.captions = CaptionDocument{};
    snapshot.captions->cues = {{Uuid::random(), ms(0), ms(1'000), "字幕", {}, {{"字幕", 1}}}};
    CanvasState portrait;
    portrait.aspectRatio = CanvasAspectRatio::portrait9x16;
    portrait.padding = 0.1;
    const SceneEvaluator evaluator(snapshot, portrait);
    EXPECT_EQ(evaluator.defaultVisualEdits().canvas, portrait);

    const SceneState state = evaluator.evaluate(ms(500), evaluator.defaultVisualEdits());
    ASSERT_TRUE(state.motionBlurCamera && state.webcam && state.clickEffect && state.caption);
    ASSERT_EQ(state.annotations.size(), 1u);
    EXPECT_EQ(json::decodeDocument<SceneState>(json::encodeDocument(state)), state);

    const SceneState still = evaluator.evaluate(ms(4'000), evaluator.defaultVisualEdits(), std::nullopt);
    EXPECT_EQ(json::decodeDocument<SceneState>(json::encodeDocument(still)), still);
}

} // namespace
} // namespace rilo

#include "project/engine/TimelineEffectEngine.h"
#include "support/Thrown.h"

#include <cmath>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace rilo {
namespace {

using Case = TimelineEffectError::Case;

constexpr ProjectTime tenSeconds = ProjectTime::fromSeconds(10);
constexpr std::int64_t oneSecond = 1'000'000'000;

void expectFailure(const EditTimeline& timeline, Case expected) {
    EXPECT_EQ(testing::thrownCase<TimelineEffectError>(
                  [&] { TimelineEffectEngine::validate(timeline, tenSeconds); }),
              expected);
}

ZoomSegment zoom(std::int64_t start, std::int64_t end, double scale = 2, PointValue focus = {0.3, 0.6}) {
    const std::int64_t ramp = (end - start) / 4;
    return {Uuid::random(),
            ProjectTime{start},
            ProjectTime{start + ramp},
            ProjectTime{end - ramp},
            ProjectTime{end},
            TimelineEffectEngine::constrainedFocus(focus, scale),
            scale};
}

// A timeline with a webcam and these effects.
EditTimeline timelineWith(std::vector<ZoomSegment> zooms,
                          std::vector<WebcamFullscreenSegment> fullscreen = {},
                          std::vector<WebcamOverlayKeyframe> keyframes = {}) {
    EditTimeline timeline;
    timeline.webcamOverlay = WebcamOverlay::defaultValue();
    timeline.zooms = std::move(zooms);
    timeline.webcamFullscreenSegments = std::move(fullscreen);
    timeline.webcamKeyframes = std::move(keyframes);
    return timeline;
}

WebcamFullscreenSegment fullscreen(std::int64_t start, std::int64_t end) {
    return {Uuid::random(), ProjectTime{start}, ProjectTime{end}};
}

WebcamOverlayKeyframe keyframe(std::int64_t time, PointValue center = {0.5, 0.5}, double diameter = 0.2) {
    return {Uuid::random(), ProjectTime{time}, center, diameter};
}

TEST(TimelineEffectZooms, ZoomsMayTouchButNotOverlapAndTheirFocusKeepsTheWindowInside) {
    using TimelineEffectEngine::constrainedFocus;
    EXPECT_EQ(constrainedFocus({0.1, 0.9}, 2), (PointValue{0.25, 0.75}));
    EXPECT_EQ(constrainedFocus({0.3, 0.6}, 2), (PointValue{0.3, 0.6}));
    // Without magnification there is only one window: the whole frame.
    for (double scale : {1.0, 0.5, static_cast<double>(NAN)}) {
        EXPECT_EQ(constrainedFocus({0.1, 0.9}, scale), (PointValue{0.5, 0.5})) << scale;
    }

    EXPECT_NO_THROW(TimelineEffectEngine::validate(
        timelineWith({zoom(2 * oneSecond, 3 * oneSecond), zoom(oneSecond, 2 * oneSecond)}), tenSeconds));
    expectFailure(timelineWith({zoom(oneSecond, 2 * oneSecond), zoom(2 * oneSecond - 1, 3 * oneSecond)}),
                  Case::zoomOverlap);

    // All writers go through constrainedFocus; anything else is refused.
    ZoomSegment atEdge = zoom(0, oneSecond, 2, {0, 0});
    EXPECT_NO_THROW(TimelineEffectEngine::validate(timelineWith({atEdge}), tenSeconds));
    atEdge.focusPoint.x = std::nextafter(0.25, 0.0);
    expectFailure(timelineWith({atEdge}), Case::zoomRangeInvalid);

    ZoomSegment unzoomed = zoom(0, oneSecond, 1, {0.5, 0.5});
    unzoomed.focusPoint.y = std::nextafter(0.5, 1.0);
    expectFailure(timelineWith({unzoomed}), Case::zoomRangeInvalid);
}

TEST(TimelineEffectZooms, EachZoomLiesInsideTheSourceInItsOwnOrder) {
    const std::int64_t frame = TimelineFrameGrid::minimumDuration.nanoseconds;
    EXPECT_NO_THROW(TimelineEffectEngine::validate(
        timelineWith({zoom(0, frame, 1, {0.5, 0.5}), zoom(9 * oneSecond, 10 * oneSecond, 3)}), tenSeconds));

    const struct {
        std::string name;
        std::function<void(ZoomSegment&)> spoil;
    } examples[] = {
        {"negative start", [](ZoomSegment& z) { z.startTime = ProjectTime{-1}; }},
        {"end after source", [](ZoomSegment& z) { z.endTime = ProjectTime{tenSeconds.nanoseconds + 1}; }},
        {"shorter than a frame", [&](ZoomSegment& z) { z = zoom(0, frame - 1); }},
        {"focus before start",
         [](ZoomSegment& z) { z.focusTime = ProjectTime{z.startTime.nanoseconds - 1}; }},
        {"hold after end", [](ZoomSegment& z) { z.holdEndTime = ProjectTime{z.endTime.nanoseconds + 1}; }},
        {"scale above 3", [](ZoomSegment& z) { z = zoom(oneSecond, 2 * oneSecond, 3.0001); }},
        {"scale below 1", [](ZoomSegment& z) { z.scale = 0.99; }},
    };
    for (const auto& example : examples) {
        SCOPED_TRACE(example.name);
        ZoomSegment spoiled = zoom(oneSecond, 2 * oneSecond);
        example.spoil(spoiled);
        expectFailure(timelineWith({spoiled}), Case::zoomRangeInvalid);
    }

    ZoomSegment duplicate = zoom(5 * oneSecond, 6 * oneSecond);
    const ZoomSegment original = zoom(oneSecond, 2 * oneSecond);
    duplicate.id = original.id;
    expectFailure(timelineWith({original, duplicate}), Case::zoomRangeInvalid);
}

TEST(TimelineEffectFullscreen, TwoFramesAtLeastNeverOverlappingAndOnlyWithAWebcam) {
    const std::int64_t twoFrames = TimelineEffectEngine::minimumWebcamFullscreenDuration.nanoseconds;
    EXPECT_NO_THROW(TimelineEffectEngine::validate(
        timelineWith({}, {fullscreen(0, twoFrames), fullscreen(twoFrames, tenSeconds.nanoseconds)}),
        tenSeconds));
    expectFailure(timelineWith({}, {fullscreen(0, twoFrames - 1)}), Case::webcamFullscreenRangeInvalid);
    expectFailure(timelineWith({}, {fullscreen(-1, oneSecond)}), Case::webcamFullscreenRangeInvalid);
    expectFailure(timelineWith({}, {fullscreen(9 * oneSecond, tenSeconds.nanoseconds + 1)}),
                  Case::webcamFullscreenRangeInvalid);
    expectFailure(
        timelineWith({}, {fullscreen(2 * oneSecond, 3 * oneSecond), fullscreen(0, 2 * oneSecond + 1)}),
        Case::webcamFullscreenOverlap);

    WebcamFullscreenSegment duplicate = fullscreen(5 * oneSecond, 6 * oneSecond);
    const WebcamFullscreenSegment original = fullscreen(0, oneSecond);
    duplicate.id = original.id;
    expectFailure(timelineWith({}, {original, duplicate}), Case::webcamFullscreenRangeInvalid);

    EditTimeline withoutWebcam = timelineWith({}, {original});
    withoutWebcam.webcamOverlay.reset();
    expectFailure(withoutWebcam, Case::webcamFullscreenRangeInvalid);
}

TEST(TimelineEffectKeyframes, InsideTheSourceUniqueWithSizeAndPositionInRange) {
    EXPECT_NO_THROW(TimelineEffectEngine::validate(
        timelineWith({}, {}, {keyframe(0, {0, 1}, 0.1), keyframe(tenSeconds.nanoseconds - 1, {1, 0}, 0.4)}),
        tenSeconds));
    expectFailure(timelineWith({}, {}, {keyframe(tenSeconds.nanoseconds)}), Case::keyframeOutsideSource);
    expectFailure(timelineWith({}, {}, {keyframe(-1)}), Case::keyframeOutsideSource);

    const WebcamOverlayKeyframe first = keyframe(0);
    WebcamOverlayKeyframe sameID = keyframe(oneSecond);
    sameID.id = first.id;
    const std::vector<std::vector<WebcamOverlayKeyframe>> examples = {
        {first, keyframe(0)},
        {first, sameID},
        {keyframe(0, {0.5, 0.5}, 0.09)},
        {keyframe(0, {0.5, 0.5}, NAN)},
        {keyframe(0, {1.01, 0.5})},
    };
    for (std::size_t index = 0; index < examples.size(); ++index) {
        SCOPED_TRACE(index);
        expectFailure(timelineWith({}, {}, examples[index]), Case::keyframeInvalid);
    }
}

} // namespace
} // namespace rilo

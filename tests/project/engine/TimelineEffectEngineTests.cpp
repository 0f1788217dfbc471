#include "project/engine/TimelineEffectEngine.h"
#include "support/Thrown.h"
#include "support/TimelineBuilders.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <vector>

namespace rilo {
namespace {

namespace Effects = TimelineEffectEngine;
using Case = TimelineEffectError::Case;

constexpr ProjectTime tenSeconds = ProjectTime::fromSeconds(10);
constexpr ProjectTime frameLength = TimelineFrameGrid::minimumDuration;
constexpr std::int64_t riseNanoseconds = 650'000'000;
constexpr std::int64_t fallNanoseconds = 500'000'000;

using testing::between;
using testing::ms;

std::optional<Case> failureOf(const std::function<void()>& operation) {
    return testing::thrownCase<TimelineEffectError>(operation);
}

void expectFailure(const EditTimeline& timeline, Case expected,
                   const std::function<EditTimeline(const EditTimeline&)>& operation) {
    EXPECT_EQ(failureOf([&] { operation(timeline); }), expected);
}

EditTimeline withZoomsAt(const std::vector<std::pair<std::int64_t, std::int64_t>>& rangesInMilliseconds) {
    EditTimeline timeline;
    for (const auto& [start, end] : rangesInMilliseconds) {
        timeline = Effects::addZoom(timeline, between(ms(start), ms(end)), {0.3, 0.6}, 2, tenSeconds,
                                    riseNanoseconds, fallNanoseconds);
    }
    return timeline;
}

std::int64_t riseOf(const ZoomSegment& zoom) {
    return (zoom.focusTime - zoom.startTime).nanoseconds;
}

std::int64_t fallOf(const ZoomSegment& zoom) {
    return (zoom.endTime - zoom.holdEndTime).nanoseconds;
}

void expectNear(PointValue actual, PointValue expected) {
    EXPECT_DOUBLE_EQ(actual.x, expected.x);
    EXPECT_DOUBLE_EQ(actual.y, expected.y);
}

const ZoomSegment& zoomWithID(const EditTimeline& timeline, const Uuid& id) {
    const auto found = std::find_if(timeline.zooms.begin(), timeline.zooms.end(),
                                    [&](const ZoomSegment& zoom) { return zoom.id == id; });
    EXPECT_NE(found, timeline.zooms.end());
    return *found;
}

// ---- Building and adding zooms ----

TEST(TimelineEffectZoomBuilding, SnapsTheRangeFitsRiseAndFallAndRefusesRangesOutsideTheSource) {
    // 1,004 ms snaps back to frame 60, 3,010 ms on to frame 181.
    const ZoomSegment zoom = Effects::normalizedZoom(between(ms(1004), ms(3010)), {0.1, 0.9}, 2, tenSeconds,
                                                     riseNanoseconds, fallNanoseconds);
    EXPECT_EQ(zoom.startTime, TimelineFrameGrid::boundaryForFrame(60));
    EXPECT_EQ(zoom.endTime, TimelineFrameGrid::boundaryForFrame(181));
    EXPECT_EQ(zoom.focusPoint, (PointValue{0.25, 0.75}));

    struct Row {
        std::int64_t lengthMilliseconds, rise, fall, expectedRise, expectedFall;
    };
    const std::vector<Row> rows = {
        {2000, riseNanoseconds, fallNanoseconds, riseNanoseconds, fallNanoseconds},
        {1000, riseNanoseconds, fallNanoseconds, riseNanoseconds, 350'000'000}, // the rise first
        {500, 2'000'000'000, -5, 500'000'000, 0},
        {500, -1, 0, 0, 0},
    };
    for (const Row& row : rows) {
        const ZoomSegment built = Effects::normalizedZoom(between(ms(0), ms(row.lengthMilliseconds)),
                                                          {0.5, 0.5}, 2, tenSeconds, row.rise, row.fall);
        EXPECT_EQ(riseOf(built), row.expectedRise) << row.lengthMilliseconds;
        EXPECT_EQ(fallOf(built), row.expectedFall) << row.lengthMilliseconds;
    }

    const auto build = [](ProjectTimeRange range, double scale = 2) {
        return failureOf([&] {
            Effects::normalizedZoom(range, {0.5, 0.5}, scale, tenSeconds, riseNanoseconds, fallNanoseconds);
        });
    };
    // Snapping decides: -8 ms rounds to 0, -9 ms to frame -1.
    EXPECT_EQ(build(between(ms(-8), ms(1000))), std::nullopt);
    EXPECT_EQ(build(between(ms(-9), ms(1000))), Case::zoomRangeInvalid);
    EXPECT_EQ(build(between(ms(9000), ms(10'009))), Case::zoomRangeInvalid);
    // Exactly one frame passes; a range that snaps to nothing does not.
    EXPECT_EQ(build(between(ProjectTime{0}, frameLength)), std::nullopt);
    EXPECT_EQ(build(between(ms(100), ms(105))), Case::zoomRangeInvalid);
    // An overflowing range is refused, not a fault.
    EXPECT_EQ(build({ProjectTime{INT64_MIN}, ProjectTime{INT64_MAX}}), Case::zoomRangeInvalid);
    EXPECT_EQ(build(between(ms(0), ms(1000)), NAN), Case::zoomRangeInvalid);
}

TEST(TimelineEffectZoomList, AddsInStartOrderRemovesByIndexIdOrAllAndReplacesSorted) {
    EditTimeline timeline = withZoomsAt({{6000, 7000}, {1000, 2000}, {2000, 3000}});
    ASSERT_EQ(timeline.zooms.size(), 3u);
    EXPECT_EQ(timeline.zooms[0].startTime, ms(1000));
    EXPECT_EQ(timeline.zooms[1].startTime, ms(2000)); // touching is allowed
    expectFailure(timeline, Case::zoomOverlap, [](const EditTimeline& t) {
        return Effects::addZoom(t, between(ms(5500), ms(6500)), {0.5, 0.5}, 2, tenSeconds, riseNanoseconds,
                                fallNanoseconds);
    });

    std::reverse(timeline.zooms.begin(), timeline.zooms.end());
    const EditTimeline byIndex = Effects::removeZoom(timeline, std::int64_t{0}, tenSeconds);
    EXPECT_EQ(byIndex.zooms, (std::vector<ZoomSegment>{timeline.zooms[1], timeline.zooms[0]}));
    for (const std::int64_t index : {std::int64_t{-1}, std::int64_t{3}}) {
        expectFailure(timeline, Case::zoomIndexInvalid,
                      [index](const EditTimeline& t) { return Effects::removeZoom(t, index, tenSeconds); });
    }
    const EditTimeline byId = Effects::removeZoom(timeline, timeline.zooms[1].id, tenSeconds);
    EXPECT_EQ(byId.zooms, (std::vector<ZoomSegment>{timeline.zooms[2], timeline.zooms[0]}));
    EXPECT_TRUE(Effects::removeAllZooms(timeline, tenSeconds).zooms.empty());

    // Replacing sorts and validates.
    const EditTimeline single = withZoomsAt({{1000, 2000}});
    std::vector<ZoomSegment> replacement = withZoomsAt({{3000, 4000}, {500, 1500}}).zooms;
    std::reverse(replacement.begin(), replacement.end());

    const EditTimeline replaced = Effects::replaceZooms(single, replacement, tenSeconds);
    ASSERT_EQ(replaced.zooms.size(), 2u);
    EXPECT_EQ(replaced.zooms[0].startTime, ms(500));
    EXPECT_EQ(replaced.zooms[1].startTime, ms(3000));

    std::vector<ZoomSegment> colliding = replacement;
    colliding.push_back(colliding.front());
    colliding.back().id = Uuid::random();
    expectFailure(single, Case::zoomOverlap,
                  [&](const EditTimeline& t) { return Effects::replaceZooms(t, colliding, tenSeconds); });
}

TEST(TimelineEffectZoomComparison, IgnoresIdsAndOrderButNotShape) {
    const std::vector<ZoomSegment> zooms = withZoomsAt({{1000, 2000}, {3000, 4000}}).zooms;
    std::vector<ZoomSegment> same = withZoomsAt({{3000, 4000}, {1000, 2000}}).zooms;
    std::reverse(same.begin(), same.end());
    ASSERT_NE(same[0].id, zooms[0].id);
    EXPECT_TRUE(Effects::hasSameZoomConfiguration(zooms, same));

    const std::vector<std::function<void(ZoomSegment&)>> changes = {
        [](ZoomSegment& z) { z.scale = 2.5; },
        [](ZoomSegment& z) { z.focusPoint.x = 0.31; },
        [](ZoomSegment& z) { z.focusTime = z.focusTime + ProjectTime{1}; },
        [](ZoomSegment& z) { z.holdEndTime = z.holdEndTime - ProjectTime{1}; },
        [](ZoomSegment& z) { z.endTime = z.endTime + ProjectTime{1}; },
    };
    for (const auto& change : changes) {
        std::vector<ZoomSegment> different = zooms;
        change(different[1]);
        EXPECT_FALSE(Effects::hasSameZoomConfiguration(zooms, different));
    }
    EXPECT_FALSE(Effects::hasSameZoomConfiguration(zooms, {zooms[0]}));
}

// ---- Dragging zoom boundaries ----

TEST(TimelineEffectZoomDragging, AStartDraggedOverThePreviousZoomStopsAtItsEnd) {
    EditTimeline timeline = withZoomsAt({{1000, 2000}, {3000, 5000}});
    // A previous end off the grid: the start stops at the next boundary.
    timeline.zooms[0].endTime = ProjectTime{2'000'000'005};
    const Uuid id = timeline.zooms[1].id;

    const EditTimeline dragged = Effects::updateZoomStart(timeline, id, ms(1500), tenSeconds);
    const ZoomSegment& zoom = zoomWithID(dragged, id);
    EXPECT_EQ(zoom.startTime, TimelineFrameGrid::ceilingBoundary(ProjectTime{2'000'000'005}));
    EXPECT_GE(zoom.startTime, dragged.zooms[0].endTime);
    EXPECT_EQ(zoom.endTime, ms(5000));
    // The ramps fit, so they keep their lengths.
    EXPECT_EQ(riseOf(zoom), riseNanoseconds);
    EXPECT_EQ(fallOf(zoom), fallNanoseconds);
}

TEST(TimelineEffectZoomDragging, BoundariesKeepAtLeastOneFrameAndScaleAndFocusStayConstrained) {
    const EditTimeline timeline = withZoomsAt({{3000, 5000}});
    const Uuid id = timeline.zooms[0].id;

    // Dragging the start past the end stops one frame (floored) before it.
    const ZoomSegment start = Effects::updateZoomStart(timeline, id, ms(9000), tenSeconds).zooms[0];
    EXPECT_EQ(start.startTime, TimelineFrameGrid::floorBoundary(ms(5000) - frameLength));
    const std::int64_t total = (start.endTime - start.startTime).nanoseconds;
    EXPECT_EQ(riseOf(start) + fallOf(start), total);
    EXPECT_NEAR(static_cast<double>(riseOf(start)), total * 650.0 / 1150.0, 1);

    // Dragging the end before the start stops one frame after it.
    const ZoomSegment end = Effects::updateZoomEnd(timeline, id, ms(100), tenSeconds).zooms[0];
    EXPECT_EQ(end.endTime, ms(3000) + frameLength);
    EXPECT_LE(end.focusTime, end.holdEndTime);

    // Scale and focus stay constrained.
    const ZoomSegment deeper = Effects::updateZoomScale(timeline, id, 9, tenSeconds).zooms[0];
    EXPECT_EQ(deeper.scale, 3);
    EXPECT_EQ(deeper.focusPoint, (PointValue{0.3, 0.6}));
    EXPECT_EQ(Effects::updateZoomScale(timeline, id, 0, tenSeconds).zooms[0].focusPoint,
              (PointValue{0.5, 0.5}));

    const ZoomSegment corner = Effects::updateZoomFocus(timeline, id, {-1, 2}, tenSeconds).zooms[0];
    EXPECT_EQ(corner.focusPoint, (PointValue{0.25, 0.75}));
}

TEST(TimelineEffectZoomDragging, EndsAndMovesStopAtNeighboursAndTheSource) {
    const EditTimeline timeline = withZoomsAt({{1000, 2000}, {3000, 5000}, {6000, 7000}});
    const auto zoomAfter = [&](std::size_t index, const auto& operation, std::int64_t milliseconds) {
        const Uuid id = timeline.zooms[index].id;
        return zoomWithID(operation(timeline, id, ms(milliseconds), tenSeconds), id);
    };
    const auto move = Effects::moveZoom;
    const auto updateEnd = Effects::updateZoomEnd;

    const ZoomSegment free = zoomAfter(1, move, 3500);
    EXPECT_EQ(free.startTime, ms(3500));
    EXPECT_EQ(free.endTime, ms(5500));
    EXPECT_EQ(riseOf(free), riseNanoseconds);
    EXPECT_EQ(fallOf(free), fallNanoseconds);

    EXPECT_EQ(zoomAfter(1, move, 0).startTime, ms(2000));
    EXPECT_EQ(zoomAfter(1, move, 9000).endTime, ms(6000));
    EXPECT_EQ(zoomAfter(2, move, 9500).endTime, tenSeconds);
    EXPECT_EQ(zoomAfter(0, move, -3000).startTime, ProjectTime::zero());
    EXPECT_EQ(zoomAfter(0, updateEnd, 4500).endTime, ms(3000));
    EXPECT_EQ(zoomAfter(2, updateEnd, 12'000).endTime, tenSeconds);
}

// ---- Webcam full screen ----

EditTimeline withWebcam() {
    EditTimeline timeline;
    timeline.webcamOverlay = WebcamOverlay::defaultValue();
    return timeline;
}

EditTimeline
withFullscreenAt(const std::vector<std::pair<std::int64_t, std::int64_t>>& rangesInMilliseconds) {
    EditTimeline timeline = withWebcam();
    for (const auto& [start, end] : rangesInMilliseconds) {
        timeline = Effects::addWebcamFullscreen(timeline, between(ms(start), ms(end)), tenSeconds);
    }
    return timeline;
}

TEST(TimelineEffectWebcamFullscreen, NeedsTwoFramesAWebcamAndKeepsStartOrder) {
    const EditTimeline added =
        Effects::addWebcamFullscreen(withWebcam(), between(ms(0), frameLength * 2), tenSeconds);
    ASSERT_EQ(added.webcamFullscreenSegments.size(), 1u);
    EXPECT_EQ(added.webcamFullscreenSegments[0].endTime, TimelineFrameGrid::boundaryForFrame(2));

    const auto add = [](ProjectTimeRange range) {
        return [range](const EditTimeline& t) { return Effects::addWebcamFullscreen(t, range, tenSeconds); };
    };
    expectFailure(withWebcam(), Case::webcamFullscreenRangeInvalid, add(between(ms(0), frameLength)));
    expectFailure(withWebcam(), Case::webcamFullscreenRangeInvalid, add(between(ms(9000), ms(10'100))));
    expectFailure(EditTimeline{}, Case::webcamFullscreenRangeInvalid, add(between(ms(0), ms(1000))));
    expectFailure(added, Case::webcamFullscreenOverlap, add(between(ms(20), ms(1000))));

    const EditTimeline timeline = withFullscreenAt({{5000, 6000}, {1000, 2000}});
    EXPECT_EQ(timeline.webcamFullscreenSegments[0].startTime, ms(1000));
    const EditTimeline removed =
        Effects::removeWebcamFullscreen(timeline, timeline.webcamFullscreenSegments[0].id, tenSeconds);
    EXPECT_EQ(removed.webcamFullscreenSegments,
              std::vector<WebcamFullscreenSegment>{timeline.webcamFullscreenSegments[1]});
}

TEST(TimelineEffectWebcamFullscreen, DragsStopAtNeighboursAndAtTwoFrames) {
    const EditTimeline timeline = withFullscreenAt({{1000, 2000}, {3000, 4000}, {7000, 8000}});
    const Uuid middle = timeline.webcamFullscreenSegments[1].id;
    const auto middleAfter = [&](const auto& operation, std::int64_t milliseconds) {
        return operation(timeline, middle, ms(milliseconds), tenSeconds).webcamFullscreenSegments[1];
    };
    const ProjectTime minimum = Effects::minimumWebcamFullscreenDuration;

    EXPECT_EQ(middleAfter(Effects::moveWebcamFullscreen, 0).endTime, ms(3000));
    EXPECT_EQ(middleAfter(Effects::moveWebcamFullscreen, 6800).endTime, ms(7000));
    EXPECT_EQ(middleAfter(Effects::updateWebcamFullscreenStart, 1500).startTime, ms(2000));
    EXPECT_EQ(middleAfter(Effects::updateWebcamFullscreenStart, 3990).startTime,
              TimelineFrameGrid::floorBoundary(ms(4000) - minimum));
    EXPECT_EQ(middleAfter(Effects::updateWebcamFullscreenEnd, 9000).endTime, ms(7000));
    EXPECT_EQ(middleAfter(Effects::updateWebcamFullscreenEnd, 0).endTime,
              TimelineFrameGrid::ceilingBoundary(ms(3000) + minimum));
}

TEST(TimelineEffectIds, AnUnknownIdIsNotFound) {
    // The updates of each kind share one lookup; removal has its own.
    EditTimeline timeline = withFullscreenAt({{1000, 2000}});
    timeline.zooms = withZoomsAt({{1000, 2000}}).zooms;
    const Uuid unknown = Uuid::random();
    expectFailure(timeline, Case::zoomNotFound,
                  [&](auto& t) { return Effects::updateZoomScale(t, unknown, 2, tenSeconds); });
    expectFailure(timeline, Case::zoomNotFound,
                  [&](auto& t) { return Effects::removeZoom(t, unknown, tenSeconds); });
    expectFailure(timeline, Case::webcamFullscreenNotFound,
                  [&](auto& t) { return Effects::moveWebcamFullscreen(t, unknown, ms(0), tenSeconds); });
    expectFailure(timeline, Case::webcamFullscreenNotFound,
                  [&](auto& t) { return Effects::removeWebcamFullscreen(t, unknown, tenSeconds); });
}

// ---- Webcam geometry ----

constexpr double landscape = 16.0 / 9.0;
constexpr double portrait = 9.0 / 16.0;

TEST(TimelineEffectWebcamGeometry, RadiiMeasureAgainstTheShorterCanvasSide) {
    const Effects::WebcamHalfExtents wide = Effects::webcamRadii(0.22, landscape, 1);
    EXPECT_DOUBLE_EQ(wide.horizontal, portrait * 0.11);
    EXPECT_DOUBLE_EQ(wide.vertical, 0.11);

    const Effects::WebcamHalfExtents tall = Effects::webcamRadii(0.22, portrait, landscape);
    EXPECT_DOUBLE_EQ(tall.horizontal, landscape * 0.11);
    EXPECT_DOUBLE_EQ(tall.vertical, portrait * 0.11);

    EXPECT_EQ(Effects::webcamRadii(3, 1, 1), (Effects::WebcamHalfExtents{0.2, 0.2}));
    const Effects::WebcamHalfExtents degenerate = Effects::webcamRadii(0.2, 0, -3);
    EXPECT_DOUBLE_EQ(degenerate.horizontal, 0.01 * 0.1);
    EXPECT_DOUBLE_EQ(degenerate.vertical, 0.01 * 0.1);

    expectNear(Effects::constrainedWebcamCenter({0, 1}, 0.22, landscape, 1), {portrait * 0.11, 1 - 0.11});
    EXPECT_EQ(Effects::constrainedWebcamCenter({0.4, 0.6}, 0.22, landscape, 1), (PointValue{0.4, 0.6}));

    // The base alone, without keyframes, is clamped and kept on the canvas.
    WebcamOverlay base = WebcamOverlay::defaultValue();
    base.center = {0, 0};
    base.diameter = 0.9;
    const WebcamOverlay overlay = *Effects::webcamOverlay(base, {}, ms(0), landscape);
    EXPECT_EQ(overlay.diameter, 0.4);
    expectNear(overlay.center, {portrait * 0.2, 0.2});
}

EditTimeline withKeyframes(std::vector<WebcamOverlayKeyframe> keyframes) {
    EditTimeline timeline = withWebcam();
    timeline.webcamOverlay->isMirrored = false;
    timeline.webcamOverlay->center = {0.5, 0.5};
    timeline.webcamOverlay->diameter = 0.2;
    timeline.webcamKeyframes = std::move(keyframes);
    return timeline;
}

TEST(TimelineEffectWebcamGeometry, TheOverlayFollowsItsKeyframesWithEasing) {
    const EditTimeline timeline = withKeyframes({
        {Uuid::random(), ms(3000), {0.6, 0.7}, 0.3},
        {Uuid::random(), ms(1000), {0.2, 0.3}, 0.2},
    });
    const auto at = [&](std::int64_t milliseconds) {
        return *Effects::webcamOverlay(timeline.webcamOverlay, timeline.webcamKeyframes, ms(milliseconds),
                                       landscape);
    };
    EXPECT_EQ(at(0).center, (PointValue{0.2, 0.3}));
    EXPECT_EQ(at(9000).center, (PointValue{0.6, 0.7}));

    const WebcamOverlay middle = at(2000);
    EXPECT_DOUBLE_EQ(middle.center.x, 0.4);
    EXPECT_DOUBLE_EQ(middle.center.y, 0.5);
    EXPECT_DOUBLE_EQ(middle.diameter, 0.25);
    EXPECT_FALSE(middle.isMirrored); // the rest of the base stays

    // A quarter of the way, the smoothstep has covered 5/32.
    EXPECT_DOUBLE_EQ(at(1500).center.x, 0.2 + 0.4 * 5.0 / 32.0);

    EXPECT_FALSE(Effects::webcamOverlay(std::nullopt, timeline.webcamKeyframes, ms(0), landscape));
}

TEST(TimelineEffectWebcamGeometry, MovingShiftsTheWholePathAsFarAsItFits) {
    const double leftEdge = Effects::webcamRadii(0.22, landscape, 1).horizontal;
    const EditTimeline timeline = withKeyframes({
        {Uuid::random(), ms(1000), {leftEdge, 0.5}, 0.22},
        {Uuid::random(), ms(3000), {0.5, 0.5}, 0.22},
    });

    // One keyframe already at the left edge: no shift to the left at all.
    EXPECT_EQ(Effects::moveWebcamGlobally(timeline, ms(3000), {0.2, 0.5}, landscape), timeline);

    const EditTimeline shifted = Effects::moveWebcamGlobally(timeline, ms(3000), {0.7, 0.6}, landscape);
    EXPECT_DOUBLE_EQ(shifted.webcamKeyframes[0].center.x, leftEdge + 0.2);
    EXPECT_DOUBLE_EQ(shifted.webcamOverlay->center.x, 0.7);

    // Far right: the keyframes nearest the right edge stop there.
    const EditTimeline right = Effects::moveWebcamGlobally(timeline, ms(3000), {1, 0.5}, landscape);
    EXPECT_DOUBLE_EQ(right.webcamKeyframes[1].center.x, 1 - leftEdge);
    EXPECT_DOUBLE_EQ(right.webcamKeyframes[0].center.x, leftEdge + (1 - leftEdge - 0.5));

    EXPECT_EQ(Effects::moveWebcamGlobally(timeline, ms(0), {NAN, 0.2}, landscape), timeline);
}

TEST(TimelineEffectWebcamGeometry, ResizingScalesEveryDiameterAndKeepsCentersOnTheCanvas) {
    const EditTimeline timeline = withKeyframes({{Uuid::random(), ms(1000), {0.9, 0.9}, 0.3}});
    const EditTimeline smaller = Effects::resizeWebcamGlobally(timeline, ms(1000), 0.15, landscape);
    EXPECT_DOUBLE_EQ(smaller.webcamKeyframes[0].diameter, 0.15);
    EXPECT_DOUBLE_EQ(smaller.webcamOverlay->diameter, 0.1);

    // The keyframe is already large: its growth is cut at 0.4 and its
    // center pulled inside.
    const EditTimeline larger = Effects::resizeWebcamGlobally(timeline, ms(1000), 1, landscape);
    EXPECT_DOUBLE_EQ(larger.webcamKeyframes[0].diameter, 0.4);
    EXPECT_DOUBLE_EQ(larger.webcamOverlay->diameter, 0.4 / 0.3 * 0.2);
    expectNear(larger.webcamKeyframes[0].center, {1 - portrait * 0.2, 1 - 0.2});
}

TEST(TimelineEffectWebcamKeyframes, UpsertAddsOrUpdatesTheKeyframeOfAFrameInsideTheSource) {
    const EditTimeline timeline = withKeyframes({});
    const EditTimeline one =
        Effects::upsertWebcamKeyframe(timeline, ms(1004), {0.3, 0.4}, 0.25, tenSeconds, landscape);
    ASSERT_EQ(one.webcamKeyframes.size(), 1u);
    EXPECT_EQ(one.webcamKeyframes[0].time, ms(1000));

    // The same frame again: updated in place, the id kept.
    const EditTimeline updated =
        Effects::upsertWebcamKeyframe(one, ms(998), {0.6, 0.4}, 0.9, tenSeconds, landscape);
    ASSERT_EQ(updated.webcamKeyframes.size(), 1u);
    EXPECT_EQ(updated.webcamKeyframes[0].id, one.webcamKeyframes[0].id);
    EXPECT_EQ(updated.webcamKeyframes[0].diameter, 0.4);

    const EditTimeline two =
        Effects::upsertWebcamKeyframe(updated, ms(500), {0, 0}, 0.2, tenSeconds, landscape);
    ASSERT_EQ(two.webcamKeyframes.size(), 2u);
    expectNear(two.webcamKeyframes[0].center, {portrait * 0.1, 0.1});

    const EditTimeline removed = Effects::removeWebcamKeyframe(two, two.webcamKeyframes[0].id);
    EXPECT_EQ(removed.webcamKeyframes, std::vector<WebcamOverlayKeyframe>{two.webcamKeyframes[1]});
    EXPECT_EQ(Effects::removeWebcamKeyframe(two, Uuid::random()), two);

    // Times outside the source and placements without a webcam are refused.
    const auto upsert = [](ProjectTime time, double diameter) {
        return [=](const EditTimeline& t) {
            return Effects::upsertWebcamKeyframe(t, time, {0.5, 0.5}, diameter, tenSeconds, landscape);
        };
    };
    expectFailure(one, Case::keyframeOutsideSource, upsert(tenSeconds, 0.2));
    expectFailure(one, Case::keyframeOutsideSource, upsert(ProjectTime{-1}, 0.2));
    expectFailure(one, Case::keyframeInvalid, upsert(ms(0), INFINITY));
    expectFailure(EditTimeline{}, Case::keyframeInvalid, upsert(ms(0), 0.2));
}

} // namespace
} // namespace rilo

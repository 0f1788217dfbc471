#include "project/document/TimelineEffectError.h"
#include "project/engine/TimelineEditError.h"
#include "project/engine/TimelineEffectEngine.h"
#include "project/engine/TimelinePlanEngine.h"
#include "project/engine/TimelineSettingsError.h"
#include "project/engine/TimelineSpeedError.h"
#include "support/Thrown.h"
#include "support/TimelineBuilders.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace rilo {
namespace {

using testing::ms;
using testing::thrownCase;
using testing::timelineOf;

ProjectTimeRange span(std::int64_t startMilliseconds, std::int64_t endMilliseconds) {
    return testing::between(ms(startMilliseconds), ms(endMilliseconds));
}

constexpr ProjectTime sourceDuration = ms(20'000);
const PixelSize sourceSize{1920, 1080};

TimelineSegment segment(std::int64_t startMilliseconds, std::int64_t endMilliseconds) {
    return testing::segment(ms(startMilliseconds), ms(endMilliseconds));
}

// A zoom as an editor stores it: rising for 650 ms, falling for 500 ms.
ZoomSegment zoom(std::int64_t startMilliseconds, std::int64_t endMilliseconds, PointValue focus = {0.4, 0.6},
                 double scale = 2) {
    return {Uuid::random(),
            ms(startMilliseconds),
            ms(startMilliseconds + 650),
            ms(endMilliseconds - 500),
            ms(endMilliseconds),
            TimelineEffectEngine::constrainedFocus(focus, scale),
            scale};
}

TimelinePlanResult applyPlan(const TimelineEditPlan& plan, const EditTimeline& timeline,
                             const std::vector<MouseEvent>& clicks = {}) {
    return TimelinePlanEngine::apply(plan, timeline, sourceDuration, false, sourceSize, clicks);
}

TimelineEditPlan cutting(std::vector<ProjectTimeRange> cuts) {
    TimelineEditPlan plan;
    plan.cuts = std::move(cuts);
    return plan;
}

TimelinePlanError planErrorOf(const TimelineEditPlan& plan, const EditTimeline& timeline,
                              const std::vector<MouseEvent>& clicks = {}) {
    const auto error = testing::thrown<TimelinePlanError>([&] { applyPlan(plan, timeline, clicks); });
    EXPECT_TRUE(error) << "the plan did not fail with TimelinePlanError";
    return error.value_or(TimelinePlanError(TimelinePlanError::Case::empty));
}

void expectZoomTimes(const ZoomSegment& zoom, std::int64_t start, std::int64_t focus, std::int64_t holdEnd,
                     std::int64_t end) {
    EXPECT_EQ(zoom.startTime, ms(start));
    EXPECT_EQ(zoom.focusTime, ms(focus));
    EXPECT_EQ(zoom.holdEndTime, ms(holdEnd));
    EXPECT_EQ(zoom.endTime, ms(end));
}

std::string namespaceOf(const EditTimeline& timeline) {
    std::string text;
    for (const TimelineSegment& segment : timeline.segments) {
        text += (text.empty() ? "" : ":") + segment.id.string();
    }
    return text;
}

// ---- Merging cut ranges ----

TEST(TimelinePlanMergeTest, SnapsSortsAndMergesOverlappingAndTouchingRanges) {
    const std::vector<ProjectTimeRange> merged = TimelinePlanEngine::mergedRanges({
        span(8'000, 9'000),
        {ms(1'000) + ProjectTime{4'000'000}, ms(1'000)}, // 1.004 s to 2.004 s snaps to 1 s to 2 s
        span(2'000, 3'000),                              // touches the previous one
        span(2'500, 2'700),                              // inside: the end stays
        span(8'500, 10'000),                             // overlaps the first
    });
    EXPECT_EQ(merged, (std::vector<ProjectTimeRange>{span(1'000, 3'000), span(8'000, 10'000)}));
}

// ---- Counting operations ----

TEST(TimelinePlanEngineTest, PlanNeedsOneToFiveHundredOperationsAndItsCutsAreMergedAndRemoved) {
    const EditTimeline timeline = timelineOf({segment(0, 20'000)});
    EXPECT_EQ(planErrorOf(TimelineEditPlan{}, timeline).errorCase(), TimelinePlanError::Case::empty);

    std::vector<ProjectTimeRange> cuts;
    for (std::int64_t i = 0; i < 500; ++i) {
        cuts.push_back(span(1'000 + i, 2'000 + i));
    }
    TimelineEditPlan atLimit = cutting(cuts);
    const TimelinePlanResult merged = applyPlan(atLimit, timeline);
    EXPECT_EQ(merged.normalizedCutRanges, (std::vector<ProjectTimeRange>{span(1'000, 2'500)}));

    TimelineEditPlan overLimit = atLimit;
    overLimit.clearsZooms = true;
    EXPECT_EQ(planErrorOf(overLimit, timeline).errorCase(), TimelinePlanError::Case::tooManyOperations);

    // Cuts are merged and removed, but not inside removed content.
    const TimelinePlanResult result =
        applyPlan(cutting({span(9'000, 10'000), span(2'000, 3'000), span(2'500, 4'000)}), timeline);
    ASSERT_EQ(result.timeline.segments.size(), 3u);
    EXPECT_EQ(result.timeline.segments[0].sourceRange, span(0, 2'000));
    EXPECT_EQ(result.timeline.segments[1].sourceRange, span(4'000, 9'000));
    EXPECT_EQ(result.timeline.segments[2].sourceRange, span(10'000, 20'000));

    // A cut inside removed content is refused; one that reaches into retained
    // content is fine.
    const EditTimeline withGap = timelineOf({segment(0, 5'000), segment(10'000, 20'000)});
    EXPECT_EQ(planErrorOf(cutting({span(6'000, 8'000)}), withGap).errorCase(),
              TimelinePlanError::Case::cutOutsideRetainedContent);
    const TimelinePlanResult partly = applyPlan(cutting({span(6'000, 11'000)}), withGap);
    ASSERT_EQ(partly.timeline.segments.size(), 2u);
    EXPECT_EQ(partly.timeline.segments[1].sourceRange, span(11'000, 20'000));
}

// ---- Zoom reconciliation ----

TEST(TimelinePlanReconciliationTest, CutZoomsAreRemovedSplitOrTrimmedWithFreshRamps) {
    // Cut in the middle: three seconds are removed, six are split.
    const ZoomSegment shortZoom = zoom(2'000, 5'000);
    const ZoomSegment longZoom = zoom(6'000, 12'000, {0.1, 0.9}, 2.5);
    // Cut at the end: trimmed, and the old rise and fall are not kept.
    ZoomSegment trimmed = zoom(13'000, 19'000);
    trimmed.focusTime = ms(14'000);
    trimmed.holdEndTime = ms(17'000);
    const EditTimeline timeline = timelineOf({segment(0, 20'000)}, {shortZoom, longZoom, trimmed});
    const TimelinePlanResult result =
        applyPlan(cutting({span(3'000, 4'000), span(8'500, 9'500), span(18'000, 20'000)}), timeline);

    ASSERT_EQ(result.zoomReconciliations.size(), 3u);
    EXPECT_EQ(result.zoomReconciliations[0],
              (ZoomReconciliation{shortZoom.id, span(2'000, 5'000), ZoomReconciliationAction::removed, {}}));
    EXPECT_EQ(result.zoomReconciliations[1], (ZoomReconciliation{longZoom.id,
                                                                 span(6'000, 12'000),
                                                                 ZoomReconciliationAction::split,
                                                                 {span(6'000, 8'500), span(9'500, 12'000)}}));
    EXPECT_EQ(
        result.zoomReconciliations[2],
        (ZoomReconciliation{
            trimmed.id, span(13'000, 19'000), ZoomReconciliationAction::trimmed, {span(13'000, 18'000)}}));

    const auto& zooms = result.timeline.zooms;
    ASSERT_EQ(zooms.size(), 3u);
    expectZoomTimes(zooms[0], 6'000, 6'650, 8'000, 8'500);
    expectZoomTimes(zooms[1], 9'500, 10'150, 11'500, 12'000);
    EXPECT_EQ(zooms[1].scale, 2.5);
    EXPECT_EQ(zooms[1].focusPoint, longZoom.focusPoint);
    expectZoomTimes(zooms[2], 13'000, 13'650, 17'500, 18'000);
}

TEST(TimelinePlanReconciliationTest, ZoomsTheCutsDoNotTouchStayOutOfTheReport) {
    const ZoomSegment beside = zoom(2'000, 8'000);
    const ZoomSegment touchingCutStart = zoom(12'000, 15'000);
    // A zoom that already crosses a gap, far from the plan's cut.
    const ZoomSegment acrossGap = zoom(16'000, 18'500);
    const EditTimeline timeline =
        timelineOf({segment(0, 17'000), segment(17'500, 20'000)}, {beside, touchingCutStart, acrossGap});

    const TimelinePlanResult result = applyPlan(cutting({span(10'000, 12'000)}), timeline);
    EXPECT_TRUE(result.zoomReconciliations.empty());
    EXPECT_EQ(result.timeline.zooms, timeline.zooms);
}

TEST(TimelinePlanReconciliationTest, ZoomsAcrossAGapOrOffTheGridFailAPlanUnlessReconciled) {
    const ZoomSegment acrossGap = zoom(3'000, 9'000);
    // Auto zooms start wherever a click was; reconciliation snaps them.
    ZoomSegment offGrid = zoom(15'000, 18'000);
    offGrid.startTime = ms(15'000) + ProjectTime{1'234};
    const EditTimeline timeline =
        timelineOf({segment(0, 5'000), segment(6'000, 20'000)}, {acrossGap, zoom(12'000, 14'000), offGrid});

    TimelineEditPlan speedOnly;
    speedOnly.speedChanges = {{span(10'000, 12'000), {2000}}};
    const TimelinePlanError error = planErrorOf(speedOnly, timeline);
    EXPECT_EQ(error.errorCase(), TimelinePlanError::Case::zoomOutsideRetainedContent);
    EXPECT_EQ(error.range(), span(3'000, 9'000));
    EXPECT_EQ(error.zoomID(), acrossGap.id);
    EXPECT_TRUE(error.normalizedCuts().empty());

    TimelineEditPlan reconciled = speedOnly;
    reconciled.reconcilesZooms = true;
    const TimelinePlanResult result = applyPlan(reconciled, timeline);
    ASSERT_EQ(result.zoomReconciliations.size(), 3u);
    EXPECT_EQ(result.zoomReconciliations[0], (ZoomReconciliation{acrossGap.id,
                                                                 span(3'000, 9'000),
                                                                 ZoomReconciliationAction::split,
                                                                 {span(3'000, 5'000), span(6'000, 9'000)}}));
    // Wholly retained and on the grid: left as it was, with its id.
    EXPECT_EQ(result.zoomReconciliations[1], (ZoomReconciliation{timeline.zooms[1].id,
                                                                 span(12'000, 14'000),
                                                                 ZoomReconciliationAction::preserved,
                                                                 {span(12'000, 14'000)}}));
    EXPECT_EQ(result.zoomReconciliations[2].action, ZoomReconciliationAction::trimmed);
    ASSERT_EQ(result.timeline.zooms.size(), 4u);
    EXPECT_EQ(result.timeline.zooms[2], timeline.zooms[1]);
    expectZoomTimes(result.timeline.zooms[3], 15'000, 15'650, 17'500, 18'000);
    EXPECT_EQ(result.normalizedSpeedChanges,
              (std::vector<TimelineSpeedChange>{{span(10'000, 12'000), {2000}}}));
}

// ---- Zoom additions ----

TEST(TimelinePlanZoomAddTest, PlannedZoomTakesItsFocusFromTheLastPressInsideAndFollowsTheRulesOfZooms) {
    const EditTimeline timeline = timelineOf({segment(0, 20'000)});
    auto press = [](std::int64_t at, PointValue point, std::optional<bool> inside = std::nullopt) {
        MouseEvent event;
        event.time = ms(at);
        event.normalizedPoint = point;
        event.button = MouseButton::left;
        event.phase = MousePhase::down;
        event.isInsideSource = inside;
        return event;
    };
    MouseEvent release = press(4'500, {0.9, 0.9});
    release.phase = MousePhase::up;
    const std::vector<MouseEvent> clicks{
        press(6'000, {0.7, 0.7}),        // at the range end: outside
        press(4'000, {0.3, 0.3}, false), // outside the source
        press(3'500, {0.6, 0.4}, true),  // the last that counts
        press(2'500, {0.35, 0.45}),      release,
    };

    TimelineEditPlan plan;
    plan.zoomAdds = {{span(2'000, 6'000), 2, std::nullopt}};
    const TimelinePlanResult result = applyPlan(plan, timeline, clicks);
    ASSERT_EQ(result.timeline.zooms.size(), 1u);
    EXPECT_EQ(result.timeline.zooms[0].focusPoint, (PointValue{0.6, 0.4}));
    expectZoomTimes(result.timeline.zooms[0], 2'000, 2'650, 5'500, 6'000);

    // No press within the range: the centre. A given focus wins over presses,
    // and is constrained at the clamped scale.
    TimelineEditPlan elsewhere;
    elsewhere.zoomAdds = {{span(10'000, 11'000), 0.5, std::nullopt},
                          {span(12'000, 14'000), 7, PointValue{0, 1}}};
    const TimelinePlanResult second = applyPlan(elsewhere, timeline, clicks);
    ASSERT_EQ(second.timeline.zooms.size(), 2u);
    EXPECT_EQ(second.timeline.zooms[0].focusPoint, (PointValue{0.5, 0.5}));
    EXPECT_EQ(second.timeline.zooms[0].scale, 1);
    // One second: the rise takes 650 ms, the fall what is left.
    expectZoomTimes(second.timeline.zooms[0], 10'000, 10'650, 10'650, 11'000);
    EXPECT_EQ(second.timeline.zooms[1].scale, 3);
    EXPECT_EQ(second.timeline.zooms[1].focusPoint, (PointValue{0.5 / 3, 1 - 0.5 / 3}));

    // A planned zoom must lie in what the cuts leave.
    TimelineEditPlan withCuts = cutting({span(9'000, 10'000), span(3'000, 4'000)});
    withCuts.zoomAdds = {{span(1'000, 2'000), 2, std::nullopt}, {span(8'000, 12'000), 2, std::nullopt}};
    const TimelinePlanError error = planErrorOf(withCuts, timeline);
    EXPECT_EQ(error.errorCase(), TimelinePlanError::Case::zoomOutsideRetainedContent);
    EXPECT_EQ(error.range(), span(8'000, 12'000));
    EXPECT_EQ(error.zoomID(), std::nullopt);
    EXPECT_EQ(error.normalizedCuts(),
              (std::vector<ProjectTimeRange>{span(3'000, 4'000), span(9'000, 10'000)}));

    // And it follows the rules of zooms.
    TimelineEditPlan overlapping;
    overlapping.zoomAdds = {{span(4'000, 7'000), 2, std::nullopt}};
    EXPECT_EQ(thrownCase<TimelineEffectError>(
                  [&] { applyPlan(overlapping, timelineOf({segment(0, 20'000)}, {zoom(2'000, 5'000)})); }),
              TimelineEffectError::Case::zoomOverlap);
}

// ---- Speed and settings in a plan ----

TEST(TimelinePlanEngineTest, SpeedAppliesToWhatTheCutsLeaveAndSettingsToTheResult) {
    const EditTimeline timeline = timelineOf({segment(0, 20'000)});
    TimelineEditPlan plan = cutting({span(5'000, 6'000)});
    plan.speedChanges = {{span(4'000, 6'000), {2000}}};
    EXPECT_EQ(thrownCase<TimelineSpeedError>([&] { applyPlan(plan, timeline); }),
              TimelineSpeedError::Case::rangeOutsideRetainedContent);

    plan.speedChanges = {{span(6'000, 8'000), {2000}}, {span(7'000, 9'000), {2000}}};
    plan.settings = {{"cursor.scale", "2"}, {"canvas.padding", "-1"}};
    const TimelinePlanResult result = applyPlan(plan, timeline);
    EXPECT_EQ(result.timeline.cursor.scale, 2);
    EXPECT_EQ(result.timeline.canvas.padding, 0);
    EXPECT_EQ(result.normalizedSpeedChanges,
              (std::vector<TimelineSpeedChange>{{span(6'000, 9'000), {2000}}}));
    ASSERT_EQ(result.timeline.segments.size(), 3u);
    EXPECT_EQ(result.timeline.segments[1].sourceRange, span(6'000, 9'000));
    EXPECT_EQ(result.timeline.segments[1].playbackRate, TimelinePlaybackRate{2000});
}

// ---- Identity ----

TEST(TimelinePlanIdentityTest, NewSegmentsAndZoomsGetVersion5IdsFromTheirContent) {
    // SHA-256("abc") = ba7816bf 8f01cfea 414140de 5dae2223 ...
    EXPECT_EQ(TimelinePlanEngine::stableUUID("abc").string(), "BA7816BF-8F01-5FEA-8141-40DE5DAE2223");
    const TimelineSegment kept = segment(0, 5'000);
    const TimelineSegment cut = segment(5'000, 20'000);
    const EditTimeline timeline = timelineOf({kept, cut});
    TimelineEditPlan plan = cutting({span(9'000, 10'000)});
    plan.zoomAdds = {{span(2'000, 4'000), 2, PointValue{0.3, 0.4}}};
    const TimelinePlanResult result = applyPlan(plan, timeline);

    const std::string idNamespace = namespaceOf(timeline);
    ASSERT_EQ(result.timeline.segments.size(), 3u);
    EXPECT_EQ(result.timeline.segments[0].id, kept.id);
    // The left piece of a cut segment no longer equals it, so it too is new.
    EXPECT_EQ(result.timeline.segments[1].id,
              TimelinePlanEngine::stableUUID(idNamespace + ":5000000000:9000000000:1000"));
    EXPECT_EQ(result.timeline.segments[2].id,
              TimelinePlanEngine::stableUUID(idNamespace + ":10000000000:20000000000:1000"));

    ASSERT_EQ(result.timeline.zooms.size(), 1u);
    EXPECT_EQ(result.timeline.zooms[0].id,
              TimelinePlanEngine::stableUUID(idNamespace +
                                             ":zoom:2000000000:2650000000:3500000000:4000000000:0.3:0.4:2"));
}

} // namespace
} // namespace rilo

#include "project/document/EditTimeline.h"
#include "project/engine/TimelineEffectEngine.h"
#include "scene/AutoZoomEngine.h"
#include "support/TimelineBuilders.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <set>
#include <vector>

namespace rilo {
namespace {

using testing::ms;

constexpr ProjectTime longTake = ProjectTime::fromSeconds(60);
constexpr double zoomScale = 1.7;

MouseEvent mouseEvent(ProjectTime time, PointValue point, MouseButton button, MousePhase phase) {
    MouseEvent event;
    event.time = time;
    event.normalizedPoint = point;
    event.button = button;
    event.phase = phase;
    return event;
}

MouseEvent click(ProjectTime time, PointValue point = {0.5, 0.5}) {
    return mouseEvent(time, point, MouseButton::left, MousePhase::down);
}

std::vector<ZoomSegment> segmentsFor(const std::vector<MouseEvent>& events, ProjectTime duration = longTake) {
    return AutoZoomEngine{}.makeSegments(events, duration);
}

PointValue constrained(PointValue point) {
    return TimelineEffectEngine::constrainedFocus(point, zoomScale);
}

void expectTimes(const ZoomSegment& zoom, ProjectTime start, ProjectTime focus, ProjectTime holdEnd,
                 ProjectTime end) {
    EXPECT_EQ(zoom.startTime, start);
    EXPECT_EQ(zoom.focusTime, focus);
    EXPECT_EQ(zoom.holdEndTime, holdEnd);
    EXPECT_EQ(zoom.endTime, end);
}

TEST(AutoZoomEngineTest, OnlyLeftButtonPressesMakeZooms) {
    EXPECT_TRUE(segmentsFor({}).empty());

    const std::vector<MouseEvent> noLeftPress{
        mouseEvent(ms(1'000), {0.5, 0.5}, MouseButton::none, MousePhase::moved),
        mouseEvent(ms(2'000), {0.5, 0.5}, MouseButton::left, MousePhase::dragged),
        mouseEvent(ms(3'000), {0.5, 0.5}, MouseButton::left, MousePhase::up),
        mouseEvent(ms(4'000), {0.5, 0.5}, MouseButton::right, MousePhase::down),
        mouseEvent(ms(5'000), {0.5, 0.5}, MouseButton::other, MousePhase::down),
    };
    EXPECT_TRUE(segmentsFor(noLeftPress).empty());

    // A right click between two left clicks neither splits their cluster
    // nor moves its focus.
    const std::vector<MouseEvent> mixed{
        click(ms(10'000), {0.4, 0.4}),
        mouseEvent(ms(10'500), {0.9, 0.9}, MouseButton::right, MousePhase::down),
        mouseEvent(ms(10'600), {0.9, 0.9}, MouseButton::left, MousePhase::up),
        click(ms(11'000), {0.45, 0.45}),
        mouseEvent(ms(11'500), {0.1, 0.1}, MouseButton::none, MousePhase::moved),
    };
    const auto segments = segmentsFor(mixed);
    ASSERT_EQ(segments.size(), 1u);
    expectTimes(segments[0], ms(9'350), ms(10'000), ms(12'600), ms(13'100));
    EXPECT_EQ(segments[0].focusPoint, constrained({0.45, 0.45}));
    EXPECT_EQ(segments[0].scale, zoomScale);
}

TEST(AutoZoomEngineTest, ZoomStartIsClampedToTheSourceStart) {
    const auto segments = segmentsFor({click(ms(200), {0.5, 0.5})});
    ASSERT_EQ(segments.size(), 1u);
    expectTimes(segments[0], ms(0), ms(200), ms(1'800), ms(2'300));
    EXPECT_EQ(segments[0].focusPoint, (PointValue{0.5, 0.5}));
}

TEST(AutoZoomEngineTest, ZoomNearTheEndOfTheTakeStopsWithoutMovingBack) {
    const ProjectTime duration = ms(10'000);
    const auto segments = segmentsFor({click(ms(9'700))}, duration);
    ASSERT_EQ(segments.size(), 1u);
    expectTimes(segments[0], ms(9'050), ms(9'700), duration, duration);
}

TEST(AutoZoomEngineTest, ClickTooFarBeyondTheSourceMakesNoZoom) {
    const ProjectTime duration = ms(10'000);
    EXPECT_TRUE(segmentsFor({click(ms(10'650))}, duration).empty());
    EXPECT_TRUE(segmentsFor({click(ms(30'000))}, duration).empty());

    // Just inside the reach of the way in, a sliver remains; the focus time
    // is the click's own, unclamped.
    const auto sliver = segmentsFor({click(ms(10'649))}, duration);
    ASSERT_EQ(sliver.size(), 1u);
    expectTimes(sliver[0], ms(9'999), ms(10'649), duration, duration);
}

TEST(AutoZoomEngineTest, ClicksWithinTheMergeIntervalFormOneCluster) {
    // The bound is inclusive: clicks exactly 1.2 s apart belong together.
    const auto segments = segmentsFor({click(ms(2'000)), click(ms(3'200)), click(ms(4'400))});
    ASSERT_EQ(segments.size(), 1u);
    expectTimes(segments[0], ms(1'350), ms(2'000), ms(6'000), ms(6'500));

    // One nanosecond more opens a new cluster, which then cuts the first off.
    const auto split = segmentsFor({click(ms(2'000)), click(ms(3'200) + ProjectTime{1})});
    ASSERT_EQ(split.size(), 2u);
    EXPECT_EQ(split[0].endTime, split[1].startTime);
    EXPECT_EQ(split[1].focusTime, ms(3'200) + ProjectTime{1});
}

TEST(AutoZoomEngineTest, MergeDistanceIsInclusiveAndMeasuredFromTheLastClick) {
    const auto atBound = segmentsFor({click(ms(1'000), {0, 0}), click(ms(1'500), {0.12, 0})});
    EXPECT_EQ(atBound.size(), 1u);
    const auto diagonalAtBound = segmentsFor({click(ms(1'000), {0, 0}), click(ms(1'500), {0, 0.12})});
    EXPECT_EQ(diagonalAtBound.size(), 1u);
    const auto beyond = segmentsFor({click(ms(1'000), {0, 0}), click(ms(1'500), {0.1201, 0})});
    EXPECT_EQ(beyond.size(), 2u);

    // A chain of small steps drifts far from its start and stays one
    // cluster; the camera settles at the last click, with the timing of the
    // first.
    const auto chain = segmentsFor({
        click(ms(5'000), {0.1, 0.5}),
        click(ms(6'000), {0.2, 0.5}),
        click(ms(7'000), {0.3, 0.5}),
        click(ms(8'000), {0.4, 0.5}),
        click(ms(9'000), {0.5, 0.5}),
    });
    ASSERT_EQ(chain.size(), 1u);
    expectTimes(chain[0], ms(4'350), ms(5'000), ms(10'600), ms(11'100));
    EXPECT_EQ(chain[0].focusPoint, (PointValue{0.5, 0.5}));
}

TEST(AutoZoomEngineTest, LaterZoomCutsTheEarlierOneShort) {
    const auto segments = segmentsFor({click(ms(5'000), {0.4, 0.4}), click(ms(5'500), {0.6, 0.4})});
    ASSERT_EQ(segments.size(), 2u);
    // The first never reaches its own click.
    expectTimes(segments[0], ms(4'350), ms(4'850), ms(4'850), ms(4'850));
    EXPECT_EQ(segments[0].focusPoint, constrained({0.4, 0.4}));
    EXPECT_EQ(segments[0].scale, zoomScale);
    // The later one is untouched.
    expectTimes(segments[1], ms(4'850), ms(5'500), ms(7'100), ms(7'600));
    EXPECT_EQ(segments[1].focusPoint, constrained({0.6, 0.4}));
    EXPECT_NE(segments[0].id, segments[1].id);

    // Cut off during its hold, the earlier zoom keeps its focus time.
    const auto inHold = segmentsFor({click(ms(1'000), {0.3, 0.3}), click(ms(3'000), {0.7, 0.7})});
    ASSERT_EQ(inHold.size(), 2u);
    expectTimes(inHold[0], ms(350), ms(1'000), ms(2'350), ms(2'350));
    expectTimes(inHold[1], ms(2'350), ms(3'000), ms(4'600), ms(5'100));
}

TEST(AutoZoomEngineTest, TouchingZoomsAreLeftAlone) {
    // The first ends at 3.1 s, exactly where the second starts.
    const auto segments = segmentsFor({click(ms(1'000), {0.3, 0.3}), click(ms(3'750), {0.3, 0.3})});
    ASSERT_EQ(segments.size(), 2u);
    expectTimes(segments[0], ms(350), ms(1'000), ms(2'600), ms(3'100));
    expectTimes(segments[1], ms(3'100), ms(3'750), ms(5'350), ms(5'850));
}

TEST(AutoZoomEngineTest, ZoomCutToNothingIsDropped) {
    // Both start at 0; the earlier one is cut to zero length and vanishes.
    const auto segments = segmentsFor({click(ms(100), {0.2, 0.2}), click(ms(300), {0.8, 0.8})});
    ASSERT_EQ(segments.size(), 1u);
    expectTimes(segments[0], ms(0), ms(300), ms(1'900), ms(2'400));
    EXPECT_EQ(segments[0].focusPoint, constrained({0.8, 0.8}));
}

TEST(AutoZoomEngineTest, EventsAreSortedStablyByTime) {
    const std::vector<MouseEvent> unsorted{
        click(ms(20'000), {0.7, 0.7}),
        click(ms(2'000), {0.3, 0.3}),
        click(ms(10'000), {0.5, 0.5}),
    };
    const auto segments = segmentsFor(unsorted);
    ASSERT_EQ(segments.size(), 3u);
    EXPECT_EQ(segments[0].focusTime, ms(2'000));
    EXPECT_EQ(segments[1].focusTime, ms(10'000));
    EXPECT_EQ(segments[2].focusTime, ms(20'000));
    EXPECT_EQ(segments[0].focusPoint, (PointValue{0.3, 0.3}));

    // Of two clicks at the same time, the one given later is the cluster's
    // last and decides the focus.
    const auto aThenB = segmentsFor({click(ms(4'000), {0.4, 0.5}), click(ms(4'000), {0.45, 0.5})});
    ASSERT_EQ(aThenB.size(), 1u);
    EXPECT_EQ(aThenB[0].focusPoint, (PointValue{0.45, 0.5}));
    const auto bThenA = segmentsFor({click(ms(4'000), {0.45, 0.5}), click(ms(4'000), {0.4, 0.5})});
    ASSERT_EQ(bThenA.size(), 1u);
    EXPECT_EQ(bThenA[0].focusPoint, (PointValue{0.4, 0.5}));
}

TEST(AutoZoomEngineTest, FocusInACornerKeepsTheZoomedViewInsideTheFrame) {
    const double low = 0.5 / zoomScale;
    const double high = 1 - 0.5 / zoomScale;
    EXPECT_NEAR(low, 0.294118, 1e-6);
    EXPECT_NEAR(high, 0.705882, 1e-6);

    const auto topLeft = segmentsFor({click(ms(3'000), {0, 0})});
    ASSERT_EQ(topLeft.size(), 1u);
    EXPECT_EQ(topLeft[0].focusPoint, (PointValue{low, low}));

    const auto bottomRight = segmentsFor({click(ms(3'000), {1, 1})});
    ASSERT_EQ(bottomRight.size(), 1u);
    EXPECT_EQ(bottomRight[0].focusPoint, (PointValue{high, high}));

    const auto edge = segmentsFor({click(ms(3'000), {0.5, 0.95})});
    ASSERT_EQ(edge.size(), 1u);
    EXPECT_EQ(edge[0].focusPoint, (PointValue{0.5, high}));
}

TEST(AutoZoomEngineTest, RepeatedRunsAgreeInEverythingButTheIds) {
    const std::vector<MouseEvent> events{
        click(ms(1'000), {0.2, 0.3}), click(ms(1'800), {0.25, 0.3}), click(ms(2'100), {0.8, 0.8}),
        click(ms(9'000), {0.5, 0.1}), click(ms(30'000), {0.9, 0.9}),
    };
    const auto first = segmentsFor(events);
    const auto second = segmentsFor(events);
    ASSERT_EQ(first.size(), second.size());
    ASSERT_FALSE(first.empty());
    std::set<Uuid> ids;
    for (std::size_t i = 0; i < first.size(); ++i) {
        expectTimes(second[i], first[i].startTime, first[i].focusTime, first[i].holdEndTime,
                    first[i].endTime);
        EXPECT_EQ(second[i].focusPoint, first[i].focusPoint);
        EXPECT_EQ(second[i].scale, first[i].scale);
        ids.insert(first[i].id);
        ids.insert(second[i].id);
    }
    EXPECT_EQ(ids.size(), first.size() * 2);
}

TEST(AutoZoomEngineTest, ZoomsOfARealisticTakeFormAValidTimeline) {
    const ProjectTime duration = ms(20'000);
    std::vector<MouseEvent> events;
    for (std::int64_t i = 0; i < 40; ++i) {
        const double x = static_cast<double>(i % 7) / 6.0;
        const double y = static_cast<double>(i % 5) / 4.0;
        events.push_back(mouseEvent(ms(i * 480), {x, y}, MouseButton::none, MousePhase::moved));
        if (i % 3 != 1) {
            events.push_back(click(ms(i * 480 + 20), {x, y}));
        }
    }
    const auto segments = segmentsFor(events, duration);
    ASSERT_FALSE(segments.empty());
    for (std::size_t i = 1; i < segments.size(); ++i) {
        EXPECT_LE(segments[i - 1].endTime, segments[i].startTime);
    }

    EditTimeline timeline;
    timeline.segments.push_back(
        {Uuid::random(), {ProjectTime::zero(), duration}, TimelinePlaybackRate::normal()});
    timeline.zooms = segments;
    EXPECT_NO_THROW(TimelineEffectEngine::validate(timeline, duration));
}

} // namespace
} // namespace rilo

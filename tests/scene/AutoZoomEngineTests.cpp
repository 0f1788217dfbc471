#include "project/document/EditTimeline.h"
#include "project/engine/TimelineEffectEngine.h"
#include "scene/AutoZoomEngine.h"
#include "support/TimelineBuilders.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>
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

// Each zoom eases in for 0.65 s before the first click of its cluster, holds
// 1.6 s past the last one and eases out for 0.5 s; a later zoom cuts an
// earlier one short.
TEST(AutoZoomEngineTest, ClustersOfClicksBecomeZooms) {
    struct Zoom {
        ProjectTime start, focus, holdEnd, end;
        PointValue focusPoint;
    };
    const PointValue centre{0.5, 0.5};
    const ProjectTime tick{1};
    const struct {
        std::string name;
        std::vector<MouseEvent> clicks;
        ProjectTime duration;
        std::vector<Zoom> zooms;
    } rows[] = {
        {"only left button presses count",
         {mouseEvent(ms(1'000), centre, MouseButton::none, MousePhase::moved),
          mouseEvent(ms(2'000), centre, MouseButton::left, MousePhase::dragged),
          mouseEvent(ms(3'000), centre, MouseButton::left, MousePhase::up),
          mouseEvent(ms(4'000), centre, MouseButton::right, MousePhase::down),
          mouseEvent(ms(5'000), centre, MouseButton::other, MousePhase::down)},
         longTake,
         {}},
        // Of clicks at the same time, the one given last decides the focus.
        {"same time, the second given last",
         {click(ms(4'000), {0.4, 0.5}), click(ms(4'000), {0.45, 0.5})},
         longTake,
         {{ms(3'350), ms(4'000), ms(5'600), ms(6'100), {0.45, 0.5}}}},
        {"same time, the first given last",
         {click(ms(4'000), {0.45, 0.5}), click(ms(4'000), {0.4, 0.5})},
         longTake,
         {{ms(3'350), ms(4'000), ms(5'600), ms(6'100), {0.4, 0.5}}}},
        {"start clamped to the source",
         {click(ms(200))},
         longTake,
         {{ms(0), ms(200), ms(1'800), ms(2'300), centre}}},
        {"stops at the end of the take",
         {click(ms(9'700))},
         ms(10'000),
         {{ms(9'050), ms(9'700), ms(10'000), ms(10'000), centre}}},
        // Just inside the reach of the way in a sliver remains, with the click's own focus time.
        {"a sliver before the end",
         {click(ms(10'649))},
         ms(10'000),
         {{ms(9'999), ms(10'649), ms(10'000), ms(10'000), centre}}},
        {"too far beyond the end", {click(ms(10'650))}, ms(10'000), {}},
        {"clicks 1.2 s apart merge",
         {click(ms(2'000)), click(ms(3'200)), click(ms(4'400))},
         longTake,
         {{ms(1'350), ms(2'000), ms(6'000), ms(6'500), centre}}},
        {"one nanosecond more splits",
         {click(ms(2'000)), click(ms(3'200) + tick)},
         longTake,
         {{ms(1'350), ms(2'000), ms(2'550) + tick, ms(2'550) + tick, centre},
          {ms(2'550) + tick, ms(3'200) + tick, ms(4'800) + tick, ms(5'300) + tick, centre}}},
        {"0.12 apart merge",
         {click(ms(1'000), {0, 0}), click(ms(1'500), {0, 0.12})},
         longTake,
         {{ms(350), ms(1'000), ms(3'100), ms(3'600), constrained({0, 0.12})}}},
        // The first never reaches its own click.
        {"further apart splits",
         {click(ms(1'000), {0, 0}), click(ms(1'500), {0.1201, 0})},
         longTake,
         {{ms(350), ms(850), ms(850), ms(850), constrained({0, 0})},
          {ms(850), ms(1'500), ms(3'100), ms(3'600), constrained({0.1201, 0})}}},
        // Distance is measured from the last click: the chain drifts and stays one cluster.
        {"a chain of small steps",
         {click(ms(5'000), {0.1, 0.5}), click(ms(6'000), {0.2, 0.5}), click(ms(7'000), {0.3, 0.5}),
          click(ms(8'000), {0.4, 0.5}), click(ms(9'000), {0.5, 0.5})},
         longTake,
         {{ms(4'350), ms(5'000), ms(10'600), ms(11'100), centre}}},
        {"cut off during its hold",
         {click(ms(1'000), {0.3, 0.3}), click(ms(3'000), {0.7, 0.7})},
         longTake,
         {{ms(350), ms(1'000), ms(2'350), ms(2'350), constrained({0.3, 0.3})},
          {ms(2'350), ms(3'000), ms(4'600), ms(5'100), constrained({0.7, 0.7})}}},
        {"a zoom cut to nothing is dropped",
         {click(ms(100), {0.2, 0.2}), click(ms(300), {0.8, 0.8})},
         longTake,
         {{ms(0), ms(300), ms(1'900), ms(2'400), constrained({0.8, 0.8})}}},
        {"clicks are sorted by time",
         {click(ms(20'000)), click(ms(2'000)), click(ms(10'000))},
         longTake,
         {{ms(1'350), ms(2'000), ms(3'600), ms(4'100), centre},
          {ms(9'350), ms(10'000), ms(11'600), ms(12'100), centre},
          {ms(19'350), ms(20'000), ms(21'600), ms(22'100), centre}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto segments = segmentsFor(row.clicks, row.duration);
        ASSERT_EQ(segments.size(), row.zooms.size());
        for (std::size_t i = 0; i < segments.size(); ++i) {
            SCOPED_TRACE(i);
            EXPECT_EQ(segments[i].startTime, row.zooms[i].start);
            EXPECT_EQ(segments[i].focusTime, row.zooms[i].focus);
            EXPECT_EQ(segments[i].holdEndTime, row.zooms[i].holdEnd);
            EXPECT_EQ(segments[i].endTime, row.zooms[i].end);
            EXPECT_EQ(segments[i].focusPoint, row.zooms[i].focusPoint);
        }
    }
}

// The engine gives every zoom its own id, which the validator checks.
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

    EditTimeline timeline;
    timeline.segments.push_back(
        {Uuid::random(), {ProjectTime::zero(), duration}, TimelinePlaybackRate::normal()});
    timeline.zooms = segments;
    EXPECT_NO_THROW(TimelineEffectEngine::validate(timeline, duration));
}

} // namespace
} // namespace rilo

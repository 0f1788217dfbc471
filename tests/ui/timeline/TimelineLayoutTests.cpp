// Lanes, their animated heights, pixel and time conversion, block geometry
// and the editor's shortcuts.

#include "support/TimelineBuilders.h"
#include "ui/timeline/TimelineBlockLayout.h"
#include "ui/timeline/TimelineCoordinateSpace.h"
#include "ui/timeline/TimelineEditorShortcut.h"
#include "ui/timeline/TimelineLayout.h"

#include <gtest/gtest.h>
#include <limits>

namespace rilo {
namespace {

using testing::ms;
using testing::ns;
using testing::segment;
using testing::timelineOf;

const TimelineViewMetrics metrics = TimelineViewMetrics::standard();

std::vector<TimelineLane> lanesOf(const TimelineLayout& layout) {
    std::vector<TimelineLane> lanes;
    for (const TimelineLaneFrame& frame : layout.frames) {
        lanes.push_back(frame.lane);
    }
    return lanes;
}

TEST(TimelineLayoutTest, LanesFollowTheProjectAndTheExpandedLaneFallsToTheFirst) {
    // Without captions there is no captions lane, so asking for it expands
    // the first lane instead.
    const TimelineLayout plain =
        TimelineLayout::make({false, false, false, TimelineLane::captions, {}}, metrics);
    EXPECT_EQ(lanesOf(plain), (std::vector{TimelineLane::ruler, TimelineLane::screen, TimelineLane::autoZoom,
                                           TimelineLane::annotations}));
    EXPECT_EQ(plain.expandedLane, TimelineLane::screen);

    const TimelineLayout full = TimelineLayout::make({true, true, true, TimelineLane::captions, {}}, metrics);
    EXPECT_EQ(lanesOf(full),
              (std::vector{TimelineLane::ruler, TimelineLane::screen, TimelineLane::captions,
                           TimelineLane::webcamLayout, TimelineLane::autoZoom, TimelineLane::annotations}));
    EXPECT_EQ(full.expandedLane, TimelineLane::captions);
    EXPECT_EQ(full.heights().at(TimelineLane::captions), metrics.laneExpandedHeight);
    EXPECT_EQ(full.heights().at(TimelineLane::autoZoom), metrics.laneCollapsedHeight);
    EXPECT_EQ(full.heights().at(TimelineLane::screen),
              metrics.screenCollapsedHeight + metrics.waveformHeight);

    // The visible set narrows the list; an expanded lane it hides falls back.
    const TimelineLayout narrowed = TimelineLayout::make(
        {true, true, true, TimelineLane::screen, std::set{TimelineLane::autoZoom, TimelineLane::captions}},
        metrics);
    EXPECT_EQ(lanesOf(narrowed),
              (std::vector{TimelineLane::ruler, TimelineLane::captions, TimelineLane::autoZoom}));
    EXPECT_EQ(narrowed.expandedLane, TimelineLane::captions);

    const TimelineLayout empty =
        TimelineLayout::make({false, false, false, {}, std::set<TimelineLane>{}}, metrics);
    EXPECT_EQ(lanesOf(empty), std::vector{TimelineLane::ruler});
    EXPECT_EQ(empty.expandedLane, std::nullopt);
}

TEST(TimelineLayoutTest, LanesStackWithoutGapsAndYFindsTheLane) {
    const TimelineLayout layout =
        TimelineLayout::make({true, true, false, TimelineLane::autoZoom, {}}, metrics);
    double y = 0;
    for (const TimelineLaneFrame& frame : layout.frames) {
        EXPECT_EQ(frame.minY, y);
        EXPECT_EQ(layout.laneAtY(frame.minY), frame.lane);
        EXPECT_EQ(layout.laneAtY(frame.maxY() - 0.5), frame.lane);
        y = frame.maxY();
    }
    EXPECT_EQ(layout.totalHeight, y);
    EXPECT_EQ(layout.laneAtY(layout.totalHeight), std::nullopt);
    EXPECT_EQ(layout.laneAtY(-1), std::nullopt);

    // Restacked with other heights, the lanes below move with them.
    const TimelineLayout restacked = layout.withHeights({{TimelineLane::screen, 10}});
    EXPECT_EQ(restacked.frame(TimelineLane::captions)->minY, metrics.rulerHeight + 10);
    EXPECT_EQ(restacked.totalHeight, layout.totalHeight - layout.frame(TimelineLane::screen)->height + 10);
}

TEST(TimelineLayoutTest, ATransitionEasesFromTheInitialToTheTargetHeights) {
    const auto start = std::chrono::steady_clock::time_point{} + std::chrono::seconds(5);
    const TimelineLaneTransition transition{{{TimelineLane::screen, 100}, {TimelineLane::captions, 20}},
                                            {{TimelineLane::screen, 40}, {TimelineLane::annotations, 60}},
                                            start};
    EXPECT_EQ(transition.heightsAt(start), (TimelineLaneHeights{{TimelineLane::screen, 100},
                                                                {TimelineLane::captions, 20},
                                                                {TimelineLane::annotations, 0}}));

    const TimelineLaneHeights early = transition.heightsAt(start + std::chrono::milliseconds(30));
    const TimelineLaneHeights middle = transition.heightsAt(start + std::chrono::milliseconds(90));
    EXPECT_NEAR(middle.at(TimelineLane::screen), 70, 1e-9); // a symmetric ease is half way at half time
    // Smooth: slower than linear at the start.
    EXPECT_GT(early.at(TimelineLane::screen), 100 - 60.0 * 30 / 180);
    EXPECT_LT(early.at(TimelineLane::annotations), 60.0 * 30 / 180);

    EXPECT_EQ(transition.heightsAt(start + TimelineLaneTransition::duration), transition.targetHeights);
    EXPECT_EQ(transition.heightsAt(start + std::chrono::seconds(3)), transition.targetHeights);
}

TEST(TimelineCoordinateSpaceTest, TimesAndPixelsRoundTrip) {
    for (const double pixelsPerSecond : {3.0, 37.5, 100.0, 1234.5, 60000.0}) {
        const TimelineCoordinateSpace space{ms(2'500), pixelsPerSecond};
        EXPECT_EQ(space.xFor(ms(2'500)), 0);
        EXPECT_DOUBLE_EQ(space.xFor(ms(3'500)), pixelsPerSecond);
        for (const ProjectTime t :
             {ns(0), ns(1), ms(2'500), ns(2'500'000'001), ns(7'123'456'789), ms(3'600'000)}) {
            EXPECT_EQ(space.timeForX(space.xFor(t)), t) << pixelsPerSecond << " " << t.nanoseconds;
        }
        // Pixels to time and back, within a nanosecond's worth of pixels.
        for (const double x : {-50.0, 0.25, 333.3, 1920.0}) {
            EXPECT_NEAR(space.xFor(space.timeForX(x)), x, pixelsPerSecond * 1e-9);
        }
    }
    // Far beyond the axis the time saturates instead of overflowing.
    const TimelineCoordinateSpace space{ms(0), 1e-6};
    EXPECT_EQ(space.timeForX(1e12), ProjectTime{std::numeric_limits<std::int64_t>::max()});
}

TEST(TimelineCoordinateSpaceTest, VisibleRangeWaveformAndZoomAroundThePointer) {
    const TimelineCoordinateSpace space{ms(1'000), 200};
    EXPECT_EQ(space.visibleRange(500), (ProjectTimeRange{ms(1'000), ms(2'500)}));

    // A cut from 4 s to 6 s of source, then half speed: at sequence 5 s the
    // source shows 6.5 s.
    const EditTimeline timeline =
        timelineOf({segment(ms(0), ms(4'000)), segment(ms(6'000), ms(10'000), 500)});
    const TimelineMapper mapper(timeline, ms(10'000));
    EXPECT_EQ(space.waveformSourceTime(space.xFor(ms(5'000)), mapper), ms(6'500));
    EXPECT_EQ(space.waveformSourceTime(space.xFor(mapper.sequenceDuration()), mapper), std::nullopt);
    EXPECT_EQ(space.waveformSourceTime(space.xFor(ms(-1)), mapper), std::nullopt);

    const TimelineCoordinateSpace zoomed = space.zoomed(800, 300);
    EXPECT_EQ(zoomed.pixelsPerSecond, 800);
    EXPECT_EQ(zoomed.timeForX(300), space.timeForX(300));
}

TEST(TimelineBlockLayoutTest, HandlesNeverOverlapAndTheBadgeStaysInTheVisiblePart) {
    const TimelineLaneFrame lane{TimelineLane::autoZoom, 100, 30};
    const TimelineRect block = TimelineEditableBlockLayout::frame(250, 50, lane, metrics);
    EXPECT_EQ(block,
              (TimelineRect{50, 100 + metrics.blockVerticalInset, 200, 30 - 2 * metrics.blockVerticalInset}));
    const TimelineHandleFrames handles = TimelineEditableBlockLayout::handleFrames(block, metrics);
    EXPECT_EQ(handles.start.x, 50);
    EXPECT_EQ(handles.start.width, metrics.handleWidth);
    EXPECT_EQ(handles.end.maxX(), 250);

    const TimelineRect narrow = TimelineEditableBlockLayout::frame(10, 16, lane, metrics);
    const TimelineHandleFrames narrowHandles = TimelineEditableBlockLayout::handleFrames(narrow, metrics);
    EXPECT_EQ(narrowHandles.start.maxX(), narrowHandles.end.x);

    EXPECT_EQ(TimelineRateBadgeLayout::text({1500}), "1.50×");
    EXPECT_EQ(TimelineRateBadgeLayout::text({500}), "0.50×");
    // A block running past the right edge keeps its badge on screen.
    const TimelineRect wide = TimelineEditableBlockLayout::frame(100, 5'000, lane, metrics);
    const std::optional<TimelineRect> badge = TimelineRateBadgeLayout::frame({2000}, wide, 800, metrics);
    ASSERT_TRUE(badge);
    EXPECT_EQ(badge->maxX(), 800 - metrics.badgeMargin);
    EXPECT_EQ(TimelineRateBadgeLayout::frame({2000}, narrow, 800, metrics), std::nullopt);
}

TEST(TimelineEditorShortcutTest, KeysResolveToShortcutsExceptWhileTyping) {
    using enum TimelineEditorShortcut;
    const TimelineKeyModifiers none;
    const TimelineKeyModifiers command{.command = true};
    const TimelineKeyModifiers commandShift{.command = true, .shift = true};
    const auto resolve = [](TimelineKey key, std::string_view text, TimelineKeyModifiers modifiers) {
        return TimelineEditorShortcuts::resolve(key, text, modifiers, false);
    };
    EXPECT_EQ(resolve(TimelineKey::space, " ", none), togglePlayback);
    EXPECT_EQ(resolve(TimelineKey::leftArrow, "", none), backward);
    EXPECT_EQ(resolve(TimelineKey::rightArrow, "", none), forward);
    EXPECT_EQ(resolve(TimelineKey::deleteBackward, "", none), deleteSelection);
    EXPECT_EQ(resolve(TimelineKey::deleteForward, "", none), deleteSelection);
    EXPECT_EQ(resolve(TimelineKey::other, "b", none), split);
    EXPECT_EQ(resolve(TimelineKey::other, "z", command), undo);
    EXPECT_EQ(resolve(TimelineKey::other, "Z", commandShift), redo);

    EXPECT_EQ(resolve(TimelineKey::other, "z", none), std::nullopt);
    EXPECT_EQ(resolve(TimelineKey::other, "b", command), std::nullopt);
    EXPECT_EQ(resolve(TimelineKey::space, " ", command), std::nullopt);
    EXPECT_EQ(TimelineEditorShortcuts::resolve(TimelineKey::space, " ", none, true), std::nullopt);
    EXPECT_EQ(TimelineEditorShortcuts::resolve(TimelineKey::other, "z", command, true), std::nullopt);
}

} // namespace
} // namespace rilo

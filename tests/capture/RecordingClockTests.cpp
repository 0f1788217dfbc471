#include "capture/GeometryTracker.h"
#include "capture/MouseEventRecorder.h"
#include "capture/RecordingClock.h"
#include "capture/ScreenRecordingSession.h"

#include <gtest/gtest.h>

namespace rilo {
namespace {

constexpr std::uint64_t second = 1'000'000'000;

MediaTime at(std::int64_t nanoseconds) {
    return MediaTime::nanoseconds(nanoseconds);
}

TEST(RecordingClock, HostTimesMapFromTheLatestStartOrResumeAndNotWhilePaused) {
    RecordingClock clock;
    EXPECT_FALSE(clock.projectTimeForHostTimeNanoseconds(50 * second));
    // Video at 100 s shown at host 50 s is project time 0.
    clock.start(at(100 * second), 50 * second);
    clock.start(at(900 * second), 90 * second); // a second start changes nothing
    EXPECT_EQ(clock.projectTimeForHostTimeNanoseconds(52 * second), ProjectTime::fromSeconds(2));
    EXPECT_EQ(clock.projectTimeForHostTimeNanoseconds(49 * second), ProjectTime::fromSeconds(-1));
    EXPECT_EQ(clock.projectTimeForVideoPTS(at(103 * second)), ProjectTime::fromSeconds(3));
    EXPECT_EQ(clock.videoPTS(ProjectTime::fromSeconds(3)), at(103 * second));

    clock.pause();
    EXPECT_FALSE(clock.projectTimeForHostTimeNanoseconds(53 * second));
    // After a pause of 60 s the video clock shows no gap: the resume frame is
    // at video 105 s, host 115 s.
    clock.resume(at(105 * second), 115 * second);
    EXPECT_EQ(clock.projectTimeForHostTimeNanoseconds(116 * second), ProjectTime::fromSeconds(6));
    EXPECT_EQ(clock.anchors().size(), 2U);
    EXPECT_EQ(clock.anchors().back().offsetNanoseconds, 0);
}

TEST(RecordingClock, DiscontinuitiesAreFramesWhoseVideoAndHostTimesMoveApartByMoreThanFiftyMilliseconds) {
    RecordingClock clock;
    clock.start(at(0), 0);
    const std::int64_t video = 16'700'000;
    EXPECT_FALSE(clock.observe(at(video), 66'700'000));                 // 50 ms apart exactly
    EXPECT_TRUE(clock.observe(at(2 * video), 66'700'000 + 66'800'000)); // 50.1 ms
    EXPECT_TRUE(clock.observe(at(2 * video), 200'000'000));             // the video stood still
    clock.pause();
    // The first frame after a pause has nothing to compare with.
    EXPECT_FALSE(clock.observe(at(10 * second), 1));
}

TEST(RecordingClock, PeriodicAnchorsAreTenSecondsOfProjectTimeApartAndMeasureDrift) {
    RecordingClock clock;
    clock.start(at(0), 1000);
    EXPECT_FALSE(clock.recordDiagnosticAnchor(at(10 * second - 1), 1000 + 10 * second));
    // The host clock ran 2 ms slower than the video clock.
    const std::optional<ClockAnchor> anchor =
        clock.recordDiagnosticAnchor(at(10 * second), 1000 + 10 * second - 2'000'000);
    ASSERT_TRUE(anchor);
    EXPECT_EQ(anchor->offsetNanoseconds, 2'000'000);
    EXPECT_FALSE(clock.recordDiagnosticAnchor(at(15 * second), 1000 + 15 * second));
}

TEST(ScreenRecordingSession, TheFirstFrameAfterAPauseFollowsTheLastOneByOneFrame) {
    const MediaTime last = at(5 * second);
    const MediaTime input = at(65 * second + 123);
    const MediaTime resumed = ScreenRecordingSession::resumedOutputPTS(input, last, at(0), 30);
    EXPECT_EQ(nanosecondsFromMediaTime(resumed - last), 33'333'333);
    // The paused time becomes the source offset of every later frame.
    EXPECT_NEAR(nanosecondsFromMediaTime(input - resumed), 60 * second, 40'000'000);
    // Paused before the first frame: the frame keeps its place.
    EXPECT_EQ(ScreenRecordingSession::resumedOutputPTS(input, std::nullopt, at(7), 30),
              at(65 * second + 116));
}

TEST(GeometryTracker, RevisionsOnlyChangeWithTheGeometry) {
    GeometryTracker tracker(PixelSize(1920, 1080), RectValue{0, 0, 800, 600}, std::nullopt);
    const GeometryFrameMetadata window{{100, 50, 800, 450}, {0, 0, 800, 450}, 0.5};
    const std::optional<GeometrySample> first = tracker.update(ProjectTime::fromMilliseconds(10), window);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->revision, 1U);
    // A scale below 1 is stored as reported but never shrinks the content.
    EXPECT_EQ(first->scaleFactor, 0.5);
    EXPECT_EQ(first->sourceContentSize, (SizeValue{800, 450}));
    EXPECT_EQ(first->contentRectInEncodedFrame, (RectValue{0, 0, 1920, 1080}));
    EXPECT_FALSE(tracker.update(ProjectTime::fromMilliseconds(20), window));
    EXPECT_EQ(tracker.current()->time, ProjectTime::fromMilliseconds(10));

    // A content rectangle that says nothing falls back to the encoded size;
    // a taller source is pillar-boxed in the middle.
    GeometryFrameMetadata unknownContent = window;
    unknownContent.contentRect = {0, 0, 0, 0};
    EXPECT_EQ(tracker.update(ProjectTime::fromMilliseconds(30), unknownContent)->sourceContentSize,
              (SizeValue{1920, 1080}));
    const std::optional<GeometrySample> tall =
        tracker.update(ProjectTime::fromMilliseconds(40), {{0, 0, 540, 1080}, {0, 0, 540, 1080}, 2});
    EXPECT_EQ(tall->revision, 3U);
    EXPECT_EQ(tall->contentRectInEncodedFrame, (RectValue{690, 0, 540, 1080}));
}

TEST(MouseEventRecorder, EventsTakeProjectTimeAndTheCurrentGeometry) {
    RecordingClock clock;
    GeometryTracker tracker(PixelSize(800, 600), RectValue{100, 100, 800, 600}, std::nullopt);
    RawMouseEvent press{MouseEventKind::leftMouseDown, 3 * second, {500, 400}, 0};
    // Before the first frame there is no project time.
    EXPECT_FALSE(MouseEventRecorder::record(press, clock, tracker));
    clock.start(at(0), 2 * second);
    EXPECT_FALSE(MouseEventRecorder::record(press, clock, tracker)); // and no geometry yet
    tracker.update(ProjectTime{}, {{100, 100, 800, 600}, {0, 0, 800, 600}, 1});

    const std::optional<MouseEvent> inside = MouseEventRecorder::record(press, clock, tracker);
    ASSERT_TRUE(inside);
    EXPECT_EQ(inside->time, ProjectTime::fromSeconds(1));
    EXPECT_EQ(inside->localPoint, (PointValue{400, 300}));
    EXPECT_EQ(inside->normalizedPoint, (PointValue{0.5, 0.5}));
    EXPECT_EQ(inside->phase, MousePhase::down);
    EXPECT_EQ(inside->isInsideSource, true);

    // Outside the source: on the edge, and said so. A plain move reads as left.
    const std::optional<MouseEvent> outside =
        MouseEventRecorder::record({MouseEventKind::mouseMoved, 3 * second, {50, 400}, 0}, clock, tracker);
    EXPECT_EQ(outside->normalizedPoint, (PointValue{0, 0.5}));
    EXPECT_EQ(outside->isInsideSource, false);
    EXPECT_EQ(outside->button, MouseButton::left);
    EXPECT_EQ(outside->phase, MousePhase::moved);

    // A moved window: the revision and local point follow it.
    tracker.update(ProjectTime::fromSeconds(1), {{300, 100, 800, 600}, {0, 0, 800, 600}, 1});
    const std::optional<MouseEvent> moved = MouseEventRecorder::record(press, clock, tracker);
    EXPECT_EQ(moved->geometryRevision, 2U);
    EXPECT_EQ(moved->localPoint, (PointValue{200, 300}));

    clock.pause();
    EXPECT_FALSE(MouseEventRecorder::record(press, clock, tracker));
}

} // namespace
} // namespace rilo

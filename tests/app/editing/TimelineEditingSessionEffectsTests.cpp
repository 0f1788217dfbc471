// The timed effects that the session inserts at the playhead or drags inside
// a segment: zooms, webcam full screen and annotations.

#include "app/editing/TimelineAnnotationEditing.h"
#include "app/editing/TimelineEditingSession.h"
#include "support/Thrown.h"
#include "support/TimelineBuilders.h"

#include <gtest/gtest.h>

namespace rilo {
namespace {

using testing::ms;
using testing::segment;
using testing::timelineOf;

const ProjectTime sourceDuration = ms(12'000);

// Two segments with a cut from 5 s to 7 s; the second plays at half speed,
// so the sequence runs 0-5 s, then 5-15 s.
EditTimeline cutTimeline() {
    return timelineOf({segment(ms(0), ms(5'000)), segment(ms(7'000), sourceDuration, 500)});
}

class TimelineEditingEffectsTest : public ::testing::Test {
protected:
    EditTimeline original = cutTimeline();
    int changes = 0;
    TimelineEditingSession session{original,
                                   sourceDuration,
                                   PixelSize(1920, 1080),
                                   [this](const EditTimeline&, bool, bool) { ++changes; },
                                   {}};

    const Uuid& firstSegmentID() const { return original.segments[0].id; }
};

TEST_F(TimelineEditingEffectsTest, AManualZoomLastsOneSecondOfOutputAndNeverCrossesACut) {
    // Half a second before the cut there is no room for a second of output.
    session.addZoom(ms(4'500));
    EXPECT_EQ(session.timeline(), original);
    EXPECT_EQ(session.message(), "自动镜头区间至少需要一帧，且必须位于原始媒体内。");
    EXPECT_EQ(changes, 0);

    // At half speed a second of output is half a second of source, and 300 ms
    // of output 150 ms of source.
    session.addZoom(ms(5'500));
    ASSERT_EQ(session.timeline().zooms.size(), 1u);
    const ZoomSegment& zoom = session.timeline().zooms.front();
    EXPECT_EQ(zoom.startTime, ms(7'250));
    EXPECT_EQ(zoom.endTime, ms(7'750));
    EXPECT_EQ(zoom.focusTime, ms(7'400));
    EXPECT_EQ(zoom.holdEndTime, ms(7'600));
    EXPECT_DOUBLE_EQ(zoom.scale, 1.7);
    EXPECT_EQ(session.selectedZoomID(), zoom.id);
    EXPECT_EQ(session.message(), std::nullopt);

    session.removeSelectedZoom();
    EXPECT_TRUE(session.timeline().zooms.empty());
    EXPECT_EQ(session.selectedZoomID(), std::nullopt);
}

TEST_F(TimelineEditingEffectsTest, DraggedElementsStayInsideTheirSegment) {
    session.addZoom(ms(1'000));
    const Uuid zoomID = *session.selectedZoomID();
    // Dragged over the cut, the zoom stops at the segment's end.
    session.moveZoom(zoomID, ms(6'000), firstSegmentID());
    EXPECT_EQ(session.timeline().zooms.front().endTime, ms(5'000));
    EXPECT_EQ(session.timeline().zooms.front().startTime, ms(4'000));

    session.addAnnotation(AnnotationKind::arrow, ms(0));
    ASSERT_TRUE(session.selectedAnnotationID().has_value());
    const Uuid annotationID = *session.selectedAnnotationID();
    const auto annotation = [&] { return session.timeline().annotations.front(); };
    session.updateAnnotationStart(annotationID, ms(2'000));
    session.moveAnnotation(annotationID, ms(11'000), original.segments[1].id);
    EXPECT_EQ(annotation().startTime, ms(9'000));
    EXPECT_EQ(annotation().endTime, sourceDuration);
    session.moveAnnotation(annotationID, ms(-3'000), firstSegmentID());
    EXPECT_EQ(annotation().startTime, ms(0));
    EXPECT_EQ(annotation().endTime, ms(3'000));

    // Longer than either segment: a drag changes nothing.
    session.updateAnnotationEnd(annotationID, ms(6'000));
    const EditTimeline before = session.timeline();
    session.moveAnnotation(annotationID, ms(7'000), original.segments[1].id);
    EXPECT_EQ(session.timeline(), before);
    EXPECT_EQ(session.message(), std::nullopt);
}

TEST_F(TimelineEditingEffectsTest, AnAnnotationGoesOnTopOfRenumberedOnesAndMustFitItsSegment) {
    EditTimeline timeline = original;
    timeline.annotations = {
        AnnotationElement::defaultAnnotation(AnnotationKind::rectangle, ms(0), ms(1'000), 7, 16.0 / 9.0),
        AnnotationElement::defaultAnnotation(AnnotationKind::mosaic, ms(500), ms(1'500), 3, 16.0 / 9.0),
    };
    const auto inserted = TimelineAnnotationEditing::addAnnotation(timeline, AnnotationKind::circle,
                                                                   ms(5'500), sourceDuration, 9.0 / 16.0);
    const auto& annotations = inserted.timeline.annotations;
    ASSERT_EQ(annotations.size(), 3u);
    EXPECT_EQ(annotations[0].id, timeline.annotations[1].id);
    EXPECT_EQ(annotations[0].zIndex, 0);
    EXPECT_EQ(annotations[1].zIndex, 1);
    EXPECT_EQ(annotations[2].id, inserted.annotationID);
    EXPECT_EQ(annotations[2].zIndex, 2);
    // Five seconds of output at half speed, from 7.25 s of source.
    EXPECT_EQ(annotations[2].startTime, ms(7'250));
    EXPECT_EQ(annotations[2].endTime, ms(9'750));
    // Round on the portrait canvas it was made for.
    EXPECT_NEAR(annotations[2].bounds->width, 0.22 * 16.0 / 9.0, 1e-12);

    EXPECT_EQ(testing::thrownCase<AnnotationEditingError>([&] {
                  TimelineAnnotationEditing::addAnnotation(timeline, AnnotationKind::arrow, ms(14'000),
                                                           sourceDuration, 16.0 / 9.0);
              }),
              AnnotationEditingError::Case::invalidRange);
    EXPECT_EQ(testing::thrownCase<AnnotationEditingError>([&] {
                  TimelineAnnotationEditing::removeAnnotation(timeline, Uuid::random(), sourceDuration);
              }),
              AnnotationEditingError::Case::notFound);

    // In the session the refusal is a message, and the circle is made round
    // for the session's own canvas (16:9).
    session.addAnnotation(AnnotationKind::circle, ms(14'000));
    EXPECT_EQ(session.message(), "标注区间无效或超出所在片段。");
    session.addAnnotation(AnnotationKind::circle, ms(0));
    EXPECT_NEAR(session.timeline().annotations.front().bounds->width, 0.22 * 9.0 / 16.0, 1e-12);
}

TEST_F(TimelineEditingEffectsTest, AnnotationEditsKeepTheDocumentValid) {
    session.addAnnotation(AnnotationKind::rectangle, ms(0));
    ASSERT_TRUE(session.selectedAnnotationID().has_value());
    const Uuid id = *session.selectedAnnotationID();

    session.updateAnnotationBounds(id, {0.9, -0.2, 0.3, 0.001});
    const RectValue bounds = *session.timeline().annotations.front().bounds;
    EXPECT_DOUBLE_EQ(bounds.x, 0.7);
    EXPECT_DOUBLE_EQ(bounds.y, 0);
    EXPECT_DOUBLE_EQ(bounds.height, 0.02);

    session.updateAnnotationEnd(id, ms(-1'000));
    EXPECT_EQ(session.timeline().annotations.front().endTime,
              session.timeline().annotations.front().startTime + TimelineFrameGrid::minimumDuration);

    // Arrow points on a rectangle make an invalid document: refused.
    const EditTimeline before = session.timeline();
    session.updateAnnotationArrow(id, {0.1, 0.1}, {0.5, 0.5});
    EXPECT_EQ(session.timeline(), before);
    EXPECT_EQ(session.message(), "标注时间、几何或样式无效。");

    session.removeSelectedAnnotation();
    EXPECT_TRUE(session.timeline().annotations.empty());
    EXPECT_EQ(session.selectedAnnotationID(), std::nullopt);
}

TEST_F(TimelineEditingEffectsTest, WebcamFullScreenNeedsFiveSecondsOfOutputInTheSegment) {
    EditTimeline withWebcam = original;
    withWebcam.webcamOverlay = WebcamOverlay::defaultValue();
    session.applyExternalTimeline(withWebcam);

    session.addWebcamFullscreen(ms(1'000));
    EXPECT_EQ(session.message(), "摄像头全屏区间至少需要两帧，且必须位于原始媒体内。");
    session.addWebcamFullscreen(ms(0));
    ASSERT_EQ(session.timeline().webcamFullscreenSegments.size(), 1u);
    EXPECT_EQ(session.timeline().webcamFullscreenSegments.front().endTime, ms(5'000));
    EXPECT_EQ(session.selectedWebcamFullscreenID(), session.timeline().webcamFullscreenSegments.front().id);

    session.upsertWebcamKeyframe(ms(2'000), {0.5, 0.5}, 0.3);
    ASSERT_EQ(session.timeline().webcamKeyframes.size(), 1u);
    EXPECT_EQ(session.selectedWebcamKeyframeID(), session.timeline().webcamKeyframes.front().id);
    session.removeSelectedWebcamKeyframe();
    EXPECT_TRUE(session.timeline().webcamKeyframes.empty());
}

TEST_F(TimelineEditingEffectsTest, RegeneratedZoomsComeOnlyFromClicksInsideTheSource) {
    const auto click = [](std::int64_t milliseconds, bool inside) {
        MouseEvent down;
        down.time = ms(milliseconds);
        down.normalizedPoint = {0.4, 0.4};
        down.button = MouseButton::left;
        down.phase = MousePhase::down;
        down.isInsideSource = inside;
        return down;
    };
    session.regenerateAutoZooms({click(2'000, true), click(9'000, false)});
    ASSERT_EQ(session.timeline().zooms.size(), 1u);
    EXPECT_LT(session.timeline().zooms.front().startTime, ms(2'000));
}

} // namespace
} // namespace rilo

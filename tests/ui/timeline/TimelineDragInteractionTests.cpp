// Drags anchored in sequence time: the delta under the pointer is converted
// at the rate of the element's segment, the element is held inside that
// segment, and the engines do the rest at release.

#include "project/caption/CaptionEditingError.h"
#include "project/engine/TimelineEffectEngine.h"
#include "support/Thrown.h"
#include "support/TimelineBuilders.h"
#include "ui/timeline/TimelineDragInteractions.h"

#include <gtest/gtest.h>

namespace rilo {
namespace {

using testing::ms;
using testing::segment;
using testing::timelineOf;
namespace Drags = TimelineDragInteractions;

const ProjectTime sourceDuration = ms(10'000);
const TimelineZoomDragPart body = TimelineZoomDragPart::body();
const TimelineZoomDragPart startEdge = TimelineZoomDragPart::edgeOf(TimelineZoomEdge::start);
const TimelineZoomDragPart endEdge = TimelineZoomDragPart::edgeOf(TimelineZoomEdge::end);

ZoomSegment zoomOver(ProjectTime start, ProjectTime end) {
    return TimelineEffectEngine::normalizedZoom({start, end - start}, {0.5, 0.5}, 2, sourceDuration,
                                                100'000'000, 100'000'000);
}

const ZoomSegment& zoomWithID(const EditTimeline& timeline, const Uuid& id) {
    return *std::ranges::find_if(timeline.zooms, [&](const ZoomSegment& zoom) { return zoom.id == id; });
}

// Source 0-4 s plays at normal speed (sequence 0-4 s), 4-6 s is cut, and
// 6-10 s plays at double speed (sequence 4-6 s). Zoom 0 lies at 1-2 s,
// zoom 1 at 6.5-7.5 s (sequence 4.25-4.75 s).
class TimelineDragInteractionTest : public ::testing::Test {
protected:
    TimelineDragInteractionTest() {
        timeline = timelineOf({segment(ms(0), ms(4'000)), segment(ms(6'000), ms(10'000), 2000)},
                              {zoomOver(ms(1'000), ms(2'000)), zoomOver(ms(6'500), ms(7'500))});
        mapper = TimelineMapper(timeline, sourceDuration);
    }

    const Uuid& first() const { return timeline.segments[0].id; }
    const Uuid& second() const { return timeline.segments[1].id; }

    EditTimeline timeline;
    TimelineMapper mapper;
};

TEST_F(TimelineDragInteractionTest, AnEdgeAtDoubleSpeedGoesWhereThePointerIsInSequenceTime) {
    const Uuid id = timeline.zooms[1].id;
    // Pressed on the handle just inside the end at 4.75 s, dragged half a
    // second of output to the right.
    const std::optional<TimelineZoomInteraction> pressed =
        Drags::beginZoom(id, endEdge, ms(4'730), timeline, mapper);
    ASSERT_TRUE(pressed);
    EXPECT_EQ(pressed->segmentID, second());
    const TimelineZoomInteraction drag = Drags::dragged(*pressed, ms(5'230), mapper);

    // Half a second of output is a whole second of source here: the end
    // moves to 8.5 s, what the pointer's sequence time (plus the press's
    // offset from the edge) shows, not to 8 s.
    EXPECT_EQ(Drags::targetSourceTime(drag, mapper), mapper.mappedTimeForSequenceTime(ms(5'250))->sourceTime);
    const ZoomSegment moved = zoomWithID(Drags::applied(drag, timeline, mapper), id);
    EXPECT_EQ(moved.endTime, ms(8'500));
    EXPECT_EQ(moved.startTime, ms(6'500));

    // The start edge the same way, to the left.
    const TimelineZoomInteraction start =
        Drags::dragged(*Drags::beginZoom(id, startEdge, ms(4'250), timeline, mapper), ms(4'150), mapper);
    EXPECT_EQ(zoomWithID(Drags::applied(start, timeline, mapper), id).startTime, ms(6'300));
}

TEST_F(TimelineDragInteractionTest, ADragThatLeavesItsSegmentIsHeldInsideIt) {
    const Uuid early = timeline.zooms[0].id;
    const Uuid late = timeline.zooms[1].id;
    const TimelineZoomInteraction pressed = *Drags::beginZoom(early, body, ms(1'500), timeline, mapper);
    EXPECT_EQ(pressed.segmentID, first());

    // Into the next segment: the zoom stops with its end at the end of its own.
    const ZoomSegment right =
        zoomWithID(Drags::applied(Drags::dragged(pressed, ms(5'500), mapper), timeline, mapper), early);
    EXPECT_EQ(right.startTime, ms(3'000));
    EXPECT_EQ(right.endTime, ms(4'000));
    const ZoomSegment left =
        zoomWithID(Drags::applied(Drags::dragged(pressed, ms(200), mapper), timeline, mapper), early);
    EXPECT_EQ(left.startTime, ms(0));

    // An edge stops at the segment's start rather than entering the cut.
    const TimelineZoomInteraction edge =
        Drags::dragged(*Drags::beginZoom(late, startEdge, ms(4'250), timeline, mapper), ms(1'000), mapper);
    EXPECT_EQ(Drags::targetSourceTime(edge, mapper), ms(6'000));
    EXPECT_EQ(zoomWithID(Drags::applied(edge, timeline, mapper), late).startTime, ms(6'000));
}

TEST_F(TimelineDragInteractionTest, MovingThePointerChangesOnlyThePreview) {
    const TimelineZoomInteraction pressed =
        *Drags::beginZoom(timeline.zooms[0].id, body, ms(1'500), timeline, mapper);
    EXPECT_EQ(pressed.previewSequenceTime, ms(1'500));
    // Past the cut at sequence 4 s and beyond the end of the sequence.
    for (const ProjectTime pointer : {ms(4'500), ms(60'000), ms(-3'000)}) {
        TimelineZoomInteraction expected = pressed;
        expected.previewSequenceTime = std::clamp(pointer, ms(0), mapper.sequenceDuration());
        EXPECT_EQ(Drags::dragged(pressed, pointer, mapper), expected);
    }
    // A release where the press was changes nothing.
    EXPECT_EQ(Drags::applied(pressed, timeline, mapper), timeline);
    // Unknown elements give no drag.
    EXPECT_EQ(Drags::beginZoom(Uuid::random(), body, ms(1'500), timeline, mapper), std::nullopt);
    EXPECT_EQ(Drags::beginTrim(Uuid::random(), TimelineTrimEdge::end, ms(0), mapper), std::nullopt);
}

TEST_F(TimelineDragInteractionTest, TrimsReachIntoRemovedContentUpToTheNeighbour) {
    const auto trimmed = [&](const Uuid& segmentID, TimelineTrimEdge edge, ProjectTime anchor,
                             ProjectTime pointer) {
        const TimelineTrimInteraction drag =
            Drags::dragged(*Drags::beginTrim(segmentID, edge, anchor, mapper), pointer, mapper);
        const EditTimeline result = Drags::applied(drag, timeline, mapper);
        return std::pair{result.segments[0].sourceRange, result.segments[1].sourceRange};
    };
    using testing::between;
    // The end of the first segment: a second of output is a second of source.
    EXPECT_EQ(trimmed(first(), TimelineTrimEdge::end, ms(4'000), ms(5'000)).first, between(ms(0), ms(5'000)));
    // Far past the neighbour it stops there.
    EXPECT_EQ(trimmed(first(), TimelineTrimEdge::end, ms(4'000), ms(6'000)).first, between(ms(0), ms(6'000)));
    // The start of the double-speed segment: half a second of output back is
    // a second of source, and the previous segment's end stops it.
    EXPECT_EQ(trimmed(second(), TimelineTrimEdge::start, ms(4'000), ms(3'500)).second,
              between(ms(5'000), ms(10'000)));
    EXPECT_EQ(trimmed(second(), TimelineTrimEdge::start, ms(4'000), ms(0)).second,
              between(ms(4'000), ms(10'000)));
    // A start dragged past its own end keeps one frame.
    EXPECT_EQ(trimmed(first(), TimelineTrimEdge::start, ms(0), ms(6'000)).first,
              between(TimelineFrameGrid::boundaryForFrame(239), ms(4'000)));
}

TEST_F(TimelineDragInteractionTest, AnnotationsAndFullScreenWebcamMoveAtTheirSegmentsRate) {
    timeline.annotations = {
        AnnotationElement::defaultAnnotation(AnnotationKind::rectangle, ms(7'000), ms(8'000), 0, 16.0 / 9),
        AnnotationElement::defaultAnnotation(AnnotationKind::circle, ms(2'500), ms(7'500), 1, 16.0 / 9)};
    timeline.webcamOverlay = WebcamOverlay::defaultValue();
    timeline.webcamFullscreenSegments = {{Uuid::random(), ms(6'000), ms(7'000)}};
    mapper = TimelineMapper(timeline, sourceDuration);
    const Uuid shortID = timeline.annotations[0].id;
    const Uuid longID = timeline.annotations[1].id;

    // 7-8 s shows at sequence 4.5-5 s; a quarter second of output is half a
    // second of source.
    const TimelineAnnotationInteraction moved = Drags::dragged(
        *Drags::beginAnnotation(shortID, body, ms(4'600), timeline, mapper), ms(4'850), mapper);
    const EditTimeline afterMove = Drags::applied(moved, timeline, mapper);
    const auto annotation = [](const EditTimeline& result, const Uuid& id) {
        return *std::ranges::find_if(result.annotations,
                                     [&](const AnnotationElement& a) { return a.id == id; });
    };
    EXPECT_EQ(annotation(afterMove, shortID).startTime, ms(7'500));
    EXPECT_EQ(annotation(afterMove, shortID).endTime, ms(8'500));

    // One spanning the cut, longer than either segment, cannot be moved; its
    // end edge still can, inside the segment where it shows.
    const TimelineAnnotationInteraction stuck =
        Drags::dragged(*Drags::beginAnnotation(longID, body, ms(3'000), timeline, mapper), ms(3'500), mapper);
    EXPECT_EQ(Drags::applied(stuck, timeline, mapper), timeline);
    const TimelineAnnotationInteraction end = Drags::dragged(
        *Drags::beginAnnotation(longID, endEdge, ms(4'750), timeline, mapper), ms(5'000), mapper);
    EXPECT_EQ(end.segmentID, second());
    EXPECT_EQ(annotation(Drags::applied(end, timeline, mapper), longID).endTime, ms(8'000));

    const Uuid intervalID = timeline.webcamFullscreenSegments[0].id;
    const TimelineWebcamFullscreenInteraction widened = Drags::dragged(
        *Drags::beginWebcamFullscreen(intervalID, endEdge, ms(4'500), timeline, mapper), ms(5'000), mapper);
    EXPECT_EQ(widened.sourceSegmentID, second());
    const EditTimeline afterWiden = Drags::applied(widened, timeline, mapper);
    EXPECT_EQ(afterWiden.webcamFullscreenSegments[0].startTime, ms(6'000));
    EXPECT_EQ(afterWiden.webcamFullscreenSegments[0].endTime, ms(8'000));
}

TEST_F(TimelineDragInteractionTest, CaptionDragsPreviewInSequenceTimeAndCommitInSourceTime) {
    CaptionDocument captions;
    captions.sourceAudioDigest = std::string(64, 'a');
    captions.basedOnTimelineDigest = std::string(64, 'b');
    captions.cues = {{Uuid::random(), ms(7'000), ms(8'000), "第一句", {}, {}},
                     {Uuid::random(), ms(9'000), ms(9'500), "第二句", {}, {}}};
    const Uuid& cue = captions.cues[0].id;

    const CaptionDragInteraction pressed =
        *Drags::beginCaption(cue, CaptionDragPart::body, ms(4'600), captions, mapper);
    EXPECT_EQ(pressed.segmentID, second());
    EXPECT_EQ(ProjectTimeRange::fromStartEnd(pressed.originalSequenceStart, pressed.originalSequenceEnd),
              testing::between(ms(4'500), ms(5'000)));
    const CaptionDragInteraction drag = Drags::dragged(pressed, ms(4'850), mapper);
    EXPECT_EQ(drag.previewSequenceRange(), testing::between(ms(4'750), ms(5'250)));
    const CaptionDocument moved = Drags::applied(drag, captions, mapper);
    EXPECT_EQ(moved.cues[0].start, ms(7'500));
    EXPECT_EQ(moved.cues[0].end, ms(8'500));

    // The start dragged back past the segment's start stops there.
    const CaptionDragInteraction start = Drags::dragged(
        *Drags::beginCaption(cue, CaptionDragPart::start, ms(4'500), captions, mapper), ms(2'000), mapper);
    EXPECT_EQ(start.previewSequenceRange().start, ms(2'000));
    EXPECT_EQ(Drags::applied(start, captions, mapper).cues[0].start, ms(6'000));

    // A neighbour is the caption engine's rule: a move into it is refused.
    const CaptionDragInteraction collide = Drags::dragged(pressed, ms(5'600), mapper);
    EXPECT_EQ(testing::thrownCase<CaptionEditingError>([&] { Drags::applied(collide, captions, mapper); }),
              CaptionEditingError::Case::overlapsNeighbor);
}

} // namespace
} // namespace rilo

// What a press finds on the lanes: bodies, handles preferred near edges,
// blocks of elements that span a cut, and trim handles of segments.

#include "project/engine/TimelineEffectEngine.h"
#include "support/TimelineBuilders.h"
#include "ui/timeline/TimelineHitTesting.h"

#include <gtest/gtest.h>

namespace rilo {
namespace {

using testing::ms;
using testing::segment;
using testing::timelineOf;

const ProjectTime sourceDuration = ms(10'000);
const TimelineViewMetrics metrics = TimelineViewMetrics::standard();
// One second is 100 pixels from sequence time 0.
const TimelineCoordinateSpace space{ms(0), 100};

ZoomSegment zoomOver(ProjectTime start, ProjectTime end) {
    return TimelineEffectEngine::normalizedZoom({start, end - start}, {0.5, 0.5}, 2, sourceDuration,
                                                100'000'000, 100'000'000);
}

// Source 0-4 s plays at normal speed (x 0-400), 4-6 s is cut, 6-10 s plays
// at double speed (x 400-600).
class TimelineHitTestingTest : public ::testing::Test {
protected:
    TimelineHitTestingTest() {
        timeline = timelineOf(
            {segment(ms(0), ms(4'000)), segment(ms(6'000), ms(10'000), 2000)},
            {zoomOver(ms(1'000), ms(2'000)), zoomOver(ms(2'000), ms(3'000)), zoomOver(ms(3'500), ms(7'000))});
        timeline.webcamOverlay = WebcamOverlay::defaultValue();
        timeline.webcamFullscreenSegments = {{Uuid::random(), ms(6'000), ms(8'000)}};
        timeline.annotations = {
            AnnotationElement::defaultAnnotation(AnnotationKind::rectangle, ms(500), ms(3'000), 1, 16.0 / 9),
            AnnotationElement::defaultAnnotation(AnnotationKind::arrow, ms(1'000), ms(2'000), 0, 16.0 / 9)};
        mapper = TimelineMapper(timeline, sourceDuration);
    }

    std::optional<TimelineEffectHit> hit(TimelineLane lane, double x) const {
        return TimelineHitTesting::effectHit(lane, x, timeline, mapper, space, metrics);
    }
    std::optional<TimelineEffectHit> zoomHit(double x) const { return hit(TimelineLane::autoZoom, x); }
    const Uuid& zoom(std::size_t index) const { return timeline.zooms[index].id; }

    EditTimeline timeline;
    TimelineMapper mapper;
};

TEST_F(TimelineHitTestingTest, APressInsideABlockFindsItsBody) {
    const std::optional<TimelineEffectHit> body = zoomHit(150);
    ASSERT_TRUE(body);
    EXPECT_EQ(body->kind, TimelineEffectHit::Kind::zoomBody);
    EXPECT_EQ(body->zoomID(), zoom(0));
    EXPECT_EQ(body->zoomDragPart(), TimelineZoomDragPart::body());
    EXPECT_EQ(body->webcamFullscreenID(), std::nullopt);
    EXPECT_EQ(body->annotationID(), std::nullopt);
    EXPECT_EQ(TimelineHoveredBlock::of(*body),
              (TimelineHoveredBlock{TimelineHoveredBlock::Kind::zoom, zoom(0)}));

    // Between blocks and on lanes without zooms nothing is found.
    EXPECT_EQ(zoomHit(50), std::nullopt);
    EXPECT_EQ(hit(TimelineLane::screen, 150), std::nullopt);
    EXPECT_EQ(hit(TimelineLane::ruler, 150), std::nullopt);
}

TEST_F(TimelineHitTestingTest, HandlesArePreferredNearTheEdges) {
    // Inside the handle, and a little outside the block.
    for (const double x : {100.0, 103.0, 97.0}) {
        const std::optional<TimelineEffectHit> handle = zoomHit(x);
        ASSERT_TRUE(handle) << x;
        EXPECT_EQ(handle->kind, TimelineEffectHit::Kind::zoomHandle);
        EXPECT_EQ(handle->zoomID(), zoom(0));
        EXPECT_EQ(handle->zoomDragPart(), TimelineZoomDragPart::edgeOf(TimelineZoomEdge::start));
    }
    EXPECT_EQ(zoomHit(100 - metrics.handleHitSlop - 1), std::nullopt);
    // Past the handle the body takes over.
    EXPECT_EQ(zoomHit(100 + metrics.handleWidth + metrics.handleHitSlop + 1)->kind,
              TimelineEffectHit::Kind::zoomBody);

    // Two zooms touch at x 200: the handle of the one under the pointer.
    EXPECT_EQ(zoomHit(199),
              (TimelineEffectHit{TimelineEffectHit::Kind::zoomHandle, zoom(0), TimelineZoomEdge::end}));
    EXPECT_EQ(zoomHit(201),
              (TimelineEffectHit{TimelineEffectHit::Kind::zoomHandle, zoom(1), TimelineZoomEdge::start}));
}

TEST_F(TimelineHitTestingTest, AnElementAcrossACutHasHandlesOnlyAtItsOuterEnds) {
    // Zoom 3.5-7 s shows at x 350-400 and, after the cut at double speed,
    // x 400-450. Where the blocks meet there is no handle.
    EXPECT_EQ(zoomHit(400), (TimelineEffectHit{TimelineEffectHit::Kind::zoomBody, zoom(2), std::nullopt}));
    EXPECT_EQ(zoomHit(352),
              (TimelineEffectHit{TimelineEffectHit::Kind::zoomHandle, zoom(2), TimelineZoomEdge::start}));
    EXPECT_EQ(zoomHit(448),
              (TimelineEffectHit{TimelineEffectHit::Kind::zoomHandle, zoom(2), TimelineZoomEdge::end}));
    EXPECT_EQ(zoomHit(470), std::nullopt);
}

TEST_F(TimelineHitTestingTest, WebcamAndAnnotationLanesFindTheirOwnElements) {
    // Full screen 6-8 s of source is x 400-500.
    const std::optional<TimelineEffectHit> webcam = hit(TimelineLane::webcamLayout, 450);
    ASSERT_TRUE(webcam);
    EXPECT_EQ(webcam->kind, TimelineEffectHit::Kind::webcamFullscreenBody);
    EXPECT_EQ(webcam->webcamFullscreenID(), timeline.webcamFullscreenSegments[0].id);
    EXPECT_EQ(webcam->zoomID(), std::nullopt);
    EXPECT_EQ(webcam->zoomDragPart(), std::nullopt);
    EXPECT_EQ(hit(TimelineLane::webcamLayout, 498)->kind, TimelineEffectHit::Kind::webcamFullscreenHandle);

    // Of two overlapping annotations the one drawn on top is grabbed; an edge
    // of the one below still wins near it.
    const AnnotationElement& top = timeline.annotations[0];
    const AnnotationElement& below = timeline.annotations[1];
    EXPECT_EQ(hit(TimelineLane::annotations, 150)->annotationID(), top.id);
    const std::optional<TimelineEffectHit> edge = hit(TimelineLane::annotations, 198);
    EXPECT_EQ(edge, (TimelineEffectHit{TimelineEffectHit::Kind::annotationHandle, below.id,
                                       TimelineZoomEdge::end}));
}

TEST_F(TimelineHitTestingTest, SegmentsOfferOnlyTrimHandles) {
    const auto trim = [&](double x) { return TimelineHitTesting::trimHit(x, mapper, space, metrics); };
    const Uuid& first = timeline.segments[0].id;
    const Uuid& second = timeline.segments[1].id;
    EXPECT_EQ(trim(398), (TimelineTrimHit{first, TimelineTrimEdge::end}));
    EXPECT_EQ(trim(401), (TimelineTrimHit{second, TimelineTrimEdge::start}));
    EXPECT_EQ(trim(2), (TimelineTrimHit{first, TimelineTrimEdge::start}));
    EXPECT_EQ(trim(603), (TimelineTrimHit{second, TimelineTrimEdge::end}));
    EXPECT_EQ(trim(200), std::nullopt);
}

TEST_F(TimelineHitTestingTest, CaptionCuesHaveABodyAndTwoEnds) {
    CaptionDocument captions;
    captions.cues = {{Uuid::random(), ms(6'000), ms(7'000), "第一句", {}, {}}};
    const auto caption = [&](double x) {
        return TimelineHitTesting::captionHit(x, captions, mapper, space, metrics);
    };
    const Uuid& cue = captions.cues[0].id;
    // At double speed the cue is x 400-450.
    EXPECT_EQ(caption(425), (TimelineCaptionHit{cue, CaptionDragPart::body}));
    EXPECT_EQ(caption(402), (TimelineCaptionHit{cue, CaptionDragPart::start}));
    EXPECT_EQ(caption(449), (TimelineCaptionHit{cue, CaptionDragPart::end}));
    EXPECT_EQ(caption(300), std::nullopt);
    EXPECT_EQ(TimelineHoveredBlock::of(*caption(425)),
              (TimelineHoveredBlock{TimelineHoveredBlock::Kind::caption, cue}));
}

} // namespace
} // namespace rilo

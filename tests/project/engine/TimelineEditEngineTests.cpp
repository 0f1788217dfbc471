#include "project/document/TimelineValidator.h"
#include "project/engine/TimelineEditEngine.h"
#include "project/engine/TimelineEffectEngine.h"
#include "project/engine/TimelineMapper.h"
#include "support/Thrown.h"
#include "support/TimelineBuilders.h"

#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <vector>

namespace rilo {
namespace {

using Case = TimelineEditError::Case;
using Edit = std::function<EditTimeline(const EditTimeline&)>;

constexpr ProjectTime sourceDuration = ProjectTime::fromSeconds(10);

using testing::between;
using testing::distinctSegmentIDs;
using testing::frame;
using testing::ms;
using testing::ns;
using testing::segment;
using testing::timelineOf;

AnnotationElement annotation(ProjectTime start, ProjectTime end, std::int64_t zIndex) {
    return AnnotationElement::defaultAnnotation(AnnotationKind::rectangle, start, end, zIndex, 16.0 / 9.0);
}

ZoomSegment zoom(ProjectTime start, ProjectTime end) {
    return {Uuid::random(),
            start,
            start + ms(250),
            end - ms(250),
            end,
            TimelineEffectEngine::constrainedFocus({0.3, 0.6}, 2),
            2};
}

// The edits, each ready to run on a timeline.
Edit splitAt(ProjectTime playhead) {
    return [=](const EditTimeline& t) { return TimelineEditEngine::split(t, playhead, sourceDuration); };
}
Edit trimStart(Uuid id, ProjectTime to) {
    return [=](const EditTimeline& t) { return TimelineEditEngine::trimStart(t, id, to, sourceDuration); };
}
Edit trimEnd(Uuid id, ProjectTime to) {
    return [=](const EditTimeline& t) { return TimelineEditEngine::trimEnd(t, id, to, sourceDuration); };
}
Edit deleting(Uuid id) {
    return [=](const EditTimeline& t) { return TimelineEditEngine::rippleDelete(t, id, sourceDuration); };
}
Edit retaining(ProjectTimeRange range) {
    return [=](const EditTimeline& t) {
        return TimelineEditEngine::retainingSequenceRange(t, range, sourceDuration);
    };
}
Edit removing(std::vector<ProjectTimeRange> ranges) {
    return [=](const EditTimeline& t) {
        return TimelineEditEngine::removeSourceRanges(t, ranges, sourceDuration);
    };
}

// Ten seconds of source with three kept segments:
//
//   source    A 0-2 s   B 3-5 s   C 6-9 s
//   rate      1x        2x        1x
//   sequence  0-2 s     2-3 s     3-6 s
struct ThreeSegments {
    TimelineSegment a = segment(ms(0), ms(2'000));
    TimelineSegment b = segment(ms(3'000), ms(5'000), 2000);
    TimelineSegment c = segment(ms(6'000), ms(9'000));
    EditTimeline timeline = timelineOf({a, b, c});
};

std::vector<ProjectTimeRange> rangesOf(const EditTimeline& timeline) {
    std::vector<ProjectTimeRange> ranges;
    for (const TimelineSegment& s : timeline.segments) {
        ranges.push_back(s.sourceRange);
    }
    return ranges;
}

void expectEditError(const EditTimeline& timeline, Case expected, const Edit& edit) {
    EXPECT_EQ(testing::thrownCase<TimelineEditError>([&] { edit(timeline); }), expected);
}

// Every result must be a document that may exist.
EditTimeline checked(EditTimeline timeline) {
    EXPECT_NO_THROW(TimelineValidator::validateContent(timeline, sourceDuration));
    return timeline;
}

TEST(TimelineEditSplitTests, LeftHalfKeepsTheIdAndBothHalvesKeepTheRate) {
    ThreeSegments fixture;
    fixture.timeline.zooms = {zoom(ms(3'500), ms(4'500))};
    fixture.timeline.annotations = {annotation(ms(3'000), ms(5'000), 0)};

    // Half a second into B's sequence range is one second into its source.
    const EditTimeline result = checked(splitAt(ms(2'500))(fixture.timeline));
    ASSERT_EQ(result.segments.size(), 4U);
    EXPECT_EQ(result.segments[1], (TimelineSegment{fixture.b.id, between(ms(3'000), ms(4'000)), {2000}}));
    EXPECT_EQ(result.segments[2].sourceRange, between(ms(4'000), ms(5'000)));
    EXPECT_EQ(result.segments[2].playbackRate.permille, 2000);
    EXPECT_EQ(distinctSegmentIDs(result), 4U) << "the right half gets an id of its own";
    // A split removes no content: effects and annotations stay as they were.
    EXPECT_EQ(result.zooms, fixture.timeline.zooms);
    EXPECT_EQ(result.annotations, fixture.timeline.annotations);

    // The playhead snaps to sequence frame 61 (1,016,666,666 ns), which is
    // source time 2,033,333,332 ns at 2x, one nanosecond before source frame 122.
    const EditTimeline snapped = splitAt(ns(1'020'000'000))(timelineOf({segment(ms(0), ms(4'000), 2000)}));
    EXPECT_EQ(rangesOf(snapped),
              (std::vector<ProjectTimeRange>{between(ms(0), frame(122)), between(frame(122), ms(4'000))}));

    // One frame before the end still splits C.
    EXPECT_EQ(splitAt(frame(359))(fixture.timeline).segments.back().sourceRange,
              between(frame(539), ms(9'000)));
}

TEST(TimelineEditTrimTests, TrimsMoveOneEndBetweenTheNeighboursAndOneFrame) {
    ThreeSegments f;
    const TimelineSegment only = segment(ms(1'000), ms(2'000));
    struct Row {
        EditTimeline timeline;
        Edit edit;
        std::size_t index;
        ProjectTimeRange expected;
    };
    const std::vector<Row> rows = {
        {f.timeline, trimStart(f.b.id, ms(2'000)), 1, between(ms(2'000), ms(5'000))}, // to A's end
        {timelineOf({only}), trimStart(only.id, ms(0)), 0, between(ms(0), ms(2'000))},
        {f.timeline, trimStart(f.c.id, ms(7'234)), 2, between(frame(434), ms(9'000))}, // snaps
        {f.timeline, trimStart(f.c.id, frame(539)), 2, between(frame(539), ms(9'000))},
        {f.timeline, trimEnd(f.a.id, ms(3'000)), 0, between(ms(0), ms(3'000))}, // to B's start
        {f.timeline, trimEnd(f.a.id, frame(1)), 0, between(ms(0), frame(1))},
        {f.timeline, trimEnd(f.c.id, sourceDuration), 2, between(ms(6'000), sourceDuration)},
    };
    for (const Row& row : rows) {
        const EditTimeline result = checked(row.edit(row.timeline));
        EXPECT_EQ(result.segments[row.index].sourceRange, row.expected);
        // Everything else stays: the id, the rate, the neighbours.
        EditTimeline expected = row.timeline;
        expected.segments[row.index].sourceRange = row.expected;
        EXPECT_EQ(result.segments, expected.segments);
    }
}

TEST(TimelineEditTrimTests, TrimsCutsAndDeletesDropAnnotationsThatNoLongerShowAndKeepZooms) {
    ThreeSegments fixture;
    const AnnotationElement before = annotation(ms(100), ms(600), 0);
    const AnnotationElement early = annotation(ms(6'200), ms(6'800), 1);
    const AnnotationElement across = annotation(ms(6'800), ms(7'800), 2);
    const AnnotationElement late = annotation(ms(7'500), ms(8'500), 3);
    fixture.timeline.annotations = {before, early, across, late};
    fixture.timeline.zooms = {zoom(ms(6'000), ms(8'000))};

    const EditTimeline trimmed = checked(trimEnd(fixture.c.id, ms(7'000))(fixture.timeline));
    EXPECT_EQ(trimmed.annotations, (std::vector<AnnotationElement>{before, early, across}));
    EXPECT_EQ(trimmed.zooms, fixture.timeline.zooms) << "zooms stay in source time";
    const EditTimeline cut = checked(removing({between(ms(6'000), ms(7'000))})(fixture.timeline));
    EXPECT_EQ(cut.annotations, (std::vector<AnnotationElement>{before, across, late}));
    EXPECT_EQ(cut.zooms, fixture.timeline.zooms) << "zooms are reconciled elsewhere";

    // A ripple delete removes the segment and the rest closes up.
    const AnnotationElement onB = annotation(ms(3'500), ms(4'500), 0);
    const AnnotationElement acrossTheGap = annotation(ms(4'500), ms(6'500), 1);
    fixture.timeline.annotations = {onB, acrossTheGap};

    const EditTimeline result = checked(deleting(fixture.b.id)(fixture.timeline));
    EXPECT_EQ(result.segments, (std::vector<TimelineSegment>{fixture.a, fixture.c}));
    EXPECT_EQ(TimelineMapper(result, sourceDuration).sequenceDuration(), ms(5'000));
    // The partly kept annotation stays whole, with its stored times.
    EXPECT_EQ(result.annotations, std::vector<AnnotationElement>{acrossTheGap});
}

TEST(TimelineEditRetainTests, KeepsOnePiecePerSegmentWithIdsByTheirStart) {
    ThreeSegments fixture;
    fixture.timeline.annotations = {annotation(ms(500), ms(900), 0), annotation(ms(4'000), ms(8'000), 1)};
    // Sequence 1 to 3.5 s: the second half of A, all of B, the first half second of C.
    const EditTimeline result = checked(retaining(between(ms(1'000), ms(3'500)))(fixture.timeline));

    EXPECT_EQ(rangesOf(result),
              (std::vector<ProjectTimeRange>{between(ms(1'000), ms(2'000)), between(ms(3'000), ms(5'000)),
                                             between(ms(6'000), ms(6'500))}));
    EXPECT_NE(result.segments[0].id, fixture.a.id) << "a piece starting later is new content";
    EXPECT_EQ(result.segments[1], fixture.b);
    EXPECT_EQ(result.segments[2].id, fixture.c.id);
    EXPECT_EQ(result.annotations, std::vector<AnnotationElement>{fixture.timeline.annotations[1]});

    // 2 ms into B's sequence range is 4 ms of its source, which snaps away.
    const EditTimeline snapped = checked(retaining(between(ms(1'234), ms(2'002)))(fixture.timeline));
    EXPECT_EQ(rangesOf(snapped), std::vector<ProjectTimeRange>{between(frame(74), ms(2'000))});

    // Up to the very end of the sequence is fine.
    EXPECT_EQ(retaining(between(ms(0), ms(6'000)))(fixture.timeline).segments, fixture.timeline.segments);
}

TEST(TimelineEditRemoveTests, CutsSplitSegmentsAndPassTheIdOn) {
    ThreeSegments f;
    const TimelineSegment whole = segment(ms(0), ms(10'000));
    const TimelineSegment offGrid = segment(ms(0), ms(4'010));
    struct Row {
        EditTimeline timeline;
        std::vector<ProjectTimeRange> cuts;
        std::vector<ProjectTimeRange> expected;
    };
    const std::vector<Row> rows = {
        // Inside B, and over the gap before B with snapped ends.
        {f.timeline,
         {between(ms(3'500), ms(4'000))},
         {between(ms(0), ms(2'000)), between(ms(3'000), ms(3'500)), between(ms(4'000), ms(5'000)),
          between(ms(6'000), ms(9'000))}},
        {f.timeline,
         {between(ms(1'503), ms(3'502))},
         {between(ms(0), ms(1'500)), between(ms(3'500), ms(5'000)), between(ms(6'000), ms(9'000))}},
        // Applied in the order given, neither sorted nor merged.
        {timelineOf({whole}),
         {between(ms(5'000), ms(6'000)), between(ms(2'000), ms(3'000))},
         {between(ms(0), ms(2'000)), between(ms(3'000), ms(5'000)), between(ms(6'000), ms(10'000))}},
        // 10 ms left after the cut goes with it; exactly one frame stays.
        {timelineOf({offGrid}), {between(ms(1'000), ms(4'000))}, {between(ms(0), ms(1'000))}},
        {timelineOf({whole}),
         {between(ms(1'000), frame(599))},
         {between(ms(0), ms(1'000)), between(frame(599), ms(10'000))}},
    };
    for (const Row& row : rows) {
        const EditTimeline result = checked(removing(row.cuts)(row.timeline));
        EXPECT_EQ(rangesOf(result), row.expected);
        EXPECT_EQ(distinctSegmentIDs(result), result.segments.size());
    }

    // The left piece keeps the id and the rate goes to both; with no left
    // piece, the right one takes the id.
    const EditTimeline inside = removing({between(ms(3'500), ms(4'000))})(f.timeline);
    EXPECT_EQ(inside.segments[1].id, f.b.id);
    EXPECT_EQ(inside.segments[2].playbackRate.permille, 2000);
    EXPECT_EQ(removing({between(ms(1'503), ms(3'502))})(f.timeline).segments[1].id, f.b.id);
}

TEST(TimelineEditRefusals, EachEditRefusesWhatItCannotDoAndPassesValidationErrorsOn) {
    const ThreeSegments f;
    const Uuid unknown = Uuid::random();
    const TimelineSegment only = segment(ms(1'000), ms(2'000));
    // Segments off the grid: 10 ms to 1.99 s, then 3 to 4 s.
    const EditTimeline offGrid = timelineOf({segment(ms(10), ms(1'990)), segment(ms(3'000), ms(4'000))});
    struct Row {
        EditTimeline timeline;
        Case expected;
        Edit edit;
    };
    const std::vector<Row> rows = {
        // A few milliseconds before B's start (snapping there), and where the
        // first frame would leave 6,666,666 ns on the left.
        {f.timeline, Case::splitAtBoundary, splitAt(ms(1'995))},
        {offGrid, Case::splitAtBoundary, splitAt(ms(0))},
        // Sequence frame 118 snaps to source frame 119, 6,666,667 ns before the end.
        {offGrid, Case::splitAtBoundary, splitAt(frame(118))},
        // 5.995 s snaps to the sequence end, which maps to nothing.
        {f.timeline, Case::noSegmentAtPlayhead, splitAt(ms(5'995))},
        {timelineOf({only}), Case::trimOutsideHandles, trimStart(only.id, ms(-20))},
        {f.timeline, Case::trimOutsideHandles, trimStart(f.b.id, frame(119))}, // into A
        {f.timeline, Case::trimOutsideHandles, trimStart(f.b.id, ms(5'000))},  // at its own end
        {f.timeline, Case::trimOutsideHandles, trimEnd(f.a.id, frame(181))},   // into B
        {f.timeline, Case::trimOutsideHandles, trimEnd(f.a.id, ms(5))},        // snaps to its start
        {f.timeline, Case::trimOutsideHandles, trimEnd(f.c.id, ms(10'010))},   // past the source
        {f.timeline, Case::segmentNotFound, trimStart(unknown, ms(0))},
        {f.timeline, Case::segmentNotFound, trimEnd(unknown, ms(1'000))},
        {f.timeline, Case::segmentNotFound, deleting(unknown)},
        // The count is checked before the id is looked up.
        {timelineOf({only}), Case::cannotDeleteLastSegment, deleting(unknown)},
        // A range that leaves no frame, is reversed, or leaves the sequence.
        {f.timeline, Case::invalidRange, retaining(between(ms(1'000), ms(1'003)))},
        {f.timeline, Case::invalidRange, retaining({ms(1'000), ms(-5)})},
        {f.timeline, Case::invalidRange, retaining(between(ms(-1), ms(1'000)))},
        {f.timeline, Case::invalidRange, retaining(between(ms(5'000), ns(6'000'000'001)))},
        {f.timeline, Case::invalidRange, removing({})},
        {f.timeline, Case::invalidRange, removing({between(ms(1'000), ms(1'003)), {ms(1'000), ms(-500)}})},
        // One good range does not excuse a bad one.
        {f.timeline, Case::invalidRange,
         removing({between(ms(500), ms(1'000)), between(ms(9'500), ms(10'500))})},
        // Entirely inside removed content: the list stays as it was.
        {f.timeline, Case::invalidRange, removing({between(ms(2'200), ms(2'800))})},
        {f.timeline, Case::cannotDeleteLastSegment, removing({between(ms(0), sourceDuration)})},
    };
    for (std::size_t index = 0; index < rows.size(); ++index) {
        SCOPED_TRACE(index);
        expectEditError(rows[index].timeline, rows[index].expected, rows[index].edit);
    }

    // An invalid input fails its own validation first.
    EXPECT_THROW(splitAt(ms(0))(EditTimeline::empty()), TimelineValidationError);
    // What is left of a 2x segment is one source frame, half a frame of output.
    EXPECT_EQ(testing::thrownCase<TimelineValidationError>([] {
                  removing({between(frame(1), ms(4'000))})(timelineOf({segment(ms(0), ms(4'000), 2000)}));
              }),
              TimelineValidationError::Case::sequenceSegmentTooShort);
}

} // namespace
} // namespace rilo

#include "project/document/TimelineValidator.h"
#include "project/engine/TimelineEditEngine.h"
#include "project/engine/TimelineEffectEngine.h"
#include "project/engine/TimelineMapper.h"
#include "support/TimelineBuilders.h"

#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace rilo {
namespace {

using Case = TimelineEditError::Case;

constexpr ProjectTime sourceDuration = ProjectTime::fromSeconds(10);
constexpr ProjectTime minimum = TimelineFrameGrid::minimumDuration;

using testing::between;
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

// Ten seconds of source with three kept segments:
//
//   source    A 0-2 s   B 3-5 s   C 6-9 s
//   rate      1x        2x        1x
//   sequence  0-2 s     2-3 s     3-6 s
struct ThreeSegments {
    TimelineSegment a = segment(ms(0), ms(2'000));
    TimelineSegment b = segment(ms(3'000), ms(5'000), 2000);
    TimelineSegment c = segment(ms(6'000), ms(9'000));
    EditTimeline timeline = [this] {
        EditTimeline result;
        result.segments = {a, b, c};
        return result;
    }();
};

std::vector<ProjectTimeRange> rangesOf(const EditTimeline& timeline) {
    std::vector<ProjectTimeRange> ranges;
    for (const TimelineSegment& s : timeline.segments) {
        ranges.push_back(s.sourceRange);
    }
    return ranges;
}

std::set<Uuid> idsOf(const EditTimeline& timeline) {
    std::set<Uuid> ids;
    for (const TimelineSegment& s : timeline.segments) {
        ids.insert(s.id);
    }
    return ids;
}

// Runs an edit that must fail with the given case.
void expectEditError(const EditTimeline& timeline, Case expected,
                     const std::function<EditTimeline(const EditTimeline&)>& edit) {
    try {
        edit(timeline);
        ADD_FAILURE() << "the edit succeeded";
    } catch (const TimelineEditError& error) {
        EXPECT_EQ(error.errorCase(), expected) << error.what();
    }
}

// Every result must be a document that may exist.
EditTimeline checked(EditTimeline timeline) {
    EXPECT_NO_THROW(TimelineValidator::validateContent(timeline, sourceDuration));
    return timeline;
}

// ---------------------------------------------------------------------------
// Split

TEST(TimelineEditSplitTests, LeftHalfKeepsTheIdAndBothHalvesKeepTheRate) {
    ThreeSegments fixture;
    fixture.timeline.zooms = {zoom(ms(3'500), ms(4'500))};
    fixture.timeline.annotations = {annotation(ms(3'000), ms(5'000), 0)};

    // Half a second into B's sequence range is one second into its source.
    const EditTimeline result =
        checked(TimelineEditEngine::split(fixture.timeline, ms(2'500), sourceDuration));

    ASSERT_EQ(result.segments.size(), 4U);
    EXPECT_EQ(result.segments[0], fixture.a);
    EXPECT_EQ(result.segments[1], (TimelineSegment{fixture.b.id, between(ms(3'000), ms(4'000)), {2000}}));
    EXPECT_EQ(result.segments[2].sourceRange, between(ms(4'000), ms(5'000)));
    EXPECT_EQ(result.segments[2].playbackRate.permille, 2000);
    EXPECT_EQ(idsOf(result).size(), 4U) << "the right half gets an id of its own";
    EXPECT_EQ(result.segments[3], fixture.c);
    // A split removes no content: effects and annotations stay as they were.
    EXPECT_EQ(result.zooms, fixture.timeline.zooms);
    EXPECT_EQ(result.annotations, fixture.timeline.annotations);
    EXPECT_EQ(TimelineMapper(result, sourceDuration).sequenceDuration(), ms(6'000));
}

TEST(TimelineEditSplitTests, SnapsThePlayheadAndThenTheSourcePosition) {
    const EditTimeline timeline = timelineOf({segment(ms(0), ms(4'000), 2000)});
    // The playhead snaps to sequence frame 61 (1,016,666,666 ns), which is
    // source time 2,033,333,332 ns at 2x, one nanosecond before source frame 122.
    const EditTimeline result = TimelineEditEngine::split(timeline, ns(1'020'000'000), sourceDuration);

    ASSERT_EQ(result.segments.size(), 2U);
    EXPECT_EQ(result.segments[0].sourceRange, between(ms(0), frame(122)));
    EXPECT_EQ(result.segments[1].sourceRange, between(frame(122), ms(4'000)));
}

TEST(TimelineEditSplitTests, RefusesAPlayheadLessThanAFrameFromABoundary) {
    ThreeSegments fixture;
    // Exactly at B's start, and a few milliseconds before it (snapping there).
    for (const ProjectTime playhead : {ms(2'000), ms(1'995)}) {
        expectEditError(fixture.timeline, Case::splitAtBoundary, [&](const EditTimeline& timeline) {
            return TimelineEditEngine::split(timeline, playhead, sourceDuration);
        });
    }

    // Segments off the grid: 10 ms to 1.99 s, then 3 to 4 s.
    const EditTimeline offGrid = timelineOf({segment(ms(10), ms(1'990)), segment(ms(3'000), ms(4'000))});
    // The first frame cuts at 16,666,666 ns, leaving 6,666,666 ns on the left.
    expectEditError(offGrid, Case::splitAtBoundary, [](const EditTimeline& timeline) {
        return TimelineEditEngine::split(timeline, ms(0), sourceDuration);
    });
    // Sequence frame 118 is source 1,976,666,666 ns, which snaps to frame 119
    // and leaves 6,666,667 ns on the right.
    expectEditError(offGrid, Case::splitAtBoundary, [](const EditTimeline& timeline) {
        return TimelineEditEngine::split(timeline, frame(118), sourceDuration);
    });
}

TEST(TimelineEditSplitTests, FindsNoSegmentAtOrPastTheSequenceEnd) {
    ThreeSegments fixture;
    // 5.995 s snaps to the sequence end at 6 s, which maps to nothing.
    for (const ProjectTime playhead : {ms(6'000), ms(5'995), ms(7'000), ms(-1'000)}) {
        expectEditError(fixture.timeline, Case::noSegmentAtPlayhead, [&](const EditTimeline& timeline) {
            return TimelineEditEngine::split(timeline, playhead, sourceDuration);
        });
    }
    // One frame before the end still splits C.
    const EditTimeline result = TimelineEditEngine::split(fixture.timeline, frame(359), sourceDuration);
    EXPECT_EQ(result.segments.back().sourceRange.end(), ms(9'000));
    EXPECT_GE(result.segments.back().sourceRange.duration, minimum);
}

TEST(TimelineEditSplitTests, AnInvalidTimelineFailsItsValidationFirst) {
    const EditTimeline empty = EditTimeline::empty();
    try {
        TimelineEditEngine::split(empty, ms(0), sourceDuration);
        ADD_FAILURE() << "the split succeeded";
    } catch (const TimelineValidationError& error) {
        EXPECT_EQ(error.errorCase(), TimelineValidationError::Case::empty);
    }
}

// ---------------------------------------------------------------------------
// Trim

TEST(TimelineEditTrimTests, TrimStartReachesBackToThePreviousSegmentEnd) {
    ThreeSegments fixture;
    const EditTimeline result =
        checked(TimelineEditEngine::trimStart(fixture.timeline, fixture.b.id, ms(2'000), sourceDuration));

    EXPECT_EQ(result.segments[1], (TimelineSegment{fixture.b.id, between(ms(2'000), ms(5'000)), {2000}}));
    EXPECT_EQ(result.segments[0], fixture.a) << "the neighbour never moves";
    EXPECT_EQ(result.segments[2], fixture.c);

    // The first segment can reach back to 0, and no further.
    const TimelineSegment only = segment(ms(1'000), ms(2'000));
    const EditTimeline first =
        checked(TimelineEditEngine::trimStart(timelineOf({only}), only.id, ms(0), sourceDuration));
    EXPECT_EQ(first.segments[0].sourceRange, between(ms(0), ms(2'000)));
    expectEditError(timelineOf({only}), Case::trimOutsideHandles, [&](const EditTimeline& timeline) {
        return TimelineEditEngine::trimStart(timeline, only.id, ms(-20), sourceDuration);
    });
}

TEST(TimelineEditTrimTests, TrimStartSnapsAndKeepsTheEnd) {
    ThreeSegments fixture;
    const EditTimeline result =
        checked(TimelineEditEngine::trimStart(fixture.timeline, fixture.c.id, ms(7'234), sourceDuration));
    // 7.234 s lies 0.04 of a frame after frame 434.
    EXPECT_EQ(result.segments[2].sourceRange, between(frame(434), ms(9'000)));
    EXPECT_EQ(result.segments[2].id, fixture.c.id);

    // Down to a single frame before the end is allowed.
    const EditTimeline shortest =
        checked(TimelineEditEngine::trimStart(fixture.timeline, fixture.c.id, frame(539), sourceDuration));
    EXPECT_EQ(shortest.segments[2].sourceRange, between(frame(539), ms(9'000)));
}

TEST(TimelineEditTrimTests, TrimStartOutsideItsHandlesFails) {
    ThreeSegments fixture;
    const auto trimB = [&](ProjectTime to) {
        return [&fixture, to](const EditTimeline& timeline) {
            return TimelineEditEngine::trimStart(timeline, fixture.b.id, to, sourceDuration);
        };
    };
    expectEditError(fixture.timeline, Case::trimOutsideHandles, trimB(frame(119))); // into A
    expectEditError(fixture.timeline, Case::trimOutsideHandles, trimB(ms(5'000)));  // at its own end
    expectEditError(fixture.timeline, Case::trimOutsideHandles, trimB(ms(6'000)));  // past its end
    expectEditError(fixture.timeline, Case::segmentNotFound, [](const EditTimeline& timeline) {
        return TimelineEditEngine::trimStart(timeline, Uuid::random(), ms(0), sourceDuration);
    });
}

TEST(TimelineEditTrimTests, TrimEndOfTheLastSegmentBringsBackContentUpToTheSourceEnd) {
    ThreeSegments fixture;
    const EditTimeline result =
        checked(TimelineEditEngine::trimEnd(fixture.timeline, fixture.c.id, sourceDuration, sourceDuration));
    EXPECT_EQ(result.segments[2],
              (TimelineSegment{fixture.c.id, between(ms(6'000), sourceDuration), {1000}}));
    EXPECT_EQ(TimelineMapper(result, sourceDuration).sequenceDuration(), ms(7'000));

    // 10.01 s snaps to frame 601, past the source.
    expectEditError(fixture.timeline, Case::trimOutsideHandles, [&](const EditTimeline& timeline) {
        return TimelineEditEngine::trimEnd(timeline, fixture.c.id, ms(10'010), sourceDuration);
    });
}

TEST(TimelineEditTrimTests, TrimEndStopsAtTheNextSegmentAndOneFrameAfterItsStart) {
    ThreeSegments fixture;
    const EditTimeline touching =
        checked(TimelineEditEngine::trimEnd(fixture.timeline, fixture.a.id, ms(3'000), sourceDuration));
    EXPECT_EQ(touching.segments[0].sourceRange, between(ms(0), ms(3'000)));
    EXPECT_EQ(touching.segments[1], fixture.b);

    const EditTimeline shortest =
        checked(TimelineEditEngine::trimEnd(fixture.timeline, fixture.a.id, frame(1), sourceDuration));
    EXPECT_EQ(shortest.segments[0].sourceRange, between(ms(0), frame(1)));

    const auto trimA = [&](ProjectTime to) {
        return [&fixture, to](const EditTimeline& timeline) {
            return TimelineEditEngine::trimEnd(timeline, fixture.a.id, to, sourceDuration);
        };
    };
    expectEditError(fixture.timeline, Case::trimOutsideHandles, trimA(frame(181))); // into B
    expectEditError(fixture.timeline, Case::trimOutsideHandles, trimA(ms(0)));      // at its own start
    expectEditError(fixture.timeline, Case::trimOutsideHandles, trimA(ms(5)));      // snaps to its start
    expectEditError(fixture.timeline, Case::segmentNotFound, [](const EditTimeline& timeline) {
        return TimelineEditEngine::trimEnd(timeline, Uuid::random(), ms(1'000), sourceDuration);
    });
}

TEST(TimelineEditTrimTests, TrimmingAwayContentDropsAnnotationsThatNoLongerShowAndKeepsZooms) {
    ThreeSegments fixture;
    const AnnotationElement inside = annotation(ms(7'500), ms(8'500), 0);
    const AnnotationElement across = annotation(ms(6'500), ms(7'500), 1);
    const AnnotationElement elsewhere = annotation(ms(500), ms(1'000), 2);
    fixture.timeline.annotations = {elsewhere, inside, across};
    fixture.timeline.zooms = {zoom(ms(7'500), ms(8'500))};

    const EditTimeline result =
        checked(TimelineEditEngine::trimEnd(fixture.timeline, fixture.c.id, ms(7'000), sourceDuration));
    EXPECT_EQ(result.annotations, (std::vector<AnnotationElement>{elsewhere, across}));
    EXPECT_EQ(result.zooms, fixture.timeline.zooms) << "zooms stay in source time";
}

// ---------------------------------------------------------------------------
// Ripple delete

TEST(TimelineEditRippleDeleteTests, RemovesTheSegmentAndTheRestClosesUp) {
    ThreeSegments fixture;
    const AnnotationElement onB = annotation(ms(3'500), ms(4'500), 0);
    const AnnotationElement acrossTheGap = annotation(ms(4'500), ms(6'500), 1);
    fixture.timeline.annotations = {onB, acrossTheGap};

    const EditTimeline result =
        checked(TimelineEditEngine::rippleDelete(fixture.timeline, fixture.b.id, sourceDuration));
    EXPECT_EQ(result.segments, (std::vector<TimelineSegment>{fixture.a, fixture.c}));
    EXPECT_EQ(TimelineMapper(result, sourceDuration).sequenceDuration(), ms(5'000));
    // The partly kept annotation stays whole, with its stored times.
    EXPECT_EQ(result.annotations, std::vector<AnnotationElement>{acrossTheGap});
}

TEST(TimelineEditRippleDeleteTests, KeepsTheLastSegmentAndReportsUnknownIds) {
    const EditTimeline single = timelineOf({segment(ms(0), ms(2'000))});
    // The count is checked before the id is looked up.
    expectEditError(single, Case::cannotDeleteLastSegment, [](const EditTimeline& timeline) {
        return TimelineEditEngine::rippleDelete(timeline, Uuid::random(), sourceDuration);
    });
    expectEditError(single, Case::cannotDeleteLastSegment, [&](const EditTimeline& timeline) {
        return TimelineEditEngine::rippleDelete(timeline, single.segments[0].id, sourceDuration);
    });
    ThreeSegments fixture;
    expectEditError(fixture.timeline, Case::segmentNotFound, [](const EditTimeline& timeline) {
        return TimelineEditEngine::rippleDelete(timeline, Uuid::random(), sourceDuration);
    });
}

// ---------------------------------------------------------------------------
// Keeping a sequence range

TEST(TimelineEditRetainTests, KeepsOnePiecePerSegmentWithIdsByTheirStart) {
    ThreeSegments fixture;
    fixture.timeline.annotations = {annotation(ms(500), ms(900), 0), annotation(ms(4'000), ms(8'000), 1)};
    // Sequence 1 to 3.5 s: the second half of A, all of B, the first half second of C.
    const EditTimeline result = checked(TimelineEditEngine::retainingSequenceRange(
        fixture.timeline, between(ms(1'000), ms(3'500)), sourceDuration));

    EXPECT_EQ(rangesOf(result),
              (std::vector<ProjectTimeRange>{between(ms(1'000), ms(2'000)), between(ms(3'000), ms(5'000)),
                                             between(ms(6'000), ms(6'500))}));
    EXPECT_NE(result.segments[0].id, fixture.a.id) << "a piece starting later is new content";
    EXPECT_EQ(result.segments[1], fixture.b);
    EXPECT_EQ(result.segments[2].id, fixture.c.id);
    EXPECT_EQ(TimelineMapper(result, sourceDuration).sequenceDuration(), ms(2'500));
    EXPECT_EQ(result.annotations, std::vector<AnnotationElement>{fixture.timeline.annotations[1]});
}

TEST(TimelineEditRetainTests, SnapsThePiecesAndDropsSlivers) {
    ThreeSegments fixture;
    // 2 ms into B's sequence range is 4 ms of its source, which snaps away.
    const EditTimeline result = checked(TimelineEditEngine::retainingSequenceRange(
        fixture.timeline, between(ms(1'234), ms(2'002)), sourceDuration));
    ASSERT_EQ(result.segments.size(), 1U);
    EXPECT_EQ(result.segments[0].sourceRange, between(frame(74), ms(2'000)));

    // A range that leaves no frame anywhere leaves nothing.
    expectEditError(fixture.timeline, Case::invalidRange, [](const EditTimeline& timeline) {
        return TimelineEditEngine::retainingSequenceRange(timeline, between(ms(1'000), ms(1'003)),
                                                          sourceDuration);
    });
}

TEST(TimelineEditRetainTests, RefusesRangesOutsideTheSequence) {
    ThreeSegments fixture;
    for (const ProjectTimeRange range :
         {between(ms(1'000), ms(1'000)), between(ms(-1), ms(1'000)), between(ms(5'000), ns(6'000'000'001)),
          ProjectTimeRange{ms(1'000), ms(-5)}, ProjectTimeRange{ms(7'000), ms(1'000)}}) {
        expectEditError(fixture.timeline, Case::invalidRange, [&](const EditTimeline& timeline) {
            return TimelineEditEngine::retainingSequenceRange(timeline, range, sourceDuration);
        });
    }
    // Up to the very end of the sequence is fine.
    const EditTimeline whole = checked(TimelineEditEngine::retainingSequenceRange(
        fixture.timeline, between(ms(0), ms(6'000)), sourceDuration));
    EXPECT_EQ(whole.segments, fixture.timeline.segments);
}

// ---------------------------------------------------------------------------
// Removing source ranges

TEST(TimelineEditRemoveTests, CutInsideASegmentLeavesTwoPiecesWithTheIdOnTheLeft) {
    ThreeSegments fixture;
    fixture.timeline.zooms = {zoom(ms(3'500), ms(4'800))};
    const EditTimeline result = checked(TimelineEditEngine::removeSourceRanges(
        fixture.timeline, {between(ms(3'500), ms(4'000))}, sourceDuration));

    ASSERT_EQ(result.segments.size(), 4U);
    EXPECT_EQ(result.segments[1], (TimelineSegment{fixture.b.id, between(ms(3'000), ms(3'500)), {2000}}));
    EXPECT_EQ(result.segments[2].sourceRange, between(ms(4'000), ms(5'000)));
    EXPECT_EQ(result.segments[2].playbackRate.permille, 2000);
    EXPECT_EQ(idsOf(result).size(), 4U);
    EXPECT_EQ(result.zooms, fixture.timeline.zooms) << "zooms are reconciled elsewhere";
}

TEST(TimelineEditRemoveTests, CutAtASegmentStartHandsTheIdToTheRightPiece) {
    ThreeSegments fixture;
    // Also spans the gap before B and snaps its ends to the grid.
    const EditTimeline result = checked(TimelineEditEngine::removeSourceRanges(
        fixture.timeline, {between(ms(1'503), ms(3'502))}, sourceDuration));
    EXPECT_EQ(result.segments[0], (TimelineSegment{fixture.a.id, between(ms(0), ms(1'500)), {1000}}));
    EXPECT_EQ(result.segments[1], (TimelineSegment{fixture.b.id, between(ms(3'500), ms(5'000)), {2000}}));
    EXPECT_EQ(result.segments[2], fixture.c);
}

TEST(TimelineEditRemoveTests, RangesApplyInTheOrderGiven) {
    const TimelineSegment whole = segment(ms(0), ms(10'000));
    const EditTimeline result = checked(TimelineEditEngine::removeSourceRanges(
        timelineOf({whole}), {between(ms(5'000), ms(6'000)), between(ms(2'000), ms(3'000))}, sourceDuration));
    EXPECT_EQ(rangesOf(result),
              (std::vector<ProjectTimeRange>{between(ms(0), ms(2'000)), between(ms(3'000), ms(5'000)),
                                             between(ms(6'000), ms(10'000))}));
    EXPECT_EQ(result.segments[0].id, whole.id);
    EXPECT_EQ(idsOf(result).size(), 3U);
}

TEST(TimelineEditRemoveTests, ARemainderShorterThanAFrameGoesWithTheCut) {
    // A segment ending off the grid, 10 ms after the last cut frame.
    const TimelineSegment a = segment(ms(0), ms(4'010));
    const EditTimeline result = checked(TimelineEditEngine::removeSourceRanges(
        timelineOf({a, segment(ms(5'000), ms(6'000))}), {between(ms(1'000), ms(4'000))}, sourceDuration));
    EXPECT_EQ(result.segments[0], (TimelineSegment{a.id, between(ms(0), ms(1'000)), {1000}}));
    EXPECT_EQ(result.segments[1].sourceRange, between(ms(5'000), ms(6'000)));

    // Exactly one frame left over stays.
    const EditTimeline kept = checked(TimelineEditEngine::removeSourceRanges(
        timelineOf({segment(ms(0), ms(4'000))}), {between(ms(1'000), frame(239))}, sourceDuration));
    EXPECT_EQ(rangesOf(kept),
              (std::vector<ProjectTimeRange>{between(ms(0), ms(1'000)), between(frame(239), ms(4'000))}));
}

TEST(TimelineEditRemoveTests, AnnotationsInsideTheCutGoAndThoseAcrossItStay) {
    ThreeSegments fixture;
    const AnnotationElement inside = annotation(ms(6'200), ms(6'800), 0);
    const AnnotationElement across = annotation(ms(6'800), ms(7'800), 1);
    const AnnotationElement before = annotation(ms(100), ms(600), 2);
    fixture.timeline.annotations = {before, inside, across};

    const EditTimeline result = checked(TimelineEditEngine::removeSourceRanges(
        fixture.timeline, {between(ms(6'000), ms(7'000))}, sourceDuration));
    EXPECT_EQ(result.annotations, (std::vector<AnnotationElement>{before, across}));
}

TEST(TimelineEditRemoveTests, RefusesCutsThatAreEmptyOutsideOrRemoveNothing) {
    ThreeSegments fixture;
    const auto removing = [](std::vector<ProjectTimeRange> ranges) {
        return [ranges](const EditTimeline& timeline) {
            return TimelineEditEngine::removeSourceRanges(timeline, ranges, sourceDuration);
        };
    };
    expectEditError(fixture.timeline, Case::invalidRange, removing({}));
    // Zero length, negative length, and 3 ms that snap to nothing.
    expectEditError(
        fixture.timeline, Case::invalidRange,
        removing({between(ms(1'000), ms(1'000)), {ms(1'000), ms(-500)}, between(ms(1'000), ms(1'003))}));
    expectEditError(fixture.timeline, Case::invalidRange, removing({between(ms(-1'000), ms(500))}));
    expectEditError(fixture.timeline, Case::invalidRange, removing({between(ms(9'500), ms(10'500))}));
    // One good range does not excuse a bad one.
    expectEditError(fixture.timeline, Case::invalidRange,
                    removing({between(ms(500), ms(1'000)), between(ms(9'500), ms(10'500))}));
    // Entirely inside removed content: the list stays as it was.
    expectEditError(fixture.timeline, Case::invalidRange, removing({between(ms(2'200), ms(2'800))}));
    expectEditError(fixture.timeline, Case::invalidRange, removing({between(ms(9'000), sourceDuration)}));
    // Everything.
    expectEditError(fixture.timeline, Case::cannotDeleteLastSegment,
                    removing({between(ms(0), sourceDuration)}));
    expectEditError(fixture.timeline, Case::cannotDeleteLastSegment,
                    removing({between(ms(0), ms(4'000)), between(ms(4'000), ms(9'000))}));
}

TEST(TimelineEditRemoveTests, ValidationErrorsOfTheResultPassUnchanged) {
    // What is left of a 2x segment is one source frame, half a frame of output.
    const EditTimeline timeline = timelineOf({segment(ms(0), ms(4'000), 2000)});
    try {
        TimelineEditEngine::removeSourceRanges(timeline, {between(frame(1), ms(4'000))}, sourceDuration);
        ADD_FAILURE() << "the cut succeeded";
    } catch (const TimelineValidationError& error) {
        EXPECT_EQ(error.errorCase(), TimelineValidationError::Case::sequenceSegmentTooShort);
    }
}

} // namespace
} // namespace rilo

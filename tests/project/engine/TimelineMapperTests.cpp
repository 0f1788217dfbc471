#include "project/document/TimelineEffectError.h"
#include "project/document/TimelineRateMath.h"
#include "project/document/TimelineValidationError.h"
#include "project/engine/TimelineMapper.h"
#include "support/Thrown.h"
#include "support/TimelineBuilders.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <optional>
#include <random>
#include <vector>

namespace rilo {
namespace {

constexpr std::int64_t maxNanoseconds = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t minNanoseconds = std::numeric_limits<std::int64_t>::min();
constexpr auto down = TimelineRateRounding::down;
constexpr auto up = TimelineRateRounding::up;
constexpr auto nearest = TimelineRateRounding::nearest;

using testing::ms;
using testing::ns;
using testing::timelineOf;
ProjectTimeRange range(ProjectTime start, ProjectTime duration) {
    return {start, duration};
}

TimelineSegment segment(ProjectTime start, ProjectTime duration, std::int64_t permille) {
    return {Uuid::random(), {start, duration}, {permille}};
}

// Ten seconds of source with a leading cut, a cut between A and B, B and C
// touching, a cut before D, D and E touching, and a trailing cut:
//
//   source    A 0.5-2 s   B 3-5 s   C 5-6 s   D 7-8.5 s   E 8.5-9 s
//   rate      1x          2x        0.5x      1.23x       3x
//   sequence  0-1.5 s     1.5-2.5 s 2.5-4.5 s 4.5 s+1,219,512,195 ns, then 166,666,667 ns
//
// To the nearest nanosecond, D's 1.5 s at 1.23x (1,219,512,195.12 ns) rounds
// down and E's 0.5 s at 3x (166,666,666.67 ns) rounds up.
constexpr ProjectTime sourceDuration = ms(10'000);
constexpr std::int64_t lengthOfD = 1'219'512'195;
constexpr std::int64_t lengthOfE = 166'666'667;
constexpr ProjectTime startOfD = ms(4'500);
constexpr ProjectTime startOfE = ns(4'500'000'000 + lengthOfD);
constexpr ProjectTime sequenceDuration = ns(4'500'000'000 + lengthOfD + lengthOfE);

struct CutTimeline {
    TimelineSegment a = segment(ms(500), ms(1'500), 1000);
    TimelineSegment b = segment(ms(3'000), ms(2'000), 2000);
    TimelineSegment c = segment(ms(5'000), ms(1'000), 500);
    TimelineSegment d = segment(ms(7'000), ms(1'500), 1230);
    TimelineSegment e = segment(ms(8'500), ms(500), 3000);
    TimelineMapper mapper{timelineOf({a, b, c, d, e}), sourceDuration};
};

// ---- Rate arithmetic ----

__extension__ typedef __int128 Int128;

// value * numerator / denominator, rounded exactly, or none outside 64 bits.
std::optional<std::int64_t> exactlyScaled(std::int64_t value, std::int64_t numerator,
                                          std::int64_t denominator, TimelineRateRounding rounding) {
    const Int128 product = Int128{value} * numerator;
    Int128 result = product / denominator;
    const Int128 remainder = product % denominator;
    if (rounding == up && remainder != 0) {
        result += 1;
    } else if (rounding == nearest && 2 * remainder >= denominator) {
        result += 1; // ties go up
    }
    if (result > maxNanoseconds) {
        return std::nullopt;
    }
    return static_cast<std::int64_t>(result);
}

TEST(TimelineRateMath, ConversionsRoundExactlyAsAsked) {
    std::mt19937_64 random(7);
    std::vector<std::int64_t> values = {
        0, 1, 2, 499, 500, 999, 1000, 1001, 16'666'666, maxNanoseconds - 1, maxNanoseconds};
    for (int index = 0; index < 400; ++index) {
        // Magnitudes spread over the whole 64-bit range.
        values.push_back(static_cast<std::int64_t>(random() >> (random() % 63 + 1)));
    }
    std::vector<std::int64_t> permilles = {1,    2,    3,    7,    500,  990,  999,
                                           1000, 1001, 1010, 1230, 2000, 3000, 4000};
    for (int index = 0; index < 20; ++index) {
        permilles.push_back(static_cast<std::int64_t>(random() % 1'000'000) + 1);
    }
    for (const std::int64_t value : values) {
        for (const std::int64_t permille : permilles) {
            for (const auto rounding : {down, up, nearest}) {
                const TimelinePlaybackRate rate{permille};
                EXPECT_EQ(TimelineRateMath::sequenceNanoseconds(value, rate, rounding),
                          exactlyScaled(value, 1000, permille, rounding))
                    << value << " at " << permille;
                EXPECT_EQ(TimelineRateMath::sourceNanoseconds(value, rate, rounding),
                          exactlyScaled(value, permille, 1000, rounding))
                    << value << " at " << permille;
            }
        }
    }
}

TEST(TimelineRateMath, SequenceDurationRoundsToNearestAndImpossibleConversionsGiveNone) {
    EXPECT_EQ(TimelineRateMath::sequenceDuration(ns(66'666'662), {4000}), ns(16'666'666));

    for (const auto rounding : {down, up, nearest}) {
        EXPECT_EQ(TimelineRateMath::sequenceNanoseconds(-1, {1000}, rounding), std::nullopt);
        EXPECT_EQ(TimelineRateMath::sourceNanoseconds(-1, {1000}, rounding), std::nullopt);
        EXPECT_EQ(TimelineRateMath::sequenceNanoseconds(1000, {0}, rounding), std::nullopt);
        EXPECT_EQ(TimelineRateMath::sourceNanoseconds(1000, {-1000}, rounding), std::nullopt);
        EXPECT_EQ(TimelineRateMath::sequenceNanoseconds(maxNanoseconds, {500}, rounding), std::nullopt);
        EXPECT_EQ(TimelineRateMath::sourceNanoseconds(maxNanoseconds, {4000}, rounding), std::nullopt);
    }
}

// ---- Construction ----

TEST(TimelineMapperConstruction, SegmentsLieEndToEndFromZeroEachConvertedOnce) {
    const CutTimeline fixture;
    const std::vector<TimelineSegmentProjection> expected = {
        {fixture.a, range(ms(0), ms(1'500))},        {fixture.b, range(ms(1'500), ms(1'000))},
        {fixture.c, range(ms(2'500), ms(2'000))},    {fixture.d, range(startOfD, ns(lengthOfD))},
        {fixture.e, range(startOfE, ns(lengthOfE))},
    };
    EXPECT_EQ(fixture.mapper.projections(), expected);
    EXPECT_EQ(fixture.mapper.sequenceDuration(), sequenceDuration);
    EXPECT_EQ(fixture.mapper.sourceDuration(), sourceDuration);

    // Segment boundaries map both ways.
    for (const TimelineSegmentProjection& projection : fixture.mapper.projections()) {
        const TimelineMappedTime atStart{projection.segment.id, projection.segment.sourceRange.start,
                                         projection.sequenceRange.start};
        EXPECT_EQ(fixture.mapper.mappedTimeForSequenceTime(projection.sequenceRange.start), atStart);
        EXPECT_EQ(fixture.mapper.mappedTimeForSourceTime(projection.segment.sourceRange.start), atStart);
    }
}

TEST(TimelineMapperConstruction, InvalidTimelinesAreRefusedWithTheValidationError) {
    const EditTimeline outside = timelineOf({segment(ms(9'950), ms(100), 1000)});
    EXPECT_EQ(testing::thrownCase<TimelineValidationError>([&] { TimelineMapper(outside, sourceDuration); }),
              TimelineValidationError::Case::rangeOutsideSource);

    // The effects' own rules pass through with their own error.
    EditTimeline withZoom = timelineOf({segment(ms(0), ms(1'000), 1000)});
    withZoom.zooms = {{Uuid::random(), ms(500), ms(600), ms(700), ms(1'500), {0.5, 0.5}, 1}};
    EXPECT_THROW(TimelineMapper(withZoom, ms(1'000)), TimelineEffectError);
}

TEST(TimelineMapperConstruction, ASequenceBeyondSixtyFourBitsOverflows) {
    // Each half of the source plays at 0.5x for 6e18 ns; together they do
    // not fit, and the second segment is named.
    const TimelineSegment first = segment(ns(0), ns(3'000'000'000'000'000'000), 500);
    const TimelineSegment second = segment(ns(3'000'000'000'000'000'000), ns(3'000'000'000'000'000'000), 500);
    const auto error = testing::thrown<TimelineValidationError>([&] {
        TimelineMapper(timelineOf({first, second}), ns(maxNanoseconds));
    });
    ASSERT_TRUE(error) << "an overflowing sequence was accepted";
    EXPECT_EQ(error->errorCase(), TimelineValidationError::Case::sequenceDurationOverflow);
    EXPECT_EQ(error->id(), second.id);
    // Alone, the first one fits.
    EXPECT_EQ(TimelineMapper(timelineOf({first}), ns(maxNanoseconds)).sequenceDuration(),
              ns(6'000'000'000'000'000'000));
}

// ---- Point mappings ----

TEST(TimelineMapperPointMapping, BoundariesMapBothWaysAndOffsetsScaleByTheRateRoundingToNearest) {
    const CutTimeline fixture;
    const TimelineMapper& mapper = fixture.mapper;
    // B at 2x: source 5 s - 1 ns is 999,999,999.5 ns into the sequence range,
    // which rounds to its end and is kept 1 ns before it.
    EXPECT_EQ(mapper.mappedTimeForSourceTime(ms(5'000) - ns(1)),
              (TimelineMappedTime{fixture.b.id, ms(5'000) - ns(1), ms(2'500) - ns(1)}));
    // C at 0.5x: sequence 4.5 s - 1 ns is 999,999,999.5 ns of source.
    EXPECT_EQ(mapper.mappedTimeForSequenceTime(ms(4'500) - ns(1))->sourceTime, ms(6'000) - ns(1));

    // 4x: the last source nanosecond of 66,666,663 lies 16,666,665.5 ns in.
    const TimelineSegment fast = segment(ns(0), ns(66'666'663), 4000);
    const TimelineMapper fastMapper(timelineOf({fast}), ns(66'666'663));
    EXPECT_EQ(fastMapper.sequenceDuration(), ns(16'666'666));
    EXPECT_EQ(fastMapper.mappedTimeForSourceTime(ns(66'666'662)),
              (TimelineMappedTime{fast.id, ns(66'666'662), ns(16'666'665)}));
    EXPECT_EQ(fastMapper.mappedTimeForSequenceTime(ns(16'666'665)),
              (TimelineMappedTime{fast.id, ns(66'666'660), ns(16'666'665)}));

    for (const TimelineSegmentProjection& projection : mapper.projections()) {
        const auto last = mapper.mappedTimeForSequenceTime(projection.sequenceRange.end() - ns(1));
        ASSERT_TRUE(last.has_value());
        EXPECT_EQ(last->segmentID, projection.segment.id);
        EXPECT_TRUE(projection.segment.sourceRange.contains(last->sourceTime));
    }

    // Offsets scale by the rate and round to the nearest nanosecond.
    const auto sourceAt = [&](ProjectTime t) { return mapper.mappedTimeForSequenceTime(t)->sourceTime; };
    const auto sequenceAt = [&](ProjectTime s) { return mapper.mappedTimeForSourceTime(s)->sequenceTime; };

    EXPECT_EQ(sourceAt(ms(1'750)), ms(3'500));   // B, 2x
    EXPECT_EQ(sequenceAt(ms(5'500)), ms(3'500)); // C, 0.5x
    // D, 1.23x: 1 ns of sequence is 1.23 ns of source, 3 ns 3.69 ns, and
    // 50 ns exactly 61.5 ns, a tie that goes up.
    EXPECT_EQ(sourceAt(startOfD + ns(1)), ms(7'000) + ns(1));
    EXPECT_EQ(sourceAt(startOfD + ns(3)), ms(7'000) + ns(4));
    EXPECT_EQ(sourceAt(startOfD + ns(50)), ms(7'000) + ns(62));
    // Back: 62 ns of source is 50.41 ns of sequence, 61 ns 49.59 ns.
    EXPECT_EQ(sequenceAt(ms(7'000) + ns(62)), startOfD + ns(50));
    EXPECT_EQ(sequenceAt(ms(7'000) + ns(61)), startOfD + ns(50));
}

TEST(TimelineMapperPointMapping, CutsMapToNothingButToTheNextKeptBoundaryAndIdsFindProjections) {
    const CutTimeline fixture;
    const TimelineMapper& mapper = fixture.mapper;
    for (const ProjectTime t : {ns(-1), sequenceDuration, ns(maxNanoseconds)}) {
        EXPECT_EQ(mapper.mappedTimeForSequenceTime(t), std::nullopt) << t.nanoseconds;
    }
    for (const ProjectTime s : {ns(-1), ms(500) - ns(1), ms(2'000), ms(3'000) - ns(1), ms(9'000)}) {
        EXPECT_EQ(mapper.mappedTimeForSourceTime(s), std::nullopt) << s.nanoseconds;
    }

    // E ends at 9 s, before the trailing cut.
    EXPECT_EQ(mapper.sourceTimeForSequenceBoundary(sequenceDuration), ms(9'000));
    for (const ProjectTime t : {ms(1'750), startOfD + ns(50)}) {
        EXPECT_EQ(mapper.sourceTimeForSequenceBoundary(t), mapper.mappedTimeForSequenceTime(t)->sourceTime);
    }
    EXPECT_EQ(mapper.sourceTimeForSequenceBoundary(sequenceDuration + ns(1)), std::nullopt);

    // Kept times answer where they play.
    EXPECT_EQ(mapper.nearestSequenceBoundaryToDeletedSourceTime(ms(3'500)), ms(1'750));
    // The leading cut goes to the start, the cut after A to B, the cut after C to D.
    EXPECT_EQ(mapper.nearestSequenceBoundaryToDeletedSourceTime(ms(100)), ms(0));
    EXPECT_EQ(mapper.nearestSequenceBoundaryToDeletedSourceTime(ms(2'000)), ms(1'500));
    EXPECT_EQ(mapper.nearestSequenceBoundaryToDeletedSourceTime(ms(6'000)), startOfD);
    // After the last segment, the end of the sequence.
    EXPECT_EQ(mapper.nearestSequenceBoundaryToDeletedSourceTime(ms(9'000)), sequenceDuration);

    for (const TimelineSegmentProjection& projection : fixture.mapper.projections()) {
        EXPECT_EQ(fixture.mapper.projectionForSegmentID(projection.segment.id), projection);
    }
    EXPECT_EQ(fixture.mapper.projectionForSegmentID(Uuid::random()), std::nullopt);
}

// ---- Ranges ----

TEST(TimelineMapperRanges, PiecesStaySeparateAtCutsCoverTheSourceAndDeltasMoveAtTheRate) {
    const CutTimeline fixture;
    const TimelineMapper& mapper = fixture.mapper;
    // 1.5-2 s of A and 3-4 s of B, which plays at 2x.
    EXPECT_EQ(mapper.projectedRanges(range(ms(1'500), ms(2'500))),
              (std::vector{range(ms(1'000), ms(500)), range(ms(1'500), ms(500))}));
    // The mirror image: the sequence 1-2 s shows 1.5-2 s and 3-4 s of source.
    EXPECT_EQ(mapper.sourceRanges(range(ms(1'000), ms(1'000))),
              (std::vector{range(ms(1'500), ms(500)), range(ms(3'000), ms(1'000))}));

    // Nothing kept, nothing shown: exactly a cut, past the end, empty ranges.
    for (const ProjectTimeRange& nothing : {range(ms(2'000), ms(1'000)), range(ms(1'000), ms(-100))}) {
        EXPECT_TRUE(mapper.projectedRanges(nothing).empty());
    }
    for (const ProjectTimeRange& nothing : {range(sequenceDuration, ms(1'000)), range(ms(1'000), ms(0))}) {
        EXPECT_TRUE(mapper.sourceRanges(nothing).empty());
    }

    // Whole segments project onto their own ranges and are retained.
    std::vector<ProjectTimeRange> sequenceRanges;
    std::vector<ProjectTimeRange> sourceRanges;
    for (const TimelineSegmentProjection& projection : mapper.projections()) {
        // D's end rounds up past its rounded length, and is clamped to it.
        EXPECT_EQ(mapper.projectedRanges(projection.segment.sourceRange),
                  std::vector{projection.sequenceRange});
        EXPECT_TRUE(mapper.retainsEntireSourceRange(projection.segment.sourceRange));
        sequenceRanges.push_back(projection.sequenceRange);
        sourceRanges.push_back(projection.segment.sourceRange);
    }
    EXPECT_EQ(mapper.projectedRanges(range(ns(0), sourceDuration)), sequenceRanges);
    // E's length at 3x converts back to 500,000,001 ns and is clamped to the segment.
    EXPECT_EQ(mapper.sourceRanges(range(ns(0), sequenceDuration)), sourceRanges);

    // Starts round down and ends up, so that the source is covered.
    // D, 1.23x: source offsets 1-3 ns are 0.81-2.44 ns of sequence.
    EXPECT_EQ(mapper.projectedRanges(range(ms(7'000) + ns(1), ns(2))), std::vector{range(startOfD, ns(3))});
    // Sequence offsets 1-2 ns are 1.23-2.46 ns of source.
    EXPECT_EQ(mapper.sourceRanges(range(startOfD + ns(1), ns(1))),
              std::vector{range(ms(7'000) + ns(1), ns(2))});

    // Whatever the rate, each piece covers the mapped times of its ends.
    for (const TimelineSegmentProjection& projection : mapper.projections()) {
        const ProjectTime start = projection.segment.sourceRange.start + ns(12'345);
        const ProjectTimeRange piece = range(start, ns(98'765));
        const auto projected = mapper.projectedRanges(piece);
        ASSERT_EQ(projected.size(), 1U);
        EXPECT_LE(projected[0].start, mapper.mappedTimeForSourceTime(start)->sequenceTime);
        EXPECT_GE(projected[0].end(), mapper.mappedTimeForSourceTime(piece.end())->sequenceTime);
    }

    const ProjectTimeRange rangeOfA = fixture.a.sourceRange;
    EXPECT_FALSE(mapper.retainsEntireSourceRange(range(rangeOfA.start, rangeOfA.duration + ns(1))));
    // B and C touch, so together they are kept whole; A to B spans a cut.
    EXPECT_TRUE(mapper.retainsEntireSourceRange(range(ms(3'000), ms(3'000))));
    EXPECT_FALSE(mapper.retainsEntireSourceRange(range(ms(1'000), ms(3'000))));
    EXPECT_TRUE(mapper.retainsEntireSourceRange(range(ms(2'500), ms(0))));

    // A sequence delta moves at the segment's rate, without clamping.
    // Past B's end and into C: the caller clamps.
    EXPECT_EQ(mapper.sourceTimeByApplyingSequenceDelta(2'000'000'000, ms(4'000), fixture.b.id), ms(8'000));
    // The magnitude is rounded before the sign is restored: 61.5 ns either way.
    EXPECT_EQ(mapper.sourceTimeByApplyingSequenceDelta(50, ms(7'000), fixture.d.id), ms(7'000) + ns(62));
    EXPECT_EQ(mapper.sourceTimeByApplyingSequenceDelta(-50, ms(7'000), fixture.d.id), ms(7'000) - ns(62));
    // A sum at the limit.
    EXPECT_EQ(mapper.sourceTimeByApplyingSequenceDelta(10, ns(maxNanoseconds - 10), fixture.a.id),
              ns(maxNanoseconds));

    EXPECT_EQ(mapper.sourceTimeByApplyingSequenceDelta(1, ms(1'000), Uuid::random()), std::nullopt);
    EXPECT_EQ(mapper.sourceTimeByApplyingSequenceDelta(minNanoseconds, ms(1'000), fixture.a.id),
              std::nullopt);
    // The conversion overflows at 1.23x; the sum overflows.
    EXPECT_EQ(mapper.sourceTimeByApplyingSequenceDelta(maxNanoseconds, ns(0), fixture.d.id), std::nullopt);
    EXPECT_EQ(mapper.sourceTimeByApplyingSequenceDelta(11, ns(maxNanoseconds - 10), fixture.a.id),
              std::nullopt);
}

// ---- A mapper without segments ----

// An empty timeline is refused on construction; a default mapper has no
// projections at all.
TEST(TimelineMapperEmpty, AMapperWithoutProjectionsMapsNothing) {
    const TimelineMapper mapper;
    EXPECT_TRUE(mapper.projections().empty());
    EXPECT_EQ(mapper.sequenceDuration(), ns(0));
    EXPECT_EQ(mapper.mappedTimeForSequenceTime(ns(0)), std::nullopt);
    EXPECT_EQ(mapper.sourceTimeForSequenceBoundary(ns(0)), std::nullopt);
    EXPECT_EQ(mapper.nearestSequenceBoundaryToDeletedSourceTime(ms(5)), ns(0));
    EXPECT_TRUE(mapper.retainsEntireSourceRange(range(ms(3), ns(0))));
    EXPECT_FALSE(mapper.retainsEntireSourceRange(range(ms(3), ns(1))));
}

} // namespace
} // namespace rilo

#include "project/document/TimelineValidator.h"
#include "project/engine/TimelineEffectEngine.h"
#include "project/engine/TimelineMapper.h"
#include "project/engine/TimelineSpeedEngine.h"
#include "support/Thrown.h"
#include "support/TimelineBuilders.h"

#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <vector>

namespace rilo {
namespace {

using Case = TimelineSpeedError::Case;

constexpr ProjectTime sourceDuration = ProjectTime::fromSeconds(10);

using testing::between;
using testing::frame;
using testing::ms;
using testing::ns;
using testing::segment;
using testing::timelineOf;

TimelineSpeedChange change(ProjectTime start, ProjectTime end, std::int64_t permille) {
    return {between(start, end), {permille}};
}

struct Piece {
    ProjectTimeRange range;
    std::int64_t permille = 1000;
    friend bool operator==(const Piece&, const Piece&) = default;
};

std::vector<Piece> piecesOf(const EditTimeline& timeline) {
    std::vector<Piece> pieces;
    for (const TimelineSegment& s : timeline.segments) {
        pieces.push_back({s.sourceRange, s.playbackRate.permille});
    }
    return pieces;
}

EditTimeline checked(EditTimeline timeline) {
    EXPECT_NO_THROW(TimelineValidator::validateContent(timeline, sourceDuration));
    return timeline;
}

EditTimeline settingRate(std::int64_t permille, ProjectTimeRange range, const EditTimeline& timeline) {
    return TimelineSpeedEngine::settingRate({permille}, range, timeline, sourceDuration);
}

// Runs a change that must fail with the given case.
void expectSpeedError(const EditTimeline& timeline, Case expected,
                      const std::function<void(const EditTimeline&)>& body) {
    EXPECT_EQ(testing::thrownCase<TimelineSpeedError>([&] { body(timeline); }), expected);
}

std::optional<Case> normalizationError(const std::vector<TimelineSpeedChange>& changes) {
    return testing::thrownCase<TimelineSpeedError>([&] { TimelineSpeedEngine::normalized(changes); });
}

// ---- Setting a rate ----

TEST(TimelineSpeedSettingTests, SplitsTheSegmentAroundTheRange) {
    const TimelineSegment whole = segment(ms(0), sourceDuration);
    EditTimeline timeline = timelineOf({whole});
    timeline.zooms = {{Uuid::random(), ms(2'500), ms(3'000), ms(3'500), ms(4'500),
                       TimelineEffectEngine::constrainedFocus({0.2, 0.2}, 2), 2}};
    timeline.annotations = {
        AnnotationElement::defaultAnnotation(AnnotationKind::arrow, ms(1'000), ms(3'000), 0, 16.0 / 9.0)};

    const EditTimeline result = checked(settingRate(2000, between(ms(2'000), ms(4'000)), timeline));

    EXPECT_EQ(piecesOf(result), (std::vector<Piece>{{between(ms(0), ms(2'000)), 1000},
                                                    {between(ms(2'000), ms(4'000)), 2000},
                                                    {between(ms(4'000), sourceDuration), 1000}}));
    EXPECT_EQ(result.segments[0].id, whole.id);
    EXPECT_EQ(testing::distinctSegmentIDs(result), 3U) << "the changed and the right piece get fresh ids";
    EXPECT_EQ(TimelineMapper(result, sourceDuration).sequenceDuration(), ms(9'000));
    // Effects live in source time and are not touched.
    EXPECT_EQ(result.zooms, timeline.zooms);
    EXPECT_EQ(result.annotations, timeline.annotations);
}

TEST(TimelineSpeedSettingTests, ARemainderOfAFrameStaysAndAShorterOneIsAbsorbed) {
    // A segment ending minimum - 1 ns after frame 599: the remainder joins the change.
    const ProjectTime offGridEnd = frame(599) + TimelineFrameGrid::minimumDuration - ns(1);
    const EditTimeline absorbedEnd =
        checked(settingRate(2000, between(ms(2'000), frame(599)), timelineOf({segment(ms(0), offGridEnd)})));
    EXPECT_EQ(piecesOf(absorbedEnd), (std::vector<Piece>{{between(ms(0), ms(2'000)), 1000},
                                                         {between(ms(2'000), offGridEnd), 2000}}));

    // A segment starting 10 ms in: a change from frame 1 takes the 6,666,666 ns
    // before it along, and so keeps the segment's id.
    const TimelineSegment late = segment(ms(10), sourceDuration);
    const EditTimeline absorbedStart =
        checked(settingRate(2000, between(frame(1), ms(1'000)), timelineOf({late})));
    EXPECT_EQ(piecesOf(absorbedStart), (std::vector<Piece>{{between(ms(10), ms(1'000)), 2000},
                                                           {between(ms(1'000), sourceDuration), 1000}}));
    EXPECT_EQ(absorbedStart.segments[0].id, late.id);
}

TEST(TimelineSpeedSettingTests, TouchingSegmentsKeepTheirIdsAndOneAlreadyAtTheRateStaysWhole) {
    const TimelineSegment a = segment(ms(0), ms(2'000));
    const TimelineSegment b = segment(ms(2'000), ms(4'000));
    const EditTimeline result = checked(settingRate(1500, between(ms(0), ms(4'000)), timelineOf({a, b})));
    EXPECT_EQ(result.segments,
              (std::vector<TimelineSegment>{{a.id, a.sourceRange, {1500}}, {b.id, b.sourceRange, {1500}}}));

    const TimelineSegment fast = segment(ms(2'000), ms(4'000), 2000);
    const EditTimeline partly =
        checked(settingRate(2000, between(ms(1'000), ms(4'000)), timelineOf({a, fast})));
    ASSERT_EQ(partly.segments.size(), 3U);
    EXPECT_EQ(partly.segments[0], (TimelineSegment{a.id, between(ms(0), ms(1'000)), {1000}}));
    EXPECT_EQ(partly.segments[1].sourceRange, between(ms(1'000), ms(2'000)));
    EXPECT_EQ(partly.segments[1].playbackRate.permille, 2000);
    EXPECT_EQ(partly.segments[2], fast);
}

TEST(TimelineSpeedSettingTests, RefusesBadRatesAndRangesAndChangesThatChangeNothing) {
    const EditTimeline whole = timelineOf({segment(ms(0), sourceDuration)});
    const EditTimeline withCut = timelineOf({segment(ms(0), ms(4'000)), segment(ms(5'000), sourceDuration)});
    // The touching 1x segment is not overlapped, so nothing would change.
    const EditTimeline atRate =
        timelineOf({segment(ms(0), ms(2'000), 2000), segment(ms(2'000), ms(3'000), 2000),
                    segment(ms(3'000), sourceDuration)});
    struct Row {
        const EditTimeline& timeline;
        Case expected;
        std::int64_t permille;
        ProjectTimeRange range;
    };
    const std::vector<Row> rows = {
        {whole, Case::invalidRate, 505, between(ms(0), ms(1'000))},
        {whole, Case::invalidRate, 490, between(ms(0), ms(1'000))},
        {whole, Case::invalidRate, 4010, between(ms(0), ms(1'000))},
        {whole, Case::invalidRate, 505, between(ms(0), ms(1))}, // the rate is checked before the range
        {whole, Case::invalidRange, 2000, between(ms(1'000), ms(1'005))},
        {whole, Case::invalidRange, 2000, between(ms(9'000), ms(10'500))},
        {withCut, Case::rangeOutsideRetainedContent, 2000, between(frame(239), frame(241))},
        {atRate, Case::noChange, 2000, between(ms(500), ms(3'000))},
        {atRate, Case::noChange, 1000, between(ms(4'000), ms(5'000))},
    };
    for (const Row& row : rows) {
        expectSpeedError(row.timeline, row.expected,
                         [&](const EditTimeline& t) { settingRate(row.permille, row.range, t); });
    }
    // Both ends of the scale are fine; four frames at 4x play for a whole frame.
    EXPECT_NO_THROW(settingRate(500, between(ms(0), ms(1'000)), whole));
    EXPECT_NO_THROW(checked(settingRate(4000, between(ms(0), frame(4)), whole)));

    // Two source frames at 4x play for half a frame: a piece too short at its
    // new rate fails validation.
    EXPECT_EQ(testing::thrownCase<TimelineValidationError>(
                  [&] { settingRate(4000, between(ms(0), frame(2)), whole); }),
              TimelineValidationError::Case::sequenceSegmentTooShort);
}

// ---- Normalising a batch ----

TEST(TimelineSpeedNormalizationTests, SnapsSortsMergesChangesOfOneRateOnlyAndChecksEachInOrder) {
    // Given out of order, touching, and one inside the other.
    EXPECT_EQ(
        TimelineSpeedEngine::normalized({change(ms(1'000), ms(2'000), 2000), change(ms(0), ms(1'000), 2000),
                                         change(ms(500), ms(700), 2000)}),
        std::vector<TimelineSpeedChange>{change(ms(0), ms(2'000), 2000)});

    EXPECT_EQ(
        TimelineSpeedEngine::normalized({change(ms(1'000), ms(2'000), 1500), change(ms(0), ms(1'000), 2000)}),
        (std::vector<TimelineSpeedChange>{change(ms(0), ms(1'000), 2000),
                                          change(ms(1'000), ms(2'000), 1500)}));
    EXPECT_EQ(normalizationError({change(ms(0), ms(2'000), 2000), change(ms(1'000), ms(3'000), 1500)}),
              Case::conflictingRanges);

    EXPECT_EQ(TimelineSpeedEngine::normalized({change(ms(5'000), ms(6'000), 1500),
                                               change(ms(1'234), ms(2'002), 750),
                                               change(ms(1'234), ms(1'500), 750)}),
              (std::vector<TimelineSpeedChange>{change(frame(74), ms(2'000), 750),
                                                change(ms(5'000), ms(6'000), 1500)}));
    EXPECT_TRUE(TimelineSpeedEngine::normalized({}).empty());

    // Each change is checked in the order given.
    EXPECT_EQ(normalizationError({change(ms(0), ms(1'000), 505)}), Case::invalidRate);
    EXPECT_EQ(normalizationError({change(ms(0), ms(5), 2000)}), Case::invalidRange);
    EXPECT_EQ(normalizationError({change(ms(0), ms(1'000), 4010), change(ms(0), ms(5), 2000)}),
              Case::invalidRate);
}

// ---- Applying a batch ----

TEST(TimelineSpeedApplyingTests, AppliesTheNormalisedChangesInOrderOrDiscardsTheBatch) {
    const EditTimeline timeline = timelineOf({segment(ms(0), sourceDuration)});
    const TimelineSpeedResult result =
        TimelineSpeedEngine::applying({change(ms(6'000), ms(7'000), 500), change(ms(1'000), ms(3'000), 2000),
                                       change(ms(0), ms(2'000), 2000)},
                                      timeline, sourceDuration);

    EXPECT_EQ(result.normalizedChanges,
              (std::vector<TimelineSpeedChange>{change(ms(0), ms(3'000), 2000),
                                                change(ms(6'000), ms(7'000), 500)}));
    EXPECT_EQ(piecesOf(checked(result.timeline)),
              (std::vector<Piece>{{between(ms(0), ms(3'000)), 2000},
                                  {between(ms(3'000), ms(6'000)), 1000},
                                  {between(ms(6'000), ms(7'000)), 500},
                                  {between(ms(7'000), sourceDuration), 1000}}));
    EXPECT_EQ(result.timeline.segments[0].id, timeline.segments[0].id);

    // Any failing change discards the batch.
    const EditTimeline withCut = timelineOf({segment(ms(0), ms(4'000)), segment(ms(5'000), sourceDuration)});
    const auto applying = [](std::vector<TimelineSpeedChange> changes) {
        return
            [changes](const EditTimeline& t) { TimelineSpeedEngine::applying(changes, t, sourceDuration); };
    };
    // The second change already has its rate.
    expectSpeedError(withCut, Case::noChange,
                     applying({change(ms(0), ms(1'000), 2000), change(ms(6'000), ms(7'000), 1000)}));
    // The second change spans the cut.
    expectSpeedError(withCut, Case::rangeOutsideRetainedContent,
                     applying({change(ms(0), ms(1'000), 2000), change(ms(3'000), ms(6'000), 1500)}));
}

} // namespace
} // namespace rilo

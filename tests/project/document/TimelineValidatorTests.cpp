#include "project/document/DeviceFrameCatalog.h"
#include "project/document/TimelineValidator.h"
#include "project/engine/TimelineEffectEngine.h"
#include "support/BuildCatalog.h"
#include "support/TemporaryDirectory.h"
#include "support/TestPaths.h"
#include "support/Thrown.h"
#include "support/TimelineBuilders.h"

#include <cmath>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace rilo {
namespace {

using Case = TimelineValidationError::Case;

constexpr ProjectTime tenSeconds = ProjectTime::fromSeconds(10);
constexpr std::int64_t int64Max = std::numeric_limits<std::int64_t>::max();

using testing::buildCatalog;
using testing::timelineOf;

void validate(const EditTimeline& timeline, ProjectTime sourceDuration = tenSeconds) {
    TimelineValidator::validate(timeline, sourceDuration,
                                [&]() -> const DeviceFrameCatalog& { return buildCatalog(); });
}

// The case of the error, or nullopt when the timeline passes.
std::optional<Case> failure(const EditTimeline& timeline, ProjectTime sourceDuration = tenSeconds) {
    return testing::thrownCase<TimelineValidationError>([&] { validate(timeline, sourceDuration); });
}

// The timeline fails with this case and names the element with this id.
void expectFailureNaming(const EditTimeline& timeline, Case expected, const Uuid& id,
                         ProjectTime sourceDuration = tenSeconds) {
    const auto error = testing::thrown<TimelineValidationError>([&] { validate(timeline, sourceDuration); });
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->errorCase(), expected);
    EXPECT_EQ(error->id(), id);
}

// A start and a length rather than an end, so that ranges reaching past every
// representable time can be built.
TimelineSegment segment(std::int64_t startNanoseconds, std::int64_t durationNanoseconds,
                        std::int64_t permille = 1000) {
    return {Uuid::random(), {ProjectTime{startNanoseconds}, ProjectTime{durationNanoseconds}}, {permille}};
}

EditTimeline wholeSourceTimeline() {
    return timelineOf({segment(0, tenSeconds.nanoseconds)});
}

AnnotationElement annotation(AnnotationKind kind, std::int64_t startNanoseconds, std::int64_t endNanoseconds,
                             std::int64_t zIndex) {
    return AnnotationElement::defaultAnnotation(kind, ProjectTime{startNanoseconds},
                                                ProjectTime{endNanoseconds}, zIndex, 16.0 / 9.0);
}

AnnotationElement rectangle(std::int64_t zIndex, std::int64_t startNanoseconds = 0,
                            std::int64_t endNanoseconds = 1'000'000'000) {
    return annotation(AnnotationKind::rectangle, startNanoseconds, endNanoseconds, zIndex);
}

EditTimeline timelineWithAnnotations(std::vector<AnnotationElement> annotations) {
    EditTimeline timeline = wholeSourceTimeline();
    timeline.annotations = std::move(annotations);
    return timeline;
}

// A document with two faults reports the one checked first.
TEST(TimelineValidatorOrder, TheFirstFaultInCheckOrderIsReportedAndMotionBlurIsAFraction) {
    struct Example {
        std::string name;
        std::function<void(EditTimeline&)> spoil;
        Case expected;
    };
    const std::vector<Example> examples = {
        {"schema before emptiness",
         [](EditTimeline& t) {
             t.schemaVersion = 9;
             t.segments.clear();
         },
         Case::unsupportedSchema},
        {"a single bad annotation before simultaneity",
         [](EditTimeline& t) {
             for (int z = 0; z < 17; ++z) {
                 t.annotations.push_back(rectangle(z));
             }
             t.annotations.back().lineWidth = 0.2;
         },
         Case::invalidAnnotation},
        {"length before rate",
         [](EditTimeline& t) {
             t.segments[0].sourceRange.duration = ProjectTime{5};
             t.segments[0].playbackRate = {123};
         },
         Case::segmentTooShort},
        {"sequence length before order",
         [](EditTimeline& t) {
             t.segments = {segment(5'000'000'000, 1'000'000'000), segment(0, 60'000'000, 4000)};
         },
         Case::sequenceSegmentTooShort},
    };
    for (const Example& example : examples) {
        SCOPED_TRACE(example.name);
        EditTimeline timeline = wholeSourceTimeline();
        example.spoil(timeline);
        EXPECT_EQ(failure(timeline), example.expected);
    }

    // Motion blur must be a finite fraction.
    for (double amount : {0.0, 1.0, -0.001, 1.001, static_cast<double>(NAN)}) {
        EditTimeline timeline = wholeSourceTimeline();
        timeline.motionBlurAmount = amount;
        const bool valid = amount == 0.0 || amount == 1.0;
        EXPECT_EQ(failure(timeline), valid ? std::nullopt : std::optional(Case::invalidMotionBlurAmount))
            << amount;
    }
}

// Each member is refused below the schema that brought it and accepted from
// that schema on.
TEST(TimelineValidatorSchema, EachMemberNeedsTheSchemaThatBroughtIt) {
    const struct {
        std::string name;
        std::int64_t firstSchema;
        std::function<void(EditTimeline&)> add;
        Case refusal;
    } examples[] = {
        {"rates", 4, [](EditTimeline& t) { t.segments[0].playbackRate = {2000}; },
         Case::playbackRateRequiresSchema4},
        {"annotations", 7, [](EditTimeline& t) { t.annotations = {rectangle(0)}; },
         Case::annotationsRequireSchema7},
        {"device frame", 8,
         [](EditTimeline& t) {
             t.deviceFrame = DeviceFrameEdit{false, buildCatalog().devices.back().variants.back().id};
         },
         Case::deviceFrameRequiresSchema8},
    };
    for (const auto& example : examples) {
        SCOPED_TRACE(example.name);
        EditTimeline timeline = wholeSourceTimeline();
        example.add(timeline);
        timeline.schemaVersion = example.firstSchema;
        EXPECT_EQ(failure(timeline), std::nullopt);
        timeline.schemaVersion = example.firstSchema - 1;
        EXPECT_EQ(failure(timeline), example.refusal);
    }
}

// A device id is not an asset id: only variants are, and an unknown asset
// fails even when the frame is disabled.
TEST(TimelineValidatorDeviceFrame, OnlyAssetsOfALoadedCatalogPass) {
    EditTimeline timeline = wholeSourceTimeline();
    timeline.deviceFrame = DeviceFrameEdit{true, buildCatalog().devices.front().defaultVariant()->id};
    EXPECT_EQ(failure(timeline), std::nullopt);
    timeline.deviceFrame = DeviceFrameEdit{false, buildCatalog().devices.front().id};
    EXPECT_EQ(failure(timeline), Case::invalidDeviceFrame);

    testing::TemporaryDirectory emptyResources;
    std::optional<DeviceFrameCatalog> loaded;
    int requests = 0;
    const TimelineValidator::DeviceFrameCatalogProvider missingCatalog = [&]() -> const DeviceFrameCatalog& {
        ++requests;
        loaded = DeviceFrameCatalog::load(emptyResources.path());
        return *loaded;
    };
    // Without a device frame the catalog is never asked for.
    EXPECT_NO_THROW(TimelineValidator::validate(wholeSourceTimeline(), tenSeconds, missingCatalog));
    EXPECT_EQ(requests, 0);
    timeline.deviceFrame = DeviceFrameEdit{true, buildCatalog().devices.front().defaultVariant()->id};
    EXPECT_EQ(testing::thrownCase<TimelineValidationError>(
                  [&] { TimelineValidator::validate(timeline, tenSeconds, missingCatalog); }),
              Case::invalidDeviceFrame);
}

// One 60 fps output frame is 16,666,666 ns; at 4.00x the rounded sequence
// length of 66,666,662 ns reaches it and of 66,666,661 ns falls short.
TEST(TimelineValidatorSegments, RangesFitTheSourceAndSequenceAndFollowInSourceOrder) {
    const std::int64_t oneFrame = TimelineFrameGrid::minimumDuration.nanoseconds;
    const struct {
        std::int64_t start;
        std::int64_t duration;
        std::int64_t permille;
        std::optional<Case> expected;
    } examples[] = {
        {0, oneFrame, 1000, std::nullopt},
        {9'000'000'000, 1'000'000'000, 1000, std::nullopt},
        {-1, 1'000'000'000, 1000, Case::rangeOutsideSource},
        {0, 0, 1000, Case::rangeOutsideSource},
        {9'000'000'000, 1'000'000'001, 1000, Case::rangeOutsideSource},
        // The end is past every representable time; no arithmetic may trap.
        {1, int64Max, 1000, Case::rangeOutsideSource},
        {0, oneFrame - 1, 1000, Case::segmentTooShort},
        {0, 66'666'662, 4000, std::nullopt},
        {0, 66'666'661, 4000, Case::sequenceSegmentTooShort},
        // Whole hundredths from half to four times.
        {0, tenSeconds.nanoseconds, 500, std::nullopt},
        {0, tenSeconds.nanoseconds, 490, Case::invalidPlaybackRate},
        {0, tenSeconds.nanoseconds, 1005, Case::invalidPlaybackRate},
        {0, tenSeconds.nanoseconds, 4010, Case::invalidPlaybackRate},
    };
    for (const auto& example : examples) {
        SCOPED_TRACE(::testing::Message()
                     << example.start << " + " << example.duration << " at " << example.permille);
        EXPECT_EQ(failure(timelineOf({segment(example.start, example.duration, example.permille)})),
                  example.expected);
    }

    // The error names the first faulty segment.
    const EditTimeline twoFaults = timelineOf({segment(0, 1'000'000'000), segment(1'000'000'000, 5, 1000),
                                               segment(2'000'000'000, 1'000'000'000, 333)});
    expectFailureNaming(twoFaults, Case::segmentTooShort, twoFaults.segments[1].id);

    // Sequence lengths fit in 64 bits and segments follow in source order.
    EXPECT_EQ(failure(timelineOf({segment(0, int64Max, 500)}), ProjectTime{int64Max}),
              Case::sequenceDurationOverflow);

    // Each segment alone fits (8e18 and 4e18 ns), their sum does not.
    const TimelineSegment slow = segment(0, 4'000'000'000'000'000'000, 500);
    const TimelineSegment normal = segment(4'000'000'000'000'000'000, 4'000'000'000'000'000'000);
    EXPECT_EQ(failure(timelineOf({slow}), ProjectTime{int64Max}), std::nullopt);
    expectFailureNaming(timelineOf({slow, normal}), Case::sequenceDurationOverflow, normal.id,
                        ProjectTime{int64Max});

    const TimelineSegment first = segment(0, 2'000'000'000);
    EXPECT_EQ(failure(timelineOf({first, segment(2'000'000'000, 1'000'000'000)})), std::nullopt);

    const TimelineSegment overlapping = segment(1'999'999'999, 1'000'000'000);
    expectFailureNaming(timelineOf({first, overlapping}), Case::overlappingSegments, overlapping.id);
    expectFailureNaming(timelineOf({segment(5'000'000'000, 1'000'000'000), first}), Case::segmentsOutOfOrder,
                        first.id);
}

TEST(TimelineValidatorAnnotations, LimitsReachedExactlyPassAndOutOfLimitValuesFail) {
    AnnotationElement rightEdge = rectangle(0);
    rightEdge.bounds = RectValue{0.98, 0.98, 0.02, 0.02};
    rightEdge.lineWidth = 0.05;
    rightEdge.color = {0, 1, 1};
    AnnotationElement shortest = rectangle(1, 0, TimelineFrameGrid::minimumDuration.nanoseconds);
    shortest.lineWidth = 0.001;
    AnnotationElement atSourceEnd = rectangle(2, 9'000'000'000, tenSeconds.nanoseconds);
    AnnotationElement shortArrow = annotation(AnnotationKind::arrow, 0, 1'000'000'000, 3);
    shortArrow.startPoint = PointValue{0, 1};
    shortArrow.endPoint = PointValue{0.02, 1};
    EXPECT_EQ(failure(timelineWithAnnotations({rightEdge, shortest, atSourceEnd, shortArrow,
                                               annotation(AnnotationKind::circle, 0, 1'000'000'000, 4),
                                               annotation(AnnotationKind::mosaic, 0, 1'000'000'000, 5)})),
              std::nullopt);

    const struct {
        std::string name;
        AnnotationKind kind;
        std::function<void(AnnotationElement&)> spoil;
    } examples[] = {
        {"negative zIndex", AnnotationKind::rectangle, [](AnnotationElement& a) { a.zIndex = -1; }},
        {"end after source", AnnotationKind::rectangle,
         [](AnnotationElement& a) { a.endTime = ProjectTime{tenSeconds.nanoseconds + 1}; }},
        {"shorter than a frame", AnnotationKind::rectangle,
         [](AnnotationElement& a) { a.endTime = ProjectTime{16'666'665}; }},
        {"thin line", AnnotationKind::rectangle, [](AnnotationElement& a) { a.lineWidth = 0.0009; }},
        {"no bounds", AnnotationKind::rectangle, [](AnnotationElement& a) { a.bounds.reset(); }},
        {"past the right edge", AnnotationKind::rectangle,
         [](AnnotationElement& a) {
             a.bounds = RectValue{0.981, 0, 0.02, 0.5};
         }},
        {"infinite height", AnnotationKind::rectangle,
         [](AnnotationElement& a) { a.bounds->height = INFINITY; }},
        {"short arrow", AnnotationKind::arrow,
         [](AnnotationElement& a) {
             a.startPoint = PointValue{0.5, 0.5};
             a.endPoint = PointValue{0.5, 0.519};
         }},
    };
    for (const auto& example : examples) {
        SCOPED_TRACE(example.name);
        AnnotationElement spoiled = annotation(example.kind, 0, 1'000'000'000, 1);
        example.spoil(spoiled);
        expectFailureNaming(timelineWithAnnotations({rectangle(0), spoiled}), Case::invalidAnnotation,
                            spoiled.id);
    }

    const AnnotationElement first = rectangle(0);
    AnnotationElement sameID = rectangle(1, 2'000'000'000, 3'000'000'000);
    sameID.id = first.id;
    const AnnotationElement sameLayer = rectangle(0, 2'000'000'000, 3'000'000'000);
    for (const AnnotationElement& second : {sameID, sameLayer}) {
        expectFailureNaming(timelineWithAnnotations({first, second}), Case::invalidAnnotation, second.id);
    }
}

TEST(TimelineValidatorAnnotations, AtMostSixteenAreShownAtOnceAndAtMost500Stored) {
    std::vector<AnnotationElement> sixteen;
    for (int z = 0; z < 16; ++z) {
        sixteen.push_back(rectangle(z, 0, 1'000'000'000));
    }
    // The ends at an instant count before the starts.
    std::vector<AnnotationElement> handover = sixteen;
    handover.push_back(rectangle(16, 1'000'000'000, 2'000'000'000));
    EXPECT_EQ(failure(timelineWithAnnotations(handover)), std::nullopt);

    std::vector<AnnotationElement> overlapping = sixteen;
    overlapping.push_back(rectangle(16, 999'999'999, 2'000'000'000));
    EXPECT_EQ(failure(timelineWithAnnotations(overlapping)), Case::tooManySimultaneousAnnotations);

    // 501 copies of one annotation, each a duplicate of the first, fail on
    // their number before any single one is looked at.
    EXPECT_EQ(failure(timelineWithAnnotations(std::vector<AnnotationElement>(501, rectangle(0)))),
              Case::tooManyAnnotations);
}

} // namespace
} // namespace rilo

#include "project/document/DeviceFrameCatalog.h"
#include "project/document/TimelineValidator.h"
#include "project/engine/TimelineEffectEngine.h"
#include "support/BuildCatalog.h"
#include "support/TemporaryDirectory.h"
#include "support/TestPaths.h"
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

TimelineValidator::DeviceFrameCatalogProvider buildCatalogProvider() {
    return []() -> const DeviceFrameCatalog& { return buildCatalog(); };
}

void validate(const EditTimeline& timeline, ProjectTime sourceDuration = tenSeconds) {
    TimelineValidator::validate(timeline, sourceDuration, buildCatalogProvider());
}

template <typename Error, typename Body>
std::optional<Error> thrown(Body body) {
    try {
        body();
    } catch (const Error& error) {
        return error;
    }
    return std::nullopt;
}

std::optional<TimelineValidationError> validationError(const EditTimeline& timeline,
                                                       ProjectTime sourceDuration = tenSeconds) {
    return thrown<TimelineValidationError>([&] { validate(timeline, sourceDuration); });
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

// A variant id of the shipped catalog that is not its device's default.
std::string nonDefaultAssetID() {
    for (const auto& device : buildCatalog().devices) {
        for (const auto& variant : device.variants) {
            if (!variant.isDefault) {
                return variant.id;
            }
        }
    }
    ADD_FAILURE() << "the shipped catalog has no non-default variant";
    return {};
}

// A document with two faults reports the one checked first.
TEST(TimelineValidatorOrder, TheFirstFaultInCheckOrderIsReported) {
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
        {"emptiness before motion blur",
         [](EditTimeline& t) {
             t.segments.clear();
             t.motionBlurAmount = -1;
         },
         Case::empty},
        {"motion blur before device frame",
         [](EditTimeline& t) {
             t.motionBlurAmount = NAN;
             t.deviceFrame = DeviceFrameEdit{true, "no-such-device"};
         },
         Case::invalidMotionBlurAmount},
        {"device frame before segments",
         [](EditTimeline& t) {
             t.deviceFrame = DeviceFrameEdit{false, "no-such-device"};
             t.segments[0].playbackRate = {123};
         },
         Case::invalidDeviceFrame},
        {"segments before annotation schema",
         [](EditTimeline& t) {
             t.schemaVersion = 6;
             t.annotations = {rectangle(0)};
             t.segments[0].sourceRange.start = ProjectTime{-1};
         },
         Case::rangeOutsideSource},
        {"annotation schema before annotation count",
         [](EditTimeline& t) {
             t.schemaVersion = 6;
             t.annotations.assign(501, rectangle(0));
         },
         Case::annotationsRequireSchema7},
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
        const auto error = validationError(timeline);
        ASSERT_TRUE(error.has_value());
        EXPECT_EQ(error->errorCase(), example.expected);
    }
}

TEST(TimelineValidatorOrder, EffectsAreCheckedAfterSegmentsAndBeforeAnnotations) {
    EditTimeline timeline = wholeSourceTimeline();
    timeline.zooms = {
        {Uuid::random(), ProjectTime{0}, ProjectTime{0}, ProjectTime{5}, ProjectTime{5}, {0.5, 0.5}, 1}};
    timeline.schemaVersion = 6;
    timeline.annotations = {rectangle(0)};
    const auto effectError = thrown<TimelineEffectError>([&] { validate(timeline); });
    ASSERT_TRUE(effectError.has_value());
    EXPECT_EQ(effectError->errorCase(), TimelineEffectError::Case::zoomRangeInvalid);

    timeline.segments[0].sourceRange.duration = ProjectTime{tenSeconds.nanoseconds + 1};
    const auto segmentError = validationError(timeline);
    ASSERT_TRUE(segmentError.has_value());
    EXPECT_EQ(segmentError->errorCase(), Case::rangeOutsideSource);
}

TEST(TimelineValidatorOrder, TheFirstFaultySegmentIsNamed) {
    EditTimeline timeline = timelineOf({segment(0, 1'000'000'000), segment(1'000'000'000, 5, 1000),
                                        segment(2'000'000'000, 1'000'000'000, 333)});
    const auto error = validationError(timeline);
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->errorCase(), Case::segmentTooShort);
    EXPECT_EQ(error->id(), timeline.segments[1].id);
}

TEST(TimelineValidatorDocument, MotionBlurMustBeAFiniteFraction) {
    for (double amount : {0.0, 1.0, 0.5}) {
        EditTimeline timeline = wholeSourceTimeline();
        timeline.motionBlurAmount = amount;
        EXPECT_NO_THROW(validate(timeline)) << amount;
    }
    for (double amount : {-0.001, 1.001, static_cast<double>(INFINITY), static_cast<double>(NAN)}) {
        EditTimeline timeline = wholeSourceTimeline();
        timeline.motionBlurAmount = amount;
        const auto error = validationError(timeline);
        ASSERT_TRUE(error.has_value()) << amount;
        EXPECT_EQ(error->errorCase(), Case::invalidMotionBlurAmount);
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
             t.deviceFrame = DeviceFrameEdit{false, nonDefaultAssetID()};
         },
         Case::deviceFrameRequiresSchema8},
    };
    for (const auto& example : examples) {
        SCOPED_TRACE(example.name);
        EditTimeline timeline = wholeSourceTimeline();
        example.add(timeline);
        timeline.schemaVersion = example.firstSchema;
        EXPECT_NO_THROW(validate(timeline));
        timeline.schemaVersion = example.firstSchema - 1;
        const auto error = validationError(timeline);
        ASSERT_TRUE(error.has_value());
        EXPECT_EQ(error->errorCase(), example.refusal);
    }
}

TEST(TimelineValidatorDeviceFrame, AnAssetOfTheShippedCatalogPasses) {
    EditTimeline timeline = wholeSourceTimeline();
    timeline.deviceFrame = DeviceFrameEdit{true, buildCatalog().devices.front().defaultVariant()->id};
    EXPECT_NO_THROW(validate(timeline));
    timeline.deviceFrame = DeviceFrameEdit{false, nonDefaultAssetID()};
    EXPECT_NO_THROW(validate(timeline));
}

TEST(TimelineValidatorDeviceFrame, AnUnknownAssetFailsEvenWhenDisabled) {
    for (bool isEnabled : {true, false}) {
        EditTimeline timeline = wholeSourceTimeline();
        // A device id is not an asset id: only variants are.
        timeline.deviceFrame = DeviceFrameEdit{isEnabled, buildCatalog().devices.front().id};
        const auto error = validationError(timeline);
        ASSERT_TRUE(error.has_value()) << isEnabled;
        EXPECT_EQ(error->errorCase(), Case::invalidDeviceFrame);
    }
}

TEST(TimelineValidatorDeviceFrame, ACatalogThatFailsToLoadKnowsNoAsset) {
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

    EditTimeline timeline = wholeSourceTimeline();
    timeline.deviceFrame = DeviceFrameEdit{true, buildCatalog().devices.front().defaultVariant()->id};
    const auto error = thrown<TimelineValidationError>(
        [&] { TimelineValidator::validate(timeline, tenSeconds, missingCatalog); });
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->errorCase(), Case::invalidDeviceFrame);
    EXPECT_EQ(requests, 1);
}

// One 60 fps output frame is 16,666,666 ns; at 4.00x the rounded sequence
// length of 66,666,662 ns reaches it and of 66,666,661 ns falls short.
TEST(TimelineValidatorSegments, ASpedUpSegmentMustLastOneOutputFrame) {
    EXPECT_NO_THROW(validate(timelineOf({segment(0, 66'666'662, 4000)})));

    const TimelineSegment tooShort = segment(0, 66'666'661, 4000);
    const auto error = validationError(timelineOf({tooShort}));
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->errorCase(), Case::sequenceSegmentTooShort);
    EXPECT_EQ(error->id(), tooShort.id);
}

TEST(TimelineValidatorSegments, TheRangeMustLieInsideTheSourceAndLastOneFrame) {
    EXPECT_NO_THROW(validate(timelineOf({segment(0, TimelineFrameGrid::minimumDuration.nanoseconds)})));
    EXPECT_NO_THROW(validate(timelineOf({segment(9'000'000'000, 1'000'000'000)})));

    const struct {
        std::int64_t start;
        std::int64_t duration;
        Case expected;
    } examples[] = {
        {-1, 1'000'000'000, Case::rangeOutsideSource},
        {0, 0, Case::rangeOutsideSource},
        {0, -1'000'000'000, Case::rangeOutsideSource},
        {9'000'000'000, 1'000'000'001, Case::rangeOutsideSource},
        // The end is past every representable time; no arithmetic may trap.
        {1, int64Max, Case::rangeOutsideSource},
        {0, TimelineFrameGrid::minimumDuration.nanoseconds - 1, Case::segmentTooShort},
    };
    for (const auto& example : examples) {
        SCOPED_TRACE(::testing::Message() << example.start << " + " << example.duration);
        const auto error = validationError(timelineOf({segment(example.start, example.duration)}));
        ASSERT_TRUE(error.has_value());
        EXPECT_EQ(error->errorCase(), example.expected);
    }
}

TEST(TimelineValidatorSegments, RatesAreWholeHundredthsFromHalfToFourTimes) {
    for (std::int64_t permille : {500, 510, 1000, 3990, 4000}) {
        EXPECT_NO_THROW(validate(timelineOf({segment(0, tenSeconds.nanoseconds, permille)}))) << permille;
    }
    for (std::int64_t permille : {0, -1000, 490, 1005, 4010}) {
        const auto error = validationError(timelineOf({segment(0, tenSeconds.nanoseconds, permille)}));
        ASSERT_TRUE(error.has_value()) << permille;
        EXPECT_EQ(error->errorCase(), Case::invalidPlaybackRate) << permille;
    }
}

TEST(TimelineValidatorSegments, SequenceLengthsMustFitIn64Bits) {
    const auto alone = validationError(timelineOf({segment(0, int64Max, 500)}), ProjectTime{int64Max});
    ASSERT_TRUE(alone.has_value());
    EXPECT_EQ(alone->errorCase(), Case::sequenceDurationOverflow);
    EXPECT_EQ(alone->message(), "变速后的时间轴时长超出支持范围。");

    // Each segment alone fits (8e18 and 4e18 ns), their sum does not.
    const TimelineSegment slow = segment(0, 4'000'000'000'000'000'000, 500);
    const TimelineSegment normal = segment(4'000'000'000'000'000'000, 4'000'000'000'000'000'000);
    EXPECT_NO_THROW(validate(timelineOf({slow}), ProjectTime{int64Max}));
    const auto total = validationError(timelineOf({slow, normal}), ProjectTime{int64Max});
    ASSERT_TRUE(total.has_value());
    EXPECT_EQ(total->errorCase(), Case::sequenceDurationOverflow);
    EXPECT_EQ(total->id(), normal.id);
}

TEST(TimelineValidatorSegments, SegmentsFollowOneAnotherInSourceOrder) {
    const TimelineSegment first = segment(0, 2'000'000'000);
    EXPECT_NO_THROW(validate(timelineOf({first, segment(2'000'000'000, 1'000'000'000)})));

    const TimelineSegment overlapping = segment(1'999'999'999, 1'000'000'000);
    const auto overlap = validationError(timelineOf({first, overlapping}));
    ASSERT_TRUE(overlap.has_value());
    EXPECT_EQ(overlap->errorCase(), Case::overlappingSegments);
    EXPECT_EQ(overlap->id(), overlapping.id);

    const TimelineSegment sameStart = segment(0, 1'000'000'000);
    const auto duplicate = validationError(timelineOf({first, sameStart}));
    ASSERT_TRUE(duplicate.has_value());
    EXPECT_EQ(duplicate->errorCase(), Case::overlappingSegments);

    const TimelineSegment later = segment(5'000'000'000, 1'000'000'000);
    const auto disorder = validationError(timelineOf({later, first}));
    ASSERT_TRUE(disorder.has_value());
    EXPECT_EQ(disorder->errorCase(), Case::segmentsOutOfOrder);
    EXPECT_EQ(disorder->id(), first.id);
}

// 501 copies of one annotation, each a duplicate of the first, fail on their
// number before any single one is looked at.
TEST(TimelineValidatorAnnotations, AtMost500) {
    const auto error =
        validationError(timelineWithAnnotations(std::vector<AnnotationElement>(501, rectangle(0))));
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->errorCase(), Case::tooManyAnnotations);

    std::vector<AnnotationElement> spread;
    for (std::int64_t z = 0; z < 500; ++z) {
        const std::int64_t start = z * 20'000'000;
        spread.push_back(rectangle(z, start, start + 20'000'000));
    }
    EXPECT_NO_THROW(validate(timelineWithAnnotations(spread)));
}

TEST(TimelineValidatorAnnotations, EachDefaultKindIsValid) {
    EXPECT_NO_THROW(validate(timelineWithAnnotations({
        annotation(AnnotationKind::rectangle, 0, 1'000'000'000, 0),
        annotation(AnnotationKind::circle, 0, 1'000'000'000, 1),
        annotation(AnnotationKind::arrow, 0, 1'000'000'000, 2),
        annotation(AnnotationKind::mosaic, 0, 1'000'000'000, 3),
    })));
}

TEST(TimelineValidatorAnnotations, LimitsThatAreReachedExactlyPass) {
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
    EXPECT_NO_THROW(validate(timelineWithAnnotations({rightEdge, shortest, atSourceEnd, shortArrow})));
}

TEST(TimelineValidatorAnnotations, TimesStylesAndGeometryOutsideTheLimitsFail) {
    const struct {
        std::string name;
        AnnotationKind kind;
        std::function<void(AnnotationElement&)> spoil;
    } examples[] = {
        {"negative zIndex", AnnotationKind::rectangle, [](AnnotationElement& a) { a.zIndex = -1; }},
        {"negative start", AnnotationKind::rectangle,
         [](AnnotationElement& a) { a.startTime = ProjectTime{-1}; }},
        {"end at start", AnnotationKind::rectangle, [](AnnotationElement& a) { a.endTime = a.startTime; }},
        {"end after source", AnnotationKind::rectangle,
         [](AnnotationElement& a) { a.endTime = ProjectTime{tenSeconds.nanoseconds + 1}; }},
        {"shorter than a frame", AnnotationKind::rectangle,
         [](AnnotationElement& a) { a.endTime = ProjectTime{16'666'665}; }},
        {"thin line", AnnotationKind::rectangle, [](AnnotationElement& a) { a.lineWidth = 0.0009; }},
        {"thick line", AnnotationKind::rectangle, [](AnnotationElement& a) { a.lineWidth = 0.051; }},
        {"NaN line", AnnotationKind::rectangle, [](AnnotationElement& a) { a.lineWidth = NAN; }},
        {"bright red", AnnotationKind::rectangle, [](AnnotationElement& a) { a.color.red = 1.01; }},
        {"NaN green", AnnotationKind::rectangle, [](AnnotationElement& a) { a.color.green = NAN; }},
        {"no bounds", AnnotationKind::rectangle, [](AnnotationElement& a) { a.bounds.reset(); }},
        {"shape with points", AnnotationKind::circle,
         [](AnnotationElement& a) { a.startPoint = PointValue{}; }},
        {"narrow", AnnotationKind::mosaic, [](AnnotationElement& a) { a.bounds->width = 0.019; }},
        {"past the right edge", AnnotationKind::rectangle,
         [](AnnotationElement& a) {
             a.bounds = RectValue{0.981, 0, 0.02, 0.5};
         }},
        {"infinite height", AnnotationKind::rectangle,
         [](AnnotationElement& a) { a.bounds->height = INFINITY; }},
        {"arrow with bounds", AnnotationKind::arrow,
         [](AnnotationElement& a) {
             a.bounds = RectValue{0, 0, 1, 1};
         }},
        {"arrow without end", AnnotationKind::arrow, [](AnnotationElement& a) { a.endPoint.reset(); }},
        {"arrow off the picture", AnnotationKind::arrow,
         [](AnnotationElement& a) { a.startPoint->x = 1.01; }},
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
        const auto error = validationError(timelineWithAnnotations({rectangle(0), spoiled}));
        ASSERT_TRUE(error.has_value());
        EXPECT_EQ(error->errorCase(), Case::invalidAnnotation);
        EXPECT_EQ(error->id(), spoiled.id);
    }
}

TEST(TimelineValidatorAnnotations, IdsAndLayersAreUnique) {
    const AnnotationElement first = rectangle(0);
    AnnotationElement sameID = rectangle(1, 2'000'000'000, 3'000'000'000);
    sameID.id = first.id;
    const AnnotationElement sameLayer = rectangle(0, 2'000'000'000, 3'000'000'000);
    for (const AnnotationElement& second : {sameID, sameLayer}) {
        const auto error = validationError(timelineWithAnnotations({first, second}));
        ASSERT_TRUE(error.has_value());
        EXPECT_EQ(error->errorCase(), Case::invalidAnnotation);
        EXPECT_EQ(error->id(), second.id);
    }
}

TEST(TimelineValidatorAnnotations, AtMostSixteenAreShownAtOnce) {
    std::vector<AnnotationElement> sixteen;
    for (int z = 0; z < 16; ++z) {
        sixteen.push_back(rectangle(z, 0, 1'000'000'000));
    }
    EXPECT_NO_THROW(validate(timelineWithAnnotations(sixteen)));

    // The ends at an instant count before the starts.
    std::vector<AnnotationElement> handover = sixteen;
    handover.push_back(rectangle(16, 1'000'000'000, 2'000'000'000));
    EXPECT_NO_THROW(validate(timelineWithAnnotations(handover)));

    std::vector<AnnotationElement> overlapping = sixteen;
    overlapping.push_back(rectangle(16, 999'999'999, 2'000'000'000));
    const auto error = validationError(timelineWithAnnotations(overlapping));
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->errorCase(), Case::tooManySimultaneousAnnotations);
}

} // namespace
} // namespace rilo

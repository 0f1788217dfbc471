#include "shared/ProjectTime.h"
#include "shared/ValueCodecs.h"

#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

namespace {

using rilo::ProjectTime;
using rilo::ProjectTimeRange;
using rilo::TimelinePlaybackRate;
namespace grid = rilo::TimelineFrameGrid;
namespace json = rilo::json;

constexpr const char* invalidRateText = "播放倍率必须是0.50至4.00之间、步进0.01的有限数值。";

ProjectTime ns(std::int64_t value) {
    return ProjectTime{value};
}

ProjectTimeRange range(std::int64_t start, std::int64_t duration) {
    return {ns(start), ns(duration)};
}

std::string decodingMessage(const std::string& bytes) {
    try {
        json::decodeDocument<TimelinePlaybackRate>(bytes);
    } catch (const json::DecodingError& error) {
        return error.message();
    }
    return "(decoded)";
}

// ProjectTime

TEST(ProjectTimeTest, CliMillisecondsTruncateTowardsZero) {
    EXPECT_EQ(ns(-1'500'000).cliMilliseconds(), -1);
    EXPECT_EQ(ns(1'999'999).cliMilliseconds(), 1);
    EXPECT_EQ(ns(-999'999).cliMilliseconds(), 0);
    EXPECT_EQ(ns(-2'000'000).cliMilliseconds(), -2);
    EXPECT_EQ(ProjectTime::fromMilliseconds(5000).cliMilliseconds(), 5000);
}

TEST(ProjectTimeTest, OrderingAndArithmeticFollowTheNanoseconds) {
    EXPECT_LT(ns(-1), ns(0));
    EXPECT_EQ(ns(1'500) + ns(-2'000), ns(-500));
    EXPECT_EQ(ns(1'500) - ns(2'000), ns(-500));
    EXPECT_EQ(ns(3) * 4, ns(12));
    EXPECT_EQ(ProjectTime::fromSeconds(2), ProjectTime::fromMilliseconds(2000));
}

TEST(ProjectTimeDeathTest, OverflowStopsTheProcess) {
    const ProjectTime largest = ns(std::numeric_limits<std::int64_t>::max());
    EXPECT_DEATH((void)(largest + ns(1)), "overflow");
    EXPECT_DEATH((void)(ns(std::numeric_limits<std::int64_t>::min()) - ns(1)), "overflow");
    EXPECT_DEATH((void)(largest * 2), "overflow");
}

TEST(ProjectTimeTest, JsonIsAnObjectWithNanoseconds) {
    EXPECT_EQ(json::encodeDocument(ns(-1), json::JsonStyle::chunk), R"({"nanoseconds":-1})");
    EXPECT_EQ(json::encodeDocument(ns(1'500'000'000)), "{\n  \"nanoseconds\" : 1500000000\n}");
    EXPECT_EQ(json::decodeDocument<ProjectTime>(R"({"nanoseconds":1500000000})"), ns(1'500'000'000));
    for (const std::int64_t extreme :
         {std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()}) {
        EXPECT_EQ(json::decodeDocument<ProjectTime>(json::encodeDocument(ns(extreme))), ns(extreme));
    }
    // Never a bare number, and the key is required.
    EXPECT_THROW(json::decodeDocument<ProjectTime>("1500000000"), json::DecodingError);
    EXPECT_THROW(json::decodeDocument<ProjectTime>("{}"), json::DecodingError);
    EXPECT_THROW(json::decodeDocument<ProjectTime>(R"({"nanoseconds":1.5})"), json::DecodingError);
}

// ProjectTimeRange

TEST(ProjectTimeRangeTest, IsHalfOpen) {
    const ProjectTimeRange r = range(1'000, 500);
    EXPECT_EQ(r.end(), ns(1'500));
    EXPECT_TRUE(r.contains(ns(1'000)));
    EXPECT_TRUE(r.contains(ns(1'499)));
    EXPECT_FALSE(r.contains(ns(1'500)));
    EXPECT_FALSE(r.contains(ns(999)));
    EXPECT_FALSE(range(1'000, 0).contains(ns(1'000)));
}

TEST(ProjectTimeRangeTest, TouchingRangesDoNotIntersect) {
    EXPECT_EQ(range(0, 1'000).intersection(range(1'000, 1'000)), std::nullopt);
    EXPECT_EQ(range(1'000, 1'000).intersection(range(0, 1'000)), std::nullopt);
    EXPECT_EQ(range(0, 1'000).intersection(range(5'000, 1'000)), std::nullopt);
    EXPECT_EQ(range(500, 0).intersection(range(0, 1'000)), std::nullopt);
}

TEST(ProjectTimeRangeTest, IntersectionTakesTheInnerBounds) {
    EXPECT_EQ(range(0, 1'000).intersection(range(400, 1'000)), range(400, 600));
    EXPECT_EQ(range(400, 1'000).intersection(range(0, 1'000)), range(400, 600));
    EXPECT_EQ(range(0, 10'000).intersection(range(2'000, 3'000)), range(2'000, 3'000));
    EXPECT_EQ(range(-500, 1'000).intersection(range(0, 1'000)), range(0, 500));
    EXPECT_EQ(ProjectTimeRange::fromStartEnd(ns(200), ns(700)), range(200, 500));
}

TEST(ProjectTimeRangeTest, JsonRequiresStartAndDuration) {
    const ProjectTimeRange r = range(5, -3);
    EXPECT_EQ(json::encodeDocument(r, json::JsonStyle::chunk),
              R"({"duration":{"nanoseconds":-3},"start":{"nanoseconds":5}})");
    EXPECT_EQ(json::decodeDocument<ProjectTimeRange>(json::encodeDocument(r)), r);
    EXPECT_THROW(json::decodeDocument<ProjectTimeRange>(R"({"start":{"nanoseconds":5}})"),
                 json::DecodingError);
    EXPECT_THROW(json::decodeDocument<ProjectTimeRange>(R"({"duration":{"nanoseconds":5}})"),
                 json::DecodingError);
}

// TimelinePlaybackRate

TEST(TimelinePlaybackRateTest, ValidRatesAreHalfToFourTimesInHundredths) {
    EXPECT_EQ(TimelinePlaybackRate::normal().permille, 1000);
    EXPECT_EQ(TimelinePlaybackRate::normal().multiplier(), 1.0);
    EXPECT_TRUE(TimelinePlaybackRate{500}.isValid());
    EXPECT_TRUE(TimelinePlaybackRate{4000}.isValid());
    EXPECT_TRUE(TimelinePlaybackRate{1230}.isValid());
    EXPECT_FALSE(TimelinePlaybackRate{490}.isValid());
    EXPECT_FALSE(TimelinePlaybackRate{4010}.isValid());
    EXPECT_FALSE(TimelinePlaybackRate{1005}.isValid());
    EXPECT_FALSE(TimelinePlaybackRate{-1000}.isValid());
}

TEST(TimelinePlaybackRateTest, FromMultiplierTakesWholeThousandthsOnly) {
    const auto thousandths = TimelinePlaybackRate::fromMultiplier(1.005);
    ASSERT_TRUE(thousandths.has_value());
    EXPECT_EQ(thousandths->permille, 1005);
    EXPECT_FALSE(thousandths->isValid());

    EXPECT_EQ(TimelinePlaybackRate::fromMultiplier(1.0005), std::nullopt);
    EXPECT_EQ(TimelinePlaybackRate::fromMultiplier(0.57)->permille, 570);
    EXPECT_EQ(TimelinePlaybackRate::fromMultiplier(-1.5)->permille, -1500);
    EXPECT_EQ(TimelinePlaybackRate::fromMultiplier(0.0)->permille, 0);
}

TEST(TimelinePlaybackRateTest, FromMultiplierRefusesNonFiniteAndHugeValues) {
    EXPECT_EQ(TimelinePlaybackRate::fromMultiplier(std::nan("")), std::nullopt);
    EXPECT_EQ(TimelinePlaybackRate::fromMultiplier(std::numeric_limits<double>::infinity()), std::nullopt);
    EXPECT_EQ(TimelinePlaybackRate::fromMultiplier(-std::numeric_limits<double>::infinity()), std::nullopt);
    EXPECT_EQ(TimelinePlaybackRate::fromMultiplier(1e300), std::nullopt);
    EXPECT_EQ(TimelinePlaybackRate::fromMultiplier(-1e300), std::nullopt);
    // 2^63 thousandths cannot be held in the permille field.
    EXPECT_EQ(TimelinePlaybackRate::fromMultiplier(9223372036854775.808), std::nullopt);
}

TEST(TimelinePlaybackRateTest, DecodesTheRangeLimitsAndRefusesBeyondThem) {
    EXPECT_EQ(json::decodeDocument<TimelinePlaybackRate>("0.5").permille, 500);
    EXPECT_EQ(json::decodeDocument<TimelinePlaybackRate>("4").permille, 4000);
    EXPECT_EQ(json::decodeDocument<TimelinePlaybackRate>("1"),
              json::decodeDocument<TimelinePlaybackRate>("1.0"));
    for (const char* refused : {"0.49", "4.01", "1.005", "1.0005", "0", "-1"}) {
        EXPECT_EQ(decodingMessage(refused), invalidRateText) << refused;
    }
    try {
        json::decode<TimelinePlaybackRate>(json::Json(std::numeric_limits<double>::quiet_NaN()));
        ADD_FAILURE() << "a NaN rate decoded";
    } catch (const json::DecodingError& error) {
        EXPECT_EQ(error.message(), invalidRateText);
    }
    // The rate is a bare number, never an object or a string.
    EXPECT_THROW(json::decodeDocument<TimelinePlaybackRate>(R"({"permille":1000})"), json::DecodingError);
    EXPECT_THROW(json::decodeDocument<TimelinePlaybackRate>(R"("1.5")"), json::DecodingError);
}

TEST(TimelinePlaybackRateTest, EncodesTheMultiplierAndEveryValidRateRoundTrips) {
    EXPECT_EQ(json::encodeDocument(TimelinePlaybackRate::normal()), "1");
    EXPECT_EQ(json::encodeDocument(TimelinePlaybackRate{1250}), "1.25");
    EXPECT_EQ(json::encodeDocument(TimelinePlaybackRate{500}), "0.5");
    for (std::int64_t permille = 500; permille <= 4000; permille += 10) {
        const TimelinePlaybackRate rate{permille};
        EXPECT_EQ(json::decodeDocument<TimelinePlaybackRate>(json::encodeDocument(rate)), rate) << permille;
    }
}

// TimelineFrameGrid

TEST(TimelineFrameGridTest, BoundariesAreTruncatedSixtiethsOfASecond) {
    EXPECT_EQ(grid::boundaryForFrame(0), ns(0));
    EXPECT_EQ(grid::boundaryForFrame(1), ns(16'666'666));
    EXPECT_EQ(grid::boundaryForFrame(2), ns(33'333'333));
    EXPECT_EQ(grid::boundaryForFrame(60), ns(1'000'000'000));
    EXPECT_EQ(grid::boundaryForFrame(-1), ns(-16'666'666));
    EXPECT_EQ(grid::minimumDuration, grid::boundaryForFrame(1));
}

TEST(TimelineFrameGridTest, FloorClampsNegativeTimesAndFollowsTheTruncatedGrid) {
    EXPECT_EQ(grid::floorBoundary(ns(-1)), ns(0));
    EXPECT_EQ(grid::floorBoundary(ns(-5'000'000'000)), ns(0));
    EXPECT_EQ(grid::floorBoundary(ns(16'666'667)), ns(16'666'666));
    // A truncated boundary lies just before the exact sixtieth, so its floor is the frame before.
    EXPECT_EQ(grid::floorBoundary(ns(16'666'666)), ns(0));
    EXPECT_EQ(grid::floorBoundary(ns(1'000'000'000)), ns(1'000'000'000));
    EXPECT_EQ(grid::floorBoundary(ns(1'010'000'000)), ns(1'000'000'000));
}

TEST(TimelineFrameGridTest, CeilingReturnsABoundaryAtOrAfterTheTime) {
    EXPECT_EQ(grid::ceilingBoundary(ns(16'666'667)), ns(33'333'333));
    EXPECT_EQ(grid::ceilingBoundary(ns(16'666'666)), ns(16'666'666));
    EXPECT_EQ(grid::ceilingBoundary(ns(33'333'333)), ns(33'333'333));
    EXPECT_EQ(grid::ceilingBoundary(ns(1)), ns(16'666'666));
    EXPECT_EQ(grid::ceilingBoundary(ns(0)), ns(0));
    EXPECT_EQ(grid::ceilingBoundary(ns(-20'000'000)), ns(0));
}

TEST(TimelineFrameGridTest, NearestRoundsHalvesAwayFromZero) {
    EXPECT_EQ(grid::nearestBoundary(ns(8'333'333)), ns(0));
    EXPECT_EQ(grid::nearestBoundary(ns(8'333'334)), ns(16'666'666));
    // 25 ms is exactly one and a half frames.
    EXPECT_EQ(grid::nearestBoundary(ns(25'000'000)), ns(33'333'333));
    EXPECT_EQ(grid::nearestBoundary(ns(-25'000'000)), ns(-33'333'333));
    EXPECT_EQ(grid::nearestBoundary(ns(1'000'000'000)), ns(1'000'000'000));
    EXPECT_EQ(grid::nearestBoundary(ns(16'666'666)), ns(16'666'666));
}

TEST(TimelineFrameGridTest, FloorAndCeilingEncloseEveryTimeWithinOneFrame) {
    std::vector<std::int64_t> samples;
    for (std::int64_t t = 0; t < 200'000'000; t += 1'234'567) {
        samples.push_back(t);
    }
    for (const std::int64_t frame : {1, 2, 59, 60, 61, 3'600, 216'000, 5'184'000}) {
        const std::int64_t boundary = grid::boundaryForFrame(frame).nanoseconds;
        samples.insert(samples.end(), {boundary - 1, boundary, boundary + 1});
    }
    for (const std::int64_t t : samples) {
        const ProjectTime floor = grid::floorBoundary(ns(t));
        const ProjectTime ceiling = grid::ceilingBoundary(ns(t));
        EXPECT_LE(floor, ns(t)) << t;
        EXPECT_GE(ceiling, ns(t)) << t;
        EXPECT_LE((ceiling - floor).nanoseconds, 16'666'667) << t;
        const ProjectTime nearest = grid::nearestBoundary(ns(t));
        EXPECT_TRUE(nearest == floor || nearest == ceiling) << t;
    }
}

} // namespace

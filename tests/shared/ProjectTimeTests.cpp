#include "shared/ProjectTime.h"
#include "shared/ValueCodecs.h"
#include "support/Thrown.h"

#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <string>

namespace rilo {
namespace {

namespace grid = TimelineFrameGrid;

constexpr const char* invalidRateText = "播放倍率必须是0.50至4.00之间、步进0.01的有限数值。";

ProjectTime ns(std::int64_t value) {
    return ProjectTime{value};
}

ProjectTimeRange range(std::int64_t start, std::int64_t duration) {
    return {ns(start), ns(duration)};
}

std::optional<std::string> decodingMessage(const std::string& bytes) {
    return testing::thrownMessage<json::DecodingError>(
        [&] { json::decodeDocument<TimelinePlaybackRate>(bytes); });
}

// ProjectTime

TEST(ProjectTimeTest, ArithmeticAndCliMillisecondsTruncatingTowardsZero) {
    EXPECT_EQ(ns(-1'500'000).cliMilliseconds(), -1);
    EXPECT_EQ(ns(1'999'999).cliMilliseconds(), 1);
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

TEST(ProjectTimeTest, TimesAndHalfOpenRangesCodeAsNanosecondObjects) {
    EXPECT_EQ(json::encodeDocument(ns(-1), json::JsonStyle::chunk), R"({"nanoseconds":-1})");
    const ProjectTime largest = ns(std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(json::decodeDocument<ProjectTime>(json::encodeDocument(largest)), largest);
    for (const char* refused : {"1500000000", "{}", R"({"nanoseconds":1.5})"}) {
        EXPECT_THROW(json::decodeDocument<ProjectTime>(refused), json::DecodingError) << refused;
    }

    // A range is half open, intersects when overlapping and codes its start and duration.
    const ProjectTimeRange r = range(1'000, 500);
    EXPECT_EQ(r.end(), ns(1'500));
    EXPECT_TRUE(r.contains(ns(1'000)));
    EXPECT_FALSE(r.contains(ns(1'500)));
    EXPECT_FALSE(r.contains(ns(999)));
    EXPECT_FALSE(range(1'000, 0).contains(ns(1'000)));

    EXPECT_EQ(range(0, 1'000).intersection(range(1'000, 1'000)), std::nullopt);
    EXPECT_EQ(range(1'000, 1'000).intersection(range(0, 1'000)), std::nullopt);
    EXPECT_EQ(range(500, 0).intersection(range(0, 1'000)), std::nullopt);
    EXPECT_EQ(range(0, 1'000).intersection(range(400, 1'000)), range(400, 600));
    EXPECT_EQ(range(0, 10'000).intersection(range(2'000, 3'000)), range(2'000, 3'000));
    EXPECT_EQ(ProjectTimeRange::fromStartEnd(ns(200), ns(700)), range(200, 500));

    const ProjectTimeRange reversed = range(5, -3);
    EXPECT_EQ(json::encodeDocument(reversed, json::JsonStyle::chunk),
              R"({"duration":{"nanoseconds":-3},"start":{"nanoseconds":5}})");
    EXPECT_EQ(json::decodeDocument<ProjectTimeRange>(json::encodeDocument(reversed)), reversed);
    EXPECT_THROW(json::decodeDocument<ProjectTimeRange>(R"({"start":{"nanoseconds":5}})"),
                 json::DecodingError);
}

// TimelinePlaybackRate

TEST(TimelinePlaybackRateTest, TakesWholeThousandthsOfFiniteMultipliersInTheValidRange) {
    EXPECT_EQ(TimelinePlaybackRate::fromMultiplier(1.005)->permille, 1005);
    EXPECT_EQ(TimelinePlaybackRate::fromMultiplier(0.57)->permille, 570);
    EXPECT_EQ(TimelinePlaybackRate::fromMultiplier(-1.5)->permille, -1500);
    // 9223372036854775.808 is 2^63 thousandths, one past the permille field.
    for (const double refused :
         {1.0005, std::nan(""), std::numeric_limits<double>::infinity(), -1e300, 9223372036854775.808}) {
        EXPECT_EQ(TimelinePlaybackRate::fromMultiplier(refused), std::nullopt) << refused;
    }

    EXPECT_EQ(json::encodeDocument(TimelinePlaybackRate::normal()), "1");
    EXPECT_EQ(json::encodeDocument(TimelinePlaybackRate{1250}), "1.25");
    for (std::int64_t permille = 500; permille <= 4000; permille += 10) {
        const TimelinePlaybackRate rate{permille};
        EXPECT_EQ(json::decodeDocument<TimelinePlaybackRate>(json::encodeDocument(rate)), rate) << permille;
    }
    for (const char* refused : {"0.49", "4.01", "1.005", "1.0005", "0"}) {
        EXPECT_EQ(decodingMessage(refused), invalidRateText) << refused;
    }
    EXPECT_EQ(testing::thrownMessage<json::DecodingError>([] {
                  json::decode<TimelinePlaybackRate>(json::Json(std::numeric_limits<double>::quiet_NaN()));
              }),
              invalidRateText);
    // The rate is a bare number, never an object or a string.
    EXPECT_THROW(json::decodeDocument<TimelinePlaybackRate>(R"({"permille":1000})"), json::DecodingError);
    EXPECT_THROW(json::decodeDocument<TimelinePlaybackRate>(R"("1.5")"), json::DecodingError);
}

// TimelineFrameGrid

TEST(TimelineFrameGridTest, BoundariesAreTruncatedSixtiethsAndTimesRoundToThem) {
    EXPECT_EQ(grid::boundaryForFrame(1), ns(16'666'666));
    EXPECT_EQ(grid::boundaryForFrame(60), ns(1'000'000'000));
    EXPECT_EQ(grid::boundaryForFrame(-1), ns(-16'666'666));
    EXPECT_EQ(grid::minimumDuration, grid::boundaryForFrame(1));

    const struct {
        std::int64_t time;
        std::int64_t floor;
        std::int64_t ceiling;
        std::int64_t nearest;
    } rows[] = {
        // A truncated boundary lies just before the exact sixtieth, so its floor is the frame before.
        {16'666'666, 0, 16'666'666, 16'666'666},
        {16'666'667, 16'666'666, 33'333'333, 16'666'666},
        {8'333'334, 0, 16'666'666, 16'666'666},
        // 25 ms is exactly one and a half frames; halves round away from zero.
        {25'000'000, 16'666'666, 33'333'333, 33'333'333},
        {1'010'000'000, 1'000'000'000, 1'016'666'666, 1'016'666'666},
        // Negative times floor and ceil to zero.
        {-20'000'000, 0, 0, -16'666'666},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.time);
        EXPECT_EQ(grid::floorBoundary(ns(row.time)), ns(row.floor));
        EXPECT_EQ(grid::ceilingBoundary(ns(row.time)), ns(row.ceiling));
        EXPECT_EQ(grid::nearestBoundary(ns(row.time)), ns(row.nearest));
    }
    EXPECT_EQ(grid::nearestBoundary(ns(-25'000'000)), ns(-33'333'333));
}

} // namespace
} // namespace rilo

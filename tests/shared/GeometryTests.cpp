#include "shared/Geometry.h"
#include "shared/ValueCodecs.h"

#include <gtest/gtest.h>

namespace rilo {
namespace {

void expectSize(const PixelSize& size, std::int64_t width, std::int64_t height) {
    EXPECT_EQ(size.width, width);
    EXPECT_EQ(size.height, height);
}

TEST(GeometryValueTest, SizesNormaliseScaleAndRateAndPointsClampToTheUnitSquare) {
    expectSize(PixelSize(1921, 1081), 1920, 1080);
    expectSize(PixelSize(1, -5), 2, 2);
    expectSize(PixelSize(0, 3), 2, 2);
    expectSize(PixelSize::constrained(3840, 2160, 1920), 1920, 1080);
    expectSize(PixelSize::constrained(3840, 2160, 8000), 3840, 2160);
    expectSize(PixelSize::constrained(1080, 1920, 960), 540, 960);
    expectSize(PixelSize::constrained(2560, 1600, 1366), 1366, 852);

    EXPECT_EQ(PixelSize(1280, 720).recommendedBitRate(), 12'000'000);
    EXPECT_EQ(PixelSize(2560, 1440).recommendedBitRate(), 24'000'000);
    EXPECT_EQ(PixelSize(7680, 4320).recommendedBitRate(), 50'000'000);
    // Halfway along each segment: 2,880,000 and 5,990,400 pixels.
    EXPECT_EQ(PixelSize(2400, 1200).recommendedBitRate(), 18'000'000);
    EXPECT_EQ(PixelSize(3120, 1920).recommendedBitRate(), 37'000'000);

    // A clamped point keeps each coordinate in the unit range.
    EXPECT_EQ((PointValue{-0.25, 1.5}.clamped()), (PointValue{0, 1}));
    EXPECT_EQ((PointValue{0.3, 0.7}.clamped()), (PointValue{0.3, 0.7}));
}

TEST(GeometryJsonTest, ValuesRoundTripAsStoredAndRequireEveryKey) {
    const auto odd = json::decodeDocument<PixelSize>(R"({"width":1921,"height":1})");
    expectSize(odd, 1921, 1);
    EXPECT_EQ(json::encodeDocument(odd, json::JsonStyle::chunk), R"({"height":1,"width":1921})");
    EXPECT_THROW(json::decodeDocument<PixelSize>(R"({"width":1920.5,"height":1080})"), json::DecodingError);

    const SizeValue size{1920, 0.5};
    const RectValue rect{0.1, 0.2, 0.3, 0.4};
    EXPECT_EQ(json::encodeDocument(rect, json::JsonStyle::chunk),
              R"({"height":0.4,"width":0.3,"x":0.1,"y":0.2})");
    EXPECT_EQ(json::decodeDocument<SizeValue>(json::encodeDocument(size)), size);
    EXPECT_EQ(json::decodeDocument<RectValue>(json::encodeDocument(rect)), rect);
    EXPECT_EQ(json::decodeDocument<PointValue>(R"({"x":0.25,"y":1})"), (PointValue{0.25, 1}));

    EXPECT_THROW(json::decodeDocument<PixelSize>(R"({"width":1920})"), json::DecodingError);
    EXPECT_THROW(json::decodeDocument<PointValue>(R"({"x":0.5})"), json::DecodingError);
    EXPECT_THROW(json::decodeDocument<SizeValue>(R"({"height":2})"), json::DecodingError);
    EXPECT_THROW(json::decodeDocument<RectValue>(R"({"x":0,"y":0,"width":1})"), json::DecodingError);
}

} // namespace
} // namespace rilo

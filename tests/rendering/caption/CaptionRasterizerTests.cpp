#include "rendering/caption/CaptionRasterizer.h"

#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

namespace rilo {
namespace {

struct Pixel {
    int red;
    int green;
    int blue;
    int alpha;
};

Pixel pixelAt(const CaptionBitmap& bitmap, int x, int y) {
    const std::size_t index =
        (static_cast<std::size_t>(y) * static_cast<std::size_t>(bitmap.width) + static_cast<std::size_t>(x)) *
        4;
    const auto& bytes = bitmap.rgbaPremultiplied;
    return {bytes[index], bytes[index + 1], bytes[index + 2], bytes[index + 3]};
}

int countPixels(const CaptionBitmap& bitmap, int left, int top, int right, int bottom,
                const std::function<bool(Pixel)>& matches) {
    int count = 0;
    for (int y = top; y < bottom; ++y) {
        for (int x = left; x < right; ++x) {
            count += matches(pixelAt(bitmap, x, y)) ? 1 : 0;
        }
    }
    return count;
}

bool isAmber(Pixel pixel) {
    return pixel.alpha > 240 && pixel.red > 235 && pixel.green > 175 && pixel.green < 225 && pixel.blue < 75;
}
bool isOpaqueWhite(Pixel pixel) {
    return pixel.alpha > 240 && pixel.red > 240 && pixel.blue > 240;
}
bool isOpaqueBlack(Pixel pixel) {
    return pixel.alpha > 240 && pixel.red < 15 && pixel.blue < 15;
}

const PixelSize hd(1280, 720);
// 0.046 of the shorter side.
constexpr double hdBaseSize = 33.12;
constexpr double hdMaxWidth = 1280 * 0.84;

const std::string ellipsis = "…";

TEST(CaptionRasterizerLayout, EmptyTextGivesASmallPlate) {
    CaptionRasterizer rasterizer;
    const CaptionTextLayout layout = rasterizer.layout("", 2, 1.0, hd);
    EXPECT_EQ(layout.lineCount, 0);
    EXPECT_FALSE(layout.isTruncated);
    const CaptionRenderAsset asset =
        rasterizer.asset("", {}, CaptionAppearance::whiteOnBlack, 2, 1.0, 0.08, hd);
    EXPECT_GE(asset.bitmap->height, 2);
    EXPECT_LT(asset.bitmap->width, 2 * hdBaseSize);
    EXPECT_EQ(asset.bitmap->rgbaPremultiplied.size(),
              static_cast<std::size_t>(asset.bitmap->width * asset.bitmap->height * 4));
}

TEST(CaptionRasterizerLayout, TooLongTextIsCutWithEllipsisAtMinimumSize) {
    CaptionRasterizer rasterizer;
    std::string text;
    for (int word = 0; word < 80; ++word) {
        text += "caption" + std::to_string(word) + " ";
    }
    const CaptionTextLayout layout = rasterizer.layout(text, 5, 1.0, hd);
    EXPECT_TRUE(layout.isTruncated);
    EXPECT_DOUBLE_EQ(layout.fontSize, hdBaseSize * 0.6);
    EXPECT_EQ(layout.lineCount, 2);
    ASSERT_TRUE(layout.renderedText.ends_with(ellipsis));
    const std::string kept = layout.renderedText.substr(0, layout.renderedText.size() - ellipsis.size());
    EXPECT_TRUE(text.starts_with(kept));
    // Two full lines at the minimum size hold far more than a few words.
    EXPECT_GT(kept.size(), 100u);
    EXPECT_DOUBLE_EQ(layout.bitmapSize.width, hdMaxWidth);

    // One line allowed: the cut comes sooner.
    const CaptionTextLayout oneLine = rasterizer.layout(text, 1, 1.0, hd);
    EXPECT_EQ(oneLine.lineCount, 1);
    EXPECT_LT(oneLine.renderedText.size(), layout.renderedText.size());
    EXPECT_GT(oneLine.renderedText.size(), layout.renderedText.size() / 3);
}

TEST(CaptionRasterizerLayout, TextThatFitsOnlyWhenSmallerShrinksWithoutEllipsis) {
    CaptionRasterizer rasterizer;
    const std::string text = "The quick brown fox jumps over the lazy dog while the cat watches";
    const CaptionTextLayout layout = rasterizer.layout(text, 1, 1.0, hd);
    EXPECT_FALSE(layout.isTruncated);
    EXPECT_EQ(layout.renderedText, text);
    EXPECT_EQ(layout.lineCount, 1);
    EXPECT_GT(layout.fontSize, hdBaseSize * 0.6);
    EXPECT_LT(layout.fontSize, hdBaseSize);
    // The largest size that fits leaves the line nearly full.
    EXPECT_GT(layout.bitmapSize.width, hdMaxWidth * 0.95);
    EXPECT_LE(layout.bitmapSize.width, hdMaxWidth);
    EXPECT_DOUBLE_EQ(layout.textRect.x, layout.fontSize * 0.5);
    EXPECT_DOUBLE_EQ(layout.textRect.width, layout.bitmapSize.width - layout.fontSize);

    // With two lines allowed it keeps the full size.
    EXPECT_DOUBLE_EQ(rasterizer.layout(text, 2, 1.0, hd).fontSize, hdBaseSize);
}

TEST(CaptionRasterizerLayout, ChineseTextBreaksIntoTwoLinesInTheChineseFace) {
    CaptionRasterizer rasterizer;
    // Ten ideographs on one line are ten ems wide.
    const CaptionTextLayout short10 = rasterizer.layout("今天我们来看一下功能", 2, 1.0, hd);
    EXPECT_EQ(short10.lineCount, 1);
    EXPECT_NEAR((short10.bitmapSize.width - short10.fontSize) / short10.fontSize, 10.0, 0.2);

    const std::string text =
        "这是一段很长的中文字幕用来检查没有空格的文字是否也能在两行之间正确地换行并且居中显示";
    const CaptionTextLayout layout = rasterizer.layout(text, 2, 1.0, hd);
    EXPECT_EQ(layout.lineCount, 2);
    EXPECT_FALSE(layout.isTruncated);
    EXPECT_DOUBLE_EQ(layout.fontSize, hdBaseSize);

    const CaptionRenderAsset asset =
        rasterizer.asset(text, {}, CaptionAppearance::whiteWithBlackOutline, 2, 1.0, 0.08, hd);
    const CaptionBitmap& bitmap = *asset.bitmap;
    const int middle =
        static_cast<int>(layout.textRect.y + (layout.textRect.height - layout.fontSize * 0.2) / 2);
    const int upper = countPixels(bitmap, 0, 0, bitmap.width, middle, isOpaqueWhite);
    const int lower = countPixels(bitmap, 0, middle, bitmap.width, bitmap.height, isOpaqueWhite);
    EXPECT_GT(upper, 1000);
    EXPECT_GT(lower, 1000);
    EXPECT_GT(countPixels(bitmap, 0, 0, bitmap.width, bitmap.height, isOpaqueBlack), 1000);
}

TEST(CaptionRasterizerDrawing, HighlightColoursOnlyTheChosenOccurrence) {
    CaptionRasterizer rasterizer;
    const std::string text = "pear and pear";
    const auto draw = [&](std::int64_t occurrence) {
        return rasterizer
            .asset(text, {{"pear", occurrence}}, CaptionAppearance::whiteOnBlack, 2, 1.0, 0.08, hd)
            .bitmap;
    };
    const auto second = draw(2);
    const int half = second->width / 2;
    EXPECT_EQ(countPixels(*second, 0, 0, half, second->height, isAmber), 0);
    EXPECT_GT(countPixels(*second, half, 0, second->width, second->height, isAmber), 100);
    EXPECT_GT(countPixels(*second, 0, 0, half, second->height, isOpaqueWhite), 100);

    const auto first = draw(1);
    EXPECT_GT(countPixels(*first, 0, 0, half, first->height, isAmber), 100);
    EXPECT_EQ(countPixels(*first, half, 0, first->width, first->height, isAmber), 0);

    const auto third = draw(3);
    EXPECT_EQ(countPixels(*third, 0, 0, third->width, third->height, isAmber), 0);
}

TEST(CaptionRasterizerDrawing, AppearancesDrawPlateOrOutline) {
    CaptionRasterizer rasterizer;
    const std::string text = "Outline check";
    const auto draw = [&](CaptionAppearance appearance) {
        return rasterizer.asset(text, {}, appearance, 2, 1.0, 0.08, hd).bitmap;
    };
    const auto plate = draw(CaptionAppearance::whiteOnBlack);
    const Pixel edge = pixelAt(*plate, 0, plate->height / 2);
    EXPECT_NEAR(edge.alpha, 0.78 * 255, 2);
    EXPECT_LE(edge.red, 6);
    EXPECT_LT(pixelAt(*plate, 0, 0).alpha, 100); // a rounded corner
    EXPECT_EQ(countPixels(*plate, 0, 0, plate->width, plate->height, isOpaqueBlack), 0);

    const auto whiteText = draw(CaptionAppearance::whiteWithBlackOutline);
    const auto blackText = draw(CaptionAppearance::blackWithWhiteOutline);
    for (const auto& bitmap : {whiteText, blackText}) {
        EXPECT_EQ(pixelAt(*bitmap, 0, bitmap->height / 2).alpha, 0);
    }
    const auto count = [](const CaptionBitmap& bitmap, bool (*matches)(Pixel)) {
        return countPixels(bitmap, 0, 0, bitmap.width, bitmap.height, matches);
    };
    // The fill covers more than the outline that shows around it.
    EXPECT_GT(count(*whiteText, isOpaqueWhite), count(*whiteText, isOpaqueBlack));
    EXPECT_GT(count(*whiteText, isOpaqueBlack), 200);
    EXPECT_GT(count(*blackText, isOpaqueBlack), count(*blackText, isOpaqueWhite));
    EXPECT_GT(count(*blackText, isOpaqueWhite), 200);
}

TEST(CaptionRasterizerCache, HitsShareTheBitmapAndTheEntryAfterTheLimitEmptiesIt) {
    CaptionRasterizer rasterizer;
    const PixelSize small(320, 180);
    const auto draw = [&](const std::string& text, double bottomPosition) {
        return rasterizer.asset(text, {}, CaptionAppearance::whiteOnBlack, 2, 1.0, bottomPosition, small)
            .bitmap;
    };
    const auto first = draw("cue 0", 0.08);
    EXPECT_EQ(draw("cue 0", 0.5), first); // the position is not part of the content
    EXPECT_NE(
        rasterizer.asset("cue 0", {{"cue", 1}}, CaptionAppearance::whiteOnBlack, 2, 1.0, 0.08, small).bitmap,
        first);
    EXPECT_NE(
        rasterizer.asset("cue 0", {}, CaptionAppearance::whiteOnBlack, 2, 1.0, 0.08, PixelSize(640, 360))
            .bitmap,
        first);
    // Out-of-range lines and scale are the same content as their clamped values.
    EXPECT_EQ(rasterizer.asset("cue 0", {}, CaptionAppearance::whiteOnBlack, 7, 1.0, 0.08, small).bitmap,
              first);
    EXPECT_EQ(rasterizer.cachedCount(), 3u);

    for (int cue = 3; cue < 128; ++cue) {
        draw("cue " + std::to_string(cue), 0.08);
    }
    EXPECT_EQ(rasterizer.cachedCount(), 128u);
    EXPECT_EQ(draw("cue 0", 0.08), first);

    draw("cue 128", 0.08);
    EXPECT_EQ(rasterizer.cachedCount(), 1u);
    const auto again = draw("cue 0", 0.08);
    EXPECT_NE(again, first);
    EXPECT_EQ(again->rgbaPremultiplied, first->rgbaPremultiplied);
    EXPECT_EQ(rasterizer.cachedCount(), 2u);
}

TEST(CaptionRasterizerCache, ThreadsSettingDifferentSizesAtOnceGetTheSamePixelsAsOneThread) {
    const std::vector<PixelSize> outputs{PixelSize(640, 360), PixelSize(1280, 720), PixelSize(1920, 1080),
                                         PixelSize(854, 480)};
    const auto draw = [](CaptionRasterizer& rasterizer, PixelSize output, int round) {
        return rasterizer.asset("并发 caption " + std::to_string(round), {{"caption", 1}},
                                CaptionAppearance::whiteWithBlackOutline, 2, 1.0, 0.08, output);
    };
    constexpr int rounds = 12;
    CaptionRasterizer reference;
    std::vector<std::vector<std::shared_ptr<const CaptionBitmap>>> expected(outputs.size());
    for (std::size_t output = 0; output < outputs.size(); ++output) {
        for (int round = 0; round < rounds; ++round) {
            expected[output].push_back(draw(reference, outputs[output], round).bitmap);
        }
    }
    CaptionRasterizer shared;
    std::vector<int> mismatches(outputs.size(), 0);
    {
        std::vector<std::jthread> threads;
        for (std::size_t output = 0; output < outputs.size(); ++output) {
            threads.emplace_back([&, output] {
                for (int round = 0; round < rounds; ++round) {
                    const auto bitmap = draw(shared, outputs[output], round).bitmap;
                    mismatches[output] +=
                        bitmap->rgbaPremultiplied != expected[output][round]->rgbaPremultiplied;
                }
            });
        }
    }
    EXPECT_EQ(mismatches, std::vector<int>(outputs.size(), 0));
    EXPECT_EQ(shared.cachedCount(), outputs.size() * rounds);
}

TEST(CaptionRasterizerPosition, BottomPositionRunsFromBottomEdgeToTopEdge) {
    CaptionRasterizer rasterizer;
    const auto rectAt = [&](double bottomPosition, PixelSize output) {
        return rasterizer
            .asset("Position", {}, CaptionAppearance::whiteOnBlack, 2, 1.0, bottomPosition, output)
            .rect;
    };
    const RectValue bottom = rectAt(0, hd);
    EXPECT_DOUBLE_EQ(bottom.maxY(), 1.0);
    EXPECT_DOUBLE_EQ(bottom.x + bottom.width / 2, 0.5);
    EXPECT_DOUBLE_EQ(rectAt(1, hd).y, 0.0);
    EXPECT_DOUBLE_EQ(rectAt(-3, hd).y, bottom.y);
    EXPECT_DOUBLE_EQ(rectAt(0.5, hd).y, bottom.y / 2);

    // Taller than the output: no room, so it sits at the top wherever it is asked to be.
    const PixelSize flat(400, 16);
    const RectValue tooTall = rectAt(0, flat);
    EXPECT_GT(tooTall.height, 1.0);
    EXPECT_DOUBLE_EQ(tooTall.y, 0.0);
}

} // namespace
} // namespace rilo

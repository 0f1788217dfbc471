#include "media/PngCodec.h"
#include "project/document/DeviceFrameCatalog.h"
#include "shared/Files.h"
#include "support/TestPaths.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace {

using rilo::RgbaImage;

std::uint8_t alphaAt(const RgbaImage& image, double x, double y) {
    const auto column = static_cast<std::size_t>(std::clamp(x, 0.0, image.width - 1.0));
    const auto row = static_cast<std::size_t>(std::clamp(y, 0.0, image.height - 1.0));
    return image.pixels[(row * static_cast<std::size_t>(image.width) + column) * 4 + 3];
}

TEST(PngCodecTests, PicturesSurviveEncodingAndDecodingExactly) {
    RgbaImage image{7, 5, {}};
    for (int i = 0; i < image.width * image.height; ++i) {
        // Every channel varies independently, and alpha runs through 0 and 255.
        image.pixels.push_back(static_cast<std::uint8_t>(i * 37));
        image.pixels.push_back(static_cast<std::uint8_t>(255 - i * 11));
        image.pixels.push_back(static_cast<std::uint8_t>(i * i));
        image.pixels.push_back(static_cast<std::uint8_t>(i % 3 == 0 ? 0 : i % 3 == 1 ? 255 : i * 7));
    }
    const auto bytes = rilo::encodePng(image.width, image.height, image.pixels);
    EXPECT_EQ(rilo::decodePng(bytes), image);
}

TEST(PngCodecTests, BadInputIsRefused) {
    const std::vector<std::uint8_t> pixels(4 * 4 * 4, 255);
    EXPECT_THROW(rilo::encodePng(4, 3, pixels), rilo::PngCodecError);
    EXPECT_THROW(rilo::decodePng("not a picture"), rilo::PngCodecError);
    const auto bytes = rilo::encodePng(4, 4, pixels);
    EXPECT_THROW(rilo::decodePng(bytes.substr(0, bytes.size() / 2)), rilo::PngCodecError);
}

TEST(PngCodecTests, DevicePicturesHaveTheirScreenCutOutWhereTheCatalogSays) {
    const auto buildDirectory = rilo::testing::buildDirectory();
    const auto catalog = rilo::DeviceFrameCatalog::load(buildDirectory);
    for (const auto& device : catalog.devices) {
        const auto variant = *device.defaultVariant();
        SCOPED_TRACE(variant.file);
        const auto path = rilo::DeviceFrameCatalog::resourceURL(variant, buildDirectory);
        ASSERT_TRUE(path.has_value());
        const auto image = rilo::decodePng(rilo::readFileBytes(*path));
        ASSERT_EQ(image.width, device.outerPixelSize.width);
        ASSERT_EQ(image.height, device.outerPixelSize.height);

        const auto& rect = device.screenRect;
        const double left = rect.x * image.width;
        const double top = rect.y * image.height;
        const double centreX = (rect.x + rect.width / 2) * image.width;
        const double centreY = (rect.y + rect.height / 2) * image.height;
        EXPECT_EQ(alphaAt(image, centreX, centreY), 0) << "screen centre";
        EXPECT_EQ(alphaAt(image, left + 2, centreY), 0) << "just inside the screen's left edge";
        EXPECT_EQ(alphaAt(image, left - 3, centreY), 255) << "just outside the screen's left edge";
        EXPECT_EQ(alphaAt(image, centreX, top / 2), 255) << "middle of the top bezel";
        EXPECT_EQ(alphaAt(image, 0, 0), 0) << "outside the rounded corner";
    }
}

} // namespace

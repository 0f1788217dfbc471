// Pictures made into project backgrounds, and the wallpapers offered for it,
// from real files in temporary folders.

#include "media/ImageDecoding.h"
#include "media/JpegCodec.h"
#include "media/pictures/CanvasBackgroundService.h"
#include "shared/Files.h"
#include "shared/Sha256.h"
#include "support/TemporaryDirectory.h"
#include "support/Thrown.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>

namespace rilo {
namespace {

namespace fs = std::filesystem;
using Source = CanvasBackgroundImageSource;

RgbaImage solid(int width, int height, std::uint8_t red, std::uint8_t green, std::uint8_t blue,
                std::uint8_t alpha = 255) {
    RgbaImage image{width, height, {}};
    image.pixels.reserve(static_cast<std::size_t>(width) * height * 4);
    for (int pixel = 0; pixel < width * height; ++pixel) {
        image.pixels.insert(image.pixels.end(), {red, green, blue, alpha});
    }
    return image;
}

const std::uint8_t* pixelAt(const RgbaImage& image, int x, int y) {
    return &image.pixels.at((static_cast<std::size_t>(y) * image.width + x) * 4);
}

void paint(RgbaImage& image, int x, int y, std::array<std::uint8_t, 4> rgba) {
    std::copy(rgba.begin(), rgba.end(),
              image.pixels.begin() + (static_cast<std::ptrdiff_t>(y) * image.width + x) * 4);
}

void writePng(const fs::path& path, const RgbaImage& image) {
    fs::create_directories(path.parent_path());
    writeFileAtomically(path, encodePng(image.width, image.height, image.pixels));
}

void writeJpeg(const fs::path& path, const RgbaImage& image) {
    fs::create_directories(path.parent_path());
    writeFileAtomically(path, encodeJpeg(image.width, image.height, image.pixels, 0.9));
}

class CanvasBackgroundServiceTest : public ::testing::Test {
protected:
    testing::TemporaryDirectory directory_;
    CanvasBackgroundService service_{{}, {}};
};

TEST_F(CanvasBackgroundServiceTest, LargePicturesAreScaledDownToTheLimitAndSmallOnesKeptAsTheyAre) {
    const CanvasBackgroundAssetPayload large =
        service_.importImage(solid(8000, 6000, 200, 100, 50), Source::uploaded, std::nullopt);
    EXPECT_EQ(large.descriptor.pixelSize, PixelSize::unnormalized(4096, 3072));
    const RgbaImage stored = decodeImage(large.imageData);
    EXPECT_EQ(stored.width, 4096);
    EXPECT_EQ(stored.height, 3072);
    const std::uint8_t* middle = pixelAt(stored, 2048, 1536);
    EXPECT_NEAR(middle[0], 200, 3);
    EXPECT_NEAR(middle[1], 100, 3);
    EXPECT_NEAR(middle[2], 50, 3);

    const CanvasBackgroundAssetPayload small =
        service_.importImage(solid(100, 50, 10, 20, 30), Source::uploaded, std::nullopt);
    EXPECT_EQ(small.descriptor.pixelSize, PixelSize::unnormalized(100, 50));
    EXPECT_EQ(decodeImage(small.imageData).width, 100);
}

TEST_F(CanvasBackgroundServiceTest, TheSamePictureIsStoredOnceUnderTheDigestOfItsJpeg) {
    RgbaImage picture = solid(300, 200, 30, 140, 220);
    for (int x = 0; x < 150; ++x) {
        paint(picture, x, 100, {250, 250, 250, 255});
    }
    const fs::path file = directory_ / "picked.png";
    writePng(file, picture);

    const CanvasBackgroundAssetPayload first = service_.importImage(file, Source::uploaded, "pick-1");
    const CanvasBackgroundAssetPayload second = service_.importImage(file, Source::uploaded, "pick-1");
    EXPECT_EQ(first, second);
    EXPECT_EQ(first.descriptor.id, sha256Hex(first.imageData));
    EXPECT_EQ(first.descriptor.relativePath, "assets/backgrounds/" + first.descriptor.id + ".jpg");
    EXPECT_EQ(first.descriptor.source, Source::uploaded);
    EXPECT_EQ(first.descriptor.selectionID, "pick-1");
    // A picture in memory takes the same road as its file.
    EXPECT_EQ(service_.importImage(picture, Source::desktopWallpaper, std::nullopt).descriptor.id,
              first.descriptor.id);
    EXPECT_NE(service_.importImage(solid(300, 200, 30, 140, 220), Source::uploaded, "pick-1").descriptor.id,
              first.descriptor.id);
}

TEST_F(CanvasBackgroundServiceTest, TransparencyIsFlattenedOntoBlack) {
    // Opaque red, then half-transparent white, then fully transparent white.
    RgbaImage picture = solid(96, 32, 255, 0, 0);
    for (int y = 0; y < 32; ++y) {
        for (int x = 32; x < 96; ++x) {
            paint(picture, x, y, {255, 255, 255, static_cast<std::uint8_t>(x < 64 ? 128 : 0)});
        }
    }
    const fs::path file = directory_ / "alpha.png";
    writePng(file, picture);
    const RgbaImage stored =
        decodeImage(service_.importImage(file, Source::uploaded, std::nullopt).imageData);
    ASSERT_EQ(stored.width, 96);
    const std::uint8_t* red = pixelAt(stored, 12, 16);
    EXPECT_GT(red[0], 230);
    EXPECT_LT(red[1], 30);
    for (int channel = 0; channel < 3; ++channel) {
        EXPECT_NEAR(pixelAt(stored, 48, 16)[channel], 128, 6) << channel;
        EXPECT_LT(pixelAt(stored, 84, 16)[channel], 8) << channel;
    }
}

TEST_F(CanvasBackgroundServiceTest, FilesThatAreNoPictureAreUnreadable) {
    const fs::path text = directory_ / "notes.png";
    writeFileAtomically(text, "not a picture");
    for (const fs::path& file : {text, directory_ / "missing.jpg"}) {
        const auto error = testing::thrown<CanvasBackgroundServiceError>(
            [&] { service_.importImage(file, Source::uploaded, std::nullopt); });
        ASSERT_TRUE(error) << file;
        EXPECT_EQ(error->errorCase(), CanvasBackgroundServiceErrorCase::unreadableImage);
        EXPECT_EQ(error->message(), "无法读取这张图片，请选择JPEG、PNG或HEIC图片。");
    }
}

TEST_F(CanvasBackgroundServiceTest, WallpaperFoldersOfferThePicturesThatDecode) {
    const fs::path backgrounds = directory_ / "backgrounds";
    const fs::path wallpapers = directory_ / "wallpapers";
    writeJpeg(backgrounds / "gnome" / "hills.jpg", solid(640, 480, 90, 160, 90));
    writePng(backgrounds / "dots.png", solid(200, 400, 20, 20, 200));
    writeFileAtomically(backgrounds / "broken.png", "\x89PNG but not really");
    writeFileAtomically(backgrounds / "readme.txt", "text");
    writePng(backgrounds / "dots.png.thumbnail", solid(20, 40, 1, 2, 3));
    writePng(backgrounds / "cache.thumbnail" / "small.png", solid(20, 40, 1, 2, 3));
    // A wallpaper package: pictures by size, and a preview that is not one.
    writeJpeg(wallpapers / "Mountain" / "contents" / "images" / "1920x1080.jpg",
              solid(192, 108, 200, 200, 255));
    writePng(wallpapers / "Mountain" / "contents" / "screenshot.png", solid(40, 20, 0, 0, 0));
    // A package linked in from elsewhere, as distributions install them.
    writePng(directory_ / "themes" / "Lake" / "contents" / "images" / "800x600.png",
             solid(80, 60, 0, 90, 180));
    fs::create_directory_symlink(directory_ / "themes" / "Lake", wallpapers / "Lake");

    const CanvasBackgroundService service({backgrounds, directory_ / "missing", wallpapers}, {});
    const std::vector<SystemCanvasBackgroundCandidate> candidates = service.systemWallpapers();
    ASSERT_EQ(candidates.size(), 4u);
    EXPECT_EQ(candidates[0].resourceURL, backgrounds / "dots.png");
    EXPECT_EQ(candidates[0].title, "dots");
    EXPECT_EQ(candidates[0].category, "backgrounds");
    EXPECT_EQ(candidates[0].thumbnail.width, 160);
    EXPECT_EQ(candidates[0].thumbnail.height, 320);
    EXPECT_EQ(candidates[1].resourceURL, backgrounds / "gnome" / "hills.jpg");
    EXPECT_EQ(candidates[1].thumbnail.width, 320);
    EXPECT_EQ(candidates[2].resourceURL, wallpapers / "Lake" / "contents" / "images" / "800x600.png");
    EXPECT_EQ(candidates[2].title, "Lake (800x600)");
    EXPECT_EQ(candidates[3].title, "Mountain (1920x1080)");
    EXPECT_EQ(candidates[3].category, "wallpapers");
    EXPECT_EQ(candidates[3].thumbnail.width, 192);

    EXPECT_EQ(LinuxDesktopWallpapers::systemWallpaperDirectories({"/home/ann", {}, {}}),
              (std::vector<fs::path>{"/usr/share/backgrounds", "/usr/share/wallpapers",
                                     "/home/ann/.local/share/backgrounds"}));
    EXPECT_EQ(LinuxDesktopWallpapers::systemWallpaperDirectories({"/home/ann", "/data", {}}).back(),
              fs::path("/data/backgrounds"));
}

TEST_F(CanvasBackgroundServiceTest, CurrentWallpaperIsReadFromThePlasmaDesktopConfiguration) {
    const fs::path home = directory_ / "home";
    const fs::path picture = directory_ / "pictures" / "lake view.png";
    writePng(picture, solid(64, 48, 10, 90, 200));
    const fs::path package = directory_ / "wallpapers" / "Dunes";
    writeJpeg(package / "contents" / "images" / "640x360.jpg", solid(64, 36, 1, 1, 1));
    writeJpeg(package / "contents" / "images" / "1280x720.jpg", solid(128, 72, 220, 180, 120));
    fs::create_directories(home / ".config");
    writeFileAtomically(home / ".config" / "plasma-org.kde.plasma.desktop-appletsrc",
                        "[Containments][1]\n"
                        "activityId=abc\n"
                        "\n"
                        "[Containments][1][General]\n"
                        "Image=file://" +
                            directory_.path().string() +
                            "/pictures/ignored.png\n"
                            "\n"
                            "[Containments][1][Wallpaper][org.kde.image][General]\n"
                            "Image=file://" +
                            directory_.path().string() +
                            "/pictures/lake%20view.png\n"
                            "\n"
                            "[Containments][7][Wallpaper][org.kde.image][General]\n"
                            "Image=" +
                            package.string() + "/\n");

    DesktopWallpaperSettings settings = LinuxDesktopWallpapers::desktopWallpaperSettings({home, {}, {}});
    // GNOME's settings belong to whoever runs the tests.
    settings.readsGnomeSettings = false;
    const CanvasBackgroundService service({}, settings);
    const std::vector<DesktopWallpaperCandidate> candidates = service.currentWallpapers();
    ASSERT_EQ(candidates.size(), 2u);
    EXPECT_EQ(candidates[0].id, "kde:[Containments][1]");
    EXPECT_EQ(candidates[0].displayName, "lake view.png");
    EXPECT_EQ(candidates[0].image.width, 64);
    EXPECT_EQ(candidates[1].id, "kde:[Containments][7]");
    EXPECT_EQ(candidates[1].image.width, 128);
    EXPECT_EQ(candidates[1].thumbnail.width, 128);

    // The same picture keeps its selection; another picture gets a new one.
    EXPECT_EQ(service.currentWallpapers()[0].selectionID, candidates[0].selectionID);
    EXPECT_NE(candidates[0].selectionID, candidates[1].selectionID);
    writePng(picture, solid(64, 48, 200, 90, 10));
    EXPECT_NE(service.currentWallpapers()[0].selectionID, candidates[0].selectionID);

    const CanvasBackgroundAssetPayload payload =
        service.importImage(candidates[1].image, Source::desktopWallpaper, candidates[1].selectionID);
    EXPECT_EQ(payload.descriptor.source, Source::desktopWallpaper);
    EXPECT_EQ(payload.descriptor.pixelSize, PixelSize::unnormalized(128, 72));

    // A desktop without that configuration has no current wallpaper.
    DesktopWallpaperSettings elsewhere =
        LinuxDesktopWallpapers::desktopWallpaperSettings({directory_ / "other-home", {}, {}});
    elsewhere.readsGnomeSettings = false;
    EXPECT_TRUE(CanvasBackgroundService({}, elsewhere).currentWallpapers().empty());
}

} // namespace
} // namespace rilo

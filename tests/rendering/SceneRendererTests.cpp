#include "RenderedFrames.h"
#include "media/PngCodec.h"
#include "rendering/RenderContext.h"
#include "rendering/RenderTarget.h"
#include "rendering/SceneRenderer.h"

#include <cstring>
#include <gtest/gtest.h>

namespace rilo {
namespace {

using testing::colorDistance;
using testing::Picture;
using testing::Rgb;
using testing::solidFrame;
using testing::SyntheticFrame;

constexpr int outputWidth = 320;
constexpr int outputHeight = 180;

const Rgb red{220, 30, 30};
const Rgb green{40, 200, 80};
const Rgb blue{30, 40, 220};
const Rgb yellow{230, 220, 40};
const Rgb grey{128, 128, 128};

Rgb bytes(const CanvasColorValue& color) {
    return {static_cast<int>(std::lround(color.red * 255)), static_cast<int>(std::lround(color.green * 255)),
            static_cast<int>(std::lround(color.blue * 255))};
}

SyntheticFrame quadrants(int width, int height) {
    return SyntheticFrame(width, height, [](double x, double y) {
        return y < 0.5 ? (x < 0.5 ? red : green) : (x < 0.5 ? blue : yellow);
    });
}

// A scene whose screen fills the whole output, cursor hidden.
SceneState fullScreenScene() {
    SceneState scene;
    scene.canvas.padding = 0;
    scene.canvas.cornerRadius = 0;
    scene.cursor.visible = false;
    return scene;
}

std::string pngOf(int width, int height, const std::function<Rgb(int x, int y)>& colorAt) {
    std::vector<std::uint8_t> rgba;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const Rgb color = colorAt(x, y);
            rgba.insert(rgba.end(), {static_cast<std::uint8_t>(color[0]), static_cast<std::uint8_t>(color[1]),
                                     static_cast<std::uint8_t>(color[2]), 255});
        }
    }
    return encodePng(width, height, rgba);
}

AnnotationElement annotation(AnnotationKind kind, RectValue bounds) {
    AnnotationElement element;
    element.kind = kind;
    element.bounds = bounds;
    element.color = {1, 0, 0};
    element.lineWidth = 0.02;
    return element;
}

class SceneRendererTest : public ::testing::Test {
protected:
    Picture render(const VideoFramePlanes& source, const SceneState& scene,
                   const VideoFramePlanes* webcam = nullptr) {
        renderer.encode(source, webcam, scene, target);
        Picture picture{target.width(), target.height(), {}};
        target.readRgba(picture.rgba);
        return picture;
    }

    RenderContext context;
    CaptionRasterizer captions;
    SceneRenderer renderer{context, std::nullopt, RILO_TEST_BUILD_DIR, captions};
    RenderTarget target{context, outputWidth, outputHeight};
};

TEST_F(SceneRendererTest, GradientBackgroundAndRoundedScreen) {
    SceneState scene;
    scene.canvas.preset = CanvasBackgroundPreset::midnightViolet;
    scene.canvas.padding = 0.1;
    scene.canvas.cornerRadius = 0.08; // 14.4 pixels
    scene.cursor.visible = false;
    const Picture picture = render(solidFrame(320, 180, green).planes(), scene);

    const Rgb top = bytes(CanvasBackgroundPresets::firstColor(scene.canvas.preset));
    const Rgb bottom = bytes(CanvasBackgroundPresets::secondColor(scene.canvas.preset));
    ASSERT_GT(colorDistance(top, bottom), 20);
    EXPECT_LE(colorDistance(picture.at(0, 0), top), 3);
    EXPECT_LE(colorDistance(picture.at(319, 179), bottom), 3);

    // The screen is (32, 18, 256, 144).
    EXPECT_LE(colorDistance(picture.at(160, 90), green), 3);
    EXPECT_LE(colorDistance(picture.at(33, 90), green), 3);
    EXPECT_LE(colorDistance(picture.at(160, 161), green), 3);
    EXPECT_GT(colorDistance(picture.at(160, 163), green), 60);
    // Inside the rectangle's corners, outside their rounding.
    EXPECT_GT(colorDistance(picture.at(33, 19), green), 60);
    EXPECT_GT(colorDistance(picture.at(286, 160), green), 60);
}

TEST_F(SceneRendererTest, EveryFrameLayoutShowsTheSameColour) {
    const SceneState scene = fullScreenScene();
    const SyntheticFrame nv12(
        64, 36, [](double, double) { return yellow; }, VideoPixelLayout::nv12);
    EXPECT_LE(colorDistance(render(nv12.planes(), scene).at(160, 90), yellow), 3);

    std::vector<std::uint8_t> rgba(66 * 36 * 4, 255); // rows padded by two pixels
    for (int y = 0; y < 36; ++y) {
        for (int x = 0; x < 64; ++x) {
            for (std::size_t channel = 0; channel < 3; ++channel) {
                rgba[(static_cast<std::size_t>(y) * 66 + x) * 4 + channel] =
                    static_cast<std::uint8_t>(blue[channel]);
            }
        }
    }
    VideoFramePlanes planes;
    planes.layout = VideoPixelLayout::rgba;
    planes.width = 64;
    planes.height = 36;
    planes.data = {rgba.data(), nullptr, nullptr};
    planes.strides = {66 * 4, 0, 0};
    EXPECT_LE(colorDistance(render(planes, scene).at(160, 90), blue), 1);
    EXPECT_LE(colorDistance(render(solidFrame(64, 36, red).planes(), scene).at(160, 90), red), 3);
}

TEST_F(SceneRendererTest, ZoomEnlargesAroundItsFocusAndBlurMixesTheTwoCameras) {
    const SyntheticFrame source = quadrants(320, 180);
    SceneState scene = fullScreenScene();
    EXPECT_LE(colorDistance(render(source.planes(), scene).at(240, 135), yellow), 3);

    scene.camera = {{0.25, 0.25}, 2};
    const Picture zoomed = render(source.planes(), scene);
    EXPECT_LE(colorDistance(zoomed.at(240, 135), red), 3);
    EXPECT_LE(colorDistance(zoomed.at(80, 45), red), 3);

    scene.motionBlurCamera = CameraState::identity();
    const Rgb blurred = render(source.planes(), scene).at(240, 135);
    EXPECT_GT(colorDistance(blurred, red), 40);
    EXPECT_GT(colorDistance(blurred, yellow), 40);
}

TEST_F(SceneRendererTest, CursorIsDrawnAtItsPositionAndScale) {
    const SyntheticFrame source = solidFrame(320, 180, {255, 255, 255});
    SceneState scene = fullScreenScene();
    scene.cursor.outputPosition = {0.5, 0.5};
    // One output pixel a cursor point here; the fallback arrow's tip is its
    // hot spot, and its body runs down from there.
    EXPECT_GT(render(source.planes(), scene).at(162, 98)[0], 240);
    scene.cursor.visible = true;
    EXPECT_LT(render(source.planes(), scene).at(162, 98)[0], 60);
    EXPECT_GT(render(source.planes(), scene).at(164, 108)[0], 200);
    scene.cursor.scale = 2;
    EXPECT_LT(render(source.planes(), scene).at(164, 108)[0], 60);

    // A registered shape replaces the arrow, hot spot and all.
    CursorAssetPayload payload;
    payload.descriptor = {"square", "cursor/assets/square.png", {10, 10}, {5, 5}};
    payload.pngData = pngOf(10, 10, [](int, int) { return Rgb{200, 0, 200}; });
    renderer.registerCursorAssets({payload});
    scene.cursor.assetID = "square";
    scene.cursor.scale = 1;
    const Picture custom = render(source.planes(), scene);
    EXPECT_LE(colorDistance(custom.at(157, 87), {200, 0, 200}), 3);
    EXPECT_LE(colorDistance(custom.at(162, 98), {255, 255, 255}), 3);
}

TEST_F(SceneRendererTest, BackgroundImageCoversTheOutputKeepingItsAspect) {
    ProjectSnapshot snapshot;
    CanvasBackgroundImage image{"wide", "backgrounds/wide.png", PixelSize(200, 50),
                                CanvasBackgroundImageSource::uploaded, std::nullopt};
    snapshot.timeline.canvas.image = image;
    // Four times as wide as high, wider than the output: its left and right ends are
    // cut off. The last payload of the id is the one used.
    snapshot.canvasBackgroundAssets = {{image, pngOf(200, 50, [](int, int) { return green; })},
                                       {image, pngOf(200, 50, [](int x, int) {
                                            return x < 50 ? green : x < 100 ? red : x < 150 ? blue : yellow;
                                        })}};
    renderer.registerProjectAssets(snapshot);

    SceneState scene;
    scene.canvas.image = image;
    scene.canvas.padding = 0.1;
    scene.cursor.visible = false;
    const Picture picture = render(solidFrame(320, 180, grey).planes(), scene);
    EXPECT_LE(colorDistance(picture.at(3, 90), red), 3);
    EXPECT_LE(colorDistance(picture.at(316, 90), blue), 3);
    EXPECT_LE(colorDistance(picture.at(160, 90), grey), 3);
}

TEST_F(SceneRendererTest, ClickEffectsAreDrawnInTheAccentColour) {
    const SyntheticFrame source = solidFrame(320, 180, grey);
    SceneState scene = fullScreenScene();
    scene.clickEffect = ClickEffectState{{0.5, 0.5}, 0.5, ClickEffectStyle::ring};
    const Picture ring = render(source.planes(), scene);
    EXPECT_LE(colorDistance(ring.at(160, 90), grey), 3);
    int bluest = 0;
    for (int x = 165; x < 230; ++x) {
        const Rgb pixel = ring.at(x, 90);
        bluest = std::max(bluest, pixel[2] - pixel[0]);
    }
    EXPECT_GT(bluest, 80);

    scene.clickEffect = ClickEffectState{{0.25, 0.5}, 0.2, ClickEffectStyle::solidPulse};
    const Rgb pulse = render(source.planes(), scene).at(80, 90);
    EXPECT_GT(pulse[2] - pulse[0], 60);
}

TEST_F(SceneRendererTest, WebcamIsAMirroredCircle) {
    const SyntheticFrame camera(64, 64, [](double x, double) { return x < 0.5 ? red : blue; });
    SceneState scene = fullScreenScene();
    WebcamState webcam;
    webcam.visible = true;
    webcam.center = {0.75, 0.5};
    webcam.diameter = 0.5; // 90 pixels across, centred at (240, 90)
    webcam.aspectRatio = WebcamAspectRatio::square;
    webcam.cornerRadius = 1;
    webcam.isMirrored = true;
    scene.webcam = webcam;
    const VideoFramePlanes cameraPlanes = camera.planes();

    const Picture mirrored = render(solidFrame(320, 180, grey).planes(), scene, &cameraPlanes);
    EXPECT_LE(colorDistance(mirrored.at(220, 90), blue), 4);
    EXPECT_LE(colorDistance(mirrored.at(260, 90), red), 4);
    EXPECT_LE(colorDistance(mirrored.at(198, 48), grey), 3);

    scene.webcam->isMirrored = false;
    scene.webcam->showsBorder = true;
    scene.webcam->borderWidthAt1080p = 20; // 3.3 pixels
    const Picture bordered = render(solidFrame(320, 180, grey).planes(), scene, &cameraPlanes);
    EXPECT_LE(colorDistance(bordered.at(220, 90), red), 4);
    EXPECT_GT(bordered.at(240, 46)[1], 240);

    // Without a webcam frame nothing is drawn.
    EXPECT_LE(colorDistance(render(solidFrame(320, 180, grey).planes(), scene).at(220, 90), grey), 3);
}

TEST_F(SceneRendererTest, AnnotationsOutlineAndPixelateInOutputSpace) {
    const SyntheticFrame stripes(320, 180, [](double x, double) {
        return static_cast<int>(x * 320) % 2 == 0 ? Rgb{0, 0, 0} : Rgb{255, 255, 255};
    });
    SceneState scene = fullScreenScene();
    scene.camera = {{0.5, 0.5}, 2}; // annotations ignore the camera
    scene.annotations = {annotation(AnnotationKind::rectangle, {0.25, 0.25, 0.25, 0.5}),
                         annotation(AnnotationKind::mosaic, {0.6, 0.2, 0.3, 0.6})};
    const Picture picture = render(stripes.planes(), scene);

    EXPECT_LE(colorDistance(picture.at(80, 90), {255, 0, 0}), 3);
    EXPECT_LE(colorDistance(picture.at(120, 45), {255, 0, 0}), 3);
    EXPECT_GT(colorDistance(picture.at(100, 90), {255, 0, 0}), 100);

    // Inside the mosaic, one flat grey where the stripes alternated.
    for (int x = 200; x < 204; ++x) {
        EXPECT_LE(colorDistance(picture.at(x, 90), picture.at(x + 1, 90)), 2) << x;
        EXPECT_GT(picture.at(x, 90)[0], 60);
        EXPECT_LT(picture.at(x, 90)[0], 200);
    }
    int stripeContrast = 0;
    for (int x = 150; x < 154; ++x) {
        stripeContrast = std::max(stripeContrast, colorDistance(picture.at(x, 10), picture.at(x + 1, 10)));
    }
    EXPECT_GT(stripeContrast, 100);
}

TEST_F(SceneRendererTest, SeventeenAnnotationsThrowBeforeAnythingIsDrawn) {
    SceneState scene = fullScreenScene();
    const Picture before = render(solidFrame(320, 180, green).planes(), scene);
    scene.annotations.assign(17, annotation(AnnotationKind::rectangle, {0.1, 0.1, 0.2, 0.2}));
    EXPECT_THROW(renderer.encode(solidFrame(320, 180, red).planes(), nullptr, scene, target),
                 SceneRendererError);
    Picture after{outputWidth, outputHeight, {}};
    target.readRgba(after.rgba);
    EXPECT_EQ(after.rgba, before.rgba);
}

TEST_F(SceneRendererTest, CaptionLiesAboveTheAnnotations) {
    CaptionState caption;
    caption.text = "字幕 caption";
    caption.appearance = CaptionAppearance::whiteOnBlack;
    caption.bottomPosition = 0.1;
    const CaptionRenderAsset asset =
        captions.asset(caption.text, {}, caption.appearance, caption.maximumLines, caption.fontScale,
                       caption.bottomPosition, PixelSize::unnormalized(outputWidth, outputHeight));
    if (!asset.bitmap || asset.bitmap->width < 3) {
        GTEST_SKIP() << "captions are not set in this build";
    }
    // A well covered bitmap pixel whose neighbours are alike, so that
    // filtering does not change it.
    const CaptionBitmap& bitmap = *asset.bitmap;
    const auto pixelAt = [&](int x, int y) {
        return &bitmap.rgbaPremultiplied[(static_cast<std::size_t>(y) * bitmap.width + x) * 4];
    };
    std::optional<std::pair<int, int>> chosen;
    for (int y = 1; y + 1 < bitmap.height && !chosen; ++y) {
        for (int x = 1; x + 1 < bitmap.width && !chosen; ++x) {
            bool alike = pixelAt(x, y)[3] >= 128;
            for (int dy = -1; dy <= 1; ++dy) {
                for (int dx = -1; dx <= 1; ++dx) {
                    alike = alike && std::memcmp(pixelAt(x + dx, y + dy), pixelAt(x, y), 4) == 0;
                }
            }
            if (alike) {
                chosen = std::pair{x, y};
            }
        }
    }
    ASSERT_TRUE(chosen.has_value());
    const double pointX = asset.rect.x + (chosen->first + 0.5) / bitmap.width * asset.rect.width;
    const double pointY = asset.rect.y + (chosen->second + 0.5) / bitmap.height * asset.rect.height;

    // A thick red outline runs under that pixel.
    SceneState scene = fullScreenScene();
    scene.caption = caption;
    AnnotationElement band = annotation(AnnotationKind::rectangle, {-0.5, -0.5, 2, pointY + 0.5});
    band.lineWidth = 0.1;
    scene.annotations = {band};
    const Picture picture = render(solidFrame(320, 180, grey).planes(), scene);
    const std::uint8_t* over = pixelAt(chosen->first, chosen->second);
    const double alpha = over[3] / 255.0;
    const Rgb expected{static_cast<int>(std::lround(255 * (1 - alpha) + over[0])),
                       static_cast<int>(std::lround(over[1])), static_cast<int>(std::lround(over[2]))};
    EXPECT_LE(colorDistance(
                  picture.at(static_cast<int>(pointX * outputWidth), static_cast<int>(pointY * outputHeight)),
                  expected),
              8);
}

TEST_F(SceneRendererTest, BottomUpFramebufferGetsTheSamePictureUpsideDown) {
    // A window's framebuffer has its rows bottom up; every piece of the
    // picture, cursor and webcam included, must land mirrored there.
    const SyntheticFrame camera = solidFrame(64, 64, red);
    const VideoFramePlanes cameraPlanes = camera.planes();
    SceneState scene;
    scene.cursor.visible = true;
    scene.cursor.outputPosition = {0.3, 0.2};
    scene.clickEffect = ClickEffectState{{0.3, 0.2}, 0.4, ClickEffectStyle::ring};
    scene.webcam =
        WebcamState{{0.8, 0.25}, 0.3, false, true, WebcamAspectRatio::square, 1, true, 10, true, 0};
    scene.annotations = {annotation(AnnotationKind::arrow, {0.1, 0.8, 0.3, 0.1})};
    const SyntheticFrame source = quadrants(320, 180);
    const Picture topDown = render(source.planes(), scene, &cameraPlanes);

    FramebufferTarget bottomUp = target.framebufferTarget();
    bottomUp.rowsTopFirst = false;
    renderer.encode(source.planes(), &cameraPlanes, scene, bottomUp);
    Picture flipped{outputWidth, outputHeight, {}};
    target.readRgba(flipped.rgba);
    int worst = 0;
    for (int y = 0; y < outputHeight; ++y) {
        for (int x = 0; x < outputWidth; ++x) {
            worst = std::max(worst, colorDistance(topDown.at(x, y), flipped.at(x, outputHeight - 1 - y)));
        }
    }
    EXPECT_LE(worst, 1);
}

TEST_F(SceneRendererTest, DeviceFrameSurroundsTheRecording) {
    const DeviceFrameCatalog catalog = DeviceFrameCatalog::load(RILO_TEST_BUILD_DIR);
    SceneRenderer framed(context, catalog, RILO_TEST_BUILD_DIR, captions);
    SceneState scene;
    scene.cursor.visible = false;
    const SyntheticFrame source = solidFrame(180, 320, green);
    scene.deviceFrame = DeviceFrameEdit{true, *catalog.defaultAssetID(PixelSize(180, 320))};

    renderer.encode(source.planes(), nullptr, scene, target);
    Picture bare{outputWidth, outputHeight, {}};
    target.readRgba(bare.rgba);
    framed.encode(source.planes(), nullptr, scene, target);
    Picture picture{outputWidth, outputHeight, {}};
    target.readRgba(picture.rgba);

    EXPECT_LE(colorDistance(picture.at(160, 90), green), 3);
    std::size_t changed = 0;
    for (std::size_t i = 0; i < picture.rgba.size(); i += 4) {
        changed += picture.rgba[i] != bare.rgba[i] ? 1 : 0;
    }
    EXPECT_GT(changed, 1000U);
}

TEST_F(SceneRendererTest, ReadbackAsRgbaAndAsPackedYuv) {
    SceneState scene;
    scene.cursor.visible = true;
    scene.cursor.scale = 3;
    const Picture picture = render(quadrants(320, 180).planes(), scene);

    target.startReadback(ReadbackFormat::rgba);
    target.startReadback(ReadbackFormat::yuv420p);
    const std::uint8_t* mapped = target.mapReadback();
    ASSERT_NE(mapped, nullptr);
    EXPECT_EQ(std::memcmp(mapped, picture.rgba.data(), picture.rgba.size()), 0);
    target.unmap();
    const std::uint8_t* yuv = target.mapReadback();
    ASSERT_NE(yuv, nullptr);

    const auto luma = [&](int x, int y) {
        const Rgb c = picture.at(x, y);
        return 16 + 219 * (0.2126 * c[0] + 0.7152 * c[1] + 0.0722 * c[2]) / 255;
    };
    const std::size_t chromaPlane = outputWidth / 2 * (outputHeight / 2);
    for (const auto& [x, y] :
         {std::pair{0, 0}, std::pair{40, 40}, std::pair{250, 150}, std::pair{319, 179}}) {
        EXPECT_NEAR(yuv[static_cast<std::size_t>(y) * outputWidth + x], luma(x, y), 1.5) << x << "," << y;
        Rgb mean{};
        for (const auto& [dx, dy] : {std::pair{0, 0}, std::pair{1, 0}, std::pair{0, 1}, std::pair{1, 1}}) {
            const Rgb c = picture.at(x / 2 * 2 + dx, y / 2 * 2 + dy);
            for (std::size_t i = 0; i < 3; ++i) {
                mean[i] += c[i];
            }
        }
        const double r = mean[0] / 1020.0;
        const double b = mean[2] / 1020.0;
        const double l = 0.2126 * r + 0.7152 * mean[1] / 1020.0 + 0.0722 * b;
        const std::size_t chroma =
            static_cast<std::size_t>(outputWidth) * outputHeight + (y / 2) * (outputWidth / 2) + x / 2;
        EXPECT_NEAR(yuv[chroma], 128 + 224 * (b - l) / 1.8556, 1.5) << x << "," << y;
        EXPECT_NEAR(yuv[chroma + chromaPlane], 128 + 224 * (r - l) / 1.5748, 1.5) << x << "," << y;
    }
    target.unmap();
    EXPECT_EQ(target.mapReadback(), nullptr);

    std::vector<std::uint8_t> synchronous;
    target.readYuv420p(synchronous);
    EXPECT_EQ(synchronous.size(),
              RenderTarget::byteCount(ReadbackFormat::yuv420p, outputWidth, outputHeight));
}

} // namespace
} // namespace rilo

#include "rendering/SceneRendererError.h"
#include "rendering/SceneUniforms.h"

#include <gtest/gtest.h>

namespace rilo {
namespace {

constexpr double tolerance = 1e-9;

SceneUniformInputs inputsFor(SizeValue output, SizeValue screen) {
    SceneUniformInputs inputs;
    inputs.outputSize = output;
    inputs.screenTextureSize = screen;
    inputs.fallbackCursor = {{17, 25}, {2, 2}};
    return inputs;
}

void expectRow(const SceneUniforms::Row& row, const SceneUniforms::Row& expected) {
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_NEAR(row[i], expected[i], 1e-6) << "column " << i;
    }
}

AnnotationElement rectangle(double x) {
    AnnotationElement element;
    element.kind = AnnotationKind::rectangle;
    element.bounds = RectValue{x, 0.1, 0.2, 0.2};
    element.color = {1, 0, 0};
    element.lineWidth = 0.01;
    return element;
}

TEST(SceneUniforms, AnnotationsAreLimitedToSixteenAndArrowsWithoutPointsKeepTheirBounds) {
    std::vector<AnnotationElement> annotations(16, rectangle(0.1));
    AnnotationElement arrow;
    arrow.kind = AnnotationKind::arrow;
    arrow.bounds = RectValue{0.1, 0.2, 0.3, 0.4};
    arrow.startPoint = PointValue{0.5, 0.5};
    annotations.back() = arrow;

    const auto uniforms = SceneUniformRules::annotationUniforms(annotations);
    ASSERT_EQ(uniforms.size(), 16U);
    EXPECT_EQ(uniforms.back().geometry, (std::array<double, 4>{0.1, 0.2, 0.3, 0.4}));
    EXPECT_EQ(uniforms.back().options[0], 2);

    annotations.push_back(rectangle(0.3));
    try {
        SceneUniformRules::annotationUniforms(annotations);
        FAIL() << "17 annotations were accepted";
    } catch (const SceneRendererError& error) {
        EXPECT_EQ(error.errorCase(), SceneRendererErrorCase::tooManyAnnotations);
        EXPECT_EQ(error.message(), "同一时间最多渲染16个静态标注。");
    }
}

TEST(SceneUniforms, LandscapeRecordingTurnsAPortraitDeviceFrameAndItsScreen) {
    DeviceFrameDescriptor device;
    device.outerPixelSize = PixelSize::unnormalized(1000, 2000);
    device.screenRect = {0.05, 0.1, 0.9, 0.8};
    device.screenCornerRadius = 0.1;

    SceneState scene;
    scene.canvas.padding = 0.1;
    SceneUniformInputs inputs = inputsFor({1920, 1080}, {1600, 900});
    inputs.deviceFrame = device;
    const SceneUniforms uniforms = SceneUniformRules::sceneUniforms(scene, inputs);

    // The turned 2000 x 1000 picture fits the width: 1536 x 768.
    const RectValue frame{192, 156, 1536, 768};
    expectRow(uniforms.deviceFrameRect,
              {frame.x / 1920, frame.y / 1080, frame.width / 1920, frame.height / 1080});
    expectRow(uniforms.deviceFrameFlags, {1, 1, 0, 0});
    // The screen (0.05, 0.1, 0.9, 0.8) turned: (1 - 0.9, 0.05, 0.8, 0.9).
    const RectValue screen{frame.x + 0.1 * frame.width, frame.y + 0.05 * frame.height, 0.8 * frame.width,
                           0.9 * frame.height};
    expectRow(uniforms.screenRect,
              {screen.x / 1920, screen.y / 1080, screen.width / 1920, screen.height / 1080});
    EXPECT_NEAR(uniforms.output[2], 0.1 * screen.height / 1080, tolerance);

    // A portrait recording keeps the picture upright.
    inputs.screenTextureSize = {900, 1600};
    const SceneUniforms portrait = SceneUniformRules::sceneUniforms(scene, inputs);
    expectRow(portrait.deviceFrameFlags, {1, 0, 0, 0});
    EXPECT_NEAR(portrait.screenRect[2] / portrait.deviceFrameRect[2], 0.9, tolerance);

    // Without the picture there is no frame, and the canvas radius holds.
    inputs.deviceFrame.reset();
    const SceneUniforms bare = SceneUniformRules::sceneUniforms(scene, inputs);
    expectRow(bare.deviceFrameFlags, {0, 0, 0, 0});
    EXPECT_EQ(bare.output[2], scene.canvas.cornerRadius);
}

TEST(SceneUniforms, WebcamOverlayGeometryAndItsFullScreenMorph) {
    WebcamState webcam;
    webcam.visible = true;
    webcam.center = {0.8, 0.7};
    webcam.diameter = 0.2;
    webcam.aspectRatio = WebcamAspectRatio::source;
    webcam.cornerRadius = 0.5;
    webcam.showsBorder = true;
    webcam.borderWidthAt1080p = 10;
    webcam.showsShadow = true;
    webcam.isMirrored = true;
    const SizeValue output{1920, 1080};
    const SizeValue camera{1280, 720};

    const WebcamGeometry overlay = SceneUniformRules::webcamGeometry(webcam, camera, output);
    const double h = 216;
    const double w = h * 16 / 9;
    expectRow(overlay.rect, {(1536 - w / 2) / 1920, (756 - h / 2) / 1080, w / 1920, h / 1080});
    expectRow(overlay.aspects, {1, 1, 16.0 / 9, w / h});
    expectRow(overlay.style, {1, 1, h * 0.5 * 0.5, 10});
    expectRow(overlay.shadow, {1, 0.24, 2, 34});

    webcam.fullscreenProgress = 1;
    const WebcamGeometry fullscreen = SceneUniformRules::webcamGeometry(webcam, camera, output);
    expectRow(fullscreen.rect, {0, 0, 1, 1});
    expectRow(fullscreen.style, {1, 0, 0, 10});
    EXPECT_EQ(fullscreen.shadow[1], 0);

    // No frame, or a hidden overlay, shows nothing.
    EXPECT_EQ(SceneUniformRules::webcamGeometry(webcam, std::nullopt, output), WebcamGeometry{});
    webcam.visible = false;
    EXPECT_EQ(SceneUniformRules::webcamGeometry(webcam, camera, output), WebcamGeometry{});
}

TEST(SceneUniforms, CursorScaleIsClampedAndPressedByTheClick) {
    SceneState scene;
    SceneUniformInputs inputs = inputsFor({1920, 1080}, {1920, 1080});

    scene.cursor.scale = 5;
    expectRow(SceneUniformRules::sceneUniforms(scene, inputs).cursorShape, {51, 75, 6, 6});
    scene.cursor.scale = 0.1;
    expectRow(SceneUniformRules::sceneUniforms(scene, inputs).cursorShape, {8.5, 12.5, 1, 1});

    // A registered asset gives the shape, the state's own measures win.
    scene.cursor.scale = 2;
    inputs.cursorAsset = CursorShape{{32, 32}, {4, 6}};
    expectRow(SceneUniformRules::sceneUniforms(scene, inputs).cursorShape, {64, 64, 8, 12});
    scene.cursor.hotSpot = PointValue{10, 10};
    expectRow(SceneUniformRules::sceneUniforms(scene, inputs).cursorShape, {64, 64, 20, 20});

    // Half way through the dip the cursor is at 0.85 of its size.
    scene.clickEffect = ClickEffectState{{0.3, 0.4}, 0.275, ClickEffectStyle::ringAndPress};
    const SceneUniforms pressed = SceneUniformRules::sceneUniforms(scene, inputs);
    EXPECT_NEAR(pressed.cursorShape[0], 64 * 0.85, 1e-4);
    expectRow(pressed.cursor, {0.5, 0.5, 0.275, 2});
    expectRow(pressed.clickPosition, {0.3, 0.4, 0, 0});
    scene.clickEffect->progress = 0.8;
    EXPECT_EQ(SceneUniformRules::cursorPressScale(scene.clickEffect), 1);
    scene.clickEffect->style = ClickEffectStyle::ring;
    scene.clickEffect->progress = 0.275;
    EXPECT_EQ(SceneUniformRules::cursorPressScale(scene.clickEffect), 1);
}

TEST(SceneUniforms, BackgroundFollowsThePresetUnlessTheImageIsRegistered) {
    SceneState scene;
    scene.canvas.background = CanvasBackground::solid; // the preset decides, not this
    scene.canvas.preset = CanvasBackgroundPreset::midnightViolet;
    scene.canvas.image = CanvasBackgroundImage{"picture", "backgrounds/picture.png", PixelSize(640, 480),
                                               CanvasBackgroundImageSource::uploaded, std::nullopt};
    SceneUniformInputs inputs = inputsFor({1280, 720}, {1280, 720});

    const SceneUniforms missing = SceneUniformRules::sceneUniforms(scene, inputs);
    EXPECT_EQ(missing.output[3], 1);
    const CanvasColorValue first = CanvasBackgroundPresets::firstColor(scene.canvas.preset);
    expectRow(missing.firstColor, {first.red, first.green, first.blue, 1});

    scene.canvas.preset = CanvasBackgroundPreset::snow;
    EXPECT_EQ(SceneUniformRules::sceneUniforms(scene, inputs).output[3], 0);

    inputs.backgroundImageSize = SizeValue{640, 480};
    const SceneUniforms image = SceneUniformRules::sceneUniforms(scene, inputs);
    EXPECT_EQ(image.output[3], 2);
    expectRow(image.backgroundImageSize, {640, 480, 0, 0});
}

TEST(SceneUniforms, BlurRowHoldsTheCameraUnlessABlurCameraIsGiven) {
    SceneState scene;
    scene.camera = {{0.3, 0.6}, 2};
    const SceneUniformInputs inputs = inputsFor({1280, 720}, {1280, 720});
    expectRow(SceneUniformRules::sceneUniforms(scene, inputs).blurCamera, {0.3, 0.6, 2, 0});
    scene.motionBlurCamera = CameraState{{0.4, 0.5}, 1.5};
    expectRow(SceneUniformRules::sceneUniforms(scene, inputs).blurCamera, {0.4, 0.5, 1.5, 1});
}

} // namespace
} // namespace rilo

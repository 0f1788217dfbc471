#pragma once

// What the scene shader is told about one frame, worked out on the CPU in
// doubles from a SceneState and the sizes of what the renderer has at hand.
// Pure functions: the renderer converts the record to 32-bit floats only when
// it hands it to the GPU.

#include "project/document/DeviceFrameCatalog.h"
#include "scene/SceneState.h"

#include <array>
#include <optional>
#include <vector>

namespace rilo {

// sRGB components of the colour of click effects.
inline constexpr std::array<double, 4> sceneAccentColor{0.0, 0.48, 1.0, 1.0};

inline constexpr std::size_t maximumRenderedAnnotations = 16;

// The largest radius of a click effect, in cursor points, before its growth.
inline constexpr double clickEffectRadiusPoints = 26;

// A cursor picture's measures in points.
struct CursorShape {
    SizeValue size;
    PointValue hotSpot;
};

// What the renderer found for this frame besides the scene itself. Sizes are
// in pixels.
struct SceneUniformInputs {
    SizeValue outputSize;
    SizeValue screenTextureSize;
    // Absent when no webcam frame was given.
    std::optional<SizeValue> webcamTextureSize;
    // The device frame's descriptor, when the scene asks for a frame and its
    // picture is loaded.
    std::optional<DeviceFrameDescriptor> deviceFrame;
    // The registered shape of the scene's cursor asset, if any.
    std::optional<CursorShape> cursorAsset;
    CursorShape fallbackCursor;
    // The canvas image's pixel size, when the image is registered.
    std::optional<SizeValue> backgroundImageSize;
    // The caption's rectangle normalised to the output, when one is drawn.
    std::optional<RectValue> captionRect;
};

// Nineteen rows of four values; rectangles are normalised to the output size.
struct SceneUniforms {
    using Row = std::array<double, 4>;
    static constexpr std::size_t rowCount = 19;

    // (width, height in pixels, corner radius fraction, background mode 0
    // solid, 1 gradient, 2 image)
    Row output{};
    Row firstColor{};
    Row secondColor{};
    Row backgroundImageSize{};
    Row screenRect{};
    Row deviceFrameRect{};
    // (present, rotated, 0, 0)
    Row deviceFrameFlags{};
    Row sourceRect{};
    // (centre x, y, scale, cursor visible)
    Row camera{};
    // (centre x, y, scale, blur on)
    Row blurCamera{};
    // (cursor x, y, click progress or -1, click style)
    Row cursor{};
    // (width, height, hot spot x, y), in points times the cursor's scale
    Row cursorShape{};
    Row clickPosition{};
    Row accentColor{};
    Row webcamRect{};
    // (shown, mirrored, source aspect, rectangle aspect)
    Row webcamAspects{};
    // (1, border opacity, corner radius pixels, border width pixels)
    Row webcamStyle{};
    // (shadow on, shadow opacity, 2, 34)
    Row webcamShadow{};
    Row captionRect{};

    std::array<float, rowCount * 4> packed() const;

    friend bool operator==(const SceneUniforms&, const SceneUniforms&) = default;
};

// Webcam rows 14 to 17.
struct WebcamGeometry {
    SceneUniforms::Row rect{};
    SceneUniforms::Row aspects{};
    SceneUniforms::Row style{};
    SceneUniforms::Row shadow{};

    friend bool operator==(const WebcamGeometry&, const WebcamGeometry&) = default;
};

// One annotation as the annotation pass reads it.
struct AnnotationUniform {
    std::array<double, 4> geometry{};
    std::array<double, 4> color{};
    std::array<double, 4> options{};

    friend bool operator==(const AnnotationUniform&, const AnnotationUniform&) = default;
};

namespace SceneUniformRules {

// The cursor's size factor from a ringAndPress click: it dips to 0.85 and
// recovers over the first 55% of the effect; 1 otherwise.
double cursorPressScale(const std::optional<ClickEffectState>& click) noexcept;

WebcamGeometry webcamGeometry(const std::optional<WebcamState>& state, std::optional<SizeValue> textureSize,
                              SizeValue outputSize) noexcept;

// Throws SceneRendererError::tooManyAnnotations above 16.
std::vector<AnnotationUniform> annotationUniforms(const std::vector<AnnotationElement>& annotations);

// How many output pixels one cursor point covers: cursor points follow the
// content, one source pixel a point, magnified by the camera.
double cursorPointPixels(const SceneUniforms& uniforms, SizeValue screenTextureSize) noexcept;

// The output pixel rectangles (origin top left) outside which the cursor,
// the click effect, the webcam and the caption leave the picture untouched,
// so that a renderer may draw those layers only there.
std::vector<RectValue> localLayerRects(const SceneUniforms& uniforms, SizeValue screenTextureSize);

// The whole record for a frame; drawing without a caption sets its row to
// zero, as the main pass does when annotations follow.
SceneUniforms sceneUniforms(const SceneState& scene, const SceneUniformInputs& inputs);

} // namespace SceneUniformRules

} // namespace rilo

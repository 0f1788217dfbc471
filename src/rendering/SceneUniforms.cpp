#include "rendering/SceneUniforms.h"

#include "rendering/SceneRendererError.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace rilo {

namespace {

using Row = SceneUniforms::Row;

Row normalised(const RectValue& rect, SizeValue outputSize) {
    return {rect.x / outputSize.width, rect.y / outputSize.height, rect.width / outputSize.width,
            rect.height / outputSize.height};
}

Row rowOf(const RectValue& rect) {
    return {rect.x, rect.y, rect.width, rect.height};
}

Row colorRow(const CanvasColorValue& color) {
    return {color.red, color.green, color.blue, 1};
}

double clickStyleValue(ClickEffectStyle style) {
    switch (style) {
    case ClickEffectStyle::solidPulse:
        return 0;
    case ClickEffectStyle::ring:
        return 1;
    case ClickEffectStyle::ringAndPress:
        return 2;
    }
    return 1;
}

double annotationKindValue(AnnotationKind kind) {
    switch (kind) {
    case AnnotationKind::rectangle:
        return 0;
    case AnnotationKind::circle:
        return 1;
    case AnnotationKind::arrow:
        return 2;
    case AnnotationKind::mosaic:
        return 3;
    }
    return 0;
}

struct ScreenPlacement {
    RectValue screenRect;
    double cornerRadius = 0;
    Row deviceFrameRect{};
    Row deviceFrameFlags{};
};

// Where the content lies, inside the device picture when there is one.
ScreenPlacement placeScreen(const SceneState& scene, const SceneUniformInputs& inputs) {
    const SizeValue contentSize{scene.screen.sourceRect.width * inputs.screenTextureSize.width,
                                scene.screen.sourceRect.height * inputs.screenTextureSize.height};
    ScreenPlacement placement;
    placement.screenRect = SceneLayout::screenRect(contentSize, inputs.outputSize, scene.canvas.padding);
    placement.cornerRadius = scene.canvas.cornerRadius;
    if (!inputs.deviceFrame) {
        return placement;
    }
    const DeviceFrameDescriptor& descriptor = *inputs.deviceFrame;
    const bool landscape = contentSize.width > contentSize.height;
    SizeValue frameSize{static_cast<double>(descriptor.outerPixelSize.width),
                        static_cast<double>(descriptor.outerPixelSize.height)};
    if (landscape) {
        std::swap(frameSize.width, frameSize.height);
    }
    const RectValue frame = SceneLayout::screenRect(frameSize, inputs.outputSize, scene.canvas.padding);
    RectValue inner = descriptor.screenRect;
    if (landscape) {
        inner = {1 - descriptor.screenRect.maxY(), descriptor.screenRect.x, descriptor.screenRect.height,
                 descriptor.screenRect.width};
    }
    placement.screenRect = {frame.x + inner.x * frame.width, frame.y + inner.y * frame.height,
                            inner.width * frame.width, inner.height * frame.height};
    placement.cornerRadius = descriptor.screenCornerRadius *
                             std::min(placement.screenRect.width, placement.screenRect.height) /
                             std::min(inputs.outputSize.width, inputs.outputSize.height);
    placement.deviceFrameRect = normalised(frame, inputs.outputSize);
    placement.deviceFrameFlags = {1, landscape ? 1.0 : 0.0, 0, 0};
    return placement;
}

} // namespace

std::array<float, SceneUniforms::rowCount * 4> SceneUniforms::packed() const {
    const std::array<const Row*, rowCount> rows{
        &output,           &firstColor,  &secondColor, &backgroundImageSize, &screenRect,  &deviceFrameRect,
        &deviceFrameFlags, &sourceRect,  &camera,      &blurCamera,          &cursor,      &cursorShape,
        &clickPosition,    &accentColor, &webcamRect,  &webcamAspects,       &webcamStyle, &webcamShadow,
        &captionRect};
    std::array<float, rowCount * 4> values{};
    for (std::size_t row = 0; row < rowCount; ++row) {
        for (std::size_t column = 0; column < 4; ++column) {
            values[row * 4 + column] = static_cast<float>((*rows[row])[column]);
        }
    }
    return values;
}

namespace SceneUniformRules {

double cursorPressScale(const std::optional<ClickEffectState>& click) noexcept {
    if (!click || click->style != ClickEffectStyle::ringAndPress) {
        return 1;
    }
    const double u = click->progress / 0.55;
    if (u <= 0) {
        return 1;
    }
    return 1 + 0.15 * std::sin(-std::numbers::pi * std::min(u, 1.0));
}

WebcamGeometry webcamGeometry(const std::optional<WebcamState>& state, std::optional<SizeValue> textureSize,
                              SizeValue outputSize) noexcept {
    if (!state || !state->visible || !textureSize) {
        return {};
    }
    const double p = state->fullscreenProgress;
    const double sourceAspect = textureSize->width / std::max(textureSize->height, 1.0);
    const double aspect = state->aspectRatio == WebcamAspectRatio::square ? 1.0 : sourceAspect;
    const double minimumMeasure = std::min(outputSize.width, outputSize.height);
    const double h = state->diameter * minimumMeasure;
    const double w = h * aspect;
    const double x = outputSize.width * state->center.x - w / 2;
    const double y = outputSize.height * state->center.y - h / 2;

    const RectValue morphed{(1 - p) * x, (1 - p) * y, w + p * (outputSize.width - w),
                            h + p * (outputSize.height - h)};
    const double c = std::isfinite(state->cornerRadius) ? std::clamp(state->cornerRadius, 0.0, 1.0) : 0.6;
    const double radius = (1 - p) * std::min(w, h) * 0.5 * c;
    const double borderOpacity = state->showsBorder ? 1 - p : 0;
    const double borderWidth = state->borderWidthAt1080p / 1080 * minimumMeasure;

    WebcamGeometry geometry;
    geometry.rect = normalised(morphed, outputSize);
    geometry.aspects = {1, state->isMirrored ? 1.0 : 0.0, sourceAspect,
                        morphed.width / std::max(morphed.height, 1.0)};
    geometry.style = {1, borderOpacity, radius, borderWidth};
    geometry.shadow = {state->showsShadow ? 1.0 : 0.0, 0.24 * (1 - p), 2, 34};
    return geometry;
}

std::vector<AnnotationUniform> annotationUniforms(const std::vector<AnnotationElement>& annotations) {
    if (annotations.size() > maximumRenderedAnnotations) {
        throw SceneRendererError::tooManyAnnotations();
    }
    std::vector<AnnotationUniform> uniforms;
    uniforms.reserve(annotations.size());
    for (const AnnotationElement& annotation : annotations) {
        AnnotationUniform uniform;
        if (annotation.kind == AnnotationKind::arrow && annotation.startPoint && annotation.endPoint) {
            uniform.geometry = {annotation.startPoint->x, annotation.startPoint->y, annotation.endPoint->x,
                                annotation.endPoint->y};
        } else if (annotation.bounds) {
            uniform.geometry = rowOf(*annotation.bounds);
        }
        uniform.color = colorRow(annotation.color);
        uniform.options = {annotationKindValue(annotation.kind), annotation.lineWidth, 0, 0};
        uniforms.push_back(uniform);
    }
    return uniforms;
}

double cursorPointPixels(const SceneUniforms& uniforms, SizeValue screenTextureSize) noexcept {
    const double screenPixels = uniforms.screenRect[2] * uniforms.output[0];
    const double sourcePixels = std::max(uniforms.sourceRect[2] * screenTextureSize.width, 1.0);
    return screenPixels / sourcePixels * uniforms.camera[2];
}

std::vector<RectValue> localLayerRects(const SceneUniforms& uniforms, SizeValue screenTextureSize) {
    const double width = uniforms.output[0];
    const double height = uniforms.output[1];
    const RectValue screen{uniforms.screenRect[0] * width, uniforms.screenRect[1] * height,
                           uniforms.screenRect[2] * width, uniforms.screenRect[3] * height};
    const double pointPixels = cursorPointPixels(uniforms, screenTextureSize);
    // A pixel of margin for anti-aliasing and filtering.
    const auto grown = [](RectValue rect, double margin) {
        return RectValue{rect.x - margin, rect.y - margin, rect.width + 2 * margin, rect.height + 2 * margin};
    };
    std::vector<RectValue> rects;
    if (uniforms.camera[3] > 0) {
        const double x = screen.x + uniforms.cursor[0] * screen.width - uniforms.cursorShape[2] * pointPixels;
        const double y =
            screen.y + uniforms.cursor[1] * screen.height - uniforms.cursorShape[3] * pointPixels;
        rects.push_back(
            grown({x, y, uniforms.cursorShape[0] * pointPixels, uniforms.cursorShape[1] * pointPixels}, 2));
    }
    if (uniforms.cursor[2] >= 0) {
        // The ring grows to 1.2 radii, plus half its width.
        const double reach = clickEffectRadiusPoints * pointPixels * 1.2 + 2 * pointPixels + 2;
        const double x = screen.x + uniforms.clickPosition[0] * screen.width;
        const double y = screen.y + uniforms.clickPosition[1] * screen.height;
        rects.push_back({x - reach, y - reach, 2 * reach, 2 * reach});
    }
    if (uniforms.webcamAspects[0] > 0) {
        // The shadow reaches its softness below and beside the picture.
        const double unit = std::min(width, height) / 1080;
        const double shadow = (uniforms.webcamShadow[2] + uniforms.webcamShadow[3]) * unit + 2;
        rects.push_back(grown({uniforms.webcamRect[0] * width, uniforms.webcamRect[1] * height,
                               uniforms.webcamRect[2] * width, uniforms.webcamRect[3] * height},
                              shadow));
    }
    if (uniforms.captionRect[2] > 0 && uniforms.captionRect[3] > 0) {
        rects.push_back(grown({uniforms.captionRect[0] * width, uniforms.captionRect[1] * height,
                               uniforms.captionRect[2] * width, uniforms.captionRect[3] * height},
                              2));
    }
    return rects;
}

SceneUniforms sceneUniforms(const SceneState& scene, const SceneUniformInputs& inputs) {
    const SizeValue outputSize = inputs.outputSize;
    SceneUniforms uniforms;

    const ScreenPlacement placement = placeScreen(scene, inputs);
    uniforms.screenRect = normalised(placement.screenRect, outputSize);
    uniforms.deviceFrameRect = placement.deviceFrameRect;
    uniforms.deviceFrameFlags = placement.deviceFrameFlags;
    uniforms.sourceRect = rowOf(scene.screen.sourceRect);

    // The background follows the preset; an image counts only when it is
    // registered, and falls back to the preset silently otherwise.
    const CanvasBackgroundPreset preset = scene.canvas.preset;
    double backgroundMode = CanvasBackgroundPresets::background(preset) == CanvasBackground::gradient ? 1 : 0;
    uniforms.backgroundImageSize = {1, 1, 0, 0};
    if (scene.canvas.image && inputs.backgroundImageSize) {
        backgroundMode = 2;
        uniforms.backgroundImageSize = {inputs.backgroundImageSize->width, inputs.backgroundImageSize->height,
                                        0, 0};
    }
    uniforms.output = {outputSize.width, outputSize.height, placement.cornerRadius, backgroundMode};
    uniforms.firstColor = colorRow(CanvasBackgroundPresets::firstColor(preset));
    uniforms.secondColor = colorRow(CanvasBackgroundPresets::secondColor(preset));

    const CursorState& cursor = scene.cursor;
    uniforms.camera = {scene.camera.center.x, scene.camera.center.y, scene.camera.scale,
                       cursor.visible ? 1.0 : 0.0};
    const CameraState& blur = scene.motionBlurCamera ? *scene.motionBlurCamera : scene.camera;
    uniforms.blurCamera = {blur.center.x, blur.center.y, blur.scale, scene.motionBlurCamera ? 1.0 : 0.0};

    const double scale = static_cast<float>(SceneUniformRules::cursorPressScale(scene.clickEffect) *
                                            std::clamp(cursor.scale, 0.5, 3.0));
    CursorShape shape = inputs.fallbackCursor;
    if (inputs.cursorAsset) {
        shape.size = cursor.logicalSize.value_or(inputs.cursorAsset->size);
        shape.hotSpot = cursor.hotSpot.value_or(inputs.cursorAsset->hotSpot);
    }
    uniforms.cursorShape = {shape.size.width * scale, shape.size.height * scale, shape.hotSpot.x * scale,
                            shape.hotSpot.y * scale};
    uniforms.cursor = {cursor.outputPosition.x, cursor.outputPosition.y, -1, 1};
    if (scene.clickEffect) {
        uniforms.cursor[2] = scene.clickEffect->progress;
        uniforms.cursor[3] = clickStyleValue(scene.clickEffect->style);
        uniforms.clickPosition = {scene.clickEffect->position.x, scene.clickEffect->position.y, 0, 0};
    }
    uniforms.accentColor = sceneAccentColor;

    const WebcamGeometry webcam = webcamGeometry(scene.webcam, inputs.webcamTextureSize, outputSize);
    uniforms.webcamRect = webcam.rect;
    uniforms.webcamAspects = webcam.aspects;
    uniforms.webcamStyle = webcam.style;
    uniforms.webcamShadow = webcam.shadow;

    if (scene.caption && inputs.captionRect) {
        uniforms.captionRect = rowOf(*inputs.captionRect);
    }
    return uniforms;
}

} // namespace SceneUniformRules

} // namespace rilo

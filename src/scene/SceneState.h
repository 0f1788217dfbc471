#pragma once

// What the picture shows at one instant: the contract between time and
// pixels. The scene evaluator reduces everything a project says about one
// source time to one SceneState; the renderer draws from that record and from
// nothing else of the timeline.
//
// Positions are normalised, 0 to 1 on each axis with the origin at the top
// left, of the source frame (source...) or of the output view (output...).

#include "project/caption/CaptionDocument.h"
#include "project/document/CanvasEdit.h"
#include "project/document/EditTimeline.h"
#include "project/document/TimelineEffects.h"
#include "project/document/WebcamOverlay.h"
#include "shared/Geometry.h"
#include "shared/ProjectTime.h"
#include "shared/Uuid.h"

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

namespace rilo {

struct CameraState {
    PointValue center{0.5, 0.5};
    double scale = 1; // 1 shows the whole view

    static CameraState identity() noexcept { return {}; }
    // A source point in the camera's output: scale * (point - center) + 0.5.
    PointValue outputPoint(PointValue point) const noexcept {
        return {scale * (point.x - center.x) + 0.5, scale * (point.y - center.y) + 0.5};
    }

    friend bool operator==(const CameraState&, const CameraState&) = default;
};

// Which part of the encoded frame is content, normalised to the frame.
struct ScreenState {
    RectValue sourceRect{0, 0, 1, 1};

    static ScreenState fullFrame() noexcept { return {}; }

    friend bool operator==(const ScreenState&, const ScreenState&) = default;
};

struct CursorState {
    PointValue sourcePosition{0.5, 0.5};
    PointValue outputPosition{0.5, 0.5};
    bool visible = false;
    double scale = 1;
    std::optional<std::string> assetID;
    // From the asset's descriptor, in points.
    std::optional<SizeValue> logicalSize;
    std::optional<PointValue> hotSpot;

    friend bool operator==(const CursorState&, const CursorState&) = default;
};

// The run-time twin of CanvasEdit; converts both ways field by field, with
// no clamping.
struct CanvasState {
    CanvasAspectRatio aspectRatio = CanvasAspectRatio::landscape16x9;
    CanvasBackground background = CanvasBackground::gradient;
    CanvasBackgroundPreset preset = CanvasBackgroundPreset::midnightViolet;
    std::optional<CanvasBackgroundImage> image;
    double padding = CanvasEdit::defaultPadding;
    double cornerRadius = CanvasEdit::defaultCornerRadius;

    CanvasState() = default;
    explicit CanvasState(const CanvasEdit& edit)
        : aspectRatio(edit.aspectRatio)
        , background(edit.background)
        , preset(edit.preset)
        , image(edit.image)
        , padding(edit.padding)
        , cornerRadius(edit.cornerRadius) {}
    CanvasEdit edit() const {
        CanvasEdit result;
        result.aspectRatio = aspectRatio;
        result.background = background;
        result.preset = preset;
        result.image = image;
        result.padding = padding;
        result.cornerRadius = cornerRadius;
        return result;
    }
    static CanvasState defaultValue() { return {}; }

    friend bool operator==(const CanvasState&, const CanvasState&) = default;
};

struct WebcamState {
    PointValue center;
    // Fraction of the output's smaller measure.
    double diameter = 0;
    bool isMirrored = false;
    bool visible = false;
    WebcamAspectRatio aspectRatio = WebcamAspectRatio::square;
    double cornerRadius = 0;
    bool showsBorder = false;
    double borderWidthAt1080p = 10;
    bool showsShadow = false;
    // 0 is the overlay, 1 full screen.
    double fullscreenProgress = 0;

    friend bool operator==(const WebcamState&, const WebcamState&) = default;
};

struct ClickEffectState {
    PointValue position; // in camera output coordinates
    double progress = 0; // 0 to 1 over the effect's life
    ClickEffectStyle style = ClickEffectStyle::solidPulse;

    friend bool operator==(const ClickEffectState&, const ClickEffectState&) = default;
};

struct CaptionState {
    Uuid cueID;
    std::string text;
    std::vector<CaptionHighlight> highlights;
    CaptionAppearance appearance = CaptionAppearance::whiteOnBlack;
    std::int64_t maximumLines = 2;
    double fontScale = 1;
    double bottomPosition = 0;

    friend bool operator==(const CaptionState&, const CaptionState&) = default;
};

struct SceneState {
    ProjectTime time; // source time of this frame
    CameraState camera;
    // The camera one shutter earlier; absent when equal to `camera`, so that a
    // still camera costs no blur.
    std::optional<CameraState> motionBlurCamera;
    ScreenState screen;
    CursorState cursor;
    CanvasState canvas;
    std::optional<DeviceFrameEdit> deviceFrame;
    // Absent when the project has no webcam media or no overlay.
    std::optional<WebcamState> webcam;
    std::optional<ClickEffectState> clickEffect;
    // Those active at `time`, in drawing order.
    std::vector<AnnotationElement> annotations;
    std::optional<CaptionState> caption;

    friend bool operator==(const SceneState&, const SceneState&) = default;
};

// The part of a timeline that the scene depends on, so that a live preview can
// swap a visual edit without touching the document.
struct TimelineVisualEdits {
    CanvasState canvas;
    std::optional<DeviceFrameEdit> deviceFrame;
    CursorEdit cursor;
    std::optional<WebcamOverlay> webcamOverlay;
    std::vector<WebcamOverlayKeyframe> webcamKeyframes;
    std::vector<WebcamFullscreenSegment> webcamFullscreenSegments;
    std::vector<ZoomSegment> zooms;
    double motionBlurAmount = EditTimeline::defaultMotionBlurAmount;
    std::vector<AnnotationElement> annotations;

    TimelineVisualEdits() = default;
    // A given canvas replaces the timeline's whole; a given webcam overlay
    // replaces the timeline's whole. Everything else is copied.
    explicit TimelineVisualEdits(const EditTimeline& timeline,
                                 std::optional<CanvasState> canvas = std::nullopt,
                                 std::optional<WebcamOverlay> webcam = std::nullopt)
        : canvas(canvas ? *canvas : CanvasState(timeline.canvas))
        , deviceFrame(timeline.deviceFrame)
        , cursor(timeline.cursor)
        , webcamOverlay(webcam ? webcam : timeline.webcamOverlay)
        , webcamKeyframes(timeline.webcamKeyframes)
        , webcamFullscreenSegments(timeline.webcamFullscreenSegments)
        , zooms(timeline.zooms)
        , motionBlurAmount(timeline.motionBlurAmount)
        , annotations(timeline.annotations) {}

    friend bool operator==(const TimelineVisualEdits&, const TimelineVisualEdits&) = default;
};

namespace SceneLayout {

// The rectangle, in output units, into which the source content is fitted on
// the canvas: centred, touching the padding on the tighter axis. Padding is a
// fraction of the output measure on both axes. Any measure at or below zero
// gives the zero rectangle; padding of 0.5 or more degenerates silently.
inline RectValue screenRect(SizeValue sourceSize, SizeValue outputSize, double padding) noexcept {
    if (sourceSize.width <= 0 || sourceSize.height <= 0 || outputSize.width <= 0 || outputSize.height <= 0) {
        return {};
    }
    const double available = 1 - 2 * padding;
    const double scale = std::min(outputSize.width * available / sourceSize.width,
                                  outputSize.height * available / sourceSize.height);
    const double width = sourceSize.width * scale;
    const double height = sourceSize.height * scale;
    return {(outputSize.width - width) * 0.5, (outputSize.height - height) * 0.5, width, height};
}

} // namespace SceneLayout

} // namespace rilo

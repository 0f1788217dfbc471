#pragma once

// JSON form of the scene records: one object per record, with keys equal to
// the field names. Every key is required except the optional fields, which
// are left out when absent.

#include "project/caption/CaptionCodecs.h"
#include "project/document/TimelineCodecs.h"
#include "scene/SceneState.h"
#include "shared/Json.h"
#include "shared/ValueCodecs.h"

namespace rilo::json {

template <>
struct RecordFields<CameraState> {
    static constexpr auto fields = std::tuple{
        field("center", &CameraState::center),
        field("scale", &CameraState::scale),
    };
};

template <>
struct RecordFields<ScreenState> {
    static constexpr auto fields = std::tuple{field("sourceRect", &ScreenState::sourceRect)};
};

template <>
struct RecordFields<CursorState> {
    static constexpr auto fields = std::tuple{
        field("sourcePosition", &CursorState::sourcePosition),
        field("outputPosition", &CursorState::outputPosition),
        field("visible", &CursorState::visible),
        field("scale", &CursorState::scale),
        field("assetID", &CursorState::assetID),
        field("logicalSize", &CursorState::logicalSize),
        field("hotSpot", &CursorState::hotSpot),
    };
};

template <>
struct RecordFields<CanvasState> {
    static constexpr auto fields = std::tuple{
        field("aspectRatio", &CanvasState::aspectRatio), field("background", &CanvasState::background),
        field("preset", &CanvasState::preset),           field("image", &CanvasState::image),
        field("padding", &CanvasState::padding),         field("cornerRadius", &CanvasState::cornerRadius),
    };
};

template <>
struct RecordFields<WebcamState> {
    static constexpr auto fields = std::tuple{
        field("center", &WebcamState::center),
        field("diameter", &WebcamState::diameter),
        field("isMirrored", &WebcamState::isMirrored),
        field("visible", &WebcamState::visible),
        field("aspectRatio", &WebcamState::aspectRatio),
        field("cornerRadius", &WebcamState::cornerRadius),
        field("showsBorder", &WebcamState::showsBorder),
        field("borderWidthAt1080p", &WebcamState::borderWidthAt1080p),
        field("showsShadow", &WebcamState::showsShadow),
        field("fullscreenProgress", &WebcamState::fullscreenProgress),
    };
};

template <>
struct RecordFields<ClickEffectState> {
    static constexpr auto fields = std::tuple{
        field("position", &ClickEffectState::position),
        field("progress", &ClickEffectState::progress),
        field("style", &ClickEffectState::style),
    };
};

template <>
struct RecordFields<CaptionState> {
    static constexpr auto fields = std::tuple{
        field("cueID", &CaptionState::cueID),
        field("text", &CaptionState::text),
        field("highlights", &CaptionState::highlights),
        field("appearance", &CaptionState::appearance),
        field("maximumLines", &CaptionState::maximumLines),
        field("fontScale", &CaptionState::fontScale),
        field("bottomPosition", &CaptionState::bottomPosition),
    };
};

template <>
struct RecordFields<SceneState> {
    static constexpr auto fields = std::tuple{
        field("time", &SceneState::time),
        field("camera", &SceneState::camera),
        field("motionBlurCamera", &SceneState::motionBlurCamera),
        field("screen", &SceneState::screen),
        field("cursor", &SceneState::cursor),
        field("canvas", &SceneState::canvas),
        field("deviceFrame", &SceneState::deviceFrame),
        field("webcam", &SceneState::webcam),
        field("clickEffect", &SceneState::clickEffect),
        field("annotations", &SceneState::annotations),
        field("caption", &SceneState::caption),
    };
};

} // namespace rilo::json

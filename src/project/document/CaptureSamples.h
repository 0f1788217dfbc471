#pragma once

// What a recording observes while it runs: time-stamped samples of the mouse,
// of the source's geometry and of the cursor's shape, stored in the sample
// chunks of a package (their JSON keys are part of the project format).

#include "project/document/ProjectManifest.h"
#include "shared/Geometry.h"
#include "shared/JsonNames.h"
#include "shared/ProjectTime.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace rilo {

struct MicrophoneDeviceDescriptor {
    std::string id;
    std::string name;
    bool isSystemDefault = false;

    friend bool operator==(const MicrophoneDeviceDescriptor&, const MicrophoneDeviceDescriptor&) = default;
};

struct WebcamDeviceDescriptor {
    std::string id;
    std::string name;
    bool isBuiltIn = false;

    friend bool operator==(const WebcamDeviceDescriptor&, const WebcamDeviceDescriptor&) = default;
};

struct WebcamCaptureConfiguration {
    std::string deviceID;
    std::string deviceName;
    PixelSize pixelSize;
    std::int64_t framesPerSecond = 30;

    friend bool operator==(const WebcamCaptureConfiguration&, const WebcamCaptureConfiguration&) = default;
};

enum class MouseButton { left, right, other, none };

enum class MousePhase { moved, dragged, down, up };

// One mouse sample, an element of the chunks in `events`.
struct MouseEvent {
    std::uint64_t rawTimestampNanoseconds = 0; // time stamp of the system event
    ProjectTime time;
    PointValue globalPoint;     // global screen points
    PointValue localPoint;      // points of the source
    PointValue normalizedPoint; // 0...1 within the source
    std::uint32_t geometryRevision = 0;
    MouseButton button = MouseButton::none;
    MousePhase phase = MousePhase::moved;
    // False when the pointer was outside the source; recordings made before
    // this was stored have no value.
    std::optional<bool> isInsideSource;

    // Samples without the flag count as inside.
    bool isVisibleInsideSource() const noexcept { return isInsideSource.value_or(true); }

    friend bool operator==(const MouseEvent&, const MouseEvent&) = default;
};

// The geometry of the source from `time` on, an element of the chunks in `geometry`.
struct GeometrySample {
    ProjectTime time;
    std::uint32_t revision = 0;
    RectValue globalWindowFrame; // global screen points
    SizeValue sourceContentSize; // points
    PixelSize encodedPixelSize;
    RectValue contentRectInEncodedFrame;
    double scaleFactor = 1; // pixels per point

    // The point relative to the origin of globalWindowFrame.
    PointValue localPoint(PointValue globalPoint) const noexcept;
    // The point within globalWindowFrame as 0...1 on each axis; a point
    // outside lands on the edge, and an empty frame gives (0, 0).
    PointValue normalizedPoint(PointValue globalPoint) const noexcept;

    friend bool operator==(const GeometrySample&, const GeometrySample&) = default;
};

// A change of the cursor's shape, an element of the chunks in `cursor/events`.
struct CursorShapeSample {
    ProjectTime time;
    std::string assetID; // an id of the package's cursor asset store

    friend bool operator==(const CursorShapeSample&, const CursorShapeSample&) = default;
};

} // namespace rilo

namespace rilo::json {

template <>
struct EnumNames<MouseButton> {
    static constexpr std::array<std::pair<MouseButton, std::string_view>, 4> entries{{
        {MouseButton::left, "left"},
        {MouseButton::right, "right"},
        {MouseButton::other, "other"},
        {MouseButton::none, "none"},
    }};
};

template <>
struct EnumNames<MousePhase> {
    static constexpr std::array<std::pair<MousePhase, std::string_view>, 4> entries{{
        {MousePhase::moved, "moved"},
        {MousePhase::dragged, "dragged"},
        {MousePhase::down, "down"},
        {MousePhase::up, "up"},
    }};
};

// The chunk records. Every key is required except MouseEvent's
// isInsideSource, which is left out when absent.
template <>
struct RecordFields<MouseEvent> {
    static constexpr auto fields = std::tuple{
        field("rawTimestampNanoseconds", &MouseEvent::rawTimestampNanoseconds),
        field("time", &MouseEvent::time),
        field("globalPoint", &MouseEvent::globalPoint),
        field("localPoint", &MouseEvent::localPoint),
        field("normalizedPoint", &MouseEvent::normalizedPoint),
        field("geometryRevision", &MouseEvent::geometryRevision),
        field("button", &MouseEvent::button),
        field("phase", &MouseEvent::phase),
        field("isInsideSource", &MouseEvent::isInsideSource),
    };
};

template <>
struct RecordFields<GeometrySample> {
    static constexpr auto fields = std::tuple{
        field("time", &GeometrySample::time),
        field("revision", &GeometrySample::revision),
        field("globalWindowFrame", &GeometrySample::globalWindowFrame),
        field("sourceContentSize", &GeometrySample::sourceContentSize),
        field("encodedPixelSize", &GeometrySample::encodedPixelSize),
        field("contentRectInEncodedFrame", &GeometrySample::contentRectInEncodedFrame),
        field("scaleFactor", &GeometrySample::scaleFactor),
    };
};

template <>
struct RecordFields<CursorShapeSample> {
    static constexpr auto fields =
        std::tuple{field("time", &CursorShapeSample::time), field("assetID", &CursorShapeSample::assetID)};
};

} // namespace rilo::json

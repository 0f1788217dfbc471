#pragma once

// JSON form of the timeline document and its members.
//
// Decoding gives the documented default for every key that older documents
// lack, fails with json::DecodingError for a missing required key or an
// unknown enumeration word, and takes any schema version as it stands
// (normalized() applies what a version means). Encoding writes every member
// and leaves out optionals that are empty; the legacy webcam key `shape` is
// read but never written.

#include "project/document/EditTimeline.h"
#include "shared/ValueCodecs.h"

#include <string_view>

namespace rilo::json {

// The failure of an unknown click effect word; the word follows it.
inline constexpr std::string_view unsupportedClickEffectStyleMessage = "Unsupported click effect style: ";

// Accepts the older word "soft-glow" as solid-pulse; any other unknown word
// fails with unsupportedClickEffectStyleMessage.
template <>
struct Codec<ClickEffectStyle> {
    static ClickEffectStyle decode(const Json& value, const std::string& path);
    static Json encode(ClickEffectStyle value) { return std::string(rawValue(value)); }
};

template <>
struct Codec<CanvasColorValue> {
    static CanvasColorValue decode(const Json& value, const std::string& path);
    static Json encode(const CanvasColorValue& value);
};

template <>
struct Codec<CanvasBackgroundImage> {
    static CanvasBackgroundImage decode(const Json& value, const std::string& path);
    static Json encode(const CanvasBackgroundImage& value);
};

template <>
struct Codec<CanvasEdit> {
    static CanvasEdit decode(const Json& value, const std::string& path);
    static Json encode(const CanvasEdit& value);
};

template <>
struct Codec<CursorEdit> {
    static CursorEdit decode(const Json& value, const std::string& path);
    static Json encode(const CursorEdit& value);
};

template <>
struct Codec<WebcamOverlay> {
    static WebcamOverlay decode(const Json& value, const std::string& path);
    static Json encode(const WebcamOverlay& value);
};

template <>
struct Codec<WebcamOverlayKeyframe> {
    static WebcamOverlayKeyframe decode(const Json& value, const std::string& path);
    static Json encode(const WebcamOverlayKeyframe& value);
};

template <>
struct Codec<WebcamFullscreenSegment> {
    static WebcamFullscreenSegment decode(const Json& value, const std::string& path);
    static Json encode(const WebcamFullscreenSegment& value);
};

template <>
struct Codec<AudioTrackEdit> {
    static AudioTrackEdit decode(const Json& value, const std::string& path);
    static Json encode(const AudioTrackEdit& value);
};

template <>
struct Codec<AudioMixEdit> {
    static AudioMixEdit decode(const Json& value, const std::string& path);
    static Json encode(const AudioMixEdit& value);
};

template <>
struct Codec<ZoomSegment> {
    static ZoomSegment decode(const Json& value, const std::string& path);
    static Json encode(const ZoomSegment& value);
};

template <>
struct Codec<AnnotationElement> {
    static AnnotationElement decode(const Json& value, const std::string& path);
    static Json encode(const AnnotationElement& value);
};

template <>
struct Codec<TimelineSegment> {
    static TimelineSegment decode(const Json& value, const std::string& path);
    static Json encode(const TimelineSegment& value);
};

template <>
struct Codec<DeviceFrameEdit> {
    static DeviceFrameEdit decode(const Json& value, const std::string& path);
    static Json encode(const DeviceFrameEdit& value);
};

template <>
struct Codec<EditTimeline> {
    static EditTimeline decode(const Json& value, const std::string& path);
    static Json encode(const EditTimeline& value);
};

} // namespace rilo::json

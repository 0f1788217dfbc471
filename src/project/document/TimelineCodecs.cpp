#include "project/document/TimelineCodecs.h"

#include <optional>

namespace rilo {

namespace {

// The overlay shape of documents written before `aspectRatio` existed.
enum class LegacyWebcamShape {
    circle,
    roundedRectangle,
};

// An id that older documents may lack; a missing one is made fresh.
Uuid idOrFresh(const json::ObjectReader& reader) {
    if (auto id = reader.optional<Uuid>("id")) {
        return *id;
    }
    return Uuid::random();
}

} // namespace

} // namespace rilo

namespace rilo::json {

ClickEffectStyle Codec<ClickEffectStyle>::decode(const Json& value, const std::string& path) {
    const auto raw = Codec<std::string>::decode(value, path);
    if (const auto style = enumFromRaw<ClickEffectStyle>(raw)) {
        return *style;
    }
    if (raw == "soft-glow") {
        return ClickEffectStyle::solidPulse;
    }
    throw DecodingError(std::string(unsupportedClickEffectStyleMessage) + raw);
}

template <>
struct EnumNames<LegacyWebcamShape> {
    static constexpr std::array<std::pair<LegacyWebcamShape, std::string_view>, 2> entries{{
        {LegacyWebcamShape::circle, "circle"},
        {LegacyWebcamShape::roundedRectangle, "rounded-rectangle"},
    }};
};

CanvasColorValue Codec<CanvasColorValue>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    return {reader.required<double>("red"), reader.required<double>("green"),
            reader.required<double>("blue")};
}

Json Codec<CanvasColorValue>::encode(const CanvasColorValue& value) {
    return ObjectBuilder().set("red", value.red).set("green", value.green).set("blue", value.blue).build();
}

CanvasBackgroundImage Codec<CanvasBackgroundImage>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    return {
        reader.required<std::string>("id"),          reader.required<std::string>("relativePath"),
        reader.required<PixelSize>("pixelSize"),     reader.required<CanvasBackgroundImageSource>("source"),
        reader.optional<std::string>("selectionID"),
    };
}

Json Codec<CanvasBackgroundImage>::encode(const CanvasBackgroundImage& value) {
    return ObjectBuilder()
        .set("id", value.id)
        .set("relativePath", value.relativePath)
        .set("pixelSize", value.pixelSize)
        .set("source", value.source)
        .setIfPresent("selectionID", value.selectionID)
        .build();
}

CanvasEdit Codec<CanvasEdit>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    CanvasEdit canvas;
    canvas.aspectRatio = reader.valueOr("aspectRatio", CanvasAspectRatio::landscape16x9);
    canvas.background = reader.valueOr("background", CanvasBackground::gradient);
    canvas.preset = reader.valueOr("preset", CanvasBackgroundPresets::defaultPreset(canvas.background));
    canvas.image = reader.optional<CanvasBackgroundImage>("image");
    canvas.padding = reader.valueOr("padding", CanvasEdit::defaultPadding);
    // A canvas stored before the radius was adjustable used the larger radius.
    canvas.cornerRadius = reader.valueOr("cornerRadius", CanvasEdit::legacyCornerRadius);
    return canvas;
}

Json Codec<CanvasEdit>::encode(const CanvasEdit& value) {
    return ObjectBuilder()
        .set("aspectRatio", value.aspectRatio)
        .set("background", value.background)
        .set("preset", value.preset)
        .setIfPresent("image", value.image)
        .set("padding", value.padding)
        .set("cornerRadius", value.cornerRadius)
        .build();
}

CursorEdit Codec<CursorEdit>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    const CursorEdit fallback = CursorEdit::defaultValue();
    return {
        reader.valueOr("isVisible", fallback.isVisible),
        reader.valueOr("scale", fallback.scale),
        reader.valueOr("showsClickEffect", fallback.showsClickEffect),
        reader.valueOr("clickEffectStyle", fallback.clickEffectStyle),
    };
}

Json Codec<CursorEdit>::encode(const CursorEdit& value) {
    return ObjectBuilder()
        .set("isVisible", value.isVisible)
        .set("scale", value.scale)
        .set("showsClickEffect", value.showsClickEffect)
        .set("clickEffectStyle", value.clickEffectStyle)
        .build();
}

WebcamOverlay Codec<WebcamOverlay>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    const auto isVisible = reader.required<bool>("isVisible");
    const auto center = reader.required<PointValue>("center");
    const auto diameter = reader.required<double>("diameter");
    const auto isMirrored = reader.required<bool>("isMirrored");

    WebcamAspectRatio aspectRatio = WebcamAspectRatio::square;
    double cornerRadius = 0.6;
    if (const auto stored = reader.optional<WebcamAspectRatio>("aspectRatio")) {
        aspectRatio = *stored;
        cornerRadius = reader.valueOr("cornerRadius", 0.6);
    } else {
        // Before aspect ratios the overlay was square, a circle or a rounded
        // rectangle, and the radius came from the shape alone.
        const auto shape = reader.valueOr("shape", LegacyWebcamShape::circle);
        cornerRadius = shape == LegacyWebcamShape::circle ? 1.0 : 0.6;
    }

    return {
        isVisible,
        center,
        diameter,
        isMirrored,
        aspectRatio,
        cornerRadius,
        reader.valueOr("showsBorder", true),
        reader.valueOr("borderWidthAt1080p", 10.0),
        reader.valueOr("showsShadow", true),
    };
}

Json Codec<WebcamOverlay>::encode(const WebcamOverlay& value) {
    return ObjectBuilder()
        .set("isVisible", value.isVisible)
        .set("center", value.center)
        .set("diameter", value.diameter)
        .set("isMirrored", value.isMirrored)
        .set("aspectRatio", value.aspectRatio)
        .set("cornerRadius", value.cornerRadius)
        .set("showsBorder", value.showsBorder)
        .set("borderWidthAt1080p", value.borderWidthAt1080p)
        .set("showsShadow", value.showsShadow)
        .build();
}

WebcamOverlayKeyframe Codec<WebcamOverlayKeyframe>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    return {
        idOrFresh(reader),
        reader.required<ProjectTime>("time"),
        reader.required<PointValue>("center"),
        reader.required<double>("diameter"),
    };
}

Json Codec<WebcamOverlayKeyframe>::encode(const WebcamOverlayKeyframe& value) {
    return ObjectBuilder()
        .set("id", value.id)
        .set("time", value.time)
        .set("center", value.center)
        .set("diameter", value.diameter)
        .build();
}

WebcamFullscreenSegment Codec<WebcamFullscreenSegment>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    return {
        idOrFresh(reader),
        reader.required<ProjectTime>("startTime"),
        reader.required<ProjectTime>("endTime"),
    };
}

Json Codec<WebcamFullscreenSegment>::encode(const WebcamFullscreenSegment& value) {
    return ObjectBuilder()
        .set("id", value.id)
        .set("startTime", value.startTime)
        .set("endTime", value.endTime)
        .build();
}

AudioTrackEdit Codec<AudioTrackEdit>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    return {reader.required<bool>("isMuted"), reader.required<double>("gainDecibels")};
}

Json Codec<AudioTrackEdit>::encode(const AudioTrackEdit& value) {
    return ObjectBuilder().set("isMuted", value.isMuted).set("gainDecibels", value.gainDecibels).build();
}

AudioMixEdit Codec<AudioMixEdit>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    return {reader.required<AudioTrackEdit>("systemAudio"), reader.required<AudioTrackEdit>("microphone")};
}

Json Codec<AudioMixEdit>::encode(const AudioMixEdit& value) {
    return ObjectBuilder().set("systemAudio", value.systemAudio).set("microphone", value.microphone).build();
}

ZoomSegment Codec<ZoomSegment>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    return {
        idOrFresh(reader),
        reader.required<ProjectTime>("startTime"),
        reader.required<ProjectTime>("focusTime"),
        reader.required<ProjectTime>("holdEndTime"),
        reader.required<ProjectTime>("endTime"),
        reader.required<PointValue>("focusPoint"),
        reader.required<double>("scale"),
    };
}

Json Codec<ZoomSegment>::encode(const ZoomSegment& value) {
    return ObjectBuilder()
        .set("id", value.id)
        .set("startTime", value.startTime)
        .set("focusTime", value.focusTime)
        .set("holdEndTime", value.holdEndTime)
        .set("endTime", value.endTime)
        .set("focusPoint", value.focusPoint)
        .set("scale", value.scale)
        .build();
}

AnnotationElement Codec<AnnotationElement>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    return {
        reader.required<Uuid>("id"),
        reader.required<ProjectTime>("startTime"),
        reader.required<ProjectTime>("endTime"),
        reader.required<AnnotationKind>("kind"),
        reader.optional<RectValue>("bounds"),
        reader.optional<PointValue>("startPoint"),
        reader.optional<PointValue>("endPoint"),
        reader.required<CanvasColorValue>("color"),
        reader.required<double>("lineWidth"),
        reader.required<std::int64_t>("zIndex"),
    };
}

Json Codec<AnnotationElement>::encode(const AnnotationElement& value) {
    return ObjectBuilder()
        .set("id", value.id)
        .set("startTime", value.startTime)
        .set("endTime", value.endTime)
        .set("kind", value.kind)
        .setIfPresent("bounds", value.bounds)
        .setIfPresent("startPoint", value.startPoint)
        .setIfPresent("endPoint", value.endPoint)
        .set("color", value.color)
        .set("lineWidth", value.lineWidth)
        .set("zIndex", value.zIndex)
        .build();
}

TimelineSegment Codec<TimelineSegment>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    return {
        reader.required<Uuid>("id"),
        reader.required<ProjectTimeRange>("sourceRange"),
        reader.valueOr("playbackRate", TimelinePlaybackRate::normal()),
    };
}

Json Codec<TimelineSegment>::encode(const TimelineSegment& value) {
    return ObjectBuilder()
        .set("id", value.id)
        .set("sourceRange", value.sourceRange)
        .set("playbackRate", value.playbackRate)
        .build();
}

DeviceFrameEdit Codec<DeviceFrameEdit>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    return {reader.required<bool>("isEnabled"), reader.required<std::string>("assetID")};
}

Json Codec<DeviceFrameEdit>::encode(const DeviceFrameEdit& value) {
    return ObjectBuilder().set("isEnabled", value.isEnabled).set("assetID", value.assetID).build();
}

EditTimeline Codec<EditTimeline>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    EditTimeline timeline;
    // A document without a version predates versioning.
    timeline.schemaVersion = reader.valueOr<std::int64_t>("schemaVersion", 1);
    timeline.segments = reader.valueOr("segments", std::vector<TimelineSegment>{});
    timeline.deviceFrame = reader.optional<DeviceFrameEdit>("deviceFrame");
    timeline.motionBlurAmount = reader.valueOr("motionBlurAmount", EditTimeline::defaultMotionBlurAmount);
    timeline.canvas = reader.valueOr("canvas", CanvasEdit::defaultValue());
    timeline.cursor = reader.valueOr("cursor", CursorEdit::defaultValue());
    timeline.webcamOverlay = reader.optional<WebcamOverlay>("webcamOverlay");
    timeline.webcamKeyframes = reader.valueOr("webcamKeyframes", std::vector<WebcamOverlayKeyframe>{});
    timeline.webcamFullscreenSegments =
        reader.valueOr("webcamFullscreenSegments", std::vector<WebcamFullscreenSegment>{});
    timeline.audioMix = reader.valueOr("audioMix", AudioMixEdit::defaultValue());
    timeline.zooms = reader.valueOr("zooms", std::vector<ZoomSegment>{});
    timeline.annotations = reader.valueOr("annotations", std::vector<AnnotationElement>{});
    return timeline;
}

Json Codec<EditTimeline>::encode(const EditTimeline& value) {
    return ObjectBuilder()
        .set("schemaVersion", value.schemaVersion)
        .set("segments", value.segments)
        .setIfPresent("deviceFrame", value.deviceFrame)
        .set("motionBlurAmount", value.motionBlurAmount)
        .set("canvas", value.canvas)
        .set("cursor", value.cursor)
        .setIfPresent("webcamOverlay", value.webcamOverlay)
        .set("webcamKeyframes", value.webcamKeyframes)
        .set("webcamFullscreenSegments", value.webcamFullscreenSegments)
        .set("audioMix", value.audioMix)
        .set("zooms", value.zooms)
        .set("annotations", value.annotations)
        .build();
}

} // namespace rilo::json

#include "project/document/CaptureSamples.h"

#include "shared/ValueCodecs.h"

namespace rilo {

PointValue GeometrySample::localPoint(PointValue globalPoint) const noexcept {
    return {globalPoint.x - globalWindowFrame.x, globalPoint.y - globalWindowFrame.y};
}

PointValue GeometrySample::normalizedPoint(PointValue globalPoint) const noexcept {
    const RectValue& frame = globalWindowFrame;
    if (!(frame.width > 0) || !(frame.height > 0)) {
        return {0, 0};
    }
    const PointValue unclamped{(globalPoint.x - frame.x) / frame.width,
                               (globalPoint.y - frame.y) / frame.height};
    return unclamped.clamped();
}

} // namespace rilo

namespace rilo::json {

MouseEvent Codec<MouseEvent>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    MouseEvent event;
    event.rawTimestampNanoseconds = reader.required<std::uint64_t>("rawTimestampNanoseconds");
    event.time = reader.required<ProjectTime>("time");
    event.globalPoint = reader.required<PointValue>("globalPoint");
    event.localPoint = reader.required<PointValue>("localPoint");
    event.normalizedPoint = reader.required<PointValue>("normalizedPoint");
    event.geometryRevision = reader.required<std::uint32_t>("geometryRevision");
    event.button = reader.required<MouseButton>("button");
    event.phase = reader.required<MousePhase>("phase");
    event.isInsideSource = reader.optional<bool>("isInsideSource");
    return event;
}

Json Codec<MouseEvent>::encode(const MouseEvent& value) {
    return ObjectBuilder()
        .set("rawTimestampNanoseconds", value.rawTimestampNanoseconds)
        .set("time", value.time)
        .set("globalPoint", value.globalPoint)
        .set("localPoint", value.localPoint)
        .set("normalizedPoint", value.normalizedPoint)
        .set("geometryRevision", value.geometryRevision)
        .set("button", value.button)
        .set("phase", value.phase)
        .setIfPresent("isInsideSource", value.isInsideSource)
        .build();
}

GeometrySample Codec<GeometrySample>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    GeometrySample sample;
    sample.time = reader.required<ProjectTime>("time");
    sample.revision = reader.required<std::uint32_t>("revision");
    sample.globalWindowFrame = reader.required<RectValue>("globalWindowFrame");
    sample.sourceContentSize = reader.required<SizeValue>("sourceContentSize");
    sample.encodedPixelSize = reader.required<PixelSize>("encodedPixelSize");
    sample.contentRectInEncodedFrame = reader.required<RectValue>("contentRectInEncodedFrame");
    sample.scaleFactor = reader.required<double>("scaleFactor");
    return sample;
}

Json Codec<GeometrySample>::encode(const GeometrySample& value) {
    return ObjectBuilder()
        .set("time", value.time)
        .set("revision", value.revision)
        .set("globalWindowFrame", value.globalWindowFrame)
        .set("sourceContentSize", value.sourceContentSize)
        .set("encodedPixelSize", value.encodedPixelSize)
        .set("contentRectInEncodedFrame", value.contentRectInEncodedFrame)
        .set("scaleFactor", value.scaleFactor)
        .build();
}

CursorShapeSample Codec<CursorShapeSample>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    return {reader.required<ProjectTime>("time"), reader.required<std::string>("assetID")};
}

Json Codec<CursorShapeSample>::encode(const CursorShapeSample& value) {
    return ObjectBuilder().set("time", value.time).set("assetID", value.assetID).build();
}

} // namespace rilo::json

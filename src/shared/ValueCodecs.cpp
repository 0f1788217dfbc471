#include "shared/ValueCodecs.h"

namespace rilo::json {

ProjectTime Codec<ProjectTime>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    return {reader.required<std::int64_t>("nanoseconds")};
}

Json Codec<ProjectTime>::encode(ProjectTime value) {
    return ObjectBuilder().set("nanoseconds", value.nanoseconds).build();
}

ProjectTimeRange Codec<ProjectTimeRange>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    return {reader.required<ProjectTime>("start"), reader.required<ProjectTime>("duration")};
}

Json Codec<ProjectTimeRange>::encode(const ProjectTimeRange& value) {
    return ObjectBuilder().set("start", value.start).set("duration", value.duration).build();
}

TimelinePlaybackRate Codec<TimelinePlaybackRate>::decode(const Json& value, const std::string& path) {
    const double multiplier = Codec<double>::decode(value, path);
    const auto rate = TimelinePlaybackRate::fromMultiplier(multiplier);
    if (!rate || !rate->isValid()) {
        throw DecodingError(std::string(invalidPlaybackRateMessage));
    }
    return *rate;
}

Json Codec<TimelinePlaybackRate>::encode(TimelinePlaybackRate value) {
    return value.multiplier();
}

PointValue Codec<PointValue>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    return {reader.required<double>("x"), reader.required<double>("y")};
}

Json Codec<PointValue>::encode(const PointValue& value) {
    return ObjectBuilder().set("x", value.x).set("y", value.y).build();
}

SizeValue Codec<SizeValue>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    return {reader.required<double>("width"), reader.required<double>("height")};
}

Json Codec<SizeValue>::encode(const SizeValue& value) {
    return ObjectBuilder().set("width", value.width).set("height", value.height).build();
}

RectValue Codec<RectValue>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    return {reader.required<double>("x"), reader.required<double>("y"), reader.required<double>("width"),
            reader.required<double>("height")};
}

Json Codec<RectValue>::encode(const RectValue& value) {
    return ObjectBuilder()
        .set("x", value.x)
        .set("y", value.y)
        .set("width", value.width)
        .set("height", value.height)
        .build();
}

PixelSize Codec<PixelSize>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    return PixelSize::unnormalized(reader.required<std::int64_t>("width"),
                                   reader.required<std::int64_t>("height"));
}

Json Codec<PixelSize>::encode(const PixelSize& value) {
    return ObjectBuilder().set("width", value.width).set("height", value.height).build();
}

Uuid Codec<Uuid>::decode(const Json& value, const std::string& path) {
    const auto text = Codec<std::string>::decode(value, path);
    if (const auto uuid = Uuid::parse(text)) {
        return *uuid;
    }
    throwTypeMismatch(path, "UUID");
}

IsoDate Codec<IsoDate>::decode(const Json& value, const std::string& path) {
    const auto text = Codec<std::string>::decode(value, path);
    if (const auto date = IsoDate::parse(text)) {
        return *date;
    }
    throwTypeMismatch(path, "ISO 8601日期");
}

} // namespace rilo::json

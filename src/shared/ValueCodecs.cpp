#include "shared/ValueCodecs.h"

namespace rilo::json {

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

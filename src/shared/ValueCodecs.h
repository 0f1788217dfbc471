#pragma once

// JSON forms of the shared value types. Every key is required.

#include "shared/Geometry.h"
#include "shared/IsoDate.h"
#include "shared/Json.h"
#include "shared/ProjectTime.h"
#include "shared/Uuid.h"

namespace rilo::json {

// The decoding failure of a playback rate outside 0.50...4.00 or off the 0.01 step.
inline constexpr std::string_view invalidPlaybackRateMessage =
    "播放倍率必须是0.50至4.00之间、步进0.01的有限数值。";

// A bare number, the multiplier.
template <>
struct Codec<TimelinePlaybackRate> {
    static TimelinePlaybackRate decode(const Json& value, const std::string& path);
    static Json encode(TimelinePlaybackRate value);
};

template <>
struct Codec<Uuid> {
    static Uuid decode(const Json& value, const std::string& path);
    static Json encode(const Uuid& value) { return value.string(); }
};

template <>
struct Codec<IsoDate> {
    static IsoDate decode(const Json& value, const std::string& path);
    static Json encode(const IsoDate& value) { return value.string(); }
};

} // namespace rilo::json

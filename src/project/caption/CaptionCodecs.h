#pragma once

// JSON form of the caption document and its members.
//
// Every style key has its default when missing, and a missing style is the
// default style; a cue without `words` or `highlights` has none. The other
// keys are required, except `language`, which is left out when absent.
// Decoding does not validate: callers pass the result through validated().

#include "project/caption/CaptionDocument.h"
#include "shared/ValueCodecs.h"

namespace rilo::json {

template <>
struct Codec<CaptionStyle> {
    static CaptionStyle decode(const Json& value, const std::string& path);
    static Json encode(const CaptionStyle& value);
};

template <>
struct Codec<CaptionWord> {
    static CaptionWord decode(const Json& value, const std::string& path);
    static Json encode(const CaptionWord& value);
};

template <>
struct Codec<CaptionHighlight> {
    static CaptionHighlight decode(const Json& value, const std::string& path);
    static Json encode(const CaptionHighlight& value);
};

template <>
struct Codec<CaptionCue> {
    static CaptionCue decode(const Json& value, const std::string& path);
    static Json encode(const CaptionCue& value);
};

template <>
struct Codec<CaptionDocument> {
    static CaptionDocument decode(const Json& value, const std::string& path);
    static Json encode(const CaptionDocument& value);
};

} // namespace rilo::json

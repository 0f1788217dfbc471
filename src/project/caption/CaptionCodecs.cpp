#include "project/caption/CaptionCodecs.h"

namespace rilo::json {

CaptionStyle Codec<CaptionStyle>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    const CaptionStyle defaults;
    CaptionStyle style;
    style.isEnabled = reader.valueOr("isEnabled", defaults.isEnabled);
    style.maximumLines = reader.valueOr("maximumLines", defaults.maximumLines);
    style.appearance = reader.valueOr("appearance", defaults.appearance);
    style.fontScale = reader.valueOr("fontScale", defaults.fontScale);
    style.bottomPosition = reader.valueOr("bottomPosition", defaults.bottomPosition);
    return style;
}

Json Codec<CaptionStyle>::encode(const CaptionStyle& style) {
    return ObjectBuilder()
        .set("isEnabled", style.isEnabled)
        .set("maximumLines", style.maximumLines)
        .set("appearance", style.appearance)
        .set("fontScale", style.fontScale)
        .set("bottomPosition", style.bottomPosition)
        .build();
}

CaptionWord Codec<CaptionWord>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    return {reader.required<ProjectTime>("start"), reader.required<ProjectTime>("end"),
            reader.required<std::string>("text")};
}

Json Codec<CaptionWord>::encode(const CaptionWord& word) {
    return ObjectBuilder().set("start", word.start).set("end", word.end).set("text", word.text).build();
}

CaptionHighlight Codec<CaptionHighlight>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    return {reader.required<std::string>("text"), reader.required<std::int64_t>("occurrence")};
}

Json Codec<CaptionHighlight>::encode(const CaptionHighlight& highlight) {
    return ObjectBuilder().set("text", highlight.text).set("occurrence", highlight.occurrence).build();
}

CaptionCue Codec<CaptionCue>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    CaptionCue cue;
    cue.id = reader.required<Uuid>("id");
    cue.start = reader.required<ProjectTime>("start");
    cue.end = reader.required<ProjectTime>("end");
    cue.text = reader.required<std::string>("text");
    cue.words = reader.valueOr("words", std::vector<CaptionWord>{});
    cue.highlights = reader.valueOr("highlights", std::vector<CaptionHighlight>{});
    return cue;
}

Json Codec<CaptionCue>::encode(const CaptionCue& cue) {
    return ObjectBuilder()
        .set("id", cue.id)
        .set("start", cue.start)
        .set("end", cue.end)
        .set("text", cue.text)
        .set("words", cue.words)
        .set("highlights", cue.highlights)
        .build();
}

CaptionDocument Codec<CaptionDocument>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    CaptionDocument document;
    document.schemaVersion = reader.required<std::int64_t>("schemaVersion");
    document.sourceTrack = reader.required<MediaTrackKind>("sourceTrack");
    document.sourceAudioDigest = reader.required<std::string>("sourceAudioDigest");
    document.basedOnTimelineDigest = reader.required<std::string>("basedOnTimelineDigest");
    document.language = reader.optional<std::string>("language");
    document.style = reader.valueOr("style", CaptionStyle{});
    document.cues = reader.required<std::vector<CaptionCue>>("cues");
    return document;
}

Json Codec<CaptionDocument>::encode(const CaptionDocument& document) {
    return ObjectBuilder()
        .set("schemaVersion", document.schemaVersion)
        .set("sourceTrack", document.sourceTrack)
        .set("sourceAudioDigest", document.sourceAudioDigest)
        .set("basedOnTimelineDigest", document.basedOnTimelineDigest)
        .setIfPresent("language", document.language)
        .set("style", document.style)
        .set("cues", document.cues)
        .build();
}

} // namespace rilo::json

#include "cli/CLIReadResponses.h"

#include "project/document/TimelineCodecs.h"

namespace rilo::json {

Json Codec<cli::CLISegmentDescription>::encode(const cli::CLISegmentDescription& value) {
    return ObjectBuilder()
        .set("id", value.id)
        .set("sourceStartMilliseconds", value.sourceStartMilliseconds)
        .set("sourceEndMilliseconds", value.sourceEndMilliseconds)
        .set("sequenceStartMilliseconds", value.sequenceStartMilliseconds)
        .set("sequenceEndMilliseconds", value.sequenceEndMilliseconds)
        .set("playbackRate", value.playbackRate)
        .build();
}

Json Codec<cli::CLIZoomDescription>::encode(const cli::CLIZoomDescription& value) {
    return ObjectBuilder()
        .set("index", value.index)
        .set("id", value.id)
        .set("sourceStartMilliseconds", value.sourceStartMilliseconds)
        .set("sourceEndMilliseconds", value.sourceEndMilliseconds)
        .set("focusX", value.focusX)
        .set("focusY", value.focusY)
        .set("scale", value.scale)
        .build();
}

Json Codec<cli::CLIProjectDescription>::encode(const cli::CLIProjectDescription& value) {
    Json tracks = Json::object();
    for (const auto& [name, present] : value.tracks) {
        tracks[name] = present;
    }
    Json object = ObjectBuilder()
                      .set("protocolVersion", value.protocolVersion)
                      .set("id", value.id)
                      .set("packagePath", value.packagePath)
                      .set("manifestVersion", value.manifestVersion)
                      .set("timelineSchema", value.timelineSchema)
                      .set("state", value.state)
                      .set("sourceWidth", value.sourceWidth)
                      .set("sourceHeight", value.sourceHeight)
                      .set("sourceDurationMilliseconds", value.sourceDurationMilliseconds)
                      .set("sequenceDurationMilliseconds", value.sequenceDurationMilliseconds)
                      .set("segments", value.segments)
                      .set("zooms", value.zooms)
                      .set("canvas", value.canvas)
                      .set("cursor", value.cursor)
                      .setIfPresent("webcam", value.webcam)
                      .set("audio", value.audio)
                      .set("clickMilliseconds", value.clickMilliseconds)
                      .set("captionCueCount", value.captionCueCount)
                      .setIfPresent("captionLanguage", value.captionLanguage)
                      .set("timelineDigest", value.timelineDigest)
                      .build();
    object["tracks"] = std::move(tracks);
    return object;
}

Json Codec<cli::CLITimelineSummary>::encode(const cli::CLITimelineSummary& value) {
    return ObjectBuilder()
        .set("sequenceDurationMilliseconds", value.sequenceDurationMilliseconds)
        .set("segmentCount", value.segmentCount)
        .set("speedSegmentCount", value.speedSegmentCount)
        .set("zoomCount", value.zoomCount)
        .set("canvas", value.canvas)
        .set("cursor", value.cursor)
        .setIfPresent("webcam", value.webcam)
        .set("audio", value.audio)
        .build();
}

Json Codec<cli::CLIHistoryEntry>::encode(const cli::CLIHistoryEntry& value) {
    return ObjectBuilder()
        .set("index", value.index)
        .set("fileName", value.fileName)
        .set("timelineDigest", value.timelineDigest)
        .build();
}

Json Codec<cli::CLIHistoryResponse>::encode(const cli::CLIHistoryResponse& value) {
    return ObjectBuilder()
        .set("protocolVersion", value.protocolVersion)
        .set("projectID", value.projectID)
        .set("entries", value.entries)
        .build();
}

Json Codec<cli::CLICaptionWordDescription>::encode(const cli::CLICaptionWordDescription& value) {
    return ObjectBuilder()
        .set("startMilliseconds", value.startMilliseconds)
        .set("endMilliseconds", value.endMilliseconds)
        .set("text", value.text)
        .build();
}

Json Codec<cli::CLICaptionHighlightDescription>::encode(const cli::CLICaptionHighlightDescription& value) {
    return ObjectBuilder().set("text", value.text).set("occurrence", value.occurrence).build();
}

Json Codec<cli::CLICaptionCueDescription>::encode(const cli::CLICaptionCueDescription& value) {
    return ObjectBuilder()
        .set("id", value.id)
        .set("sourceStartMilliseconds", value.sourceStartMilliseconds)
        .set("sourceEndMilliseconds", value.sourceEndMilliseconds)
        .set("sequenceRanges", value.sequenceRanges)
        .set("text", value.text)
        .set("words", value.words)
        .set("highlights", value.highlights)
        .build();
}

Json Codec<cli::CLICaptionReadResponse>::encode(const cli::CLICaptionReadResponse& value) {
    return ObjectBuilder()
        .set("protocolVersion", value.protocolVersion)
        .set("projectID", value.projectID)
        .set("timeDomain", value.timeDomain)
        .set("timelineDigest", value.timelineDigest)
        .set("captionsDigest", value.captionsDigest)
        .setIfPresent("language", value.language)
        .setIfPresent("sourceTrack", value.sourceTrack)
        .set("cues", value.cues)
        .setIfPresent("hint", value.hint)
        .build();
}

Json Codec<cli::CLISystemInfoResponse>::encode(const cli::CLISystemInfoResponse& value) {
    return ObjectBuilder()
        .set("protocolVersion", value.protocolVersion)
        .set("architecture", value.architecture)
        .set("chip", value.chip)
        .set("logicalCoreCount", value.logicalCoreCount)
        .set("memoryBytes", value.memoryBytes)
        .set("operatingSystemVersion", value.operatingSystemVersion)
        .set("supportsMetal", value.supportsMetal)
        .set("availableDiskBytes", value.availableDiskBytes)
        .set("privacyNote", value.privacyNote)
        .build();
}

Json Codec<cli::CLIOutputResponse>::encode(const cli::CLIOutputResponse& value) {
    return ObjectBuilder()
        .set("protocolVersion", value.protocolVersion)
        .set("projectID", value.projectID)
        .set("outputPath", value.outputPath)
        .build();
}

Json Codec<cli::CLISpanDescription>::encode(const cli::CLISpanDescription& value) {
    return ObjectBuilder()
        .set("sourceStartMilliseconds", value.sourceStartMilliseconds)
        .set("sourceEndMilliseconds", value.sourceEndMilliseconds)
        .set("sequenceRanges", value.sequenceRanges)
        .build();
}

Json Codec<cli::CLIIdleResponse>::encode(const cli::CLIIdleResponse& value) {
    return ObjectBuilder()
        .set("protocolVersion", value.protocolVersion)
        .set("projectID", value.projectID)
        .set("unit", value.unit)
        .set("analyzedTrack", value.analyzedTrack)
        .set("analysisMethod", value.analysisMethod)
        .set("bucketMilliseconds", value.bucketMilliseconds)
        .set("minimumDurationMilliseconds", value.minimumDurationMilliseconds)
        .set("silenceThresholdDecibels", value.silenceThresholdDecibels)
        .set("estimatedNoiseFloorDecibels", value.estimatedNoiseFloorDecibels)
        .set("recommendedSilenceDecibels", value.recommendedSilenceDecibels)
        .set("keepTailMilliseconds", value.keepTailMilliseconds)
        .set("minimumRemovalMilliseconds", value.minimumRemovalMilliseconds)
        .set("recommendedCuts", value.recommendedCuts)
        .set("idleSpans", value.idleSpans)
        .set("silenceSpans", value.silenceSpans)
        .set("quietSpans", value.quietSpans)
        .set("suggestedRate", value.suggestedRate)
        .set("hint", value.hint)
        .build();
}

} // namespace rilo::json

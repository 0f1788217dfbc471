#pragma once

// The answers of captions-prepare and captions-import.

#include "cli/CLIRange.h"
#include "cli/exchange/CaptionExchange.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace rilo::cli {

struct CLICaptionPreparationResponse {
    std::int64_t protocolVersion = captionExchangeProtocolVersion;
    std::string projectID;
    std::string jobID;
    std::string audioPath;
    std::string resultPath;
    std::string sourceTrack; // the track's raw name
    std::string timeDomain = "source milliseconds";
    std::string timelineDigest;
    CaptionExchangeDocument captionFormatExample;
    std::vector<std::string> instructions;
};

struct CLICaptionTimingAdjustmentDescription {
    std::int64_t cueIndex = 0;
    CLIRange originalRange;
    CLIRange adjustedRange;
    std::string action; // "aligned", "unchanged-already-tight" or "unchanged-no-activity"

    friend bool operator==(const CLICaptionTimingAdjustmentDescription&,
                           const CLICaptionTimingAdjustmentDescription&) = default;
};

struct CLICaptionAudioAlignmentDescription {
    std::string analyzedTrack;
    std::string analysisMethod = "adaptive-peak-dBFS";
    std::int64_t bucketMilliseconds = 20;
    double estimatedNoiseFloorDecibels = 0;
    double activityThresholdDecibels = 0;
    std::vector<CLICaptionTimingAdjustmentDescription> adjustments;
};

struct CLICaptionImportResponse {
    bool applied = false;
    std::string projectID;
    std::int64_t cueCount = 0;
    std::int64_t wordTimingCount = 0;
    std::int64_t highlightedCueCount = 0;
    std::int64_t highlightCount = 0;
    std::string timelineDigest;
    std::string captionsDigest;
    std::optional<std::string> resultingDigest; // only when applied
    std::optional<CLICaptionAudioAlignmentDescription> audioAlignment;
    std::vector<std::string> warnings;
    // Only in a preview: the arguments that confirm it.
    std::optional<std::vector<std::string>> confirmationArguments;
};

} // namespace rilo::cli

namespace rilo::json {

template <>
struct RecordFields<cli::CLICaptionPreparationResponse> {
    static constexpr auto fields = std::tuple{
        field("protocolVersion", &cli::CLICaptionPreparationResponse::protocolVersion),
        field("projectID", &cli::CLICaptionPreparationResponse::projectID),
        field("jobID", &cli::CLICaptionPreparationResponse::jobID),
        field("audioPath", &cli::CLICaptionPreparationResponse::audioPath),
        field("resultPath", &cli::CLICaptionPreparationResponse::resultPath),
        field("sourceTrack", &cli::CLICaptionPreparationResponse::sourceTrack),
        field("timeDomain", &cli::CLICaptionPreparationResponse::timeDomain),
        field("timelineDigest", &cli::CLICaptionPreparationResponse::timelineDigest),
        field("captionFormatExample", &cli::CLICaptionPreparationResponse::captionFormatExample),
        field("instructions", &cli::CLICaptionPreparationResponse::instructions),
    };
};

template <>
struct RecordFields<cli::CLICaptionTimingAdjustmentDescription> {
    static constexpr auto fields = std::tuple{
        field("cueIndex", &cli::CLICaptionTimingAdjustmentDescription::cueIndex),
        field("originalRange", &cli::CLICaptionTimingAdjustmentDescription::originalRange),
        field("adjustedRange", &cli::CLICaptionTimingAdjustmentDescription::adjustedRange),
        field("action", &cli::CLICaptionTimingAdjustmentDescription::action),
    };
};

template <>
struct RecordFields<cli::CLICaptionAudioAlignmentDescription> {
    static constexpr auto fields = std::tuple{
        field("analyzedTrack", &cli::CLICaptionAudioAlignmentDescription::analyzedTrack),
        field("analysisMethod", &cli::CLICaptionAudioAlignmentDescription::analysisMethod),
        field("bucketMilliseconds", &cli::CLICaptionAudioAlignmentDescription::bucketMilliseconds),
        field("estimatedNoiseFloorDecibels",
              &cli::CLICaptionAudioAlignmentDescription::estimatedNoiseFloorDecibels),
        field("activityThresholdDecibels",
              &cli::CLICaptionAudioAlignmentDescription::activityThresholdDecibels),
        field("adjustments", &cli::CLICaptionAudioAlignmentDescription::adjustments),
    };
};

template <>
struct Codec<cli::CLICaptionImportResponse> {
    static Json encode(const cli::CLICaptionImportResponse& response);
};

} // namespace rilo::json

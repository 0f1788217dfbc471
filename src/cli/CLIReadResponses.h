#pragma once

// What the read commands answer with. Every time is in whole milliseconds
// (ProjectTime::cliMilliseconds); optional members are left out when absent.

#include "cli/CLIRange.h"
#include "cli/CLIResponses.h"
#include "project/document/CanvasEdit.h"
#include "project/document/TimelineEffects.h"
#include "project/document/WebcamOverlay.h"
#include "shared/Json.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace rilo::cli {

// One kept segment on both time axes.
struct CLISegmentDescription {
    std::string id;
    std::int64_t sourceStartMilliseconds = 0;
    std::int64_t sourceEndMilliseconds = 0;
    std::int64_t sequenceStartMilliseconds = 0;
    std::int64_t sequenceEndMilliseconds = 0;
    double playbackRate = 1; // the multiplier

    friend bool operator==(const CLISegmentDescription&, const CLISegmentDescription&) = default;
};

// One zoom; `index` is its position in the timeline's zooms, the number that
// `zoom-rm --index` takes. Start and end are source times.
struct CLIZoomDescription {
    std::int64_t index = 0;
    std::string id;
    std::int64_t sourceStartMilliseconds = 0;
    std::int64_t sourceEndMilliseconds = 0;
    double focusX = 0.5;
    double focusY = 0.5;
    double scale = 1;

    friend bool operator==(const CLIZoomDescription&, const CLIZoomDescription&) = default;
};

// The response of `describe`.
struct CLIProjectDescription {
    std::int64_t protocolVersion = cliProtocolVersion;
    std::string id;
    std::string packagePath;
    std::int64_t manifestVersion = 0;
    std::int64_t timelineSchema = 0;
    std::string state;
    std::int64_t sourceWidth = 0;
    std::int64_t sourceHeight = 0;
    std::int64_t sourceDurationMilliseconds = 0;
    std::int64_t sequenceDurationMilliseconds = 0;
    std::vector<CLISegmentDescription> segments;
    std::vector<CLIZoomDescription> zooms;
    CanvasEdit canvas;
    CursorEdit cursor;
    std::optional<WebcamOverlay> webcam;
    AudioMixEdit audio;
    // "screen", "webcam", "systemAudio", "microphone": whether the project has it.
    std::map<std::string, bool> tracks;
    // Source time of each left press inside the source.
    std::vector<std::int64_t> clickMilliseconds;
    std::int64_t captionCueCount = 0;
    std::optional<std::string> captionLanguage;
    std::string timelineDigest;

    friend bool operator==(const CLIProjectDescription&, const CLIProjectDescription&) = default;
};

// The timeline in brief, as the change commands show it before and after.
struct CLITimelineSummary {
    std::int64_t sequenceDurationMilliseconds = 0;
    std::int64_t segmentCount = 0;
    std::int64_t speedSegmentCount = 0; // segments not at normal speed
    std::int64_t zoomCount = 0;
    CanvasEdit canvas;
    CursorEdit cursor;
    std::optional<WebcamOverlay> webcam;
    AudioMixEdit audio;

    friend bool operator==(const CLITimelineSummary&, const CLITimelineSummary&) = default;
};

struct CLIHistoryEntry {
    std::int64_t index = 0; // 0 is the latest entry; what `restore --index` takes
    std::string fileName;
    std::string timelineDigest;

    friend bool operator==(const CLIHistoryEntry&, const CLIHistoryEntry&) = default;
};

// The response of `history`.
struct CLIHistoryResponse {
    std::int64_t protocolVersion = cliProtocolVersion;
    std::string projectID;
    std::vector<CLIHistoryEntry> entries;

    friend bool operator==(const CLIHistoryResponse&, const CLIHistoryResponse&) = default;
};

struct CLICaptionWordDescription {
    std::int64_t startMilliseconds = 0;
    std::int64_t endMilliseconds = 0;
    std::string text;

    friend bool operator==(const CLICaptionWordDescription&, const CLICaptionWordDescription&) = default;
};

struct CLICaptionHighlightDescription {
    std::string text;
    std::int64_t occurrence = 1;

    friend bool operator==(const CLICaptionHighlightDescription&,
                           const CLICaptionHighlightDescription&) = default;
};

// One cue in source time, and where it stays visible after the cuts (empty
// when it was cut away).
struct CLICaptionCueDescription {
    std::string id;
    std::int64_t sourceStartMilliseconds = 0;
    std::int64_t sourceEndMilliseconds = 0;
    std::vector<CLIRange> sequenceRanges;
    std::string text;
    std::vector<CLICaptionWordDescription> words;
    std::vector<CLICaptionHighlightDescription> highlights;

    friend bool operator==(const CLICaptionCueDescription&, const CLICaptionCueDescription&) = default;
};

inline constexpr std::string_view captionTimeDomain = "source milliseconds";
inline constexpr std::string_view missingCaptionsHint = "当前项目没有字幕，请先执行captions-prepare。";

// The response of `captions-read`.
struct CLICaptionReadResponse {
    std::int64_t protocolVersion = cliProtocolVersion;
    std::string projectID;
    std::string timeDomain{captionTimeDomain};
    std::string timelineDigest;
    std::string captionsDigest; // of no bytes without captions
    std::optional<std::string> language;
    std::optional<std::string> sourceTrack;
    std::vector<CLICaptionCueDescription> cues;
    std::optional<std::string> hint; // only without captions

    friend bool operator==(const CLICaptionReadResponse&, const CLICaptionReadResponse&) = default;
};

inline constexpr std::string_view systemInfoPrivacyNote =
    "不包含序列号、硬件UUID、用户名或文件列表；安装工具或下载模型前必须展示具体方案并获得用户明确确认。";

// The response of `system-info`. A text the system does not give is "unknown".
struct CLISystemInfoResponse {
    std::int64_t protocolVersion = cliProtocolVersion;
    std::string architecture;
    std::string chip;
    std::int64_t logicalCoreCount = 0;
    std::uint64_t memoryBytes = 0;
    std::string operatingSystemVersion;
    bool supportsMetal = false; // whether a GPU rendering device can be had
    std::int64_t availableDiskBytes = 0;
    std::string privacyNote{systemInfoPrivacyNote};

    friend bool operator==(const CLISystemInfoResponse&, const CLISystemInfoResponse&) = default;
};

// A span of source time, and where it lands in the edited sequence: one
// range for each kept piece, none when it lies in removed material.
struct CLISpanDescription {
    std::int64_t sourceStartMilliseconds = 0;
    std::int64_t sourceEndMilliseconds = 0;
    std::vector<CLIRange> sequenceRanges;

    friend bool operator==(const CLISpanDescription&, const CLISpanDescription&) = default;
};

inline constexpr std::string_view idleTimeUnit = "source milliseconds";
inline constexpr std::string_view idleAnalysisMethod = "peak-dBFS";
inline constexpr std::string_view idleHint =
    "有声桶不会并入静默；recommendedCuts只来自无声且无鼠标操作的quietSpans；修改前仍必须预演。";

// The response of `idle`. The spans describe the whole recording; the
// recommended cuts only material that the edit still keeps.
struct CLIIdleResponse {
    std::int64_t protocolVersion = cliProtocolVersion;
    std::string projectID;
    std::string unit{idleTimeUnit};
    std::string analyzedTrack; // "microphone" or "system-audio"
    std::string analysisMethod{idleAnalysisMethod};
    std::int64_t bucketMilliseconds = 20;
    std::int64_t minimumDurationMilliseconds = 0;
    double silenceThresholdDecibels = 0; // as given
    double estimatedNoiseFloorDecibels = 0;
    double recommendedSilenceDecibels = 0;
    std::int64_t keepTailMilliseconds = 0;
    std::int64_t minimumRemovalMilliseconds = 0;
    std::vector<CLIRange> recommendedCuts;
    std::vector<CLISpanDescription> idleSpans;
    std::vector<CLISpanDescription> silenceSpans;
    std::vector<CLISpanDescription> quietSpans;
    std::int64_t suggestedRate = 3; // a fixed offer for a caller who would rather speed up than cut
    std::string hint{idleHint};

    friend bool operator==(const CLIIdleResponse&, const CLIIdleResponse&) = default;
};

// The response of `frame`, `preview` and `export`.
struct CLIOutputResponse {
    std::int64_t protocolVersion = cliProtocolVersion;
    std::string projectID;
    std::string outputPath;

    friend bool operator==(const CLIOutputResponse&, const CLIOutputResponse&) = default;
};

} // namespace rilo::cli

namespace rilo::json {

#define RILO_DECLARE_ENCODER(Type)                                                                           \
    template <>                                                                                              \
    struct Codec<Type> {                                                                                     \
        static Json encode(const Type& value);                                                               \
    }

RILO_DECLARE_ENCODER(cli::CLISegmentDescription);
RILO_DECLARE_ENCODER(cli::CLIZoomDescription);
RILO_DECLARE_ENCODER(cli::CLIProjectDescription);
RILO_DECLARE_ENCODER(cli::CLITimelineSummary);
RILO_DECLARE_ENCODER(cli::CLIHistoryEntry);
RILO_DECLARE_ENCODER(cli::CLIHistoryResponse);
RILO_DECLARE_ENCODER(cli::CLICaptionWordDescription);
RILO_DECLARE_ENCODER(cli::CLICaptionHighlightDescription);
RILO_DECLARE_ENCODER(cli::CLICaptionCueDescription);
RILO_DECLARE_ENCODER(cli::CLICaptionReadResponse);
RILO_DECLARE_ENCODER(cli::CLISystemInfoResponse);
RILO_DECLARE_ENCODER(cli::CLIOutputResponse);
RILO_DECLARE_ENCODER(cli::CLISpanDescription);
RILO_DECLARE_ENCODER(cli::CLIIdleResponse);

#undef RILO_DECLARE_ENCODER

} // namespace rilo::json

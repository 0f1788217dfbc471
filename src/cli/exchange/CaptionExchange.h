#pragma once

// The caption exchange with an agent that transcribes outside the program.
// captions-prepare writes a job directory under "AgentExchange" (beside the
// project library) holding "source.wav", the audio to transcribe, and
// "job.json"; the agent writes "captions.json", cues in source milliseconds;
// captions-import turns that into a caption document. The job binds the
// result to one audio file and one timeline.
//
// Everything here is a value or a pure function, except the exchange file
// helpers, which refuse anything that could lead out of the exchange
// directory and throw CaptionExchangeError.

#include "project/caption/CaptionDocument.h"
#include "project/document/MediaTrackKind.h"
#include "shared/IsoDate.h"
#include "shared/ValueCodecs.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace rilo::cli {

inline constexpr std::int64_t captionExchangeProtocolVersion = 1;

// "job.json", written by the program.
struct CaptionExchangeJob {
    std::int64_t protocolVersion = captionExchangeProtocolVersion;
    Uuid id;
    Uuid projectID;
    MediaTrackKind sourceTrack = MediaTrackKind::microphone;
    std::string sourceAudioDigest; // of "source.wav"
    std::string timelineDigest;    // at preparation
    std::int64_t sourceDurationMilliseconds = 0;
    IsoDate createdAt;

    friend bool operator==(const CaptionExchangeJob&, const CaptionExchangeJob&) = default;
};

struct CaptionExchangeWord {
    std::int64_t startMilliseconds = 0;
    std::int64_t endMilliseconds = 0;
    std::string text;

    friend bool operator==(const CaptionExchangeWord&, const CaptionExchangeWord&) = default;
};

struct CaptionExchangeHighlight {
    std::string text;
    std::optional<std::int64_t> occurrence; // absent means 1

    friend bool operator==(const CaptionExchangeHighlight&, const CaptionExchangeHighlight&) = default;
};

struct CaptionExchangeCue {
    std::int64_t startMilliseconds = 0;
    std::int64_t endMilliseconds = 0;
    std::string text;
    std::optional<std::vector<CaptionExchangeWord>> words;
    std::optional<std::vector<CaptionExchangeHighlight>> highlights;

    friend bool operator==(const CaptionExchangeCue&, const CaptionExchangeCue&) = default;
};

// "captions.json", written by the agent.
struct CaptionExchangeDocument {
    std::int64_t protocolVersion = captionExchangeProtocolVersion;
    Uuid jobID;
    Uuid projectID;
    std::string sourceAudioDigest; // copied from the job
    std::optional<std::string> language;
    std::vector<CaptionExchangeCue> cues;

    // The caption document of these cues: each with a new id, its times in
    // nanoseconds, its text normalised (normalizedCueText) and its words and
    // highlights in simplified script where the language asks for it; the
    // style passed in, or the default one. Throws
    // CaptionValidationError::staleAudio when the version, ids or audio
    // digest are not the job's, and invalidCue when a time overflows. Does
    // not validate: the caller passes the result through validated().
    CaptionDocument captionDocument(const CaptionExchangeJob& job,
                                    const std::optional<CaptionStyle>& preserving) const;

    // Whether a language tag asks for simplified Chinese: "zh", "zh-cn",
    // "zh-sg" or anything beginning with "zh-hans", in any case.
    static bool simplifiesChinese(const std::optional<std::string>& language);
    // The text in simplified letter forms for such a language, through ICU's
    // deterministic "Traditional-Simplified" transform; otherwise, or when
    // the transform gives nothing, the text as it is.
    static std::string normalizedScript(std::string_view text, const std::optional<std::string>& language);
    // Trimmed, without one closing "。" or single "." (an ellipsis "..." stays),
    // also behind closing quotation marks and brackets, which stay; then
    // normalizedScript.
    static std::string normalizedCueText(std::string_view text, const std::optional<std::string>& language);

    friend bool operator==(const CaptionExchangeDocument&, const CaptionExchangeDocument&) = default;
};

namespace CaptionExchange {

inline constexpr std::string_view audioFileName = "source.wav";
inline constexpr std::string_view jobFileName = "job.json";
inline constexpr std::string_view resultFileName = "captions.json";
inline constexpr std::size_t maximumJobBytes = 65'536;
inline constexpr std::size_t maximumResultBytes = 67'108'864;

// The parent of the projects directory, plus "AgentExchange".
std::filesystem::path exchangeRootDirectory(const std::filesystem::path& projectsDirectory);
// The directory of a job: its id in upper case under the exchange directory.
std::filesystem::path jobDirectory(const std::filesystem::path& exchangeRoot, const Uuid& jobID);

// Creates the directory of a new job and returns it. The exchange directory
// is created when missing; an existing one must be a real directory that
// resolves to itself, and the job's directory must not exist yet; otherwise
// invalidDocument.
std::filesystem::path createJobDirectory(const std::filesystem::path& exchangeRoot, const Uuid& jobID);

// Checks that a file of a job directory can be taken: its directory resolves
// to itself directly inside the exchange directory, and it is a regular file
// and no symbolic link; otherwise invalidDocument.
void checkExchangeFile(const std::filesystem::path& file, const std::filesystem::path& exchangeRoot);
// The bytes of such a file; documentTooLarge when it has, or reads, more
// than maximumBytes.
std::string readExchangeData(const std::filesystem::path& file, const std::filesystem::path& exchangeRoot,
                             std::size_t maximumBytes);

// The job, or the result document, decoded; invalidDocument when the bytes
// do not decode.
CaptionExchangeJob decodeJob(std::string_view bytes);
CaptionExchangeDocument decodeDocument(std::string_view bytes);

// The example result handed to the agent: the job's ids and one cue of
// "替换为转录文本" over the first second (or the whole of a shorter source).
CaptionExchangeDocument exampleDocument(const CaptionExchangeJob& job);

// What the agent is told, in order.
std::vector<std::string> instructions();

} // namespace CaptionExchange

} // namespace rilo::cli

namespace rilo::json {

template <>
struct RecordFields<cli::CaptionExchangeJob> {
    static constexpr auto fields = std::tuple{
        field("protocolVersion", &cli::CaptionExchangeJob::protocolVersion),
        field("id", &cli::CaptionExchangeJob::id),
        field("projectID", &cli::CaptionExchangeJob::projectID),
        field("sourceTrack", &cli::CaptionExchangeJob::sourceTrack),
        field("sourceAudioDigest", &cli::CaptionExchangeJob::sourceAudioDigest),
        field("timelineDigest", &cli::CaptionExchangeJob::timelineDigest),
        field("sourceDurationMilliseconds", &cli::CaptionExchangeJob::sourceDurationMilliseconds),
        field("createdAt", &cli::CaptionExchangeJob::createdAt),
    };
};

template <>
struct RecordFields<cli::CaptionExchangeWord> {
    static constexpr auto fields = std::tuple{
        field("startMilliseconds", &cli::CaptionExchangeWord::startMilliseconds),
        field("endMilliseconds", &cli::CaptionExchangeWord::endMilliseconds),
        field("text", &cli::CaptionExchangeWord::text),
    };
};

template <>
struct RecordFields<cli::CaptionExchangeHighlight> {
    static constexpr auto fields = std::tuple{
        field("text", &cli::CaptionExchangeHighlight::text),
        field("occurrence", &cli::CaptionExchangeHighlight::occurrence),
    };
};

template <>
struct RecordFields<cli::CaptionExchangeCue> {
    static constexpr auto fields = std::tuple{
        field("startMilliseconds", &cli::CaptionExchangeCue::startMilliseconds),
        field("endMilliseconds", &cli::CaptionExchangeCue::endMilliseconds),
        field("text", &cli::CaptionExchangeCue::text),
        field("words", &cli::CaptionExchangeCue::words),
        field("highlights", &cli::CaptionExchangeCue::highlights),
    };
};

template <>
struct RecordFields<cli::CaptionExchangeDocument> {
    static constexpr auto fields = std::tuple{
        field("protocolVersion", &cli::CaptionExchangeDocument::protocolVersion),
        field("jobID", &cli::CaptionExchangeDocument::jobID),
        field("projectID", &cli::CaptionExchangeDocument::projectID),
        field("sourceAudioDigest", &cli::CaptionExchangeDocument::sourceAudioDigest),
        field("language", &cli::CaptionExchangeDocument::language),
        field("cues", &cli::CaptionExchangeDocument::cues),
    };
};

} // namespace rilo::json

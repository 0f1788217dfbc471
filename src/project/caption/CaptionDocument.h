#pragma once

// The caption document (edits/captions.json): the subtitles of a project as
// cues in source time, so that they survive speed changes. A document is bound
// to the audio its cues were transcribed from (sourceAudioDigest) and to the
// timeline they were made for (basedOnTimelineDigest).
//
// validated() is the one normaliser that every writer passes through: it
// either returns a clean copy or throws CaptionValidationError and leaves the
// document as it was.
//
// Texts are UTF-8. Lengths of cue texts are counted in user-perceived
// characters (grapheme clusters); positions inside a text are byte offsets.

#include "project/caption/CaptionValidationError.h"
#include "project/document/MediaTrackKind.h"
#include "shared/ProjectTime.h"
#include "shared/Uuid.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace rilo {

inline constexpr std::int64_t currentCaptionSchemaVersion = 1;
inline constexpr std::size_t maximumCaptionCueCount = 100'000;
inline constexpr std::size_t maximumCaptionCueCharacters = 2000;
inline constexpr std::size_t maximumCaptionHighlightsPerCue = 8;

enum class CaptionAppearance { whiteOnBlack, whiteWithBlackOutline, blackWithWhiteOutline };

struct CaptionStyle {
    bool isEnabled = true;
    std::int64_t maximumLines = 2;
    CaptionAppearance appearance = CaptionAppearance::whiteOnBlack;
    double fontScale = 1.0;
    double bottomPosition = 0.08;

    // maximumLines clamped to 1...2; fontScale to 0.6...1.2 and bottomPosition
    // to 0...1, both then rounded to 0.01.
    CaptionStyle normalized() const;

    friend bool operator==(const CaptionStyle&, const CaptionStyle&) = default;
};

struct CaptionWord {
    ProjectTime start; // source time
    ProjectTime end;
    std::string text;

    friend bool operator==(const CaptionWord&, const CaptionWord&) = default;
};

// A keyword of a cue, named by its text and by which literal occurrence of
// that text in the cue it is (from 1).
struct CaptionHighlight {
    std::string text;
    std::int64_t occurrence = 1;

    // The highlight of a selection of `text` given in bytes. None for an empty
    // selection, one outside the text or off a character boundary, or one
    // that the occurrence count cannot reach (inside an earlier match).
    static std::optional<CaptionHighlight> fromRange(std::size_t offset, std::size_t length,
                                                     std::string_view text);

    struct ByteRange {
        std::size_t offset = 0;
        std::size_t length = 0;
        friend bool operator==(const ByteRange&, const ByteRange&) = default;
    };
    // Where this highlight lies in `cueText`: the occurrence-th literal match,
    // each search starting at the end of the previous match. None when the
    // occurrence is below 1, either text is empty or there are too few matches.
    std::optional<ByteRange> matchedRange(std::string_view cueText) const;

    friend bool operator==(const CaptionHighlight&, const CaptionHighlight&) = default;
};

struct CaptionCue {
    Uuid id;
    ProjectTime start; // source time
    ProjectTime end;
    std::string text;
    std::vector<CaptionWord> words;
    std::vector<CaptionHighlight> highlights;

    friend bool operator==(const CaptionCue&, const CaptionCue&) = default;
};

struct CaptionDocument {
    std::int64_t schemaVersion = currentCaptionSchemaVersion;
    MediaTrackKind sourceTrack = MediaTrackKind::microphone; // never screen
    std::string sourceAudioDigest;
    std::string basedOnTimelineDigest;
    std::optional<std::string> language; // a tag such as "zh-Hans"
    CaptionStyle style;
    std::vector<CaptionCue> cues; // sorted by start, not overlapping

    // A copy with trimmed texts, the normalised style and each cue's
    // highlights sorted by position; throws CaptionValidationError at the
    // first rule broken.
    CaptionDocument validated(ProjectTime sourceDuration) const;

    // The highlights of a cue whose trimmed text is `cueText`, sorted by
    // position; throws CaptionValidationError::invalidHighlight unless there
    // are at most eight, each is a trimmed text with a letter, mark or digit
    // that is found in the cue without covering all of it, and no two overlap.
    static std::vector<CaptionHighlight> validatedHighlights(const std::vector<CaptionHighlight>& highlights,
                                                             std::string_view cueText);

    friend bool operator==(const CaptionDocument&, const CaptionDocument&) = default;
};

// The text without the Unicode white space and line breaks around it.
std::string_view trimmedCaptionText(std::string_view text);

// The number of user-perceived characters: a composed emoji counts once.
std::size_t captionCharacterCount(std::string_view text);

} // namespace rilo

namespace rilo::json {

template <>
struct EnumNames<CaptionAppearance> {
    static constexpr std::array<std::pair<CaptionAppearance, std::string_view>, 3> entries{{
        {CaptionAppearance::whiteOnBlack, "white-on-black"},
        {CaptionAppearance::whiteWithBlackOutline, "white-black-outline"},
        {CaptionAppearance::blackWithWhiteOutline, "black-white-outline"},
    }};
};

} // namespace rilo::json

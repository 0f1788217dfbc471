#include "project/caption/CaptionDocument.h"

#include "shared/Checked.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <set>
#include <stdexcept>
#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

namespace rilo {

namespace {

// ICU's UTF-8 macros count in 32-bit offsets; no caption text comes near that.
std::int32_t utf8Length(std::string_view text) {
    return static_cast<std::int32_t>(std::min<std::size_t>(text.size(), INT32_MAX));
}

// Walks the code points of UTF-8 text; an ill-formed sequence gives a
// negative code point, which is neither white space nor alphanumeric.
template <class Visit>
void forEachCodePoint(std::string_view text, Visit visit) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    const std::int32_t length = utf8Length(text);
    std::int32_t offset = 0;
    while (offset < length) {
        UChar32 codePoint = 0;
        U8_NEXT(bytes, offset, length, codePoint);
        if (!visit(codePoint)) {
            return;
        }
    }
}

bool isWhiteSpaceOrNewline(UChar32 codePoint) {
    return codePoint >= 0 && u_isUWhiteSpace(codePoint);
}

bool containsAlphanumeric(std::string_view text) {
    bool found = false;
    forEachCodePoint(text, [&](UChar32 codePoint) {
        found = codePoint >= 0 && (U_GET_GC_MASK(codePoint) & (U_GC_L_MASK | U_GC_M_MASK | U_GC_N_MASK)) != 0;
        return !found;
    });
    return found;
}

std::size_t codePointCount(std::string_view text) {
    std::size_t count = 0;
    forEachCodePoint(text, [&](UChar32) {
        ++count;
        return true;
    });
    return count;
}

bool isCharacterBoundary(std::string_view text, std::size_t offset) {
    return offset == text.size() || (static_cast<unsigned char>(text[offset]) & 0xC0) != 0x80;
}

icu::BreakIterator& characterBreakIterator() {
    // Making a break iterator loads its rules; one per thread is reused.
    thread_local std::unique_ptr<icu::BreakIterator> iterator = [] {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::BreakIterator> made(
            icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
        if (U_FAILURE(status) || !made) {
            programmingFault("ICU character break iterator unavailable");
        }
        return made;
    }();
    return *iterator;
}

// Compares a count with the limit without counting grapheme clusters when
// the text is too short to reach it.
bool exceedsCharacterLimit(std::string_view text, std::size_t limit) {
    if (text.size() <= limit || codePointCount(text) <= limit) {
        return false;
    }
    return captionCharacterCount(text) > limit;
}

double roundedToHundredths(double value) {
    return std::round(value * 100.0) / 100.0;
}

CaptionCue validatedCue(const CaptionCue& cue, ProjectTime sourceDuration,
                        std::optional<ProjectTime> previousEnd) {
    CaptionCue result = cue;
    result.text = std::string(trimmedCaptionText(cue.text));
    if (result.text.empty() || exceedsCharacterLimit(result.text, maximumCaptionCueCharacters) ||
        cue.start < ProjectTime::zero() || cue.end <= cue.start || cue.end > sourceDuration ||
        (previousEnd && cue.start < *previousEnd)) {
        throw CaptionValidationError::invalidCue();
    }
    std::optional<ProjectTime> previousWordEnd;
    for (auto& word : result.words) {
        word.text = std::string(trimmedCaptionText(word.text));
        if (word.text.empty() || word.start < cue.start || word.end <= word.start || word.end > cue.end ||
            (previousWordEnd && word.start < *previousWordEnd)) {
            throw CaptionValidationError::invalidWord();
        }
        previousWordEnd = word.end;
    }
    result.highlights = CaptionDocument::validatedHighlights(cue.highlights, result.text);
    return result;
}

} // namespace

std::string_view trimmedCaptionText(std::string_view text) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    const std::int32_t length = utf8Length(text);
    std::int32_t begin = 0;
    while (begin < length) {
        std::int32_t next = begin;
        UChar32 codePoint = 0;
        U8_NEXT(bytes, next, length, codePoint);
        if (!isWhiteSpaceOrNewline(codePoint)) {
            break;
        }
        begin = next;
    }
    std::int32_t end = length;
    while (end > begin) {
        std::int32_t previous = end;
        UChar32 codePoint = 0;
        U8_PREV(bytes, begin, previous, codePoint);
        if (!isWhiteSpaceOrNewline(codePoint)) {
            break;
        }
        end = previous;
    }
    return text.substr(static_cast<std::size_t>(begin), static_cast<std::size_t>(end - begin));
}

std::size_t captionCharacterCount(std::string_view text) {
    icu::BreakIterator& iterator = characterBreakIterator();
    const icu::UnicodeString unicode =
        icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), utf8Length(text)));
    iterator.setText(unicode);
    std::size_t count = 0;
    iterator.first();
    while (iterator.next() != icu::BreakIterator::DONE) {
        ++count;
    }
    return count;
}

CaptionStyle CaptionStyle::normalized() const {
    CaptionStyle result = *this;
    result.maximumLines = std::clamp<std::int64_t>(maximumLines, 1, 2);
    if (result.fontScale <= 0.6) {
        result.fontScale = 0.6;
    } else if (result.fontScale > 1.2) {
        result.fontScale = 1.2;
    }
    result.fontScale = roundedToHundredths(result.fontScale);
    if (result.bottomPosition <= 0) {
        result.bottomPosition = 0;
    } else if (result.bottomPosition > 1) {
        result.bottomPosition = 1;
    }
    result.bottomPosition = roundedToHundredths(result.bottomPosition);
    return result;
}

std::optional<CaptionHighlight::ByteRange> CaptionHighlight::matchedRange(std::string_view cueText) const {
    if (occurrence < 1 || text.empty() || cueText.empty()) {
        return std::nullopt;
    }
    std::size_t searchFrom = 0;
    for (std::int64_t found = 1;; ++found) {
        const std::size_t position = cueText.find(text, searchFrom);
        if (position == std::string_view::npos) {
            return std::nullopt;
        }
        if (found == occurrence) {
            return ByteRange{position, text.size()};
        }
        searchFrom = position + text.size();
    }
}

std::optional<CaptionHighlight> CaptionHighlight::fromRange(std::size_t offset, std::size_t length,
                                                            std::string_view text) {
    if (length == 0 || offset > text.size() || length > text.size() - offset ||
        !isCharacterBoundary(text, offset) || !isCharacterBoundary(text, offset + length)) {
        return std::nullopt;
    }
    const std::string_view selected = text.substr(offset, length);
    std::size_t searchFrom = 0;
    for (std::int64_t occurrence = 1;; ++occurrence) {
        const std::size_t position = text.find(selected, searchFrom);
        if (position == offset) {
            return CaptionHighlight{std::string(selected), occurrence};
        }
        if (position == std::string_view::npos || position > offset) {
            return std::nullopt;
        }
        searchFrom = position + length;
    }
}

std::vector<CaptionHighlight>
CaptionDocument::validatedHighlights(const std::vector<CaptionHighlight>& highlights,
                                     std::string_view cueText) {
    if (highlights.size() > maximumCaptionHighlightsPerCue) {
        throw CaptionValidationError::invalidHighlight();
    }
    struct Matched {
        CaptionHighlight::ByteRange range;
        const CaptionHighlight* highlight;
    };
    std::vector<Matched> matched;
    matched.reserve(highlights.size());
    for (const auto& highlight : highlights) {
        if (trimmedCaptionText(highlight.text) != highlight.text || !containsAlphanumeric(highlight.text)) {
            throw CaptionValidationError::invalidHighlight();
        }
        const auto range = highlight.matchedRange(cueText);
        if (!range || (range->offset == 0 && range->length == cueText.size())) {
            throw CaptionValidationError::invalidHighlight();
        }
        matched.push_back({*range, &highlight});
    }
    std::stable_sort(matched.begin(), matched.end(),
                     [](const Matched& a, const Matched& b) { return a.range.offset < b.range.offset; });
    std::vector<CaptionHighlight> result;
    result.reserve(matched.size());
    for (std::size_t i = 0; i < matched.size(); ++i) {
        if (i > 0 && matched[i].range.offset < matched[i - 1].range.offset + matched[i - 1].range.length) {
            throw CaptionValidationError::invalidHighlight();
        }
        result.push_back(*matched[i].highlight);
    }
    return result;
}

CaptionDocument CaptionDocument::validated(ProjectTime sourceDuration) const {
    if (schemaVersion != currentCaptionSchemaVersion) {
        throw CaptionValidationError::unsupportedSchema();
    }
    if (sourceTrack != MediaTrackKind::systemAudio && sourceTrack != MediaTrackKind::microphone) {
        throw CaptionValidationError::invalidTrack();
    }
    if (cues.size() > maximumCaptionCueCount) {
        throw CaptionValidationError::tooManyCues();
    }
    CaptionDocument result;
    result.schemaVersion = schemaVersion;
    result.sourceTrack = sourceTrack;
    result.sourceAudioDigest = sourceAudioDigest;
    result.basedOnTimelineDigest = basedOnTimelineDigest;
    result.language = language;
    result.style = style.normalized();
    result.cues.reserve(cues.size());
    std::set<Uuid> seenIDs;
    std::optional<ProjectTime> previousEnd;
    for (const auto& cue : cues) {
        if (!seenIDs.insert(cue.id).second) {
            throw CaptionValidationError::invalidCue();
        }
        result.cues.push_back(validatedCue(cue, sourceDuration, previousEnd));
        previousEnd = cue.end;
    }
    return result;
}

} // namespace rilo

#include "project/caption/CaptionDocumentEngine.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace rilo::CaptionDocumentEngine {

namespace {

using Error = CaptionEditingError;

ProjectTime snap(ProjectTime t) {
    return TimelineFrameGrid::nearestBoundary(t);
}

std::size_t indexOfCue(const CaptionDocument& document, const Uuid& id) {
    const auto found = std::find_if(document.cues.begin(), document.cues.end(),
                                    [&](const CaptionCue& cue) { return cue.id == id; });
    if (found == document.cues.end()) {
        throw Error(Error::Case::cueNotFound);
    }
    return static_cast<std::size_t>(std::distance(document.cues.begin(), found));
}

std::string nonEmptyTrimmedText(std::string_view text) {
    const std::string_view trimmed = trimmedCaptionText(text);
    if (trimmed.empty()) {
        throw Error(Error::Case::emptyText);
    }
    return std::string(trimmed);
}

void requireRangeInSource(ProjectTime start, ProjectTime end, ProjectTime sourceDuration) {
    if (start < ProjectTime::zero() || end > sourceDuration ||
        end - start < TimelineFrameGrid::minimumDuration) {
        throw Error(Error::Case::invalidRange);
    }
}

// Where a cue starting at `start` goes among `cues`: before the first cue
// that starts after it. Throws overlapsNeighbor unless [start, end) fits
// between the cues on either side of that place; touching is allowed.
std::vector<CaptionCue>::iterator placeBetweenNeighbours(std::vector<CaptionCue>& cues, ProjectTime start,
                                                         ProjectTime end) {
    const auto place = std::upper_bound(cues.begin(), cues.end(), start,
                                        [](ProjectTime t, const CaptionCue& cue) { return t < cue.start; });
    if ((place != cues.begin() && std::prev(place)->end > start) ||
        (place != cues.end() && place->start < end)) {
        throw Error(Error::Case::overlapsNeighbor);
    }
    return place;
}

} // namespace

CaptionDocument addCue(const CaptionDocument& document, const CaptionCue& cue, ProjectTime sourceDuration) {
    std::string text = nonEmptyTrimmedText(cue.text);
    const ProjectTime start = snap(cue.start);
    const ProjectTime end = snap(cue.end);
    requireRangeInSource(start, end, sourceDuration);
    CaptionDocument result = document;
    const auto place = placeBetweenNeighbours(result.cues, start, end);
    result.cues.insert(place, CaptionCue{cue.id, start, end, std::move(text), {}, {}});
    return result.validated(sourceDuration);
}

CaptionDocument moveCue(const CaptionDocument& document, const Uuid& id, ProjectTime start,
                        ProjectTime sourceDuration) {
    const std::size_t index = indexOfCue(document, id);
    CaptionDocument result = document;
    CaptionCue moved = std::move(result.cues[index]);
    result.cues.erase(result.cues.begin() + static_cast<std::ptrdiff_t>(index));

    const ProjectTime newStart = snap(start);
    const ProjectTime delta = newStart - moved.start;
    const ProjectTime newEnd = newStart + (moved.end - moved.start);
    requireRangeInSource(newStart, newEnd, sourceDuration);
    const auto place = placeBetweenNeighbours(result.cues, newStart, newEnd);

    moved.start = newStart;
    moved.end = newEnd;
    for (CaptionWord& word : moved.words) {
        word.start = word.start + delta;
        word.end = word.end + delta;
    }
    result.cues.insert(place, std::move(moved));
    return result.validated(sourceDuration);
}

CaptionDocument trimStart(const CaptionDocument& document, const Uuid& id, ProjectTime start,
                          ProjectTime sourceDuration) {
    const std::size_t index = indexOfCue(document, id);
    const ProjectTime newStart = snap(start);
    const CaptionCue& cue = document.cues[index];
    if (newStart < ProjectTime::zero() || cue.end - newStart < TimelineFrameGrid::minimumDuration) {
        throw Error(Error::Case::invalidRange);
    }
    if (index > 0 && document.cues[index - 1].end > newStart) {
        throw Error(Error::Case::overlapsNeighbor);
    }
    CaptionDocument result = document;
    CaptionCue& trimmed = result.cues[index];
    trimmed.start = newStart;
    std::erase_if(trimmed.words, [&](const CaptionWord& word) { return word.start < newStart; });
    return result.validated(sourceDuration);
}

CaptionDocument trimEnd(const CaptionDocument& document, const Uuid& id, ProjectTime end,
                        ProjectTime sourceDuration) {
    const std::size_t index = indexOfCue(document, id);
    const ProjectTime newEnd = snap(end);
    const CaptionCue& cue = document.cues[index];
    if (newEnd > sourceDuration || newEnd - cue.start < TimelineFrameGrid::minimumDuration) {
        throw Error(Error::Case::invalidRange);
    }
    if (index + 1 < document.cues.size() && document.cues[index + 1].start < newEnd) {
        throw Error(Error::Case::overlapsNeighbor);
    }
    CaptionDocument result = document;
    CaptionCue& trimmed = result.cues[index];
    trimmed.end = newEnd;
    std::erase_if(trimmed.words, [&](const CaptionWord& word) { return word.end > newEnd; });
    return result.validated(sourceDuration);
}

CaptionDocument updateText(const CaptionDocument& document, const Uuid& id, std::string_view text,
                           ProjectTime sourceDuration) {
    std::string newText = nonEmptyTrimmedText(text);
    const std::size_t index = indexOfCue(document, id);
    CaptionDocument result = document;
    CaptionCue& cue = result.cues[index];
    if (newText != cue.text) {
        cue.text = std::move(newText);
        cue.words.clear();
        cue.highlights.clear();
    }
    return result.validated(sourceDuration);
}

CaptionDocument addHighlight(const CaptionDocument& document, const Uuid& id,
                             const CaptionHighlight& highlight, ProjectTime sourceDuration) {
    const std::size_t index = indexOfCue(document, id);
    CaptionDocument result = document;
    CaptionCue& cue = result.cues[index];
    cue.highlights.push_back(highlight);
    // The highlight rules are checked here so that their failure reads as a
    // request for a proper keyword; the whole document is validated below.
    try {
        cue.highlights = CaptionDocument::validatedHighlights(cue.highlights, trimmedCaptionText(cue.text));
    } catch (const CaptionValidationError&) {
        throw Error(Error::Case::invalidHighlight);
    }
    return result.validated(sourceDuration);
}

CaptionDocument clearHighlights(const CaptionDocument& document, const Uuid& id, ProjectTime sourceDuration) {
    const std::size_t index = indexOfCue(document, id);
    CaptionDocument result = document;
    result.cues[index].highlights.clear();
    return result.validated(sourceDuration);
}

CaptionDocument removeCue(const CaptionDocument& document, const Uuid& id, ProjectTime sourceDuration) {
    const std::size_t index = indexOfCue(document, id);
    CaptionDocument result = document;
    result.cues.erase(result.cues.begin() + static_cast<std::ptrdiff_t>(index));
    return result.validated(sourceDuration);
}

} // namespace rilo::CaptionDocumentEngine

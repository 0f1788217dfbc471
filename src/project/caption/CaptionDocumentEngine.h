#pragma once

// The editor's changes to a caption document: add, move, trim, retext,
// highlight and remove cues. Pure functions over document values: each
// returns a new document that has passed CaptionDocument::validated, or throws
// and leaves its input as it was. Cue times snap to the nearest boundary of
// the 60 fps grid, and a cue lasts at least one grid frame.
//
// Errors: CaptionEditingError; a highlight that the validator rejects is
// reported as CaptionEditingError::invalidHighlight, and any other
// CaptionValidationError of the result passes unchanged.

#include "project/caption/CaptionDocument.h"
#include "project/caption/CaptionEditingError.h"
#include "shared/ProjectTime.h"
#include "shared/Uuid.h"

#include <string_view>

namespace rilo::CaptionDocumentEngine {

// Inserts the cue in start order with its id, its snapped times and its
// trimmed text; its words and highlights are not taken. Throws emptyText,
// invalidRange (outside the source or shorter than a frame) or
// overlapsNeighbor. Cues may touch.
CaptionDocument addCue(const CaptionDocument& document, const CaptionCue& cue, ProjectTime sourceDuration);

// Moves the cue to start at the snapped time, keeping its length; its words
// move with it. The cue may pass over other cues to a free place, but never
// stops short of a neighbour: a move into one fails with overlapsNeighbor.
// Throws cueNotFound, invalidRange or overlapsNeighbor.
CaptionDocument moveCue(const CaptionDocument& document, const Uuid& id, ProjectTime start,
                        ProjectTime sourceDuration);

// Sets the cue's start to the snapped time; the words that start before it
// are dropped whole. Throws cueNotFound, invalidRange (before zero or less
// than a frame before the end) or overlapsNeighbor (the previous cue ends
// after the new start).
CaptionDocument trimStart(const CaptionDocument& document, const Uuid& id, ProjectTime start,
                          ProjectTime sourceDuration);

// Sets the cue's end to the snapped time; the words that end after it are
// dropped whole. Throws cueNotFound, invalidRange (past the source or less
// than a frame after the start) or overlapsNeighbor (the next cue starts
// before the new end).
CaptionDocument trimEnd(const CaptionDocument& document, const Uuid& id, ProjectTime end,
                        ProjectTime sourceDuration);

// Replaces the cue's text by the trimmed text. A different text clears the
// words and highlights, which no longer match it; the same text keeps them.
// Throws emptyText or cueNotFound.
CaptionDocument updateText(const CaptionDocument& document, const Uuid& id, std::string_view text,
                           ProjectTime sourceDuration);

// Appends the highlight to the cue's list, which is then kept sorted by
// position in the text. Throws cueNotFound or invalidHighlight.
CaptionDocument addHighlight(const CaptionDocument& document, const Uuid& id,
                             const CaptionHighlight& highlight, ProjectTime sourceDuration);

// Empties the cue's highlights. Throws cueNotFound.
CaptionDocument clearHighlights(const CaptionDocument& document, const Uuid& id, ProjectTime sourceDuration);

// Removes the cue. Throws cueNotFound.
CaptionDocument removeCue(const CaptionDocument& document, const Uuid& id, ProjectTime sourceDuration);

} // namespace rilo::CaptionDocumentEngine

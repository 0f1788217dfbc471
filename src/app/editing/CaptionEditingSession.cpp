#include "app/editing/CaptionEditingSession.h"

#include "project/caption/CaptionDocumentEngine.h"
#include "shared/Errors.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace rilo {

namespace {

bool containsCue(const CaptionDocument& document, const Uuid& id) {
    return std::any_of(document.cues.begin(), document.cues.end(),
                       [&](const CaptionCue& cue) { return cue.id == id; });
}

// The document with the cue's highlights rebuilt without `highlight`, through
// the engine's own operations so that the cue is checked as for any edit.
CaptionDocument withoutHighlight(const CaptionDocument& document, const Uuid& id,
                                 const CaptionHighlight& highlight, ProjectTime sourceDuration) {
    CaptionDocument result = CaptionDocumentEngine::clearHighlights(document, id, sourceDuration);
    const auto cue = std::find_if(document.cues.begin(), document.cues.end(),
                                  [&](const CaptionCue& candidate) { return candidate.id == id; });
    for (const CaptionHighlight& kept : cue->highlights) {
        if (kept != highlight) {
            result = CaptionDocumentEngine::addHighlight(result, id, kept, sourceDuration);
        }
    }
    return result;
}

} // namespace

CaptionEditingSession::CaptionEditingSession(CaptionDocument document, ProjectTime sourceDuration,
                                             ChangeHandler onChange, PublishedChangeHandler onPublishedChange)
    : document_(std::move(document))
    , sourceDuration_(sourceDuration)
    , onChange_(std::move(onChange))
    , onPublishedChange_(std::move(onPublishedChange)) {}

void CaptionEditingSession::select(std::optional<Uuid> id) {
    const PublishedFields before = publishedFields();
    selectedCueID_ = id;
    restoreSelection();
    notifyIfPublishedChanged(before);
}

std::optional<CaptionCue> CaptionEditingSession::selectedCue() const {
    if (!selectedCueID_) {
        return std::nullopt;
    }
    const auto found = std::find_if(document_.cues.begin(), document_.cues.end(),
                                    [&](const CaptionCue& cue) { return cue.id == *selectedCueID_; });
    return found == document_.cues.end() ? std::nullopt : std::optional(*found);
}

void CaptionEditingSession::addCue(const CaptionCue& cue, bool requestsTextFocus) {
    const PublishedFields before = publishedFields();
    const bool added = apply(false, [&](const CaptionDocument& document) {
        return CaptionDocumentEngine::addCue(document, cue, sourceDuration_);
    });
    if (added && containsCue(document_, cue.id)) {
        selectedCueID_ = cue.id;
        if (requestsTextFocus) {
            textFocusRequestCueID_ = cue.id;
        }
    }
    notifyIfPublishedChanged(before);
}

void CaptionEditingSession::consumeTextFocusRequest(const Uuid& id) {
    const PublishedFields before = publishedFields();
    if (textFocusRequestCueID_ == id) {
        textFocusRequestCueID_.reset();
    }
    notifyIfPublishedChanged(before);
}

void CaptionEditingSession::moveCue(const Uuid& id, ProjectTime start) {
    const PublishedFields before = publishedFields();
    apply(true, [&](const CaptionDocument& document) {
        return CaptionDocumentEngine::moveCue(document, id, start, sourceDuration_);
    });
    notifyIfPublishedChanged(before);
}

void CaptionEditingSession::trimStart(const Uuid& id, ProjectTime start) {
    const PublishedFields before = publishedFields();
    apply(true, [&](const CaptionDocument& document) {
        return CaptionDocumentEngine::trimStart(document, id, start, sourceDuration_);
    });
    notifyIfPublishedChanged(before);
}

void CaptionEditingSession::trimEnd(const Uuid& id, ProjectTime end) {
    const PublishedFields before = publishedFields();
    apply(true, [&](const CaptionDocument& document) {
        return CaptionDocumentEngine::trimEnd(document, id, end, sourceDuration_);
    });
    notifyIfPublishedChanged(before);
}

void CaptionEditingSession::updateText(const Uuid& id, std::string_view text) {
    const PublishedFields before = publishedFields();
    apply(false, [&](const CaptionDocument& document) {
        return CaptionDocumentEngine::updateText(document, id, text, sourceDuration_);
    });
    notifyIfPublishedChanged(before);
}

void CaptionEditingSession::addHighlight(const Uuid& id, const CaptionHighlight& highlight) {
    const PublishedFields before = publishedFields();
    apply(false, [&](const CaptionDocument& document) {
        return CaptionDocumentEngine::addHighlight(document, id, highlight, sourceDuration_);
    });
    notifyIfPublishedChanged(before);
}

void CaptionEditingSession::replaceHighlight(const Uuid& id, const CaptionHighlight& old,
                                             const CaptionHighlight& replacement) {
    const PublishedFields before = publishedFields();
    apply(false, [&](const CaptionDocument& document) {
        const CaptionDocument without = withoutHighlight(document, id, old, sourceDuration_);
        return CaptionDocumentEngine::addHighlight(without, id, replacement, sourceDuration_);
    });
    notifyIfPublishedChanged(before);
}

void CaptionEditingSession::removeHighlight(const Uuid& id, const CaptionHighlight& highlight) {
    const PublishedFields before = publishedFields();
    apply(false, [&](const CaptionDocument& document) {
        return withoutHighlight(document, id, highlight, sourceDuration_);
    });
    notifyIfPublishedChanged(before);
}

void CaptionEditingSession::clearHighlights(const Uuid& id) {
    const PublishedFields before = publishedFields();
    apply(false, [&](const CaptionDocument& document) {
        return CaptionDocumentEngine::clearHighlights(document, id, sourceDuration_);
    });
    notifyIfPublishedChanged(before);
}

void CaptionEditingSession::removeSelectedCue() {
    if (!selectedCueID_) {
        return;
    }
    const PublishedFields before = publishedFields();
    const Uuid id = *selectedCueID_;
    apply(false, [&](const CaptionDocument& document) {
        return CaptionDocumentEngine::removeCue(document, id, sourceDuration_);
    });
    notifyIfPublishedChanged(before);
}

void CaptionEditingSession::beginCoalescedEdit() {
    if (!gestureBaseline_) {
        gestureBaseline_ = document_;
    }
}

void CaptionEditingSession::endCoalescedEdit() {
    if (!gestureBaseline_) {
        return;
    }
    const PublishedFields before = publishedFields();
    CaptionDocument baseline = std::move(*gestureBaseline_);
    gestureBaseline_.reset();
    if (document_ != baseline) {
        redoStack_.clear();
        pushUndo(std::move(baseline));
        onChange_(document_, true, true);
    }
    if (pendingExternalDocument_) {
        const CaptionDocument pending = std::move(*pendingExternalDocument_);
        pendingExternalDocument_.reset();
        installExternal(pending);
    }
    notifyIfPublishedChanged(before);
}

void CaptionEditingSession::applyExternalDocument(const CaptionDocument& external) {
    const PublishedFields before = publishedFields();
    installExternal(external);
    notifyIfPublishedChanged(before);
}

void CaptionEditingSession::undo() {
    if (undoStack_.empty()) {
        return;
    }
    const PublishedFields before = publishedFields();
    CaptionDocument value = std::move(undoStack_.back());
    undoStack_.pop_back();
    redoStack_.push_back(std::move(document_));
    document_ = std::move(value);
    restoreSelection();
    onChange_(document_, true, true);
    notifyIfPublishedChanged(before);
}

void CaptionEditingSession::redo() {
    if (redoStack_.empty()) {
        return;
    }
    const PublishedFields before = publishedFields();
    CaptionDocument value = std::move(redoStack_.back());
    redoStack_.pop_back();
    pushUndo(std::move(document_));
    document_ = std::move(value);
    restoreSelection();
    onChange_(document_, true, true);
    notifyIfPublishedChanged(before);
}

void CaptionEditingSession::clearMessage() {
    const PublishedFields before = publishedFields();
    message_.reset();
    notifyIfPublishedChanged(before);
}

CaptionEditingSession::PublishedFields CaptionEditingSession::publishedFields() const {
    return {selectedCueID_, textFocusRequestCueID_, message_, canUndo(), canRedo()};
}

void CaptionEditingSession::notifyIfPublishedChanged(const PublishedFields& before) {
    if (publishedFields() != before) {
        onPublishedChange_();
    }
}

bool CaptionEditingSession::apply(bool usesGestureBaseline, const Operation& operation) {
    CaptionDocument result;
    try {
        result = operation(document_);
    } catch (const LocalizedError& error) {
        message_ = error.message();
        return false;
    }
    if (result == document_) {
        return true;
    }
    if (usesGestureBaseline && gestureBaseline_) {
        // The preview follows the drag; the step is taken at its end.
        document_ = std::move(result);
        restoreSelection();
        onChange_(document_, false, false);
        return true;
    }
    pushUndo(std::move(document_));
    redoStack_.clear();
    document_ = std::move(result);
    message_.reset();
    restoreSelection();
    onChange_(document_, true, true);
    return true;
}

void CaptionEditingSession::pushUndo(CaptionDocument document) {
    undoStack_.push_back(std::move(document));
    if (undoStack_.size() > maximumUndoSteps) {
        undoStack_.erase(undoStack_.begin(), undoStack_.begin() + static_cast<std::ptrdiff_t>(
                                                                      undoStack_.size() - maximumUndoSteps));
    }
}

void CaptionEditingSession::restoreSelection() {
    if (selectedCueID_ && !containsCue(document_, *selectedCueID_)) {
        selectedCueID_.reset();
    }
    if (textFocusRequestCueID_ && !containsCue(document_, *textFocusRequestCueID_)) {
        textFocusRequestCueID_.reset();
    }
}

void CaptionEditingSession::installExternal(const CaptionDocument& external) {
    if (external == document_) {
        pendingExternalDocument_.reset();
        return;
    }
    if (gestureBaseline_) {
        pendingExternalDocument_ = external;
        return;
    }
    CaptionDocument validated;
    try {
        validated = external.validated(sourceDuration_);
    } catch (const LocalizedError& error) {
        message_ = error.message();
        return;
    }
    if (validated == document_) {
        return;
    }
    // An outside document is already on disk: it becomes an undoable step
    // but is not written back.
    pushUndo(std::move(document_));
    redoStack_.clear();
    document_ = std::move(validated);
    restoreSelection();
    onChange_(document_, true, false);
}

} // namespace rilo

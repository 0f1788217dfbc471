#pragma once

// The editor's live owner of one caption document. It turns the editor's
// actions into calls of CaptionDocumentEngine, keeps undo and redo (at most
// 100 steps), treats a cue drag between beginCoalescedEdit and
// endCoalescedEdit as one step, keeps the selection valid and takes in
// documents that arrive from outside while the editor is open.
//
// Published state is read through the const accessors. Two callbacks, given
// at construction, tell the owner of changes:
// - onChange(document, committed, shouldPersist) after every change of the
//   document: committed is false while a drag is in progress (the preview
//   follows, nothing is written); shouldPersist is false for a document that
//   came from outside, which is already on disk.
// - onPublishedChange() once an action has changed any other published field
//   (selection, text focus request, message, canUndo, canRedo).
//
// Failures never leave the session: the text of a LocalizedError goes to
// message() and the document stays as it was. The session is confined to the
// thread that owns the editor (the main thread); the callbacks run on it,
// synchronously, and must not call back into the session.

#include "project/caption/CaptionDocument.h"
#include "shared/ProjectTime.h"
#include "shared/Uuid.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace rilo {

class CaptionEditingSession {
public:
    using ChangeHandler =
        std::function<void(const CaptionDocument& document, bool committed, bool shouldPersist)>;
    using PublishedChangeHandler = std::function<void()>;

    static constexpr std::size_t maximumUndoSteps = 100;

    // The document is taken as it is; the caller has validated it against
    // the same source duration.
    CaptionEditingSession(CaptionDocument document, ProjectTime sourceDuration, ChangeHandler onChange,
                          PublishedChangeHandler onPublishedChange);

    const CaptionDocument& document() const noexcept { return document_; }
    const std::optional<Uuid>& selectedCueID() const noexcept { return selectedCueID_; }
    const std::optional<Uuid>& textFocusRequestCueID() const noexcept { return textFocusRequestCueID_; }
    const std::optional<std::string>& message() const noexcept { return message_; }
    bool canUndo() const noexcept { return !undoStack_.empty(); }
    bool canRedo() const noexcept { return !redoStack_.empty(); }
    ProjectTime sourceDuration() const noexcept { return sourceDuration_; }

    // Selects the cue, or clears the selection for none or a cue that does
    // not exist.
    void select(std::optional<Uuid> id);
    std::optional<CaptionCue> selectedCue() const;

    // Adds the cue as one step and selects it; with requestsTextFocus the
    // view is asked to put the text cursor into it.
    void addCue(const CaptionCue& cue, bool requestsTextFocus);
    // The view has focused the cue's text: clears a request for that cue.
    void consumeTextFocusRequest(const Uuid& id);

    // Cue drags on the timeline: inside a coalesced edit the document follows
    // without an undo step.
    void moveCue(const Uuid& id, ProjectTime start);
    void trimStart(const Uuid& id, ProjectTime start);
    void trimEnd(const Uuid& id, ProjectTime end);

    void updateText(const Uuid& id, std::string_view text);
    void addHighlight(const Uuid& id, const CaptionHighlight& highlight);
    // Removes `old` and adds `replacement` as one step.
    void replaceHighlight(const Uuid& id, const CaptionHighlight& old, const CaptionHighlight& replacement);
    void removeHighlight(const Uuid& id, const CaptionHighlight& highlight);
    void clearHighlights(const Uuid& id);
    void removeSelectedCue();

    // A drag: begin stores the document as the gesture's baseline (a second
    // begin keeps the first); end makes the whole drag one undo step and then
    // applies an outside document that arrived during it.
    void beginCoalescedEdit();
    void endCoalescedEdit();

    // A document written by someone else (an agent's import). It becomes one
    // undoable step, is not written back, and waits for the end of a drag in
    // progress (the latest one wins). An invalid one is refused with a
    // message.
    void applyExternalDocument(const CaptionDocument& external);

    void undo();
    void redo();
    void clearMessage();

private:
    using Operation = std::function<CaptionDocument(const CaptionDocument&)>;

    struct PublishedFields {
        std::optional<Uuid> selectedCueID;
        std::optional<Uuid> textFocusRequestCueID;
        std::optional<std::string> message;
        bool canUndo = false;
        bool canRedo = false;
        friend bool operator==(const PublishedFields&, const PublishedFields&) = default;
    };
    PublishedFields publishedFields() const;
    void notifyIfPublishedChanged(const PublishedFields& before);

    // Runs the operation on the present document; false when it threw (its
    // message is shown and the document stays).
    bool apply(bool usesGestureBaseline, const Operation& operation);
    void pushUndo(CaptionDocument document);
    // Clears the selection and the text focus request of a cue that is gone.
    void restoreSelection();
    void installExternal(const CaptionDocument& external);

    CaptionDocument document_;
    ProjectTime sourceDuration_;
    ChangeHandler onChange_;
    PublishedChangeHandler onPublishedChange_;

    std::optional<Uuid> selectedCueID_;
    std::optional<Uuid> textFocusRequestCueID_;
    std::optional<std::string> message_;

    std::vector<CaptionDocument> undoStack_;
    std::vector<CaptionDocument> redoStack_;
    std::optional<CaptionDocument> gestureBaseline_;
    std::optional<CaptionDocument> pendingExternalDocument_;
};

} // namespace rilo

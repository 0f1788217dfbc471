#pragma once

// The editor's live owner of one timeline document. It turns user actions
// into calls of the timeline engines, keeps undo and redo (at most undoLimit
// steps), treats a drag as one undo step, keeps the selections pointing at
// elements that exist, and takes in timelines committed from outside (the
// command line) as one more undoable step.
//
// Threads: confined to the main thread; every call and every callback runs
// there.
//
// Failures: no operation throws. A refused edit leaves the timeline as it was
// and puts the error's text into message(); the next committed change clears
// it.
//
// Callbacks, both given at construction and called synchronously:
// - onChange(timeline, committed, shouldPersist) after every change of the
//   timeline. While a gesture runs (beginCoalescedEdit ... endCoalescedEdit)
//   the preview follows with committed false and shouldPersist false; the
//   end of the gesture reports the result once as committed. A timeline taken
//   from outside is committed but not to be persisted: it already is.
// - onPublishedChange() once at the end of a call that changed any published
//   field (timeline, selections, message, canUndo, canRedo), so that a view
//   can refresh.
//
// Times: "sequence time" is the playhead's axis; the other times (trims,
// moves, keyframes) are source times, like everything stored in a timeline.

#include "project/document/CaptureSamples.h"
#include "project/document/EditTimeline.h"
#include "project/document/MediaTrackKind.h"
#include "shared/Geometry.h"
#include "shared/ProjectTime.h"
#include "shared/Uuid.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace rilo {

class TimelineEditingSession {
public:
    using ChangeHandler =
        std::function<void(const EditTimeline& timeline, bool committed, bool shouldPersist)>;
    using PublishedChangeHandler = std::function<void()>;
    // Reads the timeline that an outside writer left in the package; whatever
    // it throws becomes the message.
    using ExternalTimelineReader = std::function<EditTimeline()>;

    static constexpr std::size_t undoLimit = 100;

    // The timeline is taken as it is (loaded, normalised and validated by the
    // store); sourceSize is the recording's pixel size, for the output aspect
    // ratio of a `source` canvas.
    TimelineEditingSession(EditTimeline timeline, ProjectTime sourceDuration, PixelSize sourceSize,
                           ChangeHandler onChange, PublishedChangeHandler onPublishedChange);

    TimelineEditingSession(const TimelineEditingSession&) = delete;
    TimelineEditingSession& operator=(const TimelineEditingSession&) = delete;

    // ---- Published ----
    const EditTimeline& timeline() const noexcept { return timeline_; }
    const std::optional<Uuid>& selectedSegmentID() const noexcept { return selectedSegmentID_; }
    const std::optional<Uuid>& selectedZoomID() const noexcept { return selectedZoomID_; }
    const std::optional<Uuid>& selectedWebcamFullscreenID() const noexcept {
        return selectedWebcamFullscreenID_;
    }
    const std::optional<Uuid>& selectedWebcamKeyframeID() const noexcept { return selectedWebcamKeyframeID_; }
    const std::optional<Uuid>& selectedAnnotationID() const noexcept { return selectedAnnotationID_; }
    const std::optional<std::string>& message() const noexcept { return message_; }
    bool canUndo() const noexcept { return canUndo_; }
    bool canRedo() const noexcept { return canRedo_; }

    ProjectTime sourceDuration() const noexcept { return sourceDuration_; }
    PixelSize sourceSize() const noexcept { return sourceSize_; }
    // Width over height of the output for the present canvas.
    double outputAspectRatio() const noexcept;

    // ---- Segments ----
    // Selects the segment that plays at the sequence time (none past the end).
    void select(ProjectTime sequenceTime);
    void selectSegment(std::optional<Uuid> segmentID);
    // Clears all five selections.
    void clearSelection();
    void split(ProjectTime sequenceTime);
    void trimStart(const Uuid& segmentID, ProjectTime sourceTime);
    void trimEnd(const Uuid& segmentID, ProjectTime sourceTime);
    // Deletes the selected segment; the rest closes up.
    void rippleDeleteSelection();
    // The whole segment plays at the multiplier (0.5 to 4 in steps of 0.01).
    void updatePlaybackRate(const Uuid& segmentID, double multiplier);

    // ---- Appearance ----
    void updateCanvas(const CanvasEdit& canvas);
    void updateDeviceFrame(const std::optional<DeviceFrameEdit>& deviceFrame);
    void updateCursor(const CursorEdit& cursor);
    void updateWebcam(const WebcamOverlay& overlay);
    // Changes only the fields given; the screen track has no audio edit.
    void updateAudio(MediaTrackKind kind, std::optional<bool> isMuted, std::optional<double> gainDecibels);

    // ---- Zooms ----
    void selectZoom(std::optional<Uuid> zoomID);
    // A zoom of one second of output at the playhead (scale 1.7, 300 ms of
    // output to rise and to fall), inside the segment there; it is selected.
    void addZoom(ProjectTime sequenceTime);
    void removeSelectedZoom();
    // Moves the zoom's start to sourceTime, kept inside the segment and
    // stopped by the neighbours; a zoom longer than the segment stays.
    void moveZoom(const Uuid& zoomID, ProjectTime sourceTime, const Uuid& segmentID);
    void updateZoomStart(const Uuid& zoomID, ProjectTime sourceTime);
    void updateZoomEnd(const Uuid& zoomID, ProjectTime sourceTime);
    void updateZoomScale(const Uuid& zoomID, double scale);
    void updateZoomFocus(const Uuid& zoomID, PointValue focusPoint);
    // Replaces every zoom by those the clicks among the events make.
    void regenerateAutoZooms(const std::vector<MouseEvent>& events);

    // ---- Webcam ----
    void selectWebcamFullscreen(std::optional<Uuid> intervalID);
    // Five seconds of output at the playhead, inside the segment; selected.
    void addWebcamFullscreen(ProjectTime sequenceTime);
    void removeSelectedWebcamFullscreen();
    void moveWebcamFullscreen(const Uuid& intervalID, ProjectTime sourceTime, const Uuid& segmentID);
    void updateWebcamFullscreenStart(const Uuid& intervalID, ProjectTime sourceTime);
    void updateWebcamFullscreenEnd(const Uuid& intervalID, ProjectTime sourceTime);
    // Sets the placement at the source time; the keyframe there is selected.
    void upsertWebcamKeyframe(ProjectTime sourceTime, PointValue center, double diameter);
    void moveWebcamGlobally(ProjectTime sourceTime, PointValue target);
    void resizeWebcamGlobally(ProjectTime sourceTime, double targetDiameter);
    void removeSelectedWebcamKeyframe();
    void selectWebcamKeyframe(std::optional<Uuid> keyframeID);

    // ---- Annotations ----
    // Five seconds of output at the playhead, on top of the others; selected.
    void addAnnotation(AnnotationKind kind, ProjectTime sequenceTime);
    void selectAnnotation(std::optional<Uuid> annotationID);
    void removeSelectedAnnotation();
    void moveAnnotation(const Uuid& annotationID, ProjectTime sourceTime, const Uuid& segmentID);
    void updateAnnotationStart(const Uuid& annotationID, ProjectTime sourceTime);
    void updateAnnotationEnd(const Uuid& annotationID, ProjectTime sourceTime);
    void updateAnnotationBounds(const Uuid& annotationID, RectValue bounds);
    void updateAnnotationArrow(const Uuid& annotationID, PointValue startPoint, PointValue endPoint);

    // ---- Editing frame ----
    // Starts a gesture (a drag): the changes until endCoalescedEdit make one
    // undo step. A second begin inside a gesture changes nothing.
    void beginCoalescedEdit();
    // Ends the gesture: one undo step when the timeline differs from where it
    // began, none otherwise; then a timeline that arrived from outside during
    // the gesture is taken.
    void endCoalescedEdit();
    // Takes a timeline committed from outside. An equal one changes nothing;
    // during a gesture it waits for the gesture's end (the latest wins); one
    // that fails validation is refused with a message.
    void applyExternalTimeline(const EditTimeline& timeline);
    // Runs the reader and takes its timeline as applyExternalTimeline does;
    // a reader that fails (a file that does not decode, say) gives a message
    // and the timeline stays.
    void reloadExternalTimeline(const ExternalTimelineReader& reader);
    // Both do nothing with an empty stack or while a gesture runs.
    void undo();
    void redo();
    void clearMessage();

private:
    // Runs a public operation: its LocalizedError becomes the message, and
    // onPublishedChange runs once if a published field changed.
    void perform(const std::function<void()>& body);
    // The one way a new timeline enters: a preview during a gesture, a
    // commit otherwise.
    void applyMutationResult(EditTimeline timeline);
    void commit(EditTimeline timeline);
    void takeExternalTimeline(const EditTimeline& timeline);
    void pushUndo(EditTimeline timeline);
    void install(EditTimeline timeline);
    void restoreSelections();
    void updateFlags();
    void setMessage(std::optional<std::string> message);
    void setSelection(std::optional<Uuid>& field, std::optional<Uuid> value);

    EditTimeline timeline_;
    std::optional<Uuid> selectedSegmentID_;
    std::optional<Uuid> selectedZoomID_;
    std::optional<Uuid> selectedWebcamFullscreenID_;
    std::optional<Uuid> selectedWebcamKeyframeID_;
    std::optional<Uuid> selectedAnnotationID_;
    std::optional<std::string> message_;
    bool canUndo_ = false;
    bool canRedo_ = false;

    ProjectTime sourceDuration_;
    PixelSize sourceSize_;
    ChangeHandler onChange_;
    PublishedChangeHandler onPublishedChange_;

    std::vector<EditTimeline> undoStack_;
    std::vector<EditTimeline> redoStack_;
    std::optional<EditTimeline> gestureBaseline_;
    std::optional<EditTimeline> pendingExternalTimeline_;
    // Counts changes of published fields, so that perform() can tell whether
    // the view needs to hear of a call.
    std::uint64_t publishedRevision_ = 0;
};

} // namespace rilo

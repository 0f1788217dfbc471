#pragma once

// The drags of the timeline view. A drag is a record made at the press and
// carried by the gesture until release: it remembers where the pointer was
// pressed (anchorSequenceTime, a sequence time), the source times it started
// from, and the kept segment it belongs to. While the pointer moves only
// previewSequenceTime changes. At release the sequence delta (preview minus
// anchor) is converted to source time by the mapper at the rate of that
// segment and applied to the original source time, so that a drag across a
// speed change follows the pointer on screen.
//
// A body drag keeps the element inside its segment: it stops at the
// segment's ends, and an element longer than its segment does not move. An
// edge drag stops at the segment's ends too. Everything else (the 60 fps grid,
// neighbours, the shortest length) is the engines' business: applying a drag
// calls them and lets their errors pass, leaving the input unchanged. A drag
// that ends where it began changes nothing.
//
// `mapper` is always the mapper of the timeline the drag started on; the
// source duration is the mapper's.

#include "project/caption/CaptionDocument.h"
#include "project/document/EditTimeline.h"
#include "project/engine/TimelineMapper.h"
#include "shared/ProjectTime.h"
#include "shared/Uuid.h"
#include "ui/timeline/TimelineHitTesting.h"

#include <algorithm>
#include <optional>

namespace rilo {

struct TimelineZoomInteraction {
    Uuid zoomID;
    TimelineZoomDragPart part;
    Uuid segmentID;
    ProjectTime anchorSequenceTime;
    ProjectTime originalSourceStart;
    ProjectTime originalSourceEnd;
    ProjectTime previewSequenceTime;

    friend bool operator==(const TimelineZoomInteraction&, const TimelineZoomInteraction&) = default;
};

struct TimelineWebcamFullscreenInteraction {
    Uuid segmentID; // the full-screen interval
    TimelineZoomDragPart part;
    Uuid sourceSegmentID; // the kept segment it is dragged in
    ProjectTime anchorSequenceTime;
    ProjectTime originalSourceStart;
    ProjectTime originalSourceEnd;
    ProjectTime previewSequenceTime;

    friend bool operator==(const TimelineWebcamFullscreenInteraction&,
                           const TimelineWebcamFullscreenInteraction&) = default;
};

struct TimelineAnnotationInteraction {
    Uuid annotationID;
    TimelineZoomDragPart part;
    Uuid segmentID;
    ProjectTime anchorSequenceTime;
    ProjectTime originalSourceStart;
    ProjectTime originalSourceEnd;
    ProjectTime previewSequenceTime;

    friend bool operator==(const TimelineAnnotationInteraction&,
                           const TimelineAnnotationInteraction&) = default;
};

// Trimming an end of a kept segment. Unlike the effects, a trim may reach
// into removed content, up to the neighbouring segment.
struct TimelineTrimInteraction {
    Uuid segmentID;
    TimelineTrimEdge edge = TimelineTrimEdge::start;
    ProjectTime anchorSequenceTime;
    ProjectTime originalSourceTime;
    ProjectTime previewSequenceTime;

    friend bool operator==(const TimelineTrimInteraction&, const TimelineTrimInteraction&) = default;
};

struct CaptionDragInteraction {
    Uuid cueID;
    Uuid segmentID;
    CaptionDragPart part = CaptionDragPart::body;
    ProjectTime anchorSequenceTime;
    // Where the cue's blocks began and ended on screen at the press.
    ProjectTime originalSequenceStart;
    ProjectTime originalSequenceEnd;
    ProjectTime originalSourceStart;
    ProjectTime originalSourceEnd;
    ProjectTime previewSequenceTime;

    // Where to draw the dragged cue while the pointer moves: its original
    // sequence span, shifted (body) or with the dragged end moved, never
    // turned inside out.
    ProjectTimeRange previewSequenceRange() const noexcept;

    friend bool operator==(const CaptionDragInteraction&, const CaptionDragInteraction&) = default;
};

namespace TimelineDragInteractions {

// The records of a press at anchorSequenceTime. None for an unknown element
// or one that shows nowhere in the edited result (nothing to grab). An edge
// belongs to the segment where that edge shows; a body to the segment under
// the pointer, or where the element first shows when the pointer is off it.
std::optional<TimelineZoomInteraction> beginZoom(const Uuid& zoomID, TimelineZoomDragPart part,
                                                 ProjectTime anchorSequenceTime, const EditTimeline& timeline,
                                                 const TimelineMapper& mapper);
std::optional<TimelineWebcamFullscreenInteraction>
beginWebcamFullscreen(const Uuid& intervalID, TimelineZoomDragPart part, ProjectTime anchorSequenceTime,
                      const EditTimeline& timeline, const TimelineMapper& mapper);
std::optional<TimelineAnnotationInteraction>
beginAnnotation(const Uuid& annotationID, TimelineZoomDragPart part, ProjectTime anchorSequenceTime,
                const EditTimeline& timeline, const TimelineMapper& mapper);
// None for a segment that is not in the mapper.
std::optional<TimelineTrimInteraction> beginTrim(const Uuid& segmentID, TimelineTrimEdge edge,
                                                 ProjectTime anchorSequenceTime,
                                                 const TimelineMapper& mapper);
std::optional<CaptionDragInteraction> beginCaption(const Uuid& cueID, CaptionDragPart part,
                                                   ProjectTime anchorSequenceTime,
                                                   const CaptionDocument& captions,
                                                   const TimelineMapper& mapper);

// The record with the pointer at sequenceTime, held to the sequence
// (0 to its end); nothing else of the record changes.
template <typename Interaction>
Interaction dragged(Interaction interaction, ProjectTime sequenceTime, const TimelineMapper& mapper) {
    interaction.previewSequenceTime =
        std::clamp(sequenceTime, ProjectTime::zero(), mapper.sequenceDuration());
    return interaction;
}

// The source time a release now would hand to the engine: the new start
// for a body, the new position of the dragged edge otherwise. None when the
// segment is gone or the element cannot move in it.
std::optional<ProjectTime> targetSourceTime(const TimelineZoomInteraction& interaction,
                                            const TimelineMapper& mapper) noexcept;
std::optional<ProjectTime> targetSourceTime(const TimelineWebcamFullscreenInteraction& interaction,
                                            const TimelineMapper& mapper) noexcept;
std::optional<ProjectTime> targetSourceTime(const TimelineAnnotationInteraction& interaction,
                                            const TimelineMapper& mapper) noexcept;
std::optional<ProjectTime> targetSourceTime(const CaptionDragInteraction& interaction,
                                            const TimelineMapper& mapper) noexcept;
// Not held to the segment: the neighbours limit it (see applied).
std::optional<ProjectTime> targetSourceTime(const TimelineTrimInteraction& interaction,
                                            const TimelineMapper& mapper) noexcept;

// The document after the release, through TimelineEffectEngine (zooms, full
// screen), TimelineAnnotationEditing, TimelineEditEngine (trims, held
// between the neighbouring segments and one grid frame of length) and
// CaptionDocumentEngine. Unchanged when targetSourceTime is none.
EditTimeline applied(const TimelineZoomInteraction& interaction, const EditTimeline& timeline,
                     const TimelineMapper& mapper);
EditTimeline applied(const TimelineWebcamFullscreenInteraction& interaction, const EditTimeline& timeline,
                     const TimelineMapper& mapper);
EditTimeline applied(const TimelineAnnotationInteraction& interaction, const EditTimeline& timeline,
                     const TimelineMapper& mapper);
EditTimeline applied(const TimelineTrimInteraction& interaction, const EditTimeline& timeline,
                     const TimelineMapper& mapper);
CaptionDocument applied(const CaptionDragInteraction& interaction, const CaptionDocument& captions,
                        const TimelineMapper& mapper);

} // namespace TimelineDragInteractions

} // namespace rilo

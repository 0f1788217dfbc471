#pragma once

// What a pointer at x finds on a lane of the timeline view. Elements are
// stored in source time and drawn where the mapper projects them, so an
// element that spans a cut shows as several blocks; its start handle sits at
// the start of its first block and its end handle at the end of its last.
//
// Handles win over bodies: a press within reach of a handle (the handle
// itself and handleHitSlop pixels either side of it) grabs the nearest
// handle, even over the body of a neighbour; at equal distance, the handle of
// the element under the pointer. Otherwise the body under the pointer is
// found, and of overlapping annotations the one drawn on top.
// Pure functions; nothing is found on a lane that does not hold the kind.

#include "project/caption/CaptionDocument.h"
#include "project/document/EditTimeline.h"
#include "project/engine/TimelineMapper.h"
#include "shared/Uuid.h"
#include "ui/timeline/TimelineCoordinateSpace.h"
#include "ui/timeline/TimelineLayout.h"
#include "ui/timeline/TimelineViewMetrics.h"

#include <optional>

namespace rilo {

enum class TimelineZoomEdge { start, end };
enum class TimelineTrimEdge { start, end };
enum class CaptionDragPart { body, start, end };

// Which part of a timed effect (zoom, webcam full screen, annotation) a drag
// holds: one of its edges, or the body, which moves the whole.
struct TimelineZoomDragPart {
    std::optional<TimelineZoomEdge> edge; // none is the body

    static TimelineZoomDragPart body() noexcept { return {}; }
    static TimelineZoomDragPart edgeOf(TimelineZoomEdge edge) noexcept { return {edge}; }
    bool isBody() const noexcept { return !edge; }

    friend bool operator==(const TimelineZoomDragPart&, const TimelineZoomDragPart&) = default;
};

// What a press on an effect lane found.
struct TimelineEffectHit {
    enum class Kind {
        zoomBody,
        zoomHandle,
        webcamFullscreenBody,
        webcamFullscreenHandle,
        annotationBody,
        annotationHandle,
    };

    Kind kind = Kind::zoomBody;
    Uuid id;
    std::optional<TimelineZoomEdge> edge; // set for the handle kinds only

    // The part a drag from this press holds.
    TimelineZoomDragPart dragPart() const noexcept { return {edge}; }
    // The payload when the hit is of that element kind, none otherwise.
    std::optional<Uuid> zoomID() const noexcept;
    std::optional<TimelineZoomDragPart> zoomDragPart() const noexcept;
    std::optional<Uuid> webcamFullscreenID() const noexcept;
    std::optional<Uuid> annotationID() const noexcept;

    friend bool operator==(const TimelineEffectHit&, const TimelineEffectHit&) = default;
};

struct TimelineCaptionHit {
    Uuid cueID;
    CaptionDragPart part = CaptionDragPart::body;

    friend bool operator==(const TimelineCaptionHit&, const TimelineCaptionHit&) = default;
};

struct TimelineTrimHit {
    Uuid segmentID;
    TimelineTrimEdge edge = TimelineTrimEdge::start;

    friend bool operator==(const TimelineTrimHit&, const TimelineTrimHit&) = default;
};

// The block under a hovering pointer, for highlighting.
struct TimelineHoveredBlock {
    enum class Kind { caption, annotation, webcamFullscreen, zoom };

    Kind kind = Kind::zoom;
    Uuid id;

    static TimelineHoveredBlock of(const TimelineEffectHit& hit) noexcept;
    static TimelineHoveredBlock of(const TimelineCaptionHit& hit) noexcept;

    friend bool operator==(const TimelineHoveredBlock&, const TimelineHoveredBlock&) = default;
};

namespace TimelineHitTesting {

// Zooms on autoZoom, full-screen webcam intervals on webcamLayout,
// annotations on annotations; other lanes find nothing.
std::optional<TimelineEffectHit> effectHit(TimelineLane lane, double x, const EditTimeline& timeline,
                                           const TimelineMapper& mapper, const TimelineCoordinateSpace& space,
                                           const TimelineViewMetrics& metrics);

// A cue on the captions lane.
std::optional<TimelineCaptionHit> captionHit(double x, const CaptionDocument& captions,
                                             const TimelineMapper& mapper,
                                             const TimelineCoordinateSpace& space,
                                             const TimelineViewMetrics& metrics);

// A trim handle of a segment on the screen lane. Segments have no body to
// grab: a press elsewhere selects or seeks, which the mapper answers.
std::optional<TimelineTrimHit> trimHit(double x, const TimelineMapper& mapper,
                                       const TimelineCoordinateSpace& space,
                                       const TimelineViewMetrics& metrics);

} // namespace TimelineHitTesting

} // namespace rilo

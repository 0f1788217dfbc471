#pragma once

// The rule book of the timed effects that live in source time beside the
// segment list: zooms, webcam full-screen intervals and webcam keyframes, and
// the webcam's position and size on the canvas.
//
// Pure functions over EditTimeline. Every operation that returns a timeline
// returns a new one; one that fails throws TimelineEffectError and leaves its
// input as it was. All times are source times. Edit times snap to the 60 fps
// grid (TimelineFrameGrid). Interactive boundary changes (updateZoomStart and
// its kin) never fail because of a neighbour: they stop at it.

#include "project/document/EditTimeline.h"
#include "project/document/TimelineEffectError.h"
#include "project/document/TimelineEffectRules.h"
#include "shared/Geometry.h"
#include "shared/ProjectTime.h"
#include "shared/Uuid.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace rilo::TimelineEffectEngine {

// ---- Zooms ----

// A zoom over the snapped range with a fresh id: it rises for zoomInNanoseconds
// and falls for zoomOutNanoseconds, both cut down to what the range holds
// (the rise first). The scale is clamped to 1...3 and the focus constrained.
// A range that snaps to less than one frame or leaves 0...sourceDuration, or a
// non-finite scale, is zoomRangeInvalid.
ZoomSegment normalizedZoom(ProjectTimeRange range, PointValue focusPoint, double scale,
                           ProjectTime sourceDuration, std::int64_t zoomInNanoseconds,
                           std::int64_t zoomOutNanoseconds);

// normalizedZoom appended to the zooms, which are then sorted and validated;
// a zoom that collides with another is zoomOverlap.
EditTimeline addZoom(const EditTimeline& timeline, ProjectTimeRange range, PointValue focusPoint,
                     double scale, ProjectTime sourceDuration, std::int64_t zoomInNanoseconds,
                     std::int64_t zoomOutNanoseconds);

// By position in startTime order; an index outside the list is
// zoomIndexInvalid.
EditTimeline removeZoom(const EditTimeline& timeline, std::int64_t index, ProjectTime sourceDuration);
// An unknown id is zoomNotFound.
EditTimeline removeZoom(const EditTimeline& timeline, const Uuid& id, ProjectTime sourceDuration);
EditTimeline removeAllZooms(const EditTimeline& timeline, ProjectTime sourceDuration);
// Installs the zooms in startTime order and validates them.
EditTimeline replaceZooms(const EditTimeline& timeline, std::vector<ZoomSegment> zooms,
                          ProjectTime sourceDuration);

// Whether two lists describe the same zooms: equal counts and, in startTime
// order, equal times, focus and scale. Ids do not matter.
bool hasSameZoomConfiguration(const std::vector<ZoomSegment>& first, const std::vector<ZoomSegment>& second);

// The boundary changes of one zoom, found by id (zoomNotFound otherwise).
// A new boundary snaps to the grid and stops at the neighbours (the previous
// zoom's end, the next zoom's start, 0 and sourceDuration) and at one frame of
// length. Rise and fall keep their lengths where they fit and shrink in
// proportion where they do not.
EditTimeline updateZoomStart(const EditTimeline& timeline, const Uuid& id, ProjectTime startTime,
                             ProjectTime sourceDuration);
EditTimeline updateZoomEnd(const EditTimeline& timeline, const Uuid& id, ProjectTime endTime,
                           ProjectTime sourceDuration);
// Keeps the length; the end follows the start.
EditTimeline moveZoom(const EditTimeline& timeline, const Uuid& id, ProjectTime startTime,
                      ProjectTime sourceDuration);
// Clamps the scale to 1...3 and constrains the focus for it.
EditTimeline updateZoomScale(const EditTimeline& timeline, const Uuid& id, double scale,
                             ProjectTime sourceDuration);
EditTimeline updateZoomFocus(const EditTimeline& timeline, const Uuid& id, PointValue focusPoint,
                             ProjectTime sourceDuration);

// ---- Webcam full screen ----

// A fresh interval over the snapped range, at least
// minimumWebcamFullscreenDuration long and inside the source
// (webcamFullscreenRangeInvalid), then sorted and validated.
EditTimeline addWebcamFullscreen(const EditTimeline& timeline, ProjectTimeRange range,
                                 ProjectTime sourceDuration);
// An unknown id is webcamFullscreenNotFound, here and below.
EditTimeline removeWebcamFullscreen(const EditTimeline& timeline, const Uuid& id, ProjectTime sourceDuration);
// The boundary rules of the zooms, with the longer minimum.
EditTimeline moveWebcamFullscreen(const EditTimeline& timeline, const Uuid& id, ProjectTime startTime,
                                  ProjectTime sourceDuration);
EditTimeline updateWebcamFullscreenStart(const EditTimeline& timeline, const Uuid& id, ProjectTime startTime,
                                         ProjectTime sourceDuration);
EditTimeline updateWebcamFullscreenEnd(const EditTimeline& timeline, const Uuid& id, ProjectTime endTime,
                                       ProjectTime sourceDuration);

// ---- Webcam geometry ----

// Half the webcam's width and height in normalised canvas coordinates.
struct WebcamHalfExtents {
    double horizontal = 0;
    double vertical = 0;

    friend bool operator==(const WebcamHalfExtents&, const WebcamHalfExtents&) = default;
};

// The diameter (clamped to 0.1...0.4) measures against the shorter side of an
// output of outputAspectRatio (width over height); webcamAspectRatio is the
// webcam picture's width over height. Both ratios count as at least 0.01.
WebcamHalfExtents webcamRadii(double diameter, double outputAspectRatio, double webcamAspectRatio) noexcept;

// The center moved so that the whole webcam stays on the canvas.
PointValue constrainedWebcamCenter(PointValue center, double diameter, double outputAspectRatio,
                                   double webcamAspectRatio) noexcept;

// The overlay at a time: the base placed by the keyframes (held before the
// first and after the last, eased between neighbours), with the diameter
// clamped to 0.1...0.4 and the center kept on the canvas. None without a base.
std::optional<WebcamOverlay> webcamOverlay(const std::optional<WebcamOverlay>& base,
                                           const std::vector<WebcamOverlayKeyframe>& keyframes,
                                           ProjectTime time, double outputAspectRatio);

// Shifts the whole motion path (base and keyframes) by the step that brings
// the overlay at `time` towards `target`, as far as every placement stays on
// the canvas. Without an overlay, or with a non-finite target, unchanged.
EditTimeline moveWebcamGlobally(const EditTimeline& timeline, ProjectTime time, PointValue target,
                                double outputAspectRatio);
// Scales every diameter by the ratio that gives the overlay at `time` the
// target diameter (0.1...0.4), each clamped and its center kept on the
// canvas. Without an overlay, or with a non-finite target, unchanged.
EditTimeline resizeWebcamGlobally(const EditTimeline& timeline, ProjectTime time, double targetDiameter,
                                  double outputAspectRatio);

// Sets the placement at a time: the time snaps to the grid (staying inside
// the source), and a keyframe already at that time is updated in place with
// its id; otherwise a new keyframe is added. The diameter is clamped to
// 0.1...0.4 and the center kept on the canvas. A time outside
// [0, sourceDuration) is keyframeOutsideSource; no webcam overlay or a
// non-finite placement is keyframeInvalid. The result is validated.
EditTimeline upsertWebcamKeyframe(const EditTimeline& timeline, ProjectTime time, PointValue center,
                                  double diameter, ProjectTime sourceDuration, double outputAspectRatio);
// Removes the keyframe with this id; an unknown id changes nothing.
EditTimeline removeWebcamKeyframe(const EditTimeline& timeline, const Uuid& id);

} // namespace rilo::TimelineEffectEngine

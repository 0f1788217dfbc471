#pragma once

// The one definition of valid timed effects (zooms, webcam full-screen
// intervals, webcam keyframes), below the engines so that validation and the
// store can use it without the editing operations. The editing operations of
// TimelineEffectEngine (engine/TimelineEffectEngine.h) keep to these rules.

#include "project/document/EditTimeline.h"
#include "project/document/TimelineEffectError.h"
#include "shared/Geometry.h"
#include "shared/ProjectTime.h"

namespace rilo::TimelineEffectEngine {

// Two frames at 60 fps: the shortest webcam full-screen interval.
inline constexpr ProjectTime minimumWebcamFullscreenDuration{33'333'333};

// The one definition of valid effects, checked in this order, the first
// failure thrown:
// - zooms in startTime order: a fresh id, inside 0...sourceDuration, at least
//   one grid frame long, start <= focus <= hold end <= end, a finite scale in
//   1...3 and a focus equal to its own constrainedFocus (zoomRangeInvalid);
//   then no start before the previous end (zoomOverlap). Touching is allowed;
// - full-screen intervals need a webcam overlay (webcamFullscreenRangeInvalid);
// - full-screen intervals in startTime order: a fresh id, inside the source,
//   at least minimumWebcamFullscreenDuration long
//   (webcamFullscreenRangeInvalid); no start before the previous end
//   (webcamFullscreenOverlap);
// - keyframes in list order: a time in [0, sourceDuration)
//   (keyframeOutsideSource); a unique time and id, a diameter in 0.1...0.4 and
//   a finite center inside the unit square (keyframeInvalid).
void validate(const EditTimeline& timeline, ProjectTime sourceDuration);

// The focus of a zoom of this scale, moved so that the zoomed window (of size
// 1 / scale) stays inside the frame: each coordinate clamped to
// [0.5 / scale, 1 - 0.5 / scale]. At a scale of 1 or less the centre. Every
// writer of a zoom's focus goes through here; validate demands the exact
// result.
PointValue constrainedFocus(PointValue point, double scale) noexcept;

} // namespace rilo::TimelineEffectEngine

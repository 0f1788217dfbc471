#pragma once

#include "shared/Errors.h"

namespace rilo {

// The cases of TimelineEffectError.
enum class TimelineEffectErrorCase {
    zoomNotFound,
    zoomRangeInvalid,
    zoomOverlap,
    webcamFullscreenNotFound,
    webcamFullscreenRangeInvalid,
    webcamFullscreenOverlap,
    keyframeOutsideSource,
    keyframeInvalid,
    zoomIndexInvalid,
};

// Failures of the timed effects of a timeline: zooms, webcam full-screen
// intervals and webcam keyframes.
class TimelineEffectError : public CaseError<TimelineEffectErrorCase> {
public:
    explicit TimelineEffectError(Case errorCase);
};

} // namespace rilo

#pragma once

#include "shared/Errors.h"

namespace rilo {

// Failures of the timed effects of a timeline: zooms, webcam full-screen
// intervals and webcam keyframes.
class TimelineEffectError : public LocalizedError {
public:
    enum class Case {
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

    static TimelineEffectError zoomNotFound() { return TimelineEffectError(Case::zoomNotFound); }
    static TimelineEffectError zoomRangeInvalid() { return TimelineEffectError(Case::zoomRangeInvalid); }
    static TimelineEffectError zoomOverlap() { return TimelineEffectError(Case::zoomOverlap); }
    static TimelineEffectError webcamFullscreenNotFound() {
        return TimelineEffectError(Case::webcamFullscreenNotFound);
    }
    static TimelineEffectError webcamFullscreenRangeInvalid() {
        return TimelineEffectError(Case::webcamFullscreenRangeInvalid);
    }
    static TimelineEffectError webcamFullscreenOverlap() {
        return TimelineEffectError(Case::webcamFullscreenOverlap);
    }
    static TimelineEffectError keyframeOutsideSource() {
        return TimelineEffectError(Case::keyframeOutsideSource);
    }
    static TimelineEffectError keyframeInvalid() { return TimelineEffectError(Case::keyframeInvalid); }
    static TimelineEffectError zoomIndexInvalid() { return TimelineEffectError(Case::zoomIndexInvalid); }

    Case errorCase() const noexcept { return case_; }

private:
    explicit TimelineEffectError(Case errorCase);

    Case case_;
};

} // namespace rilo

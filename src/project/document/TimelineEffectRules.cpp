#include "project/document/TimelineEffectRules.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <vector>

namespace rilo::TimelineEffectEngine {

namespace {

// end - start >= minimum, without overflowing on wild values.
bool lastsAtLeast(ProjectTime start, ProjectTime end, ProjectTime minimum) noexcept {
    std::int64_t length = 0;
    if (__builtin_sub_overflow(end.nanoseconds, start.nanoseconds, &length)) {
        return end > start;
    }
    return length >= minimum.nanoseconds;
}

bool isValidZoom(const ZoomSegment& zoom, ProjectTime sourceDuration) {
    return zoom.startTime >= ProjectTime::zero() && zoom.endTime <= sourceDuration &&
           lastsAtLeast(zoom.startTime, zoom.endTime, TimelineFrameGrid::minimumDuration) &&
           zoom.startTime <= zoom.focusTime && zoom.focusTime <= zoom.holdEndTime &&
           zoom.holdEndTime <= zoom.endTime && ZoomSegment::scaleLimits.contains(zoom.scale) &&
           zoom.focusPoint == constrainedFocus(zoom.focusPoint, zoom.scale);
}

template <typename Interval>
std::vector<Interval> sortedByStart(const std::vector<Interval>& intervals) {
    std::vector<Interval> sorted = intervals;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const Interval& a, const Interval& b) { return a.startTime < b.startTime; });
    return sorted;
}

void validateZooms(const std::vector<ZoomSegment>& zooms, ProjectTime sourceDuration) {
    std::set<Uuid> seenIDs;
    const ZoomSegment* previous = nullptr;
    const std::vector<ZoomSegment> sorted = sortedByStart(zooms);
    for (const ZoomSegment& zoom : sorted) {
        if (!seenIDs.insert(zoom.id).second || !isValidZoom(zoom, sourceDuration)) {
            throw TimelineEffectError(TimelineEffectError::Case::zoomRangeInvalid);
        }
        if (previous != nullptr && zoom.startTime < previous->endTime) {
            throw TimelineEffectError(TimelineEffectError::Case::zoomOverlap);
        }
        previous = &zoom;
    }
}

void validateWebcamFullscreenSegments(const EditTimeline& timeline, ProjectTime sourceDuration) {
    if (timeline.webcamFullscreenSegments.empty()) {
        return;
    }
    if (!timeline.webcamOverlay) {
        throw TimelineEffectError(TimelineEffectError::Case::webcamFullscreenRangeInvalid);
    }
    std::set<Uuid> seenIDs;
    const WebcamFullscreenSegment* previous = nullptr;
    const std::vector<WebcamFullscreenSegment> sorted = sortedByStart(timeline.webcamFullscreenSegments);
    for (const WebcamFullscreenSegment& segment : sorted) {
        if (!seenIDs.insert(segment.id).second || segment.startTime < ProjectTime::zero() ||
            segment.endTime > sourceDuration ||
            !lastsAtLeast(segment.startTime, segment.endTime, minimumWebcamFullscreenDuration)) {
            throw TimelineEffectError(TimelineEffectError::Case::webcamFullscreenRangeInvalid);
        }
        if (previous != nullptr && segment.startTime < previous->endTime) {
            throw TimelineEffectError(TimelineEffectError::Case::webcamFullscreenOverlap);
        }
        previous = &segment;
    }
}

bool isInsideUnitSquare(PointValue point) noexcept {
    // Written so that a NaN fails.
    return point.x >= 0 && point.x <= 1 && point.y >= 0 && point.y <= 1;
}

void validateKeyframes(const std::vector<WebcamOverlayKeyframe>& keyframes, ProjectTime sourceDuration) {
    std::set<Uuid> seenIDs;
    std::set<ProjectTime> seenTimes;
    for (const WebcamOverlayKeyframe& keyframe : keyframes) {
        if (keyframe.time < ProjectTime::zero() || keyframe.time >= sourceDuration) {
            throw TimelineEffectError(TimelineEffectError::Case::keyframeOutsideSource);
        }
        if (!seenIDs.insert(keyframe.id).second || !seenTimes.insert(keyframe.time).second ||
            !WebcamOverlay::diameterLimits.contains(keyframe.diameter) ||
            !isInsideUnitSquare(keyframe.center)) {
            throw TimelineEffectError(TimelineEffectError::Case::keyframeInvalid);
        }
    }
}

} // namespace

void validate(const EditTimeline& timeline, ProjectTime sourceDuration) {
    validateZooms(timeline.zooms, sourceDuration);
    validateWebcamFullscreenSegments(timeline, sourceDuration);
    validateKeyframes(timeline.webcamKeyframes, sourceDuration);
}

PointValue constrainedFocus(PointValue point, double scale) noexcept {
    // Also catches a NaN scale.
    if (!(scale > 1)) {
        return {0.5, 0.5};
    }
    const double lower = 0.5 / scale;
    const double upper = 1 - 0.5 / scale;
    return {std::clamp(point.x, lower, upper), std::clamp(point.y, lower, upper)};
}

} // namespace rilo::TimelineEffectEngine

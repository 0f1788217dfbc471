// The movements of the scene: the spring, the camera over the zooms, the
// motion blur shutter and the webcam's full-screen and zoom factors.

#include "scene/SceneEvaluator.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>
#include <vector>

namespace rilo {

namespace {

// The step response of an underdamped spring over x seconds. It rises past 1
// only slightly; dividing by its value at the end, and clamping, keeps the
// progress within 0...1.
double springResponse(double x) noexcept {
    constexpr double decay = 8.88888888888889;
    constexpr double frequency = 3.1426968052735456;
    constexpr double sineWeight = 2.8284271247461894;
    return 1 - std::exp(-decay * x) * (std::cos(frequency * x) + sineWeight * std::sin(frequency * x));
}

CameraState target(const ZoomSegment& zoom) noexcept {
    return {zoom.focusPoint, zoom.scale};
}

CameraState interpolated(const CameraState& from, const CameraState& to, double progress) noexcept {
    const auto mix = [progress](double a, double b) { return a + (b - a) * progress; };
    return {{mix(from.center.x, to.center.x), mix(from.center.y, to.center.y)}, mix(from.scale, to.scale)};
}

std::int64_t atLeastOne(ProjectTime length) noexcept {
    return std::max<std::int64_t>(length.nanoseconds, 1);
}

// The index of the last zoom running at the time, searching from the end.
std::optional<std::size_t> runningZoomIndex(ProjectTime time,
                                            const std::vector<ZoomSegment>& zooms) noexcept {
    for (std::size_t i = zooms.size(); i-- > 0;) {
        if (zooms[i].startTime <= time && time < zooms[i].endTime) {
            return i;
        }
    }
    return std::nullopt;
}

// The direct hand-over between two zooms whose ends touch, from the end of
// the first one's hold to the second one's focus.
std::optional<CameraState> touchingTransition(ProjectTime time, const ZoomSegment& from,
                                              const ZoomSegment& to) noexcept {
    if (from.endTime != to.startTime || time < from.holdEndTime || time > to.focusTime) {
        return std::nullopt;
    }
    const std::int64_t span = (to.focusTime - from.holdEndTime).nanoseconds;
    if (span < 1) {
        return target(to);
    }
    return interpolated(target(from), target(to),
                        SceneEvaluator::springProgress((time - from.holdEndTime).nanoseconds, span));
}

// 1 at rest, down to 0.8 as the camera reaches the reference scale.
double shrinkValue(double referenceScale, const CameraState& camera) noexcept {
    constexpr double largestShrink = 0.19999999999999996;
    if (referenceScale - 1 <= 0) {
        return 1;
    }
    const double ratio = (camera.scale - 1) / (referenceScale - 1);
    if (ratio <= 0) {
        return 1;
    }
    return 1 - std::min(ratio, 1.0) * largestShrink;
}

double transitionValue(const ZoomSegment& from, const ZoomSegment& to, const CameraState& camera) noexcept {
    if (from.scale > 1 && to.scale > 1) {
        return 0.8;
    }
    return shrinkValue(std::max(from.scale, to.scale), camera);
}

bool startsEarlier(const WebcamFullscreenSegment& a, const WebcamFullscreenSegment& b) noexcept {
    return a.startTime < b.startTime;
}

} // namespace

double SceneEvaluator::springProgress(std::int64_t elapsedNanoseconds,
                                      std::int64_t durationNanoseconds) noexcept {
    if (durationNanoseconds <= 0) {
        return elapsedNanoseconds >= durationNanoseconds ? 1 : 0;
    }
    const double p = std::clamp(
        static_cast<double>(elapsedNanoseconds) / static_cast<double>(durationNanoseconds), 0.0, 1.0);
    if (p == 0 || p == 1) {
        return p;
    }
    const double seconds = static_cast<double>(durationNanoseconds) / 1'000'000'000;
    const double settled = springResponse(seconds);
    if (settled <= 2.220446049250313e-16) {
        return p;
    }
    return std::clamp(springResponse(seconds * p) / settled, 0.0, 1.0);
}

CameraState SceneEvaluator::cameraState(ProjectTime time, const std::vector<ZoomSegment>& zooms) noexcept {
    const auto index = runningZoomIndex(time, zooms);
    if (!index) {
        return CameraState::identity();
    }
    const std::size_t i = *index;
    const ZoomSegment& zoom = zooms[i];
    if (i > 0) {
        if (const auto camera = touchingTransition(time, zooms[i - 1], zoom)) {
            return *camera;
        }
    }
    if (i + 1 < zooms.size()) {
        if (const auto camera = touchingTransition(time, zoom, zooms[i + 1])) {
            return *camera;
        }
    }
    const CameraState zoomed = target(zoom);
    if (time <= zoom.focusTime) {
        const double progress =
            springProgress((time - zoom.startTime).nanoseconds, atLeastOne(zoom.focusTime - zoom.startTime));
        return interpolated(CameraState::identity(), zoomed, progress);
    }
    if (time <= zoom.holdEndTime) {
        return zoomed;
    }
    const double progress =
        springProgress((time - zoom.holdEndTime).nanoseconds, atLeastOne(zoom.endTime - zoom.holdEndTime));
    return interpolated(zoomed, CameraState::identity(), progress);
}

std::int64_t SceneEvaluator::motionBlurShutterNanoseconds(double amount) noexcept {
    // A frame at 60 fps, reached at the middle of the range, and the extra
    // length that the upper half adds on the way to 0.1 s.
    constexpr double sixtiethNanoseconds = 16666667;
    constexpr double upperHalfNanoseconds = 83333333;
    const double clamped = std::isnan(amount) ? 0.0 : std::clamp(amount, 0.0, 1.0);
    if (clamped <= 0.5) {
        return std::llround(clamped * sixtiethNanoseconds * 2);
    }
    return std::llround((clamped - 0.5) * 2 * upperHalfNanoseconds + sixtiethNanoseconds);
}

double SceneEvaluator::webcamFullscreenProgress(ProjectTime time,
                                                const std::vector<WebcamFullscreenSegment>& segments,
                                                std::int64_t transitionNanoseconds) {
    // Stored segments are already in order; only an unordered list is copied.
    std::vector<WebcamFullscreenSegment> sortedCopy;
    const std::vector<WebcamFullscreenSegment>* sorted = &segments;
    if (!std::is_sorted(segments.begin(), segments.end(), startsEarlier)) {
        sortedCopy = segments;
        std::stable_sort(sortedCopy.begin(), sortedCopy.end(), startsEarlier);
        sorted = &sortedCopy;
    }
    const std::vector<WebcamFullscreenSegment>& list = *sorted;

    std::optional<std::size_t> found;
    for (std::size_t i = list.size(); i-- > 0;) {
        if (list[i].startTime <= time && time < list[i].endTime) {
            found = i;
            break;
        }
    }
    if (!found) {
        return 0;
    }
    const std::size_t i = *found;
    const WebcamFullscreenSegment& segment = list[i];
    // A short segment shares its length equally between the two ramps.
    const std::int64_t ramp =
        std::min((segment.endTime - segment.startTime).nanoseconds / 2, transitionNanoseconds);
    const std::int64_t rampDuration = std::max<std::int64_t>(ramp, 1);
    const bool touchesPrevious = i > 0 && list[i - 1].endTime == segment.startTime;
    const bool touchesNext = i + 1 < list.size() && list[i + 1].startTime == segment.endTime;

    if (!touchesPrevious && time < segment.startTime + ProjectTime{ramp}) {
        return springProgress((time - segment.startTime).nanoseconds, rampDuration);
    }
    if (!touchesNext && time > segment.endTime - ProjectTime{ramp}) {
        return 1 - springProgress((time - segment.endTime + ProjectTime{ramp}).nanoseconds, rampDuration);
    }
    return 1;
}

double SceneEvaluator::webcamZoomScale(ProjectTime time, const std::vector<ZoomSegment>& zooms,
                                       const CameraState& camera) noexcept {
    const auto index = runningZoomIndex(time, zooms);
    if (!index) {
        return 1;
    }
    const std::size_t i = *index;
    const ZoomSegment& zoom = zooms[i];
    if (i > 0 && zooms[i - 1].endTime == zoom.startTime && time <= zoom.focusTime) {
        return transitionValue(zooms[i - 1], zoom, camera);
    }
    if (i + 1 < zooms.size() && zoom.endTime == zooms[i + 1].startTime && time >= zoom.holdEndTime) {
        return transitionValue(zoom, zooms[i + 1], camera);
    }
    return shrinkValue(zoom.scale, camera);
}

} // namespace rilo

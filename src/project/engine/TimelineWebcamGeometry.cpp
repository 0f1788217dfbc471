// Where the webcam sits on the canvas over time: its size in canvas
// coordinates, its placement at a time from the base and the keyframes, and
// the operations that move or resize the whole motion path.

#include "project/engine/TimelineEffectEngine.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

namespace rilo::TimelineEffectEngine {

namespace {

constexpr double minimumAspectRatio = 0.01;

// Clamped like std::clamp, except that a NaN becomes the lower bound.
double clampedOrLower(double value, double lower, double upper) noexcept {
    return std::isnan(value) ? lower : std::clamp(value, lower, upper);
}

double atLeast(double value, double lower) noexcept {
    return std::isnan(value) ? lower : std::max(value, lower);
}

double clampedDiameter(double diameter) noexcept {
    return clampedOrLower(diameter, WebcamOverlay::diameterLimits.minimum,
                          WebcamOverlay::diameterLimits.maximum);
}

// A coordinate kept at least `radius` away from both edges; a webcam wider
// than the canvas is centred.
double constrainedCoordinate(double value, double radius) noexcept {
    if (!(radius < 0.5)) {
        return 0.5;
    }
    return std::clamp(value, radius, 1 - radius);
}

bool isFinite(PointValue point) noexcept {
    return std::isfinite(point.x) && std::isfinite(point.y);
}

std::vector<WebcamOverlayKeyframe> sortedByTime(std::vector<WebcamOverlayKeyframe> keyframes) {
    std::stable_sort(
        keyframes.begin(), keyframes.end(),
        [](const WebcamOverlayKeyframe& a, const WebcamOverlayKeyframe& b) { return a.time < b.time; });
    return keyframes;
}

// The center and diameter that the keyframes give at a time: held before the
// first and after the last, eased with a smoothstep between neighbours.
std::pair<PointValue, double> keyframedPlacement(const std::vector<WebcamOverlayKeyframe>& sorted,
                                                 ProjectTime time) {
    if (time <= sorted.front().time) {
        return {sorted.front().center, sorted.front().diameter};
    }
    if (time >= sorted.back().time) {
        return {sorted.back().center, sorted.back().diameter};
    }
    const auto next =
        std::upper_bound(sorted.begin(), sorted.end(), time,
                         [](ProjectTime t, const WebcamOverlayKeyframe& k) { return t < k.time; });
    const WebcamOverlayKeyframe& a = *std::prev(next);
    const WebcamOverlayKeyframe& b = *next;
    const double span = static_cast<double>(std::max<std::int64_t>((b.time - a.time).nanoseconds, 1));
    const double t = std::clamp(static_cast<double>((time - a.time).nanoseconds) / span, 0.0, 1.0);
    const double eased = t * t * (3 - 2 * t);
    const auto mix = [eased](double from, double to) { return from + (to - from) * eased; };
    return {{mix(a.center.x, b.center.x), mix(a.center.y, b.center.y)}, mix(a.diameter, b.diameter)};
}

} // namespace

WebcamHalfExtents webcamRadii(double diameter, double outputAspectRatio, double webcamAspectRatio) noexcept {
    const double d = clampedDiameter(diameter);
    const double output = atLeast(outputAspectRatio, minimumAspectRatio);
    const double webcam = atLeast(webcamAspectRatio, minimumAspectRatio);
    return {std::min(1 / output, 1.0) * webcam * d * 0.5, std::min(output, 1.0) * d * 0.5};
}

PointValue constrainedWebcamCenter(PointValue center, double diameter, double outputAspectRatio,
                                   double webcamAspectRatio) noexcept {
    const WebcamHalfExtents radii = webcamRadii(diameter, outputAspectRatio, webcamAspectRatio);
    return {constrainedCoordinate(center.x, radii.horizontal),
            constrainedCoordinate(center.y, radii.vertical)};
}

std::optional<WebcamOverlay> webcamOverlay(const std::optional<WebcamOverlay>& base,
                                           const std::vector<WebcamOverlayKeyframe>& keyframes,
                                           ProjectTime time, double outputAspectRatio) {
    if (!base) {
        return std::nullopt;
    }
    WebcamOverlay overlay = *base;
    if (!keyframes.empty()) {
        const auto [center, diameter] = keyframedPlacement(sortedByTime(keyframes), time);
        overlay.center = center;
        overlay.diameter = diameter;
    }
    overlay.diameter = clampedDiameter(overlay.diameter);
    overlay.center = constrainedWebcamCenter(overlay.center, overlay.diameter, outputAspectRatio,
                                             value(overlay.aspectRatio));
    return overlay;
}

EditTimeline moveWebcamGlobally(const EditTimeline& timeline, ProjectTime time, PointValue target,
                                double outputAspectRatio) {
    const std::optional<WebcamOverlay> current =
        webcamOverlay(timeline.webcamOverlay, timeline.webcamKeyframes, time, outputAspectRatio);
    if (!current || !isFinite(target)) {
        return timeline;
    }
    const double webcamAspectRatio = value(timeline.webcamOverlay->aspectRatio);

    // The shift that keeps every placement of the path on the canvas.
    constexpr double infinity = std::numeric_limits<double>::infinity();
    double lowerX = -infinity, upperX = infinity, lowerY = -infinity, upperY = infinity;
    const auto limitBy = [&](PointValue center, double diameter) {
        const WebcamHalfExtents radii = webcamRadii(diameter, outputAspectRatio, webcamAspectRatio);
        lowerX = std::max(lowerX, radii.horizontal - center.x);
        upperX = std::min(upperX, 1 - radii.horizontal - center.x);
        lowerY = std::max(lowerY, radii.vertical - center.y);
        upperY = std::min(upperY, 1 - radii.vertical - center.y);
    };
    limitBy(timeline.webcamOverlay->center, timeline.webcamOverlay->diameter);
    for (const WebcamOverlayKeyframe& keyframe : timeline.webcamKeyframes) {
        limitBy(keyframe.center, keyframe.diameter);
    }
    // A path that already leaves the canvas on both sides cannot be helped by
    // a shift; it stays where it is on that axis.
    const auto allowed = [](double wanted, double lower, double upper) {
        return lower <= upper ? std::clamp(wanted, lower, upper) : 0.0;
    };
    const double shiftX = allowed(target.x - current->center.x, lowerX, upperX);
    const double shiftY = allowed(target.y - current->center.y, lowerY, upperY);

    EditTimeline result = timeline;
    const auto shift = [&](PointValue& center) {
        center.x += shiftX;
        center.y += shiftY;
    };
    shift(result.webcamOverlay->center);
    for (WebcamOverlayKeyframe& keyframe : result.webcamKeyframes) {
        shift(keyframe.center);
    }
    return result;
}

EditTimeline resizeWebcamGlobally(const EditTimeline& timeline, ProjectTime time, double targetDiameter,
                                  double outputAspectRatio) {
    const std::optional<WebcamOverlay> current =
        webcamOverlay(timeline.webcamOverlay, timeline.webcamKeyframes, time, outputAspectRatio);
    if (!current || !std::isfinite(targetDiameter)) {
        return timeline;
    }
    const double webcamAspectRatio = value(timeline.webcamOverlay->aspectRatio);
    const double ratio =
        clampedDiameter(targetDiameter) / std::max(current->diameter, WebcamOverlay::diameterLimits.minimum);

    EditTimeline result = timeline;
    const auto resize = [&](PointValue& center, double& diameter) {
        diameter = clampedDiameter(diameter * ratio);
        center = constrainedWebcamCenter(center, diameter, outputAspectRatio, webcamAspectRatio);
    };
    resize(result.webcamOverlay->center, result.webcamOverlay->diameter);
    for (WebcamOverlayKeyframe& keyframe : result.webcamKeyframes) {
        resize(keyframe.center, keyframe.diameter);
    }
    return result;
}

EditTimeline upsertWebcamKeyframe(const EditTimeline& timeline, ProjectTime time, PointValue center,
                                  double diameter, ProjectTime sourceDuration, double outputAspectRatio) {
    if (time < ProjectTime::zero() || time >= sourceDuration) {
        throw TimelineEffectError(TimelineEffectError::Case::keyframeOutsideSource);
    }
    if (!timeline.webcamOverlay || !isFinite(center) || !std::isfinite(diameter)) {
        throw TimelineEffectError(TimelineEffectError::Case::keyframeInvalid);
    }
    // On the grid, so that placements made in the same frame meet in one
    // keyframe; the last frame before the end rounds down instead of out.
    ProjectTime snapped = TimelineFrameGrid::nearestBoundary(time);
    if (snapped >= sourceDuration) {
        snapped = TimelineFrameGrid::floorBoundary(time);
    }
    const double newDiameter = clampedDiameter(diameter);
    const PointValue newCenter = constrainedWebcamCenter(center, newDiameter, outputAspectRatio,
                                                         value(timeline.webcamOverlay->aspectRatio));

    EditTimeline result = timeline;
    std::vector<WebcamOverlayKeyframe>& keyframes = result.webcamKeyframes;
    const auto existing = std::find_if(keyframes.begin(), keyframes.end(),
                                       [&](const WebcamOverlayKeyframe& k) { return k.time == snapped; });
    if (existing != keyframes.end()) {
        existing->center = newCenter;
        existing->diameter = newDiameter;
    } else {
        keyframes.push_back({Uuid::random(), snapped, newCenter, newDiameter});
    }
    keyframes = sortedByTime(std::move(keyframes));
    validate(result, sourceDuration);
    return result;
}

EditTimeline removeWebcamKeyframe(const EditTimeline& timeline, const Uuid& id) {
    EditTimeline result = timeline;
    std::erase_if(result.webcamKeyframes, [&](const WebcamOverlayKeyframe& k) { return k.id == id; });
    return result;
}

} // namespace rilo::TimelineEffectEngine

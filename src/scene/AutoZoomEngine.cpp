#include "scene/AutoZoomEngine.h"

#include "project/engine/TimelineEffectEngine.h"
#include "shared/Uuid.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace rilo {

namespace {

// Click times come straight from the sample chunks; saturating keeps wild
// values from overflowing where the result is clamped to the source anyway.
std::int64_t saturatingAdd(std::int64_t a, std::int64_t b) noexcept {
    std::int64_t result = 0;
    if (__builtin_add_overflow(a, b, &result)) {
        return b > 0 ? std::numeric_limits<std::int64_t>::max() : std::numeric_limits<std::int64_t>::min();
    }
    return result;
}

std::int64_t saturatingSubtract(std::int64_t a, std::int64_t b) noexcept {
    std::int64_t result = 0;
    if (__builtin_sub_overflow(a, b, &result)) {
        return b > 0 ? std::numeric_limits<std::int64_t>::min() : std::numeric_limits<std::int64_t>::max();
    }
    return result;
}

bool isLeftPress(const MouseEvent& event) noexcept {
    return event.phase == MousePhase::down && event.button == MouseButton::left;
}

struct ClickCluster {
    const MouseEvent* first;
    const MouseEvent* last;
};

} // namespace

std::vector<ZoomSegment> AutoZoomEngine::makeSegments(const std::vector<MouseEvent>& events,
                                                      ProjectTime duration) const {
    std::vector<const MouseEvent*> clicks;
    for (const MouseEvent& event : events) {
        if (isLeftPress(event)) {
            clicks.push_back(&event);
        }
    }
    if (clicks.empty()) {
        return {};
    }
    std::stable_sort(clicks.begin(), clicks.end(),
                     [](const MouseEvent* a, const MouseEvent* b) { return a->time < b->time; });

    // A click joins the cluster when it is close to the cluster's last click,
    // so a chain of clicks may drift far from where it started.
    std::vector<ClickCluster> clusters;
    for (const MouseEvent* click : clicks) {
        if (!clusters.empty()) {
            ClickCluster& cluster = clusters.back();
            const std::int64_t gap =
                saturatingSubtract(click->time.nanoseconds, cluster.last->time.nanoseconds);
            const double distance = std::hypot(click->normalizedPoint.x - cluster.last->normalizedPoint.x,
                                               click->normalizedPoint.y - cluster.last->normalizedPoint.y);
            if (gap <= mergeIntervalNanoseconds && distance <= mergeDistance) {
                cluster.last = click;
                continue;
            }
        }
        clusters.push_back({click, click});
    }

    std::vector<ZoomSegment> segments;
    segments.reserve(clusters.size());
    for (const ClickCluster& cluster : clusters) {
        const ProjectTime startTime{std::max<std::int64_t>(
            saturatingSubtract(cluster.first->time.nanoseconds, zoomInNanoseconds), 0)};
        const ProjectTime holdEndTime{
            std::min(saturatingAdd(cluster.last->time.nanoseconds, holdNanoseconds), duration.nanoseconds)};
        const ProjectTime endTime{
            std::min(saturatingAdd(holdEndTime.nanoseconds, zoomOutNanoseconds), duration.nanoseconds)};
        if (startTime >= endTime) {
            continue;
        }
        segments.push_back({
            .id = Uuid::random(),
            .startTime = startTime,
            .focusTime = cluster.first->time,
            .holdEndTime = holdEndTime,
            .endTime = endTime,
            .focusPoint = TimelineEffectEngine::constrainedFocus(cluster.last->normalizedPoint, zoomScale),
            .scale = zoomScale,
        });
    }

    // The later zoom wins: the earlier one ends where the later one starts,
    // and the two touch.
    for (std::size_t i = 1; i < segments.size(); ++i) {
        const ProjectTime nextStart = segments[i].startTime;
        ZoomSegment& earlier = segments[i - 1];
        if (nextStart < earlier.endTime) {
            earlier.id = Uuid::random();
            earlier.focusTime = std::min(nextStart, earlier.focusTime);
            earlier.holdEndTime = std::min(nextStart, earlier.holdEndTime);
            earlier.endTime = nextStart;
        }
    }

    std::erase_if(segments, [](const ZoomSegment& segment) { return segment.startTime >= segment.endTime; });
    return segments;
}

} // namespace rilo

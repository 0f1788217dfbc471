#include "ui/timeline/TimelineLayout.h"

#include <algorithm>
#include <array>

namespace rilo {
namespace {

constexpr std::array<TimelineLane, 5> candidateOrder{TimelineLane::screen, TimelineLane::captions,
                                                     TimelineLane::webcamLayout, TimelineLane::autoZoom,
                                                     TimelineLane::annotations};

bool isCandidate(TimelineLane lane, const TimelineLaneOptions& options) {
    if (lane == TimelineLane::captions && !options.hasCaptions) {
        return false;
    }
    if (lane == TimelineLane::webcamLayout && !options.hasWebcam) {
        return false;
    }
    return !options.visibleLanes || options.visibleLanes->contains(lane);
}

double restingHeight(TimelineLane lane, bool expanded, bool hasAudio, const TimelineViewMetrics& metrics) {
    switch (lane) {
    case TimelineLane::ruler:
        return metrics.rulerHeight;
    case TimelineLane::screen:
        return (expanded ? metrics.screenExpandedHeight : metrics.screenCollapsedHeight) +
               (hasAudio ? metrics.waveformHeight : 0);
    default:
        return expanded ? metrics.laneExpandedHeight : metrics.laneCollapsedHeight;
    }
}

// A smooth polynomial ease (smootherstep): flat at both ends.
double eased(double progress) {
    const double p = std::clamp(progress, 0.0, 1.0);
    return p * p * p * (p * (p * 6 - 15) + 10);
}

} // namespace

TimelineLayout TimelineLayout::make(const TimelineLaneOptions& options, const TimelineViewMetrics& metrics) {
    std::vector<TimelineLane> lanes;
    for (const TimelineLane lane : candidateOrder) {
        if (isCandidate(lane, options)) {
            lanes.push_back(lane);
        }
    }
    TimelineLayout layout;
    if (options.expandedLane && std::ranges::find(lanes, *options.expandedLane) != lanes.end()) {
        layout.expandedLane = options.expandedLane;
    } else if (!lanes.empty()) {
        layout.expandedLane = lanes.front();
    }
    lanes.insert(lanes.begin(), TimelineLane::ruler);
    for (const TimelineLane lane : lanes) {
        const double height = restingHeight(lane, layout.expandedLane == lane, options.hasAudio, metrics);
        layout.frames.push_back({lane, layout.totalHeight, height});
        layout.totalHeight += height;
    }
    return layout;
}

TimelineLayout TimelineLayout::withHeights(const TimelineLaneHeights& heights) const {
    TimelineLayout layout{{}, 0, expandedLane};
    for (const TimelineLaneFrame& frame : frames) {
        const auto found = heights.find(frame.lane);
        const double height = found == heights.end() ? frame.height : std::max(found->second, 0.0);
        layout.frames.push_back({frame.lane, layout.totalHeight, height});
        layout.totalHeight += height;
    }
    return layout;
}

TimelineLaneHeights TimelineLayout::heights() const {
    TimelineLaneHeights result;
    for (const TimelineLaneFrame& frame : frames) {
        result[frame.lane] = frame.height;
    }
    return result;
}

std::optional<TimelineLane> TimelineLayout::laneAtY(double y) const noexcept {
    for (const TimelineLaneFrame& frame : frames) {
        if (y >= frame.minY && y < frame.maxY()) {
            return frame.lane;
        }
    }
    return std::nullopt;
}

std::optional<TimelineLaneFrame> TimelineLayout::frame(TimelineLane lane) const noexcept {
    for (const TimelineLaneFrame& frame : frames) {
        if (frame.lane == lane) {
            return frame;
        }
    }
    return std::nullopt;
}

TimelineLaneHeights TimelineLaneTransition::heightsAt(std::chrono::steady_clock::time_point now) const {
    if (isFinishedAt(now)) {
        return targetHeights;
    }
    const double progress = std::chrono::duration<double>(now - startedAt).count() /
                            std::chrono::duration<double>(duration).count();
    const double weight = eased(progress);
    TimelineLaneHeights result;
    const auto blend = [&](TimelineLane lane) {
        const auto from = initialHeights.find(lane);
        const auto to = targetHeights.find(lane);
        const double initial = from == initialHeights.end() ? 0 : from->second;
        const double target = to == targetHeights.end() ? 0 : to->second;
        result[lane] = initial + (target - initial) * weight;
    };
    for (const auto& [lane, height] : initialHeights) {
        blend(lane);
    }
    for (const auto& [lane, height] : targetHeights) {
        blend(lane);
    }
    return result;
}

} // namespace rilo

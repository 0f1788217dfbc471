#pragma once

// How the lanes of the timeline view stack from top to bottom, and how their
// heights animate when another lane is expanded.
//
// The ruler is always on top. Below it the candidate lanes follow in a fixed
// order (screen, captions, webcam layout, auto zoom, annotations): captions
// only for a project with captions, the webcam layout only with a webcam, and
// an optional set of visible lanes narrows the list further. One candidate is
// expanded: the one asked for when it is listed, otherwise the first listed.
// Pure values and functions; heights come from TimelineViewMetrics.

#include "ui/timeline/TimelineViewMetrics.h"

#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <vector>

namespace rilo {

enum class TimelineLane { ruler, screen, captions, webcamLayout, autoZoom, annotations };

struct TimelineLaneFrame {
    TimelineLane lane = TimelineLane::ruler;
    double minY = 0;
    double height = 0;

    double maxY() const noexcept { return minY + height; }

    friend bool operator==(const TimelineLaneFrame&, const TimelineLaneFrame&) = default;
};

// What the layout is built from.
struct TimelineLaneOptions {
    bool hasAudio = false;
    bool hasCaptions = false;
    bool hasWebcam = false;
    std::optional<TimelineLane> expandedLane;
    // None shows every lane the project has.
    std::optional<std::set<TimelineLane>> visibleLanes;

    friend bool operator==(const TimelineLaneOptions&, const TimelineLaneOptions&) = default;
};

using TimelineLaneHeights = std::map<TimelineLane, double>;

struct TimelineLayout {
    std::vector<TimelineLaneFrame> frames;
    double totalHeight = 0;
    std::optional<TimelineLane> expandedLane;

    // The lanes at their resting heights.
    static TimelineLayout make(const TimelineLaneOptions& options, const TimelineViewMetrics& metrics);

    // The same lanes restacked with the given heights (a running transition);
    // a lane missing from the map keeps its height.
    TimelineLayout withHeights(const TimelineLaneHeights& heights) const;

    TimelineLaneHeights heights() const;
    // The lane whose frame holds y (its top included, its bottom not).
    std::optional<TimelineLane> laneAtY(double y) const noexcept;
    std::optional<TimelineLaneFrame> frame(TimelineLane lane) const noexcept;

    friend bool operator==(const TimelineLayout&, const TimelineLayout&) = default;
};

// The animation of a change of the expanded lane: every height moves from
// its initial to its target value over `duration` on a smooth ease, and the
// target holds from then on. A lane that appears grows from 0, one that goes
// shrinks to 0 and is gone once the transition ends.
struct TimelineLaneTransition {
    static constexpr std::chrono::milliseconds duration{180};

    TimelineLaneHeights initialHeights;
    TimelineLaneHeights targetHeights;
    std::chrono::steady_clock::time_point startedAt;

    TimelineLaneHeights heightsAt(std::chrono::steady_clock::time_point now) const;
    bool isFinishedAt(std::chrono::steady_clock::time_point now) const noexcept {
        return now - startedAt >= duration;
    }

    friend bool operator==(const TimelineLaneTransition&, const TimelineLaneTransition&) = default;
};

} // namespace rilo

#pragma once

// The geometry of what the lanes draw: the block of an element between two
// x positions, its two trim handles, and the rate badge of a segment. Hit
// testing uses the same handle geometry, so what is drawn is what a press
// finds.

#include "shared/ProjectTime.h"
#include "ui/timeline/TimelineLayout.h"
#include "ui/timeline/TimelineViewMetrics.h"

#include <string>

namespace rilo {

struct TimelineRect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    double maxX() const noexcept { return x + width; }
    double maxY() const noexcept { return y + height; }

    friend bool operator==(const TimelineRect&, const TimelineRect&) = default;
};

struct TimelineHandleFrames {
    TimelineRect start;
    TimelineRect end;

    friend bool operator==(const TimelineHandleFrames&, const TimelineHandleFrames&) = default;
};

namespace TimelineEditableBlockLayout {

// The block from startX to endX (swapped when given backwards), inset from
// the top and bottom of its lane.
TimelineRect frame(double startX, double endX, const TimelineLaneFrame& lane,
                   const TimelineViewMetrics& metrics);

// The handles inside each end of the block: handleWidth wide, or half the
// block for a narrow one, so that the two never overlap.
TimelineHandleFrames handleFrames(const TimelineRect& block, const TimelineViewMetrics& metrics);

// The width of one handle of a block of this width.
double handleWidth(double blockWidth, const TimelineViewMetrics& metrics) noexcept;

} // namespace TimelineEditableBlockLayout

namespace TimelineRateBadgeLayout {

// The multiplier with two decimals and "×", as "1.50×".
std::string text(TimelinePlaybackRate rate);

// The badge of a segment block: at the block's top right, moved left so that
// it stays inside the visible part of the block (0 to viewportWidth), and
// none when the visible part is too narrow to hold it.
std::optional<TimelineRect> frame(TimelinePlaybackRate rate, const TimelineRect& block, double viewportWidth,
                                  const TimelineViewMetrics& metrics);

} // namespace TimelineRateBadgeLayout

} // namespace rilo

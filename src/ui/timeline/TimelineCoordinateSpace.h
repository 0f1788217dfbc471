#pragma once

// Conversion between the view's horizontal pixels and sequence time. x = 0 is
// the left edge of the visible part, at `visibleStart`; `pixelsPerSecond` is
// the zoom level and must be positive and finite.
//
// Times are whole nanoseconds: a time converts to an x exactly (in double),
// and an x back to the nearest nanosecond, so a time survives the round trip
// unchanged at every zoom level the editor offers.

#include "project/engine/TimelineMapper.h"
#include "shared/ProjectTime.h"

#include <optional>

namespace rilo {

struct TimelineCoordinateSpace {
    ProjectTime visibleStart; // sequence time
    double pixelsPerSecond = 100;

    double xFor(ProjectTime sequenceTime) const noexcept;
    // The nearest nanosecond, saturated at the limits of ProjectTime.
    ProjectTime timeForX(double x) const noexcept;
    // From visibleStart, as long as `width` pixels show.
    ProjectTimeRange visibleRange(double width) const noexcept;
    // The source time shown under x, for the waveform; none past either end
    // of the sequence.
    std::optional<ProjectTime> waveformSourceTime(double x, const TimelineMapper& mapper) const noexcept;

    // The space at another zoom level that keeps the time under anchorX where
    // it was, as a pinch or a zoom slider around the pointer wants.
    TimelineCoordinateSpace zoomed(double newPixelsPerSecond, double anchorX) const noexcept;

    friend bool operator==(const TimelineCoordinateSpace&, const TimelineCoordinateSpace&) = default;
};

} // namespace rilo

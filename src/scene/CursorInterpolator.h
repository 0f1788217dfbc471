#pragma once

// The continuous cursor path of a take: a position and a visibility for any
// source time, from the recorded mouse samples.
//
// Samples arrive at irregular intervals, so the path is a cubic Hermite spline
// whose tangents are scaled by the real time gaps between samples: the cursor
// glides through every sample without the corners of straight segments and
// without the speed changes that a spline over uniform steps would give to
// uneven spacing. Positions are clamped to the source frame.
//
// An immutable value: lookups are const, allocate nothing and may run on any
// thread at once.

#include "project/document/CaptureSamples.h"
#include "shared/Geometry.h"
#include "shared/ProjectTime.h"

#include <cstddef>
#include <vector>

namespace rilo {

class CursorInterpolator {
public:
    CursorInterpolator() = default;
    // All the take's events as stored (moves, drags, presses and releases of
    // every button), put in time order with a stable sort. Only `time`,
    // `normalizedPoint` and `isInsideSource` are read.
    explicit CursorInterpolator(std::vector<MouseEvent> events);

    // The samples in ascending time order.
    const std::vector<MouseEvent>& samples() const noexcept { return samples_; }

    // (0.5, 0.5) without samples; the first (last) point at or before the
    // first (after the last) sample; a sample's own point at its time.
    PointValue position(ProjectTime time) const noexcept;
    // Whether the last sample at or before the time (the first sample before
    // any) lies inside the source. Visibility is never interpolated: it
    // changes exactly at a sample's time. False without samples.
    bool isVisible(ProjectTime time) const noexcept;

    friend bool operator==(const CursorInterpolator&, const CursorInterpolator&) = default;

private:
    // The first sample later than the time, or the last sample when none is.
    std::size_t firstIndexAfter(ProjectTime time) const noexcept;

    std::vector<MouseEvent> samples_;
};

} // namespace rilo

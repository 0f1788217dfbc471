#pragma once

// The first version of a take's zooms, made from its recorded left clicks.
// Each cluster of clicks close in time and place becomes one zoom that moves
// in before the first click, stays until a while after the last one and moves
// out again. All times are source times; all positions are normalised to the
// source frame.
//
// A pure function of the events and the source duration: no clock, no state
// between calls, no failure. Only the zoom ids are fresh random values, so two
// runs over the same input agree in everything but the ids (compare them with
// TimelineEffectEngine's hasSameZoomConfiguration, not by equality).
//
// Callers pass only the events that are visible inside the source
// (MouseEvent::isVisibleInsideSource), so that a click outside the recorded
// region never makes a zoom.

#include "project/document/CaptureSamples.h"
#include "project/document/TimelineEffects.h"
#include "shared/ProjectTime.h"

#include <cstdint>
#include <vector>

namespace rilo {

// Every caller uses the defaults.
struct AutoZoomEngine {
    // Largest gap between two consecutive clicks of one cluster, inclusive.
    std::int64_t mergeIntervalNanoseconds = 1'200'000'000;
    // Largest distance between two consecutive clicks of one cluster,
    // inclusive, in normalised units.
    double mergeDistance = 0.12;
    // Scale of every zoom made.
    double zoomScale = 1.7;
    // How long before the first click a zoom starts.
    std::int64_t zoomInNanoseconds = ZoomSegment::defaultZoomInNanoseconds;
    // How long after the last click a zoom stays fully in.
    std::int64_t holdNanoseconds = 1'600'000'000;
    // Length of the way back.
    std::int64_t zoomOutNanoseconds = ZoomSegment::defaultZoomOutNanoseconds;

    // The zooms for the left-button presses among the events, which need not
    // be sorted, over a source of the given duration. The result is in
    // ascending startTime order and no two of its zooms overlap: where a
    // cluster's zoom would run into the next one, the earlier zoom is cut off
    // (with a fresh id) at the moment the later one starts.
    //
    // A cluster's timing comes from its first click (the zoom arrives there);
    // its focus from its last click, constrained so that the zoomed view
    // stays inside the frame.
    std::vector<ZoomSegment> makeSegments(const std::vector<MouseEvent>& events, ProjectTime duration) const;

    friend bool operator==(const AutoZoomEngine&, const AutoZoomEngine&) = default;
};

} // namespace rilo

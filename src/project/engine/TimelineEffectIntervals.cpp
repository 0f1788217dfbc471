// Zooms and webcam full-screen intervals: the timed effects that occupy a
// stretch of source time and may not overlap their own kind.

#include "project/engine/TimelineEffectEngine.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <utility>

namespace rilo::TimelineEffectEngine {

namespace {

using TimelineFrameGrid::ceilingBoundary;
using TimelineFrameGrid::floorBoundary;
using TimelineFrameGrid::nearestBoundary;

template <typename Interval>
std::vector<Interval> sortedByStart(std::vector<Interval> intervals) {
    std::stable_sort(intervals.begin(), intervals.end(),
                     [](const Interval& a, const Interval& b) { return a.startTime < b.startTime; });
    return intervals;
}

// A range snapped to the grid, or none when a boundary lies so far outside
// 0...sourceDuration that no snapping could bring it back (which also keeps
// wild input away from the grid arithmetic).
struct SnappedRange {
    ProjectTime start;
    ProjectTime end;
};

std::optional<SnappedRange> snappedRange(ProjectTimeRange range, ProjectTime sourceDuration) {
    std::int64_t end = 0;
    if (__builtin_add_overflow(range.start.nanoseconds, range.duration.nanoseconds, &end)) {
        return std::nullopt;
    }
    const ProjectTime lowest = ProjectTime::zero() - TimelineFrameGrid::minimumDuration;
    const ProjectTime highest = sourceDuration + TimelineFrameGrid::minimumDuration;
    const auto isNear = [&](ProjectTime t) { return t >= lowest && t <= highest; };
    if (!isNear(range.start) || !isNear(ProjectTime{end})) {
        return std::nullopt;
    }
    return SnappedRange{nearestBoundary(range.start), nearestBoundary(ProjectTime{end})};
}

bool isInsideSource(const SnappedRange& range, ProjectTime sourceDuration, ProjectTime minimum) {
    return range.start >= ProjectTime::zero() && range.end <= sourceDuration &&
           range.end - range.start >= minimum;
}

// t snapped, then clamped to [lower, upper]; when the bounds cross, upper
// wins. Snapping is monotonic, so bringing t near the bounds first changes
// nothing but keeps far-off times out of the grid arithmetic.
ProjectTime snappedBetween(ProjectTime t, ProjectTime lower, ProjectTime upper) {
    const ProjectTime margin = ProjectTime::fromSeconds(1);
    const ProjectTime near = std::clamp(t, lower - margin, std::max(lower, upper) + margin);
    return std::min(std::max(nearestBoundary(near), lower), upper);
}

// The intervals of the same kind around the one being changed, in startTime
// order.
struct Neighbours {
    std::optional<ProjectTime> previousEnd;
    std::optional<ProjectTime> nextStart;
};

struct Boundaries {
    ProjectTime start;
    ProjectTime end;
};

ProjectTime lowerStartLimit(const Neighbours& neighbours) {
    return neighbours.previousEnd ? ceilingBoundary(*neighbours.previousEnd) : ProjectTime::zero();
}

ProjectTime upperEndLimit(const Neighbours& neighbours, ProjectTime sourceDuration) {
    return floorBoundary(neighbours.nextStart.value_or(sourceDuration));
}

Boundaries withStart(Boundaries current, const Neighbours& neighbours, ProjectTime startTime,
                     ProjectTime minimum) {
    const ProjectTime upper = floorBoundary(std::max(current.end - minimum, ProjectTime::zero()));
    return {snappedBetween(startTime, lowerStartLimit(neighbours), upper), current.end};
}

Boundaries withEnd(Boundaries current, const Neighbours& neighbours, ProjectTime endTime, ProjectTime minimum,
                   ProjectTime sourceDuration) {
    const ProjectTime lower = ceilingBoundary(current.start + minimum);
    return {current.start, snappedBetween(endTime, lower, upperEndLimit(neighbours, sourceDuration))};
}

Boundaries moved(Boundaries current, const Neighbours& neighbours, ProjectTime startTime,
                 ProjectTime sourceDuration) {
    const ProjectTime duration = current.end - current.start;
    const ProjectTime start = snappedBetween(startTime, lowerStartLimit(neighbours),
                                             upperEndLimit(neighbours, sourceDuration) - duration);
    return {start, start + duration};
}

std::int64_t roundedNanoseconds(double value) {
    return static_cast<std::int64_t>(std::round(value)); // halves away from zero
}

// New boundaries for a zoom. Rise and fall keep their lengths where they fit
// and shrink in proportion where they do not.
void retime(ZoomSegment& zoom, Boundaries boundaries) {
    const std::int64_t rise = std::max<std::int64_t>((zoom.focusTime - zoom.startTime).nanoseconds, 0);
    const std::int64_t fall = std::max<std::int64_t>((zoom.endTime - zoom.holdEndTime).nanoseconds, 0);
    const std::int64_t ramps = checkedAdd(rise, fall);
    const std::int64_t total = std::max<std::int64_t>((boundaries.end - boundaries.start).nanoseconds, 1);
    const double factor = total >= ramps ? 1.0 : static_cast<double>(total) / static_cast<double>(ramps);
    const std::int64_t newRise = std::min(roundedNanoseconds(factor * static_cast<double>(rise)), total);
    const std::int64_t newFall =
        std::min(roundedNanoseconds(factor * static_cast<double>(fall)), total - newRise);
    zoom.startTime = boundaries.start;
    zoom.endTime = boundaries.end;
    zoom.focusTime = boundaries.start + ProjectTime{newRise};
    zoom.holdEndTime = boundaries.end - ProjectTime{newFall};
}

// The shared step of every change to one interval: find it by id, hand it
// with its neighbours to the mutation, store the list in startTime order and
// validate the result.
template <typename Interval, typename Mutation>
EditTimeline updatingInterval(const EditTimeline& timeline, std::vector<Interval> EditTimeline::*member,
                              const Uuid& id, ProjectTime sourceDuration, TimelineEffectError::Case notFound,
                              Mutation mutation) {
    std::vector<Interval> sorted = sortedByStart(timeline.*member);
    const auto found = std::find_if(sorted.begin(), sorted.end(),
                                    [&](const Interval& interval) { return interval.id == id; });
    if (found == sorted.end()) {
        throw TimelineEffectError(notFound);
    }
    Neighbours neighbours;
    if (found != sorted.begin()) {
        neighbours.previousEnd = std::prev(found)->endTime;
    }
    if (std::next(found) != sorted.end()) {
        neighbours.nextStart = std::next(found)->startTime;
    }
    mutation(*found, neighbours);
    EditTimeline result = timeline;
    result.*member = std::move(sorted);
    validate(result, sourceDuration);
    return result;
}

template <typename Mutation>
EditTimeline updatingZoom(const EditTimeline& timeline, const Uuid& id, ProjectTime sourceDuration,
                          Mutation mutation) {
    return updatingInterval(timeline, &EditTimeline::zooms, id, sourceDuration,
                            TimelineEffectError::Case::zoomNotFound, mutation);
}

template <typename Mutation>
EditTimeline updatingFullscreen(const EditTimeline& timeline, const Uuid& id, ProjectTime sourceDuration,
                                Mutation mutation) {
    return updatingInterval(timeline, &EditTimeline::webcamFullscreenSegments, id, sourceDuration,
                            TimelineEffectError::Case::webcamFullscreenNotFound, mutation);
}

template <typename Interval>
Boundaries boundariesOf(const Interval& interval) {
    return {interval.startTime, interval.endTime};
}

void setBoundaries(WebcamFullscreenSegment& segment, Boundaries boundaries) {
    segment.startTime = boundaries.start;
    segment.endTime = boundaries.end;
}

} // namespace

// ---- Zooms ----

ZoomSegment normalizedZoom(ProjectTimeRange range, PointValue focusPoint, double scale,
                           ProjectTime sourceDuration, std::int64_t zoomInNanoseconds,
                           std::int64_t zoomOutNanoseconds) {
    const std::optional<SnappedRange> snapped = snappedRange(range, sourceDuration);
    if (!snapped || !isInsideSource(*snapped, sourceDuration, TimelineFrameGrid::minimumDuration) ||
        !std::isfinite(scale)) {
        throw TimelineEffectError(TimelineEffectError::Case::zoomRangeInvalid);
    }
    const std::int64_t duration = (snapped->end - snapped->start).nanoseconds;
    const std::int64_t rise = std::min<std::int64_t>(std::max<std::int64_t>(zoomInNanoseconds, 0), duration);
    const std::int64_t fall =
        std::min(std::max<std::int64_t>(duration - rise, 0), std::max<std::int64_t>(zoomOutNanoseconds, 0));
    const double clampedScale = ZoomSegment::scaleLimits.clamped(scale);
    return {Uuid::random(),
            snapped->start,
            snapped->start + ProjectTime{rise},
            snapped->end - ProjectTime{fall},
            snapped->end,
            constrainedFocus(focusPoint, clampedScale),
            clampedScale};
}

EditTimeline addZoom(const EditTimeline& timeline, ProjectTimeRange range, PointValue focusPoint,
                     double scale, ProjectTime sourceDuration, std::int64_t zoomInNanoseconds,
                     std::int64_t zoomOutNanoseconds) {
    std::vector<ZoomSegment> zooms = timeline.zooms;
    zooms.push_back(
        normalizedZoom(range, focusPoint, scale, sourceDuration, zoomInNanoseconds, zoomOutNanoseconds));
    return replaceZooms(timeline, std::move(zooms), sourceDuration);
}

EditTimeline removeZoom(const EditTimeline& timeline, std::int64_t index, ProjectTime sourceDuration) {
    std::vector<ZoomSegment> zooms = sortedByStart(timeline.zooms);
    if (index < 0 || index >= static_cast<std::int64_t>(zooms.size())) {
        throw TimelineEffectError(TimelineEffectError::Case::zoomIndexInvalid);
    }
    zooms.erase(zooms.begin() + index);
    return replaceZooms(timeline, std::move(zooms), sourceDuration);
}

EditTimeline removeZoom(const EditTimeline& timeline, const Uuid& id, ProjectTime sourceDuration) {
    std::vector<ZoomSegment> zooms = timeline.zooms;
    const auto removed =
        std::remove_if(zooms.begin(), zooms.end(), [&](const ZoomSegment& z) { return z.id == id; });
    if (removed == zooms.end()) {
        throw TimelineEffectError(TimelineEffectError::Case::zoomNotFound);
    }
    zooms.erase(removed, zooms.end());
    return replaceZooms(timeline, std::move(zooms), sourceDuration);
}

EditTimeline removeAllZooms(const EditTimeline& timeline, ProjectTime sourceDuration) {
    return replaceZooms(timeline, {}, sourceDuration);
}

EditTimeline replaceZooms(const EditTimeline& timeline, std::vector<ZoomSegment> zooms,
                          ProjectTime sourceDuration) {
    EditTimeline result = timeline;
    result.zooms = sortedByStart(std::move(zooms));
    validate(result, sourceDuration);
    return result;
}

bool hasSameZoomConfiguration(const std::vector<ZoomSegment>& first, const std::vector<ZoomSegment>& second) {
    if (first.size() != second.size()) {
        return false;
    }
    const std::vector<ZoomSegment> a = sortedByStart(first);
    const std::vector<ZoomSegment> b = sortedByStart(second);
    return std::equal(a.begin(), a.end(), b.begin(), [](const ZoomSegment& x, const ZoomSegment& y) {
        return x.startTime == y.startTime && x.focusTime == y.focusTime && x.holdEndTime == y.holdEndTime &&
               x.endTime == y.endTime && x.focusPoint == y.focusPoint && x.scale == y.scale;
    });
}

EditTimeline updateZoomStart(const EditTimeline& timeline, const Uuid& id, ProjectTime startTime,
                             ProjectTime sourceDuration) {
    return updatingZoom(timeline, id, sourceDuration, [&](ZoomSegment& zoom, const Neighbours& neighbours) {
        retime(zoom,
               withStart(boundariesOf(zoom), neighbours, startTime, TimelineFrameGrid::minimumDuration));
    });
}

EditTimeline updateZoomEnd(const EditTimeline& timeline, const Uuid& id, ProjectTime endTime,
                           ProjectTime sourceDuration) {
    return updatingZoom(timeline, id, sourceDuration, [&](ZoomSegment& zoom, const Neighbours& neighbours) {
        retime(zoom, withEnd(boundariesOf(zoom), neighbours, endTime, TimelineFrameGrid::minimumDuration,
                             sourceDuration));
    });
}

EditTimeline moveZoom(const EditTimeline& timeline, const Uuid& id, ProjectTime startTime,
                      ProjectTime sourceDuration) {
    return updatingZoom(timeline, id, sourceDuration, [&](ZoomSegment& zoom, const Neighbours& neighbours) {
        retime(zoom, moved(boundariesOf(zoom), neighbours, startTime, sourceDuration));
    });
}

EditTimeline updateZoomScale(const EditTimeline& timeline, const Uuid& id, double scale,
                             ProjectTime sourceDuration) {
    return updatingZoom(timeline, id, sourceDuration, [&](ZoomSegment& zoom, const Neighbours&) {
        zoom.scale = ZoomSegment::scaleLimits.clamped(scale);
        zoom.focusPoint = constrainedFocus(zoom.focusPoint, zoom.scale);
    });
}

EditTimeline updateZoomFocus(const EditTimeline& timeline, const Uuid& id, PointValue focusPoint,
                             ProjectTime sourceDuration) {
    return updatingZoom(timeline, id, sourceDuration, [&](ZoomSegment& zoom, const Neighbours&) {
        zoom.focusPoint = constrainedFocus(focusPoint, zoom.scale);
    });
}

// ---- Webcam full screen ----

EditTimeline addWebcamFullscreen(const EditTimeline& timeline, ProjectTimeRange range,
                                 ProjectTime sourceDuration) {
    const std::optional<SnappedRange> snapped = snappedRange(range, sourceDuration);
    if (!snapped || !isInsideSource(*snapped, sourceDuration, minimumWebcamFullscreenDuration)) {
        throw TimelineEffectError(TimelineEffectError::Case::webcamFullscreenRangeInvalid);
    }
    EditTimeline result = timeline;
    result.webcamFullscreenSegments.push_back({Uuid::random(), snapped->start, snapped->end});
    result.webcamFullscreenSegments = sortedByStart(std::move(result.webcamFullscreenSegments));
    validate(result, sourceDuration);
    return result;
}

EditTimeline removeWebcamFullscreen(const EditTimeline& timeline, const Uuid& id,
                                    ProjectTime sourceDuration) {
    EditTimeline result = timeline;
    std::vector<WebcamFullscreenSegment>& segments = result.webcamFullscreenSegments;
    const auto removed =
        std::remove_if(segments.begin(), segments.end(),
                       [&](const WebcamFullscreenSegment& segment) { return segment.id == id; });
    if (removed == segments.end()) {
        throw TimelineEffectError(TimelineEffectError::Case::webcamFullscreenNotFound);
    }
    segments.erase(removed, segments.end());
    validate(result, sourceDuration);
    return result;
}

EditTimeline moveWebcamFullscreen(const EditTimeline& timeline, const Uuid& id, ProjectTime startTime,
                                  ProjectTime sourceDuration) {
    return updatingFullscreen(
        timeline, id, sourceDuration, [&](WebcamFullscreenSegment& segment, const Neighbours& neighbours) {
            setBoundaries(segment, moved(boundariesOf(segment), neighbours, startTime, sourceDuration));
        });
}

EditTimeline updateWebcamFullscreenStart(const EditTimeline& timeline, const Uuid& id, ProjectTime startTime,
                                         ProjectTime sourceDuration) {
    return updatingFullscreen(
        timeline, id, sourceDuration, [&](WebcamFullscreenSegment& segment, const Neighbours& neighbours) {
            setBoundaries(segment, withStart(boundariesOf(segment), neighbours, startTime,
                                             minimumWebcamFullscreenDuration));
        });
}

EditTimeline updateWebcamFullscreenEnd(const EditTimeline& timeline, const Uuid& id, ProjectTime endTime,
                                       ProjectTime sourceDuration) {
    return updatingFullscreen(
        timeline, id, sourceDuration, [&](WebcamFullscreenSegment& segment, const Neighbours& neighbours) {
            setBoundaries(segment, withEnd(boundariesOf(segment), neighbours, endTime,
                                           minimumWebcamFullscreenDuration, sourceDuration));
        });
}

} // namespace rilo::TimelineEffectEngine

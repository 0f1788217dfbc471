#include "project/engine/TimelinePlanEngine.h"

#include "project/document/TimelineValidator.h"
#include "project/engine/TimelineEditEngine.h"
#include "project/engine/TimelineEditError.h"
#include "project/engine/TimelineEffectEngine.h"
#include "project/engine/TimelineMapper.h"
#include "project/engine/TimelineSettingsEngine.h"
#include "shared/Sha256.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <system_error>

namespace rilo::TimelinePlanEngine {

namespace {

// Zooms made by a plan rise for at most 650 ms and fall for at most 500 ms;
// a retained piece of a reconciled zoom shorter than both together goes.
constexpr std::int64_t plannedZoomInNanoseconds = 650'000'000;
constexpr std::int64_t plannedZoomOutNanoseconds = 500'000'000;
constexpr ProjectTime minimumReconciledPieceDuration{plannedZoomInNanoseconds + plannedZoomOutNanoseconds};

ProjectTimeRange zoomRange(const ZoomSegment& zoom) {
    return ProjectTimeRange::fromStartEnd(zoom.startTime, zoom.endTime);
}

std::vector<ProjectTimeRange> overlapsWithSegments(const ProjectTimeRange& range,
                                                   const std::vector<TimelineSegment>& segments) {
    std::vector<ProjectTimeRange> overlaps;
    for (const TimelineSegment& segment : segments) {
        if (const auto overlap = range.intersection(segment.sourceRange)) {
            overlaps.push_back(*overlap);
        }
    }
    return overlaps;
}

// What the segments keep of the range, merged on the grid.
std::vector<ProjectTimeRange> retainedPieces(const ProjectTimeRange& range,
                                             const std::vector<TimelineSegment>& segments) {
    return mergedRanges(overlapsWithSegments(range, segments));
}

bool isRetainedWhole(const ZoomSegment& zoom, const std::vector<TimelineSegment>& segments) {
    ProjectTime retained;
    for (const ProjectTimeRange& overlap : overlapsWithSegments(zoomRange(zoom), segments)) {
        retained = retained + overlap.duration;
    }
    return retained == zoom.endTime - zoom.startTime;
}

std::size_t operationCount(const TimelineEditPlan& plan) {
    return plan.cuts.size() + plan.speedChanges.size() + plan.zoomAdds.size() + (plan.clearsZooms ? 1 : 0) +
           (plan.reconcilesZooms ? 1 : 0) + (plan.settings.empty() ? 0 : 1);
}

struct ReconciledZooms {
    std::vector<ZoomSegment> zooms;
    std::vector<ZoomReconciliation> reconciliations;
};

// One zoom against what the timeline keeps of it: unchanged when it keeps
// exactly the zoom, otherwise a fresh zoom for each long enough piece, with
// the old scale and focus but the plan's own rise and fall.
void reconcileZoom(const ZoomSegment& zoom, const std::vector<TimelineSegment>& segments,
                   ProjectTime sourceDuration, ReconciledZooms& result) {
    const ProjectTimeRange original = zoomRange(zoom);
    std::vector<ProjectTimeRange> retained = retainedPieces(original, segments);
    if (retained.size() == 1 && retained.front() == original) {
        result.zooms.push_back(zoom);
        result.reconciliations.push_back({zoom.id, original, ZoomReconciliationAction::preserved, retained});
        return;
    }
    std::erase_if(retained, [](const ProjectTimeRange& piece) {
        return piece.duration < minimumReconciledPieceDuration;
    });
    if (retained.empty()) {
        result.reconciliations.push_back({zoom.id, original, ZoomReconciliationAction::removed, {}});
        return;
    }
    for (const ProjectTimeRange& piece : retained) {
        result.zooms.push_back(TimelineEffectEngine::normalizedZoom(piece, zoom.focusPoint, zoom.scale,
                                                                    sourceDuration, plannedZoomInNanoseconds,
                                                                    plannedZoomOutNanoseconds));
    }
    const auto action =
        retained.size() == 1 ? ZoomReconciliationAction::trimmed : ZoomReconciliationAction::split;
    result.reconciliations.push_back({zoom.id, original, action, retained});
}

// Zooms that a cut touches (all of them when asked to) are reconciled, in
// startTime order; the others keep their place, even one that already
// crossed a gap before this plan.
ReconciledZooms reconcileZooms(const std::vector<ZoomSegment>& zooms,
                               const std::vector<TimelineSegment>& before,
                               const std::vector<TimelineSegment>& after, bool reconcilesAll,
                               ProjectTime sourceDuration) {
    ReconciledZooms result;
    std::vector<ZoomSegment> affected;
    for (const ZoomSegment& zoom : zooms) {
        if (reconcilesAll ||
            retainedPieces(zoomRange(zoom), before) != retainedPieces(zoomRange(zoom), after)) {
            affected.push_back(zoom);
        } else {
            result.zooms.push_back(zoom);
        }
    }
    std::stable_sort(affected.begin(), affected.end(),
                     [](const ZoomSegment& a, const ZoomSegment& b) { return a.startTime < b.startTime; });
    for (const ZoomSegment& zoom : affected) {
        reconcileZoom(zoom, after, sourceDuration, result);
    }
    return result;
}

// The last press inside the source within [start, end), or the centre.
PointValue focusFromClicks(const ProjectTimeRange& range, const std::vector<MouseEvent>& clickEvents) {
    std::vector<const MouseEvent*> sorted;
    sorted.reserve(clickEvents.size());
    for (const MouseEvent& event : clickEvents) {
        sorted.push_back(&event);
    }
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const MouseEvent* a, const MouseEvent* b) { return a->time < b->time; });
    const ProjectTime end = range.end();
    for (auto it = sorted.rbegin(); it != sorted.rend(); ++it) {
        const MouseEvent& event = **it;
        if (event.phase == MousePhase::down && event.isVisibleInsideSource() && event.time >= range.start &&
            event.time < end) {
            return event.normalizedPoint;
        }
    }
    return {0.5, 0.5};
}

EditTimeline addPlannedZooms(EditTimeline timeline, const std::vector<PlannedZoom>& zoomAdds,
                             const std::vector<ProjectTimeRange>& normalizedCuts, ProjectTime sourceDuration,
                             const std::vector<MouseEvent>& clickEvents) {
    std::vector<PlannedZoom> sorted = zoomAdds;
    std::stable_sort(sorted.begin(), sorted.end(), [](const PlannedZoom& a, const PlannedZoom& b) {
        return a.range.start < b.range.start;
    });
    for (const PlannedZoom& planned : sorted) {
        const TimelineMapper mapper(timeline, sourceDuration);
        if (!mapper.retainsEntireSourceRange(planned.range)) {
            throw TimelinePlanError::zoomOutsideRetainedContent(planned.range, std::nullopt, normalizedCuts);
        }
        const PointValue focus = planned.focus.value_or(focusFromClicks(planned.range, clickEvents));
        timeline =
            TimelineEffectEngine::addZoom(timeline, planned.range, focus, planned.scale, sourceDuration,
                                          plannedZoomInNanoseconds, plannedZoomOutNanoseconds);
    }
    return timeline;
}

std::string decimal(std::int64_t value) {
    return std::to_string(value);
}

// The shortest text that reads back as the same double.
std::string decimal(double value) {
    char buffer[64];
    const auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value);
    if (error != std::errc()) {
        return {};
    }
    return std::string(buffer, end);
}

// New segments and zooms get ids that follow from their content and from the
// input's segments, so that the same plan over the same input always gives
// the same document. Whatever equals an input segment or zoom keeps its id.
void assignCanonicalIDs(EditTimeline& result, const EditTimeline& input) {
    std::string idNamespace;
    for (const TimelineSegment& segment : input.segments) {
        if (!idNamespace.empty()) {
            idNamespace += ':';
        }
        idNamespace += segment.id.string();
    }

    for (TimelineSegment& segment : result.segments) {
        const auto same =
            std::find_if(input.segments.begin(), input.segments.end(), [&](const TimelineSegment& old) {
                return old.sourceRange == segment.sourceRange && old.playbackRate == segment.playbackRate;
            });
        if (same != input.segments.end()) {
            segment.id = same->id;
        } else {
            segment.id = stableUUID(idNamespace + ':' + decimal(segment.sourceRange.start.nanoseconds) + ':' +
                                    decimal(segment.sourceRange.end().nanoseconds) + ':' +
                                    decimal(segment.playbackRate.permille));
        }
    }

    for (ZoomSegment& zoom : result.zooms) {
        const auto same = std::find_if(input.zooms.begin(), input.zooms.end(), [&](const ZoomSegment& old) {
            return old.startTime == zoom.startTime && old.focusTime == zoom.focusTime &&
                   old.holdEndTime == zoom.holdEndTime && old.endTime == zoom.endTime &&
                   old.focusPoint == zoom.focusPoint && old.scale == zoom.scale;
        });
        if (same != input.zooms.end()) {
            zoom.id = same->id;
        } else {
            zoom.id =
                stableUUID(idNamespace + ":zoom:" + decimal(zoom.startTime.nanoseconds) + ':' +
                           decimal(zoom.focusTime.nanoseconds) + ':' + decimal(zoom.holdEndTime.nanoseconds) +
                           ':' + decimal(zoom.endTime.nanoseconds) + ':' + decimal(zoom.focusPoint.x) + ':' +
                           decimal(zoom.focusPoint.y) + ':' + decimal(zoom.scale));
        }
    }
}

std::uint8_t hexValue(char digit) noexcept {
    return static_cast<std::uint8_t>(digit <= '9' ? digit - '0' : digit - 'a' + 10);
}

} // namespace

std::vector<ProjectTimeRange> mergedRanges(const std::vector<ProjectTimeRange>& ranges) {
    std::vector<ProjectTimeRange> snapped;
    for (const ProjectTimeRange& range : ranges) {
        const ProjectTime start = TimelineFrameGrid::nearestBoundary(range.start);
        const ProjectTime end = TimelineFrameGrid::nearestBoundary(range.end());
        if (end > start) {
            snapped.push_back(ProjectTimeRange::fromStartEnd(start, end));
        }
    }
    std::stable_sort(snapped.begin(), snapped.end(),
                     [](const ProjectTimeRange& a, const ProjectTimeRange& b) { return a.start < b.start; });

    std::vector<ProjectTimeRange> merged;
    for (const ProjectTimeRange& range : snapped) {
        if (!merged.empty() && range.start <= merged.back().end()) {
            ProjectTimeRange& last = merged.back();
            last = ProjectTimeRange::fromStartEnd(last.start, std::max(last.end(), range.end()));
        } else {
            merged.push_back(range);
        }
    }
    return merged;
}

Uuid stableUUID(std::string_view seed) {
    const std::string digest = sha256Hex(seed);
    Uuid uuid;
    for (std::size_t i = 0; i < uuid.bytes.size(); ++i) {
        uuid.bytes[i] = static_cast<std::uint8_t>(hexValue(digest[2 * i]) << 4 | hexValue(digest[2 * i + 1]));
    }
    uuid.bytes[6] = static_cast<std::uint8_t>((uuid.bytes[6] & 0x0F) | 0x50);
    uuid.bytes[8] = static_cast<std::uint8_t>((uuid.bytes[8] & 0x3F) | 0x80);
    return uuid;
}

TimelinePlanResult apply(const TimelineEditPlan& plan, const EditTimeline& timeline,
                         ProjectTime sourceDuration, bool hasWebcam, PixelSize sourceSize,
                         const std::vector<MouseEvent>& clickEvents) {
    const std::size_t operations = operationCount(plan);
    if (operations < 1) {
        throw TimelinePlanError(TimelinePlanError::Case::empty);
    }
    if (operations > maximumOperationCount) {
        throw TimelinePlanError(TimelinePlanError::Case::tooManyOperations);
    }

    TimelinePlanResult result;
    result.normalizedCutRanges = mergedRanges(plan.cuts);
    const std::vector<ProjectTimeRange>& normalizedCuts = result.normalizedCutRanges;
    if (!plan.cuts.empty() && normalizedCuts.empty()) {
        throw TimelineEditError(TimelineEditError::Case::invalidRange);
    }

    EditTimeline current = timeline;
    if (!normalizedCuts.empty()) {
        const TimelineMapper mapper(timeline, sourceDuration);
        for (const ProjectTimeRange& cut : normalizedCuts) {
            if (mapper.projectedRanges(cut).empty()) {
                throw TimelinePlanError(TimelinePlanError::Case::cutOutsideRetainedContent);
            }
        }
        current = TimelineEditEngine::removeSourceRanges(current, normalizedCuts, sourceDuration);
    }
    const std::vector<TimelineSegment> segmentsAfterCuts = current.segments;

    // Speed comes after the cuts, so a speed range must lie in what they leave.
    if (!plan.speedChanges.empty()) {
        TimelineSpeedResult speed = TimelineSpeedEngine::applying(plan.speedChanges, current, sourceDuration);
        current = std::move(speed.timeline);
        result.normalizedSpeedChanges = std::move(speed.normalizedChanges);
    }

    if (plan.clearsZooms) {
        current.zooms.clear();
        TimelineEffectEngine::validate(current, sourceDuration);
    } else if (normalizedCuts.empty() && !plan.reconcilesZooms) {
        for (const ZoomSegment& zoom : current.zooms) {
            if (!isRetainedWhole(zoom, current.segments)) {
                throw TimelinePlanError::zoomOutsideRetainedContent(zoomRange(zoom), zoom.id, normalizedCuts);
            }
        }
    } else {
        ReconciledZooms reconciled = reconcileZooms(current.zooms, timeline.segments, segmentsAfterCuts,
                                                    plan.reconcilesZooms, sourceDuration);
        current = TimelineEffectEngine::replaceZooms(current, std::move(reconciled.zooms), sourceDuration);
        result.zoomReconciliations = std::move(reconciled.reconciliations);
    }

    if (!plan.zoomAdds.empty()) {
        current =
            addPlannedZooms(std::move(current), plan.zoomAdds, normalizedCuts, sourceDuration, clickEvents);
    }

    if (!plan.settings.empty()) {
        current = TimelineSettingsEngine::applying(plan.settings, current, hasWebcam, sourceSize);
    }

    assignCanonicalIDs(current, timeline);
    TimelineValidator::validateContent(current, sourceDuration);
    TimelineEffectEngine::validate(current, sourceDuration);
    result.timeline = std::move(current);
    return result;
}

} // namespace rilo::TimelinePlanEngine

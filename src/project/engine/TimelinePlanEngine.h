#pragma once

// A whole batch of edits applied to a timeline as one transaction: cuts,
// speed changes, zoom changes, zoom additions and settings. All ranges of a
// plan are source ranges, so that no operation moves the ground under the
// next. The steps run in a fixed order: cuts, speed, existing zooms, zoom
// additions, settings.
//
// Existing zooms are reconciled with the cuts: a zoom that a cut runs
// through is kept, shortened, split or removed, with its focus and scale.
// Identity is deterministic: segments and zooms that are new in the result
// get ids derived from their content, so that a preview and its later apply
// give the same document text and the same digest.
//
// A pure function. Any failure discards the whole plan and leaves the input
// as it was: TimelinePlanError, or the error of the engine it composes
// (TimelineEditError, TimelineSpeedError, TimelineEffectError,
// TimelineSettingsError, TimelineValidationError), unchanged.

#include "project/document/CaptureSamples.h"
#include "project/document/EditTimeline.h"
#include "project/engine/TimelinePlanError.h"
#include "project/engine/TimelineSpeedEngine.h"
#include "shared/Geometry.h"
#include "shared/JsonNames.h"
#include "shared/ProjectTime.h"
#include "shared/Uuid.h"

#include <array>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace rilo {

// A zoom to add. Without a focus, the last press inside the source within
// the range decides it, or the centre when there is none.
struct PlannedZoom {
    ProjectTimeRange range;
    double scale = 1;
    std::optional<PointValue> focus;

    friend bool operator==(const PlannedZoom&, const PlannedZoom&) = default;
};

struct TimelineEditPlan {
    std::vector<ProjectTimeRange> cuts;
    std::vector<TimelineSpeedChange> speedChanges;
    // zoom-clear: every zoom goes, without reconciliation.
    bool clearsZooms = false;
    // zoom-reconcile: every zoom is reconciled with what the timeline keeps.
    bool reconcilesZooms = false;
    std::vector<PlannedZoom> zoomAdds;
    // The settings vocabulary of TimelineSettingsEngine.
    std::map<std::string, std::string> settings;

    friend bool operator==(const TimelineEditPlan&, const TimelineEditPlan&) = default;
};

enum class ZoomReconciliationAction {
    preserved,
    trimmed,
    split,
    removed,
};

// What became of one existing zoom.
struct ZoomReconciliation {
    Uuid zoomID;
    // From the zoom's start to its end.
    ProjectTimeRange originalRange;
    ZoomReconciliationAction action = ZoomReconciliationAction::preserved;
    // The ranges of the zooms that take its place, in order; empty when it was
    // removed.
    std::vector<ProjectTimeRange> resultingRanges;

    friend bool operator==(const ZoomReconciliation&, const ZoomReconciliation&) = default;
};

struct TimelinePlanResult {
    EditTimeline timeline;
    std::vector<ProjectTimeRange> normalizedCutRanges;
    std::vector<TimelineSpeedChange> normalizedSpeedChanges;
    std::vector<ZoomReconciliation> zoomReconciliations;

    friend bool operator==(const TimelinePlanResult&, const TimelinePlanResult&) = default;
};

namespace TimelinePlanEngine {

inline constexpr std::size_t maximumOperationCount = 500;

// Applies the plan:
//  1. counts the operations (each cut, speed change and zoom addition, and
//     one each for clearing, reconciling and a non-empty settings map):
//     none is `empty`, more than 500 `tooManyOperations`;
//  2. merges the cuts (mergedRanges); cuts of which none survives are
//     TimelineEditError::invalidRange;
//  3. each merged cut must touch retained content
//     (`cutOutsideRetainedContent`); then they are removed;
//  4. applies the speed changes to what the cuts leave;
//  5. clears the zooms, or, with no cut and no reconciliation asked for,
//     demands that every zoom lies wholly in retained content
//     (`zoomOutsideRetainedContent` with the zoom's id), or else reconciles
//     the zooms that the cuts touch (all of them with reconcilesZooms);
//  6. adds the planned zooms in order of their start; each must lie wholly in
//     retained content (`zoomOutsideRetainedContent` without an id);
//  7. applies the settings;
//  8. gives new segments and zooms their content-derived ids;
//  9. validates the result.
// clickEvents are the recorded mouse events, used for the focus of planned
// zooms that have none.
TimelinePlanResult apply(const TimelineEditPlan& plan, const EditTimeline& timeline,
                         ProjectTime sourceDuration, bool hasWebcam, PixelSize sourceSize,
                         const std::vector<MouseEvent>& clickEvents);

// Each range snapped at both ends to the nearest grid boundary (those that
// snap to nothing disappear), sorted by start, and overlapping or touching
// ranges merged.
std::vector<ProjectTimeRange> mergedRanges(const std::vector<ProjectTimeRange>& ranges);

// The identifier that follows from a text: the first 16 bytes of the SHA-256
// of its UTF-8 bytes, marked as a version 5, RFC 4122 UUID.
Uuid stableUUID(std::string_view seed);

} // namespace TimelinePlanEngine

} // namespace rilo

namespace rilo::json {

template <>
struct EnumNames<ZoomReconciliationAction> {
    static constexpr std::array<std::pair<ZoomReconciliationAction, std::string_view>, 4> entries{{
        {ZoomReconciliationAction::preserved, "preserved"},
        {ZoomReconciliationAction::trimmed, "trimmed"},
        {ZoomReconciliationAction::split, "split"},
        {ZoomReconciliationAction::removed, "removed"},
    }};
};

} // namespace rilo::json

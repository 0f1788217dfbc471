#include "cli/exchange/EditPlanDocument.h"

#include "cli/agent/UserPerceivedText.h"
#include "cli/exchange/EditPlanError.h"
#include "project/engine/TimelinePlanError.h"

#include <cmath>

namespace rilo::cli {

namespace {

constexpr std::size_t maximumReasonCharacters = 500;
// One frame and a little more: shorter ranges snap to nothing.
constexpr std::int64_t minimumRangeMilliseconds = 17;
constexpr double defaultZoomLevel = 1.8;
constexpr std::size_t maximumSettingsCount = 32;

[[noreturn]] void invalidOperation() {
    throw EditPlanValidationError(EditPlanValidationError::Case::invalidOperation);
}

void require(bool condition) {
    if (!condition) {
        invalidOperation();
    }
}

// Which members a type admits besides `type` and `reason`.
struct AllowedMembers {
    bool range = false;
    bool rate = false;
    bool zoom = false; // level, focusX, focusY
    bool values = false;
};

AllowedMembers allowedMembers(EditPlanOperationType type) noexcept {
    switch (type) {
    case EditPlanOperationType::cut:
        return {.range = true};
    case EditPlanOperationType::speed:
        return {.range = true, .rate = true};
    case EditPlanOperationType::zoomAdd:
        return {.range = true, .zoom = true};
    case EditPlanOperationType::settings:
        return {.values = true};
    case EditPlanOperationType::zoomClear:
    case EditPlanOperationType::zoomReconcile:
        return {};
    }
    return {};
}

// The range in nanoseconds: from 0, at least 17 ms long, and ending within the
// media's whole milliseconds.
ProjectTimeRange sourceRange(const std::optional<CLIRange>& range, ProjectTime sourceDuration) {
    require(range.has_value());
    const std::int64_t lastMillisecond = sourceDuration.nanoseconds / 1'000'000;
    require(range->startMilliseconds >= 0 && range->endMilliseconds <= lastMillisecond);
    require(range->endMilliseconds >= range->startMilliseconds &&
            range->endMilliseconds - range->startMilliseconds >= minimumRangeMilliseconds);
    return range->projectRange();
}

// A whole number of thousandths from 0.50 to 4.00 in steps of 0.01.
TimelinePlaybackRate playbackRate(const std::optional<double>& rate) {
    require(rate.has_value() && std::isfinite(*rate));
    const double thousandths = *rate * 1000;
    require(std::abs(thousandths) < 1e12);
    const double rounded = std::round(thousandths);
    require(std::abs(rounded - thousandths) < 0.000001);
    const TimelinePlaybackRate result{static_cast<std::int64_t>(rounded)};
    require(result.isValid());
    return result;
}

PlannedZoom plannedZoom(const EditPlanOperation& operation, ProjectTime sourceDuration) {
    PlannedZoom zoom;
    zoom.range = sourceRange(operation.range, sourceDuration);
    zoom.scale = operation.level.value_or(defaultZoomLevel);
    require(std::isfinite(zoom.scale));
    require(operation.focusX.has_value() == operation.focusY.has_value());
    if (operation.focusX) {
        const double x = *operation.focusX;
        const double y = *operation.focusY;
        require(x >= 0 && x <= 1 && y >= 0 && y <= 1);
        zoom.focus = PointValue{x, y};
    }
    return zoom;
}

} // namespace

std::int64_t minimumProtocolVersion(EditPlanOperationType type) noexcept {
    switch (type) {
    case EditPlanOperationType::speed:
        return 2;
    case EditPlanOperationType::zoomReconcile:
        return 3;
    case EditPlanOperationType::cut:
    case EditPlanOperationType::zoomClear:
    case EditPlanOperationType::zoomAdd:
    case EditPlanOperationType::settings:
        return 1;
    }
    return editPlanProtocolVersion;
}

TimelineEditPlan EditPlanExchangeDocument::domainPlan(ProjectTime sourceDuration) const {
    if (protocolVersion < oldestEditPlanProtocolVersion || protocolVersion > editPlanProtocolVersion ||
        timeDomain != editPlanTimeDomain) {
        throw EditPlanValidationError(EditPlanValidationError::Case::invalidDocument);
    }
    if (operations.empty()) {
        throw TimelinePlanError(TimelinePlanError::Case::empty);
    }
    if (operations.size() > maximumEditPlanOperationCount) {
        throw TimelinePlanError(TimelinePlanError::Case::tooManyOperations);
    }

    TimelineEditPlan plan;
    bool hasSettings = false;
    for (const EditPlanOperation& operation : operations) {
        require(protocolVersion >= minimumProtocolVersion(operation.type));
        require(!operation.reason ||
                userPerceivedCharacterCount(*operation.reason) <= maximumReasonCharacters);
        const AllowedMembers allowed = allowedMembers(operation.type);
        require(allowed.range || !operation.range);
        require(allowed.rate || !operation.rate);
        require(allowed.zoom || (!operation.level && !operation.focusX && !operation.focusY));
        require(allowed.values || !operation.values);

        switch (operation.type) {
        case EditPlanOperationType::cut:
            plan.cuts.push_back(sourceRange(operation.range, sourceDuration));
            break;
        case EditPlanOperationType::speed:
            plan.speedChanges.push_back(
                {sourceRange(operation.range, sourceDuration), playbackRate(operation.rate)});
            break;
        case EditPlanOperationType::zoomClear:
            // Clearing and reconciling contradict each other.
            require(!plan.clearsZooms && !plan.reconcilesZooms);
            plan.clearsZooms = true;
            break;
        case EditPlanOperationType::zoomReconcile:
            require(!plan.clearsZooms && !plan.reconcilesZooms);
            plan.reconcilesZooms = true;
            break;
        case EditPlanOperationType::zoomAdd:
            plan.zoomAdds.push_back(plannedZoom(operation, sourceDuration));
            break;
        case EditPlanOperationType::settings:
            require(!hasSettings && operation.values && !operation.values->empty() &&
                    operation.values->size() <= maximumSettingsCount);
            hasSettings = true;
            plan.settings = *operation.values;
            break;
        }
    }
    return plan;
}

} // namespace rilo::cli

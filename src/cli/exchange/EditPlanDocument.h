#pragma once

// The two files of an edit plan job: "job.json", which the program writes when
// it prepares the job, and "edit-plan.json", the plan an agent writes for it.
// Every range of a plan is in source milliseconds, so that no operation moves
// the ground under the next; domainPlan turns the document into the plan of
// TimelinePlanEngine after checking each operation on its own.

#include "cli/CLIRange.h"
#include "cli/exchange/StringMapCodec.h"
#include "project/engine/TimelinePlanEngine.h"
#include "shared/IsoDate.h"
#include "shared/Json.h"
#include "shared/ProjectTime.h"
#include "shared/Uuid.h"
#include "shared/ValueCodecs.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace rilo::cli {

// The version the program writes; documents of versions 1 and 2 still read.
inline constexpr std::int64_t editPlanProtocolVersion = 3;
inline constexpr std::int64_t oldestEditPlanProtocolVersion = 1;
inline constexpr std::string_view editPlanTimeDomain = "source milliseconds";
inline constexpr std::size_t maximumEditPlanOperationCount = 500;

// "job.json": what the job was prepared against.
struct EditPlanJob {
    std::int64_t protocolVersion = editPlanProtocolVersion;
    Uuid id;
    Uuid projectID;
    std::string timelineDigest;
    std::string captionsDigest;
    IsoDate createdAt;

    friend bool operator==(const EditPlanJob&, const EditPlanJob&) = default;
};

enum class EditPlanOperationType {
    cut,
    speed,
    zoomClear,
    zoomReconcile,
    zoomAdd,
    settings,
};

// One operation of a plan. Which members a type admits is checked by
// domainPlan, not by decoding, so that a misplaced member is reported as an
// invalid operation.
struct EditPlanOperation {
    EditPlanOperationType type = EditPlanOperationType::cut;
    std::optional<CLIRange> range;
    std::optional<double> level; // zoom scale
    std::optional<double> rate;  // playback multiplier
    std::optional<double> focusX;
    std::optional<double> focusY;
    std::optional<std::map<std::string, std::string>> values; // settings
    std::optional<std::string> reason;                        // the agent's own note

    friend bool operator==(const EditPlanOperation&, const EditPlanOperation&) = default;
};

// "edit-plan.json".
struct EditPlanExchangeDocument {
    std::int64_t protocolVersion = editPlanProtocolVersion;
    Uuid jobID;
    Uuid projectID;
    std::string timelineDigest;
    std::string captionsDigest;
    std::string timeDomain{editPlanTimeDomain};
    std::vector<EditPlanOperation> operations;

    // The plan for TimelinePlanEngine, in nanoseconds. Throws
    // EditPlanValidationError::invalidDocument for a version outside 1...3 or
    // another time domain, TimelinePlanError::empty or tooManyOperations for
    // the number of operations, and EditPlanValidationError::invalidOperation
    // for the first operation that its type, its version or the document does
    // not allow.
    TimelineEditPlan domainPlan(ProjectTime sourceDuration) const;

    friend bool operator==(const EditPlanExchangeDocument&, const EditPlanExchangeDocument&) = default;
};

// The lowest protocolVersion that admits the type.
std::int64_t minimumProtocolVersion(EditPlanOperationType type) noexcept;

} // namespace rilo::cli

namespace rilo::json {

template <>
struct EnumNames<cli::EditPlanOperationType> {
    static constexpr std::array<std::pair<cli::EditPlanOperationType, std::string_view>, 6> entries{{
        {cli::EditPlanOperationType::cut, "cut"},
        {cli::EditPlanOperationType::speed, "speed"},
        {cli::EditPlanOperationType::zoomClear, "zoom-clear"},
        {cli::EditPlanOperationType::zoomReconcile, "zoom-reconcile"},
        {cli::EditPlanOperationType::zoomAdd, "zoom-add"},
        {cli::EditPlanOperationType::settings, "settings"},
    }};
};

template <>
struct RecordFields<cli::EditPlanJob> {
    static constexpr auto fields = std::tuple{
        field("protocolVersion", &cli::EditPlanJob::protocolVersion),
        field("id", &cli::EditPlanJob::id),
        field("projectID", &cli::EditPlanJob::projectID),
        field("timelineDigest", &cli::EditPlanJob::timelineDigest),
        field("captionsDigest", &cli::EditPlanJob::captionsDigest),
        field("createdAt", &cli::EditPlanJob::createdAt),
    };
};

template <>
struct RecordFields<cli::EditPlanOperation> {
    static constexpr auto fields = std::tuple{
        field("type", &cli::EditPlanOperation::type),     field("range", &cli::EditPlanOperation::range),
        field("level", &cli::EditPlanOperation::level),   field("rate", &cli::EditPlanOperation::rate),
        field("focusX", &cli::EditPlanOperation::focusX), field("focusY", &cli::EditPlanOperation::focusY),
        field("values", &cli::EditPlanOperation::values), field("reason", &cli::EditPlanOperation::reason),
    };
};

template <>
struct RecordFields<cli::EditPlanExchangeDocument> {
    static constexpr auto fields = std::tuple{
        field("protocolVersion", &cli::EditPlanExchangeDocument::protocolVersion),
        field("jobID", &cli::EditPlanExchangeDocument::jobID),
        field("projectID", &cli::EditPlanExchangeDocument::projectID),
        field("timelineDigest", &cli::EditPlanExchangeDocument::timelineDigest),
        field("captionsDigest", &cli::EditPlanExchangeDocument::captionsDigest),
        field("timeDomain", &cli::EditPlanExchangeDocument::timeDomain),
        field("operations", &cli::EditPlanExchangeDocument::operations),
    };
};

} // namespace rilo::json

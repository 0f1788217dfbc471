#pragma once

// The edit plan exchange with an agent: the job directory under
// "AgentExchange", the files read from it, the example plan and instructions
// of a new job, what a plan does to the captions, and the responses of
// `edit-plan-prepare` and `edit-plan-preview`.
//
// The exchange directory is beside the project library: the parent of the
// projects directory, plus "AgentExchange". Each job has a directory named by
// its upper-case id, holding "job.json" (written once by the program) and
// "edit-plan.json" (written by the agent). Nothing here cleans a job up.
// Reading refuses anything that could lead out of the exchange directory.

#include "cli/CLIMutationResponse.h"
#include "cli/CLIRange.h"
#include "cli/CLIReadResponses.h"
#include "cli/exchange/EditPlanDocument.h"
#include "project/caption/CaptionDocument.h"
#include "project/document/EditTimeline.h"
#include "shared/Json.h"
#include "shared/ProjectTime.h"
#include "shared/Uuid.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace rilo::cli {

inline constexpr std::string_view editPlanJobFileName = "job.json";
inline constexpr std::string_view editPlanFileName = "edit-plan.json";

// One speed change as the plan engine normalised it.
struct CLISpeedDescription {
    std::int64_t sourceStartMilliseconds = 0;
    std::int64_t sourceEndMilliseconds = 0;
    double playbackRate = 1; // the multiplier

    friend bool operator==(const CLISpeedDescription&, const CLISpeedDescription&) = default;
};

// A caption cue that the plan's cuts reach into.
struct CLICaptionImpactDescription {
    std::string cueID;
    // "fully-removed", "cue-timing-overlap" or "word-timing-overlap".
    std::string kind;
    std::vector<CLIRange> affectedCutRanges; // source milliseconds
    bool hasWordTimings = false;

    friend bool operator==(const CLICaptionImpactDescription&, const CLICaptionImpactDescription&) = default;
};

// The response of `edit-plan-prepare`.
struct CLIEditPlanPreparationResponse {
    std::int64_t protocolVersion = editPlanProtocolVersion;
    std::string projectID;
    std::string jobID;
    std::string planPath;
    std::string timeDomain{editPlanTimeDomain};
    std::string timelineDigest;
    std::string captionsDigest;
    EditPlanExchangeDocument example;
    std::vector<std::string> instructions;

    friend bool operator==(const CLIEditPlanPreparationResponse&,
                           const CLIEditPlanPreparationResponse&) = default;
};

// The response of `edit-plan-preview`, previewed or applied.
struct CLIEditPlanResponse {
    std::int64_t protocolVersion = editPlanProtocolVersion;
    bool applied = false;
    std::string projectID;
    std::string jobID;
    std::string timelineDigest; // before the plan
    std::string captionsDigest;
    std::string planDigest;                     // of the bytes of "edit-plan.json"
    std::optional<std::string> resultingDigest; // only when applied
    CLITimelineSummary before;
    CLITimelineSummary after;
    std::vector<CLIRange> normalizedCuts;
    std::vector<CLISpeedDescription> normalizedSpeeds;
    std::vector<CLISegmentDescription> resultingSegments;
    std::vector<CLIZoomDescription> resultingZooms;
    std::vector<CLIZoomReconciliationDescription> zoomReconciliations;
    std::vector<CLICaptionImpactDescription> captionImpacts;
    std::int64_t removedDurationMilliseconds = 0;
    std::int64_t sequenceDurationDeltaMilliseconds = 0;
    std::vector<std::string> fullyRemovedCaptionIDs;
    std::vector<std::string> splitCaptionIDs;
    std::vector<EditPlanOperation> operations;
    std::vector<std::string> warnings;
    // Only in a preview: the arguments that confirm it.
    std::optional<std::vector<std::string>> confirmationArguments;

    friend bool operator==(const CLIEditPlanResponse&, const CLIEditPlanResponse&) = default;
};

// What a plan does to the cues of a caption document, in cue order.
struct EditPlanCaptionImpact {
    std::vector<CLICaptionImpactDescription> impacts;
    std::vector<std::string> fullyRemovedCaptionIDs;
    std::vector<std::string> splitCaptionIDs;

    friend bool operator==(const EditPlanCaptionImpact&, const EditPlanCaptionImpact&) = default;
};

namespace EditPlanExchange {

inline constexpr std::size_t maximumJobBytes = 65'536;
inline constexpr std::size_t maximumPlanBytes = 1'048'576;

// The parent of the projects directory, plus "AgentExchange".
std::filesystem::path exchangeRootDirectory(const std::filesystem::path& projectsDirectory);

// Creates the directory of a new job and returns it. The exchange directory
// is created when missing; an existing one must be a real directory, neither
// a symbolic link nor reached through one, and the job directory must not
// exist yet. Otherwise EditPlanValidationError::invalidDocument; FileError
// when a directory cannot be created.
std::filesystem::path createEditPlanDirectory(const std::filesystem::path& exchangeRoot, const Uuid& jobID);

// The bytes of a file of a job directory. The file's parent's parent must
// resolve to the exchange directory and its parent to itself, and the file
// must be a regular file and no symbolic link, else invalidDocument; a file
// larger than maximumBytes, or whose size cannot be told, is
// documentTooLarge.
std::string readExchangeData(const std::filesystem::path& file, const std::filesystem::path& exchangeRoot,
                             std::size_t maximumBytes);

// The job, or the plan, decoded from the bytes of its file;
// invalidDocument when they do not decode. Nothing else is checked here:
// versions, ids and digests are the caller's, the operations domainPlan's.
EditPlanJob decodeJob(std::string_view bytes);
EditPlanExchangeDocument decodeDocument(std::string_view bytes);

// The plan shown to the agent when a job is prepared: schema 3, a cut at the
// start and, when the media is long enough, a speed change after it.
EditPlanExchangeDocument exampleDocument(const EditPlanJob& job, ProjectTime sourceDuration);

// What the agent is told to do with a prepared job.
std::vector<std::string> instructions();

// The cues whose retained length the plan shortens, with the cuts that reach
// them; empty without a caption document. Throws the mapper's errors for a
// timeline that does not fit the source duration.
EditPlanCaptionImpact captionImpact(const std::optional<CaptionDocument>& captions,
                                    const EditTimeline& originalTimeline,
                                    const EditTimeline& resultingTimeline,
                                    const std::vector<ProjectTimeRange>& normalizedCuts,
                                    ProjectTime sourceDuration);

// The words that apply a previewed plan.
std::vector<std::string> confirmationArguments(const std::string& projectID, const Uuid& jobID,
                                               const std::string& timelineDigest,
                                               const std::string& captionsDigest,
                                               const std::string& planDigest);

} // namespace EditPlanExchange

} // namespace rilo::cli

namespace rilo::json {

template <>
struct RecordFields<cli::CLISpeedDescription> {
    static constexpr auto fields = std::tuple{
        field("sourceStartMilliseconds", &cli::CLISpeedDescription::sourceStartMilliseconds),
        field("sourceEndMilliseconds", &cli::CLISpeedDescription::sourceEndMilliseconds),
        field("playbackRate", &cli::CLISpeedDescription::playbackRate),
    };
};

template <>
struct RecordFields<cli::CLICaptionImpactDescription> {
    static constexpr auto fields = std::tuple{
        field("cueID", &cli::CLICaptionImpactDescription::cueID),
        field("kind", &cli::CLICaptionImpactDescription::kind),
        field("affectedCutRanges", &cli::CLICaptionImpactDescription::affectedCutRanges),
        field("hasWordTimings", &cli::CLICaptionImpactDescription::hasWordTimings),
    };
};

template <>
struct RecordFields<cli::CLIEditPlanPreparationResponse> {
    using R = cli::CLIEditPlanPreparationResponse;
    static constexpr auto fields = std::tuple{
        field("protocolVersion", &R::protocolVersion),
        field("projectID", &R::projectID),
        field("jobID", &R::jobID),
        field("planPath", &R::planPath),
        field("timeDomain", &R::timeDomain),
        field("timelineDigest", &R::timelineDigest),
        field("captionsDigest", &R::captionsDigest),
        field("example", &R::example),
        field("instructions", &R::instructions),
    };
};

template <>
struct RecordFields<cli::CLIEditPlanResponse> {
    using R = cli::CLIEditPlanResponse;
    static constexpr auto fields = std::tuple{
        field("protocolVersion", &R::protocolVersion),
        field("applied", &R::applied),
        field("projectID", &R::projectID),
        field("jobID", &R::jobID),
        field("timelineDigest", &R::timelineDigest),
        field("captionsDigest", &R::captionsDigest),
        field("planDigest", &R::planDigest),
        field("resultingDigest", &R::resultingDigest),
        field("before", &R::before),
        field("after", &R::after),
        field("normalizedCuts", &R::normalizedCuts),
        field("normalizedSpeeds", &R::normalizedSpeeds),
        field("resultingSegments", &R::resultingSegments),
        field("resultingZooms", &R::resultingZooms),
        field("zoomReconciliations", &R::zoomReconciliations),
        field("captionImpacts", &R::captionImpacts),
        field("removedDurationMilliseconds", &R::removedDurationMilliseconds),
        field("sequenceDurationDeltaMilliseconds", &R::sequenceDurationDeltaMilliseconds),
        field("fullyRemovedCaptionIDs", &R::fullyRemovedCaptionIDs),
        field("splitCaptionIDs", &R::splitCaptionIDs),
        field("operations", &R::operations),
        field("warnings", &R::warnings),
        field("confirmationArguments", &R::confirmationArguments),
    };
};

} // namespace rilo::json

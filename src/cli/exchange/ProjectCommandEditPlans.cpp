// The edit plan exchange of the command line: `edit-plan-prepare` opens a job
// under the exchange directory; `edit-plan-preview` reads the agent's plan,
// checks it against the job and the project, computes it whole with
// TimelinePlanEngine and shows its effect; with --apply and the three digests
// of that preview it commits the same result in one timeline write.

#include "cli/ProjectCommandService.h"
#include "cli/ProjectInspector.h"
#include "cli/exchange/EditPlanError.h"
#include "cli/exchange/EditPlanExchange.h"
#include "project/document/TimelineValidator.h"
#include "project/engine/TimelineEffectEngine.h"
#include "project/engine/TimelineMapper.h"
#include "project/engine/TimelinePlanEngine.h"
#include "shared/Files.h"
#include "shared/IsoDate.h"
#include "shared/Sha256.h"

namespace rilo::cli {

namespace {

using ValidationCase = EditPlanValidationError::Case;

[[noreturn]] void fail(ValidationCase errorCase) {
    throw EditPlanValidationError(errorCase);
}

bool isReadableVersion(std::int64_t version) noexcept {
    return version >= oldestEditPlanProtocolVersion && version <= editPlanProtocolVersion;
}

std::vector<CLIRange> cliRanges(const std::vector<ProjectTimeRange>& ranges) {
    std::vector<CLIRange> result;
    result.reserve(ranges.size());
    for (const ProjectTimeRange& range : ranges) {
        result.push_back(CLIRange::from(range));
    }
    return result;
}

} // namespace

CLIEditPlanPreparationResponse ProjectCommandService::prepareEditPlan(const std::string& projectID) const {
    const LoadedProject project = snapshot(projectID);
    const ProjectManifest& manifest = project.snapshot.manifest;
    const std::string captionsDigest = store_.captionsDigest(project.package);
    throwIfCancelled();

    EditPlanJob job;
    job.protocolVersion = editPlanProtocolVersion;
    job.id = Uuid::random();
    job.projectID = manifest.id;
    job.timelineDigest = project.timelineDigest;
    job.captionsDigest = captionsDigest;
    job.createdAt = IsoDate::now();
    const std::filesystem::path jobDirectory = EditPlanExchange::createEditPlanDirectory(
        EditPlanExchange::exchangeRootDirectory(store_.projectsDirectoryURL()), job.id);
    writeFileAtomically(jobDirectory / editPlanJobFileName, json::encodeDocument(job));

    CLIEditPlanPreparationResponse response;
    response.projectID = manifest.id.string();
    response.jobID = job.id.string();
    response.planPath = (jobDirectory / editPlanFileName).string();
    response.timelineDigest = job.timelineDigest;
    response.captionsDigest = job.captionsDigest;
    response.example = EditPlanExchange::exampleDocument(job, manifest.duration);
    response.instructions = EditPlanExchange::instructions();
    return response;
}

CLIEditPlanResponse ProjectCommandService::executeEditPlan(const CLIEditPlanRequest& request) const {
    const LoadedProject project = snapshot(request.projectID);
    const ProjectManifest& manifest = project.snapshot.manifest;
    const ProjectTime sourceDuration = manifest.duration;
    const CaptionsState captions = store_.captionsState(project.package);
    throwIfCancelled();

    const std::filesystem::path exchangeRoot =
        EditPlanExchange::exchangeRootDirectory(store_.projectsDirectoryURL());
    const std::filesystem::path jobDirectory = exchangeRoot / request.jobID.string();
    const EditPlanJob job = EditPlanExchange::decodeJob(EditPlanExchange::readExchangeData(
        jobDirectory / editPlanJobFileName, exchangeRoot, EditPlanExchange::maximumJobBytes));
    // A commit made anywhere since the preparation retires the job.
    if (!isReadableVersion(job.protocolVersion) || job.id != request.jobID || job.projectID != manifest.id ||
        job.timelineDigest != project.timelineDigest) {
        fail(ValidationCase::staleJob);
    }
    if (job.captionsDigest != captions.digest) {
        fail(ValidationCase::staleCaptions);
    }

    // The digest is of the bytes as they lie on disk, before any decoding.
    const std::string planBytes = EditPlanExchange::readExchangeData(
        jobDirectory / editPlanFileName, exchangeRoot, EditPlanExchange::maximumPlanBytes);
    const std::string planDigest = sha256Hex(planBytes);
    const EditPlanExchangeDocument document = EditPlanExchange::decodeDocument(planBytes);
    if (!isReadableVersion(document.protocolVersion) || document.jobID != job.id ||
        document.projectID != job.projectID) {
        fail(ValidationCase::invalidDocument);
    }
    if (document.timelineDigest != job.timelineDigest) {
        fail(ValidationCase::staleJob);
    }
    if (document.captionsDigest != job.captionsDigest) {
        fail(ValidationCase::staleCaptions);
    }

    const TimelineEditPlan plan = document.domainPlan(sourceDuration);
    const EditTimeline& original = project.snapshot.timeline;
    const TimelinePlanResult result =
        TimelinePlanEngine::apply(plan, original, sourceDuration, manifest.webcam.has_value(),
                                  manifest.encodedPixelSize, project.snapshot.mouseEvents);
    TimelineValidator::validate(result.timeline, sourceDuration, store_.deviceFrameCatalog());
    TimelineEffectEngine::validate(result.timeline, sourceDuration);
    throwIfCancelled();

    const TimelineMapper originalMapper(original, sourceDuration);
    const TimelineMapper resultingMapper(result.timeline, sourceDuration);
    CLIEditPlanResponse response;
    response.projectID = manifest.id.string();
    response.jobID = job.id.string();
    response.timelineDigest = project.timelineDigest;
    response.captionsDigest = captions.digest;
    response.planDigest = planDigest;
    response.before = ProjectInspector::timelineSummary(original, originalMapper);
    response.after = ProjectInspector::timelineSummary(result.timeline, resultingMapper);
    response.normalizedCuts = cliRanges(result.normalizedCutRanges);
    for (const TimelineSpeedChange& change : result.normalizedSpeedChanges) {
        response.normalizedSpeeds.push_back({change.range.start.cliMilliseconds(),
                                             change.range.end().cliMilliseconds(), change.rate.multiplier()});
    }
    response.resultingSegments = ProjectInspector::segmentDescriptions(resultingMapper);
    response.resultingZooms = ProjectInspector::zoomDescriptions(result.timeline);
    for (const ZoomReconciliation& reconciliation : result.zoomReconciliations) {
        response.zoomReconciliations.push_back(
            {reconciliation.zoomID.string(), CLIRange::from(reconciliation.originalRange),
             std::string(json::rawValue(reconciliation.action)), cliRanges(reconciliation.resultingRanges)});
    }
    EditPlanCaptionImpact impact = EditPlanExchange::captionImpact(
        captions.document, original, result.timeline, result.normalizedCutRanges, sourceDuration);
    for (const CLICaptionImpactDescription& description : impact.impacts) {
        response.warnings.push_back("字幕影响[" + description.kind + "]：" + description.cueID);
    }
    response.captionImpacts = std::move(impact.impacts);
    response.fullyRemovedCaptionIDs = std::move(impact.fullyRemovedCaptionIDs);
    response.splitCaptionIDs = std::move(impact.splitCaptionIDs);
    ProjectTime removed = ProjectTime::zero();
    for (const ProjectTimeRange& cut : result.normalizedCutRanges) {
        for (const ProjectTimeRange& projected : originalMapper.projectedRanges(cut)) {
            removed = removed + projected.duration;
        }
    }
    response.removedDurationMilliseconds = removed.cliMilliseconds();
    response.sequenceDurationDeltaMilliseconds =
        response.after.sequenceDurationMilliseconds - response.before.sequenceDurationMilliseconds;
    response.operations = document.operations;

    if (!request.appliesChanges) {
        response.confirmationArguments = EditPlanExchange::confirmationArguments(
            response.projectID, job.id, project.timelineDigest, captions.digest, planDigest);
        return response;
    }
    if (request.expectedTimelineDigest != project.timelineDigest ||
        request.expectedCaptionsDigest != captions.digest) {
        fail(ValidationCase::staleJob);
    }
    if (request.expectedPlanDigest != planDigest) {
        fail(ValidationCase::stalePlan);
    }
    throwIfCancelled();
    TimelineCommitResult commit =
        store_.commitTimeline(result.timeline, project.timelineDigest, captions.digest, project.package);
    response.applied = true;
    response.resultingDigest = std::move(commit.digest);
    response.warnings.insert(response.warnings.end(), commit.warnings.begin(), commit.warnings.end());
    return response;
}

} // namespace rilo::cli

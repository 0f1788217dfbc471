// The single timeline changes of the command line: cut, speed-set, zoom-add,
// zoom-rm, set, restore and zoom-regen. Each is computed in memory and shown
// as a preview; with --apply --expect <digest> the same computation is
// committed through the guarded commit, against the digest the preview saw.

#include "cli/CLIArgumentError.h"
#include "cli/CLIMutationResponse.h"
#include "cli/ProjectCommandService.h"
#include "cli/ProjectInspector.h"
#include "project/document/TimelineValidator.h"
#include "project/engine/TimelineEditError.h"
#include "project/engine/TimelineEffectEngine.h"
#include "project/engine/TimelineMapper.h"
#include "project/engine/TimelinePlanEngine.h"
#include "project/engine/TimelineSettingsEngine.h"
#include "project/engine/TimelineSpeedEngine.h"
#include "project/engine/TimelineSpeedError.h"
#include "scene/AutoZoomEngine.h"
#include "shared/ValueCodecs.h"

#include <algorithm>
#include <charconv>

namespace rilo::cli {

namespace {

std::string shortestDecimal(double value) {
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

std::string rangeText(const CLIRange& range) {
    return std::to_string(range.startMilliseconds) + "," + std::to_string(range.endMilliseconds);
}

// What one mutation computes: the candidate, and for a cut its plan result.
struct Candidate {
    EditTimeline timeline;
    std::optional<TimelinePlanResult> plan;
};

class MutationComputer {
public:
    MutationComputer(const LoadedProject& project, const ProjectStore& store)
        : project_(project)
        , store_(store)
        , manifest_(project.snapshot.manifest)
        , timeline_(project.snapshot.timeline)
        , sourceDuration_(manifest_.duration) {}

    Candidate operator()(const mutation::Cut& cut) const {
        TimelineEditPlan plan;
        plan.cuts = sourceRanges(cut.range, cut.domain,
                                 [] { return TimelineEditError(TimelineEditError::Case::invalidRange); });
        TimelinePlanResult result =
            TimelinePlanEngine::apply(plan, timeline_, sourceDuration_, manifest_.webcam.has_value(),
                                      manifest_.encodedPixelSize, project_.snapshot.mouseEvents);
        EditTimeline candidate = result.timeline;
        return {std::move(candidate), std::move(result)};
    }

    Candidate operator()(const mutation::Speed& speed) const {
        std::vector<TimelineSpeedChange> changes;
        for (const ProjectTimeRange& range : sourceRanges(speed.range, speed.domain, [] {
                 return TimelineSpeedError(TimelineSpeedError::Case::invalidRange);
             })) {
            changes.push_back({range, speed.rate});
        }
        return {TimelineSpeedEngine::applying(changes, timeline_, sourceDuration_).timeline, std::nullopt};
    }

    Candidate operator()(const mutation::ZoomAdd& zoom) const {
        const auto ranges = sourceRanges(
            zoom.range, zoom.domain, [] { return TimelineEditError(TimelineEditError::Case::invalidRange); });
        if (ranges.size() != 1) {
            // A zoom cannot span a cut.
            throw TimelineEffectError(TimelineEffectError::Case::zoomRangeInvalid);
        }
        const ProjectTimeRange range = ranges.front();
        const PointValue focus = zoom.focus ? *zoom.focus : lastClick(range);
        return {TimelineEffectEngine::addZoom(timeline_, range, focus, zoom.level, sourceDuration_,
                                              ZoomSegment::defaultZoomInNanoseconds,
                                              ZoomSegment::defaultZoomOutNanoseconds),
                std::nullopt};
    }

    Candidate operator()(const mutation::ZoomRemove& remove) const {
        if (remove.all) {
            return {TimelineEffectEngine::removeAllZooms(timeline_, sourceDuration_), std::nullopt};
        }
        if (!remove.index) {
            throw TimelineEffectError(TimelineEffectError::Case::zoomIndexInvalid);
        }
        return {TimelineEffectEngine::removeZoom(timeline_, *remove.index, sourceDuration_), std::nullopt};
    }

    Candidate operator()(const mutation::Settings& settings) const {
        return {TimelineSettingsEngine::applying(settings.values, timeline_, manifest_.webcam.has_value(),
                                                 manifest_.encodedPixelSize),
                std::nullopt};
    }

    Candidate operator()(const mutation::RestoreHistory& restore) const {
        const auto entries = store_.timelineHistory(project_.package);
        if (restore.index < 0 || restore.index >= static_cast<std::int64_t>(entries.size())) {
            throw ProjectStoreError::historyNotFound(restore.index);
        }
        return {store_.historyTimeline(restore.index, project_.package, sourceDuration_,
                                       manifest_.webcam.has_value()),
                std::nullopt};
    }

    Candidate operator()(const mutation::ZoomRegenerate&) const {
        std::vector<MouseEvent> visible;
        std::copy_if(project_.snapshot.mouseEvents.begin(), project_.snapshot.mouseEvents.end(),
                     std::back_inserter(visible),
                     [](const MouseEvent& event) { return event.isVisibleInsideSource(); });
        const auto zooms = AutoZoomEngine{}.makeSegments(visible, sourceDuration_);
        return {TimelineEffectEngine::replaceZooms(timeline_, zooms, sourceDuration_), std::nullopt};
    }

private:
    // The source ranges of a command-line range: itself in the source domain;
    // in the sequence domain what the mapper gives for it, which must lie
    // within the sequence and map to something.
    template <class MakeError>
    std::vector<ProjectTimeRange> sourceRanges(const CLIRange& range, CLITimeDomain domain,
                                               MakeError invalid) const {
        const ProjectTimeRange requested = range.projectRange();
        if (domain == CLITimeDomain::source) {
            return {requested};
        }
        const TimelineMapper mapper(timeline_, sourceDuration_);
        if (requested.start < ProjectTime::zero() || requested.end() > mapper.sequenceDuration()) {
            throw invalid();
        }
        auto ranges = mapper.sourceRanges(requested);
        if (ranges.empty()) {
            throw invalid();
        }
        return ranges;
    }

    // The last press inside the source within the range, else the centre.
    PointValue lastClick(const ProjectTimeRange& range) const {
        const auto& events = project_.snapshot.mouseEvents;
        for (auto it = events.rbegin(); it != events.rend(); ++it) {
            if (it->phase == MousePhase::down && it->isVisibleInsideSource() && range.contains(it->time)) {
                return it->normalizedPoint;
            }
        }
        return {0.5, 0.5};
    }

    const LoadedProject& project_;
    const ProjectStore& store_;
    const ProjectManifest& manifest_;
    const EditTimeline& timeline_;
    ProjectTime sourceDuration_;
};

struct ConfirmationWords {
    std::string projectID;

    std::vector<std::string> operator()(const mutation::Cut& cut) const {
        std::vector<std::string> words{"cut", projectID, "--range", rangeText(cut.range)};
        if (cut.domain == CLITimeDomain::source) {
            words.push_back("--source");
        }
        return words;
    }
    std::vector<std::string> operator()(const mutation::Speed& speed) const {
        std::vector<std::string> words{
            "speed-set", projectID,
            "--range",   rangeText(speed.range),
            "--rate",    shortestDecimal(static_cast<double>(speed.rate.permille) / 1000.0)};
        if (speed.domain == CLITimeDomain::source) {
            words.push_back("--source");
        }
        return words;
    }
    std::vector<std::string> operator()(const mutation::ZoomAdd& zoom) const {
        std::vector<std::string> words{
            "zoom-add", projectID, "--range", rangeText(zoom.range), "--level", shortestDecimal(zoom.level)};
        if (zoom.domain == CLITimeDomain::source) {
            words.push_back("--source");
        }
        if (zoom.focus) {
            words.push_back("--at");
            words.push_back(shortestDecimal(zoom.focus->x) + "," + shortestDecimal(zoom.focus->y));
        }
        return words;
    }
    std::vector<std::string> operator()(const mutation::ZoomRemove& remove) const {
        if (remove.all) {
            return {"zoom-rm", projectID, "--all"};
        }
        return {"zoom-rm", projectID, "--index", std::to_string(remove.index.value_or(0))};
    }
    std::vector<std::string> operator()(const mutation::Settings& settings) const {
        std::vector<std::string> words{"set", projectID};
        for (const auto& [key, value] : settings.values) { // std::map: keys ascending
            words.push_back(key + "=" + value);
        }
        return words;
    }
    std::vector<std::string> operator()(const mutation::RestoreHistory& restore) const {
        return {"restore", projectID, "--index", std::to_string(restore.index)};
    }
    std::vector<std::string> operator()(const mutation::ZoomRegenerate&) const {
        return {"zoom-regen", projectID};
    }
};

std::vector<CLIRange> cliRanges(const std::vector<ProjectTimeRange>& ranges) {
    std::vector<CLIRange> result;
    result.reserve(ranges.size());
    for (const auto& range : ranges) {
        result.push_back(CLIRange::from(range));
    }
    return result;
}

} // namespace

std::vector<std::string> ProjectCommandService::confirmationArguments(const CLIMutation& mutation,
                                                                      const std::string& projectID,
                                                                      const std::string& digest) {
    std::vector<std::string> words = std::visit(ConfirmationWords{projectID}, mutation);
    words.insert(words.end(), {"--apply", "--expect", digest});
    return words;
}

CLIMutationResponse ProjectCommandService::mutate(const CLIMutationRequest& request) const {
    const LoadedProject project = snapshot(request.projectID);
    const ProjectManifest& manifest = project.snapshot.manifest;
    const ProjectTime sourceDuration = manifest.duration;
    throwIfCancelled();

    const Candidate candidate = std::visit(MutationComputer(project, store_), request.mutation);
    TimelineValidator::validate(candidate.timeline, sourceDuration, store_.deviceFrameCatalog());
    TimelineEffectEngine::validate(candidate.timeline, sourceDuration);

    CLIMutationResponse response;
    response.projectID = manifest.id.string();
    response.timelineDigest = project.timelineDigest;
    response.before = ProjectInspector::timelineSummary(
        project.snapshot.timeline, TimelineMapper(project.snapshot.timeline, sourceDuration));
    response.after = ProjectInspector::timelineSummary(candidate.timeline,
                                                       TimelineMapper(candidate.timeline, sourceDuration));
    if (candidate.plan) {
        response.normalizedCuts = cliRanges(candidate.plan->normalizedCutRanges);
        for (const ZoomReconciliation& reconciliation : candidate.plan->zoomReconciliations) {
            response.zoomReconciliations.push_back({reconciliation.zoomID.string(),
                                                    CLIRange::from(reconciliation.originalRange),
                                                    std::string(json::rawValue(reconciliation.action)),
                                                    cliRanges(reconciliation.resultingRanges)});
        }
    }

    if (!request.appliesChanges) {
        response.confirmationArguments =
            confirmationArguments(request.mutation, response.projectID, project.timelineDigest);
        return response;
    }
    // Checked after all computation, so that an invalid edit reports its own error.
    if (!request.expectedDigest) {
        throw CLIArgumentError::missingValue("--expect");
    }
    throwIfCancelled();
    store_.commitTimeline(candidate.timeline, *request.expectedDigest, std::nullopt, project.package);
    response.applied = true;
    response.resultingDigest = store_.timelineDigest(project.package);
    return response;
}

} // namespace rilo::cli

namespace rilo::json {

Json Codec<cli::CLIZoomReconciliationDescription>::encode(
    const cli::CLIZoomReconciliationDescription& description) {
    return ObjectBuilder()
        .set("zoomID", description.zoomID)
        .set("originalRange", description.originalRange)
        .set("action", description.action)
        .set("resultingRanges", description.resultingRanges)
        .build();
}

Json Codec<cli::CLIMutationResponse>::encode(const cli::CLIMutationResponse& response) {
    return ObjectBuilder()
        .set("protocolVersion", cli::cliProtocolVersion)
        .set("applied", response.applied)
        .set("projectID", response.projectID)
        .set("timelineDigest", response.timelineDigest)
        .setIfPresent("resultingDigest", response.resultingDigest)
        .set("before", response.before)
        .set("after", response.after)
        .set("normalizedCuts", response.normalizedCuts)
        .set("zoomReconciliations", response.zoomReconciliations)
        .set("warnings", response.warnings)
        .setIfPresent("confirmationArguments", response.confirmationArguments)
        .build();
}

} // namespace rilo::json

#include "cli/exchange/EditPlanExchange.h"

#include "cli/exchange/AgentExchangeFiles.h"
#include "cli/exchange/EditPlanError.h"
#include "project/engine/TimelineMapper.h"

#include <algorithm>
#include <system_error>

namespace rilo::cli::EditPlanExchange {

namespace {

const AgentExchangeFiles::Failures failures{
    [] {
        return std::make_exception_ptr(
            EditPlanValidationError(EditPlanValidationError::Case::invalidDocument));
    },
    [] {
        return std::make_exception_ptr(
            EditPlanValidationError(EditPlanValidationError::Case::documentTooLarge));
    },
};

// The length of the source range kept by the timeline's segments.
ProjectTime retainedDuration(const ProjectTimeRange& range, const TimelineMapper& mapper) {
    ProjectTime total = ProjectTime::zero();
    for (const TimelineSegmentProjection& projection : mapper.projections()) {
        if (const auto overlap = projection.segment.sourceRange.intersection(range)) {
            total = total + overlap->duration;
        }
    }
    return total;
}

bool overlaps(const ProjectTimeRange& a, const ProjectTimeRange& b) noexcept {
    return a.start < b.end() && b.start < a.end();
}

} // namespace

std::filesystem::path exchangeRootDirectory(const std::filesystem::path& projectsDirectory) {
    return AgentExchangeFiles::rootDirectory(projectsDirectory);
}

std::filesystem::path createEditPlanDirectory(const std::filesystem::path& exchangeRoot, const Uuid& jobID) {
    return AgentExchangeFiles::createJobDirectory(exchangeRoot, jobID, failures);
}

std::string readExchangeData(const std::filesystem::path& file, const std::filesystem::path& exchangeRoot,
                             std::size_t maximumBytes) {
    return AgentExchangeFiles::read(file, exchangeRoot, maximumBytes, failures);
}

EditPlanJob decodeJob(std::string_view bytes) {
    try {
        return json::decodeDocument<EditPlanJob>(bytes);
    } catch (const json::DecodingError&) {
        throw EditPlanValidationError(EditPlanValidationError::Case::invalidDocument);
    }
}

EditPlanExchangeDocument decodeDocument(std::string_view bytes) {
    try {
        return json::decodeDocument<EditPlanExchangeDocument>(bytes);
    } catch (const json::DecodingError&) {
        throw EditPlanValidationError(EditPlanValidationError::Case::invalidDocument);
    }
}

EditPlanExchangeDocument exampleDocument(const EditPlanJob& job, ProjectTime sourceDuration) {
    const std::int64_t durationNanoseconds = sourceDuration.nanoseconds;
    std::int64_t cutEndMilliseconds = 1000;
    if (durationNanoseconds < 3'000'000) {
        cutEndMilliseconds = 1;
    } else if (durationNanoseconds < 3'000'000'000) {
        cutEndMilliseconds = durationNanoseconds / 3'000'000;
    }
    EditPlanExchangeDocument example;
    example.protocolVersion = editPlanProtocolVersion;
    example.jobID = job.id;
    example.projectID = job.projectID;
    example.timelineDigest = job.timelineDigest;
    example.captionsDigest = job.captionsDigest;
    example.timeDomain = std::string(editPlanTimeDomain);

    EditPlanOperation cut;
    cut.type = EditPlanOperationType::cut;
    cut.range = CLIRange{0, cutEndMilliseconds};
    cut.reason = "删除开头的准备动作";
    example.operations.push_back(cut);
    if (durationNanoseconds / 1'000'000 - cutEndMilliseconds >= 1000) {
        EditPlanOperation speed;
        speed.type = EditPlanOperationType::speed;
        speed.range = CLIRange{cutEndMilliseconds, cutEndMilliseconds + 1000};
        speed.rate = 2.0;
        speed.reason = "加快等待加载的片段";
        example.operations.push_back(speed);
    }
    return example;
}

std::vector<std::string> instructions() {
    return {
        "只把Edit Plan Schema 3写入planPath；Schema 1/2仍兼容，不得直接修改.rilo项目文件。",
        "所有范围固定使用Source Project "
        "Time毫秒；支持cut/speed/zoom-reconcile/zoom/settings且总数不得超过500。",
        "edit-plan-preview默认只预演；得到用户确认后只执行返回的confirmationArguments。",
    };
}

EditPlanCaptionImpact captionImpact(const std::optional<CaptionDocument>& captions,
                                    const EditTimeline& originalTimeline,
                                    const EditTimeline& resultingTimeline,
                                    const std::vector<ProjectTimeRange>& normalizedCuts,
                                    ProjectTime sourceDuration) {
    EditPlanCaptionImpact result;
    if (!captions) {
        return result;
    }
    const TimelineMapper original(originalTimeline, sourceDuration);
    const TimelineMapper resulting(resultingTimeline, sourceDuration);
    for (const CaptionCue& cue : captions->cues) {
        const ProjectTimeRange cueRange = ProjectTimeRange::fromStartEnd(cue.start, cue.end);
        const ProjectTime before = retainedDuration(cueRange, original);
        const ProjectTime after = retainedDuration(cueRange, resulting);
        if (before <= after) {
            continue;
        }
        CLICaptionImpactDescription impact;
        impact.cueID = cue.id.string();
        impact.hasWordTimings = !cue.words.empty();
        std::vector<ProjectTimeRange> affected;
        for (const ProjectTimeRange& cut : normalizedCuts) {
            if (overlaps(cut, cueRange)) {
                affected.push_back(cut);
                impact.affectedCutRanges.push_back(CLIRange::from(cut));
            }
        }
        if (after == ProjectTime::zero()) {
            impact.kind = "fully-removed";
            result.fullyRemovedCaptionIDs.push_back(impact.cueID);
        } else {
            result.splitCaptionIDs.push_back(impact.cueID);
            const bool wordOverlaps =
                std::any_of(cue.words.begin(), cue.words.end(), [&](const CaptionWord& word) {
                    const ProjectTimeRange wordRange = ProjectTimeRange::fromStartEnd(word.start, word.end);
                    return std::any_of(affected.begin(), affected.end(),
                                       [&](const ProjectTimeRange& cut) { return overlaps(cut, wordRange); });
                });
            impact.kind = wordOverlaps ? "word-timing-overlap" : "cue-timing-overlap";
        }
        result.impacts.push_back(std::move(impact));
    }
    return result;
}

std::vector<std::string> confirmationArguments(const std::string& projectID, const Uuid& jobID,
                                               const std::string& timelineDigest,
                                               const std::string& captionsDigest,
                                               const std::string& planDigest) {
    return {"edit-plan-preview", projectID,           "--job",        jobID.string(),
            "--apply",           "--expect-timeline", timelineDigest, "--expect-captions",
            captionsDigest,      "--expect-plan",     planDigest};
}

} // namespace rilo::cli::EditPlanExchange

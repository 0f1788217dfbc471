#include "cli/exchange/EditPlanExchange.h"

#include "cli/exchange/EditPlanError.h"
#include "project/engine/TimelineMapper.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace rilo::cli::EditPlanExchange {

namespace {

[[noreturn]] void invalidDocument() {
    throw EditPlanValidationError(EditPlanValidationError::Case::invalidDocument);
}

[[noreturn]] void tooLarge() {
    throw EditPlanValidationError(EditPlanValidationError::Case::documentTooLarge);
}

// The path with every symbolic link resolved; none when it does not exist.
std::optional<std::filesystem::path> resolved(const std::filesystem::path& path) {
    std::error_code error;
    std::filesystem::path result = std::filesystem::canonical(path, error);
    if (error) {
        return std::nullopt;
    }
    return result;
}

// A directory that is where its name says: no symbolic link itself, and its
// resolved path is its resolved parent plus its own name. Links further up
// (a data directory reached through one) are the user's own.
bool isRealDirectory(const std::filesystem::path& directory) {
    std::error_code error;
    if (std::filesystem::symlink_status(directory, error).type() != std::filesystem::file_type::directory) {
        return false;
    }
    const auto self = resolved(directory);
    const auto parent = resolved(directory.parent_path());
    return self && parent && *self == *parent / directory.filename();
}

// Without a trailing separator, so that parent_path is the parent.
std::filesystem::path withoutTrailingSeparator(const std::filesystem::path& path) {
    std::filesystem::path normal = path.lexically_normal();
    if (!normal.has_filename() && normal.has_parent_path() && normal != normal.root_path()) {
        normal = normal.parent_path();
    }
    return normal;
}

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
    return withoutTrailingSeparator(projectsDirectory).parent_path() / "AgentExchange";
}

std::filesystem::path createEditPlanDirectory(const std::filesystem::path& exchangeRoot, const Uuid& jobID) {
    std::error_code error;
    if (std::filesystem::symlink_status(exchangeRoot, error).type() ==
        std::filesystem::file_type::not_found) {
        std::filesystem::create_directories(exchangeRoot, error);
        if (error) {
            throw FileError("无法创建目录：" + exchangeRoot.string() + "（" + error.message() + "）");
        }
    }
    if (!isRealDirectory(exchangeRoot)) {
        invalidDocument();
    }
    const std::filesystem::path jobDirectory = exchangeRoot / jobID.string();
    if (std::filesystem::symlink_status(jobDirectory, error).type() !=
        std::filesystem::file_type::not_found) {
        invalidDocument();
    }
    if (!std::filesystem::create_directory(jobDirectory, error) || error) {
        invalidDocument();
    }
    return jobDirectory;
}

std::string readExchangeData(const std::filesystem::path& file, const std::filesystem::path& exchangeRoot,
                             std::size_t maximumBytes) {
    const std::filesystem::path jobDirectory = file.parent_path();
    const auto root = resolved(exchangeRoot);
    const auto jobParent = resolved(jobDirectory.parent_path());
    if (!root || !jobParent || *root != *jobParent || !isRealDirectory(jobDirectory)) {
        invalidDocument();
    }
    std::error_code error;
    if (std::filesystem::symlink_status(file, error).type() != std::filesystem::file_type::regular) {
        invalidDocument();
    }
    const std::uintmax_t size = std::filesystem::file_size(file, error);
    if (error || size > maximumBytes) {
        tooLarge();
    }
    // O_NOFOLLOW: a link put in place since the check is refused as well.
    const int fd = ::open(file.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        invalidDocument();
    }
    std::string bytes;
    // One byte more than allowed tells a file that grew since its size was read.
    bytes.resize(maximumBytes + 1);
    std::size_t length = 0;
    while (length < bytes.size()) {
        const ssize_t n = ::read(fd, bytes.data() + length, bytes.size() - length);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            ::close(fd);
            invalidDocument();
        }
        if (n == 0) {
            break;
        }
        length += static_cast<std::size_t>(n);
    }
    ::close(fd);
    if (length > maximumBytes) {
        tooLarge();
    }
    bytes.resize(length);
    return bytes;
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

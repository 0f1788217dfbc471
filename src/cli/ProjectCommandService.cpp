#include "cli/ProjectCommandService.h"

#include "cli/CLIArgumentError.h"
#include "cli/CLIIdleError.h"
#include "cli/CLIOutputError.h"
#include "cli/ProjectInspector.h"
#include "media/analysis/TimelineIdleAnalyzer.h"
#include "media/audio/WaveformService.h"
#include "project/engine/TimelineMapper.h"

#include <algorithm>
#include <system_error>

namespace rilo::cli {

namespace {

// The path with "." and ".." resolved and symbolic links of the part that
// exists followed, so that two spellings of one directory compare equal.
std::filesystem::path standardized(const std::filesystem::path& path) {
    std::error_code error;
    std::filesystem::path result = std::filesystem::weakly_canonical(path, error);
    if (error) {
        result = path.lexically_normal();
    }
    if (!result.has_filename() && result.has_parent_path() && result != result.root_path()) {
        result = result.parent_path();
    }
    return result;
}

} // namespace

void ProjectCommandService::throwIfCancelled() const {
    if (stopToken_.stop_requested()) {
        throw CancellationError();
    }
}

std::vector<CLIProjectSummary> ProjectCommandService::list() const {
    throwIfCancelled();
    std::vector<CLIProjectSummary> summaries;
    for (const RecentProject& recent : store_.recentProjects()) {
        throwIfCancelled();
        const ProjectPackage package{recent.packageURL};
        ProjectManifest manifest;
        try {
            manifest = store_.readManifest(package);
        } catch (const LocalizedError&) {
            continue;
        }
        summaries.push_back({manifest.id.string(), manifest.source.title, package.rootURL.string(),
                             manifest.duration.cliMilliseconds(), manifest.webcam.has_value(),
                             manifest.updatedAt});
    }
    return summaries;
}

LoadedProject ProjectCommandService::load(const ProjectPackage& package) const {
    throwIfCancelled();
    LoadedProject loaded{package, store_.loadSnapshot(package), {}, {}};
    throwIfCancelled();
    // The snapshot takes the timeline of the digest, so that the two belong to
    // the same bytes even when a commit landed in between.
    const ProjectManifest& manifest = loaded.snapshot.manifest;
    TimelineState state = store_.readTimelineState(package, manifest.duration, manifest.webcam.has_value());
    loaded.snapshot.timeline = std::move(state.timeline);
    loaded.timelineDigest = std::move(state.digest);
    throwIfCancelled();
    loaded.tracks = TimelineTrackResolver::resolve(loaded.snapshot.mediaURL(), manifest);
    return loaded;
}

LoadedProject ProjectCommandService::snapshot(const std::string& projectID) const {
    throwIfCancelled();
    return load(store_.project(projectID));
}

CLIProjectDescription ProjectCommandService::describe(const std::string& projectID) const {
    const LoadedProject loaded = snapshot(projectID);
    throwIfCancelled();
    return ProjectInspector::describe(loaded.snapshot, loaded.timelineDigest);
}

CLIHistoryResponse ProjectCommandService::history(const std::string& projectID) const {
    throwIfCancelled();
    const ProjectPackage package = store_.project(projectID);
    CLIHistoryResponse response;
    response.projectID = store_.readManifest(package).id.string();
    std::int64_t index = 0;
    for (const TimelineHistoryEntry& entry : store_.timelineHistory(package)) {
        response.entries.push_back({index++, entry.fileURL.filename().string(), entry.digest});
    }
    return response;
}

CLICaptionReadResponse ProjectCommandService::readCaptions(const std::string& projectID) const {
    throwIfCancelled();
    const ProjectPackage package = store_.project(projectID);
    const ProjectManifest manifest = store_.readManifest(package);
    const TimelineState timeline =
        store_.readTimelineState(package, manifest.duration, manifest.webcam.has_value());
    const CaptionsState captions = store_.captionsState(package);
    throwIfCancelled();

    CLICaptionReadResponse response;
    response.projectID = manifest.id.string();
    response.timelineDigest = timeline.digest;
    response.captionsDigest = captions.digest;
    if (!captions.document) {
        response.hint = std::string(missingCaptionsHint);
        return response;
    }
    const CaptionDocument& document = *captions.document;
    response.language = document.language;
    response.sourceTrack = std::string(json::rawValue(document.sourceTrack));
    response.cues =
        ProjectInspector::cueDescriptions(document, TimelineMapper(timeline.timeline, manifest.duration));
    return response;
}

CLIIdleResponse ProjectCommandService::idle(const std::string& projectID, std::int64_t minimumMilliseconds,
                                            double silenceDecibels, std::optional<MediaTrackKind> track,
                                            std::int64_t keepTailMilliseconds,
                                            std::int64_t minimumRemovalMilliseconds) const {
    const LoadedProject loaded = snapshot(projectID);
    const ProjectSnapshot& snapshot = loaded.snapshot;
    const ProjectManifest& manifest = snapshot.manifest;
    const auto has = [&](MediaTrackKind kind) {
        return std::any_of(manifest.media.tracks.begin(), manifest.media.tracks.end(),
                           [&](const MediaTrack& t) { return t.kind == kind; });
    };
    MediaTrackKind analyzed = MediaTrackKind::microphone;
    if (track) {
        if (!has(*track)) {
            throw CLIIdleError::audioTrackUnavailable(*track);
        }
        analyzed = *track;
    } else if (has(MediaTrackKind::microphone)) {
        // The microphone tells best whether a person is speaking.
        analyzed = MediaTrackKind::microphone;
    } else if (has(MediaTrackKind::systemAudio)) {
        analyzed = MediaTrackKind::systemAudio;
    } else {
        throw CLIIdleError::noAudioTrack();
    }
    throwIfCancelled();

    const WaveformEnvelope envelope = WaveformService(stopToken_).envelope(analyzed, snapshot);
    throwIfCancelled();
    const TimelineIdleAnalysis analysis = TimelineIdleAnalyzer::analyze(
        snapshot.mouseEvents, &envelope, manifest.duration,
        ProjectTime::fromMilliseconds(minimumMilliseconds), silenceDecibels,
        TimelineIdleAnalyzer::defaultActivityPadding, TimelineIdleAnalyzer::defaultMergeGap);
    const TimelineMapper mapper(snapshot.timeline, manifest.duration);
    std::vector<ProjectTimeRange> retained;
    for (const TimelineSegment& segment : snapshot.timeline.segments) {
        retained.push_back(segment.sourceRange);
    }
    const std::vector<ProjectTimeRange> cuts = TimelineIdleAnalyzer::recommendedCuts(
        analysis, retained, ProjectTime::fromMilliseconds(keepTailMilliseconds),
        ProjectTime::fromMilliseconds(minimumRemovalMilliseconds));

    CLIIdleResponse response;
    response.projectID = manifest.id.string();
    response.analyzedTrack = analyzed == MediaTrackKind::microphone ? "microphone" : "system-audio";
    response.bucketMilliseconds = waveformBucketDuration.cliMilliseconds();
    response.minimumDurationMilliseconds = minimumMilliseconds;
    response.silenceThresholdDecibels = silenceDecibels;
    response.estimatedNoiseFloorDecibels = analysis.estimatedNoiseFloorDecibels;
    response.recommendedSilenceDecibels = analysis.recommendedSilenceDecibels;
    response.keepTailMilliseconds = keepTailMilliseconds;
    response.minimumRemovalMilliseconds = minimumRemovalMilliseconds;
    for (const ProjectTimeRange& cut : cuts) {
        response.recommendedCuts.push_back(CLIRange::from(cut));
    }
    const auto describe = [&](const std::vector<ProjectTimeRange>& spans) {
        std::vector<CLISpanDescription> descriptions;
        for (const ProjectTimeRange& span : spans) {
            descriptions.push_back(ProjectInspector::spanDescription(span, mapper));
        }
        return descriptions;
    };
    response.idleSpans = describe(analysis.idleSpans);
    response.silenceSpans = describe(analysis.silenceSpans);
    response.quietSpans = describe(analysis.quietSpans);
    return response;
}

void ProjectCommandService::prepareOutput(const std::filesystem::path& outputURL, bool replace,
                                          const std::filesystem::path& exportsDirectory) {
    if (outputURL.empty() || !outputURL.is_absolute()) {
        throw CLIArgumentError::invalidValue("--out");
    }
    std::error_code error;
    if (std::filesystem::symlink_status(outputURL, error).type() != std::filesystem::file_type::not_found &&
        !error && !replace) {
        throw CLIOutputError::outputExists(outputURL.string());
    }
    const std::filesystem::path parent = outputURL.parent_path();
    if (std::filesystem::exists(parent, error)) {
        return;
    }
    if (standardized(parent) != standardized(exportsDirectory)) {
        throw CLIOutputError::parentMissing(outputURL.string());
    }
    std::filesystem::create_directories(parent, error);
    if (error) {
        throw FileError("无法创建目录：" + parent.string() + "（" + error.message() + "）");
    }
}

} // namespace rilo::cli

// The caption exchange of the command line: captions-prepare hands an agent
// the audio of one track and a job; captions-import turns the agent's result
// into a caption document, optionally tightened against that audio, and
// previews it; with --apply and both digests it is committed with history.
// Nothing reaches the project before that commit.

#include "cli/CLIArgumentError.h"
#include "cli/ProjectCommandService.h"
#include "cli/exchange/CLICaptionExchangeResponses.h"
#include "cli/exchange/CaptionExchangeError.h"
#include "media/analysis/CaptionTimingAligner.h"
#include "media/audio/CaptionAudioExporter.h"
#include "media/audio/WaveformService.h"
#include "project/engine/TimelineMapper.h"
#include "shared/Files.h"
#include "shared/Sha256.h"

#include <algorithm>
#include <system_error>

namespace rilo::cli {

namespace {

// Each cue's length, in whole milliseconds, must be kept entirely by the
// present segments: a cue over removed content or across a cut would show
// words that the video no longer has.
void validateCaptionCoverage(const CaptionDocument& document, const TimelineMapper& mapper) {
    for (const CaptionCue& cue : document.cues) {
        const ProjectTimeRange range = ProjectTimeRange::fromStartEnd(cue.start, cue.end);
        std::int64_t retainedNanoseconds = 0;
        for (const TimelineSegmentProjection& projection : mapper.projections()) {
            if (const auto kept = projection.segment.sourceRange.intersection(range)) {
                retainedNanoseconds += kept->duration.nanoseconds;
            }
        }
        if (retainedNanoseconds / 1'000'000 < range.duration.nanoseconds / 1'000'000) {
            throw CaptionValidationError::cueCrossesRemovedContent();
        }
    }
}

CLICaptionAudioAlignmentDescription alignmentDescription(const CaptionTimingAlignmentResult& alignment,
                                                         MediaTrackKind track) {
    CLICaptionAudioAlignmentDescription description;
    description.analyzedTrack = std::string(json::rawValue(track));
    description.bucketMilliseconds = waveformBucketDuration.cliMilliseconds();
    description.estimatedNoiseFloorDecibels = alignment.estimatedNoiseFloorDecibels;
    description.activityThresholdDecibels = alignment.thresholdDecibels;
    for (const CaptionTimingAdjustment& adjustment : alignment.adjustments) {
        description.adjustments.push_back(
            {static_cast<std::int64_t>(adjustment.cueIndex), CLIRange::from(adjustment.originalRange),
             CLIRange::from(adjustment.adjustedRange), std::string(json::rawValue(adjustment.action))});
    }
    return description;
}

} // namespace

CLICaptionPreparationResponse ProjectCommandService::prepareCaptions(const std::string& projectID,
                                                                     MediaTrackKind track) const {
    const LoadedProject project = snapshot(projectID);
    const ProjectManifest& manifest = project.snapshot.manifest;
    throwIfCancelled();

    const std::filesystem::path exchangeRoot =
        CaptionExchange::exchangeRootDirectory(store_.projectsDirectoryURL());
    const Uuid jobID = Uuid::random();
    const std::filesystem::path directory = CaptionExchange::createJobDirectory(exchangeRoot, jobID);
    CaptionExchangeJob job;
    job.id = jobID;
    job.projectID = manifest.id;
    job.sourceTrack = track;
    job.timelineDigest = project.timelineDigest;
    job.sourceDurationMilliseconds = manifest.duration.cliMilliseconds();
    job.createdAt = IsoDate::now();
    const std::filesystem::path audioPath = directory / CaptionExchange::audioFileName;
    try {
        job.sourceAudioDigest =
            CaptionAudioExporter::exportTrack(project.snapshot, track, audioPath, stopToken_);
        writeFileAtomically(directory / CaptionExchange::jobFileName, json::encodeDocument(job));
    } catch (...) {
        // A job without its audio or its description can never be imported.
        std::error_code ignored;
        std::filesystem::remove_all(directory, ignored);
        throw;
    }

    CLICaptionPreparationResponse response;
    response.projectID = manifest.id.string();
    response.jobID = jobID.string();
    response.audioPath = audioPath.string();
    response.resultPath = (directory / CaptionExchange::resultFileName).string();
    response.sourceTrack = std::string(json::rawValue(track));
    response.timelineDigest = project.timelineDigest;
    response.captionFormatExample = CaptionExchange::exampleDocument(job);
    response.instructions = CaptionExchange::instructions();
    return response;
}

CLICaptionImportResponse ProjectCommandService::importCaptions(const CLICaptionImportRequest& request) const {
    const LoadedProject project = snapshot(request.projectID);
    const ProjectManifest& manifest = project.snapshot.manifest;
    throwIfCancelled();

    const std::filesystem::path exchangeRoot =
        CaptionExchange::exchangeRootDirectory(store_.projectsDirectoryURL());
    const std::filesystem::path directory = CaptionExchange::jobDirectory(exchangeRoot, request.jobID);
    const CaptionExchangeJob job = CaptionExchange::decodeJob(CaptionExchange::readExchangeData(
        directory / CaptionExchange::jobFileName, exchangeRoot, CaptionExchange::maximumJobBytes));
    if (job.protocolVersion != captionExchangeProtocolVersion || job.id != request.jobID ||
        job.projectID != manifest.id || job.timelineDigest != project.timelineDigest) {
        throw CaptionValidationError::staleTimeline();
    }
    const CaptionExchangeDocument result = CaptionExchange::decodeDocument(CaptionExchange::readExchangeData(
        directory / CaptionExchange::resultFileName, exchangeRoot, CaptionExchange::maximumResultBytes));

    const CaptionsState present = store_.captionsState(project.package);
    const std::optional<CaptionStyle> style =
        present.document ? std::optional<CaptionStyle>(present.document->style) : std::nullopt;
    CaptionDocument document = result.captionDocument(job, style).validated(manifest.duration);
    const TimelineMapper mapper(project.snapshot.timeline, manifest.duration);
    validateCaptionCoverage(document, mapper);

    CLICaptionImportResponse response;
    if (request.alignsAudio) {
        // The audio must still be the one the cues were transcribed from.
        const std::filesystem::path audioPath = directory / CaptionExchange::audioFileName;
        CaptionExchange::checkExchangeFile(audioPath, exchangeRoot);
        if (sha256HexOfFile(audioPath) != job.sourceAudioDigest) {
            throw CaptionValidationError::staleAudio();
        }
        throwIfCancelled();
        const WaveformEnvelope envelope =
            WaveformService(stopToken_).fileEnvelope(job.sourceTrack, audioPath);
        const CaptionTimingAlignmentResult alignment = CaptionTimingAligner::align(document, envelope);
        document = alignment.document.validated(manifest.duration);
        validateCaptionCoverage(document, mapper);
        response.audioAlignment = alignmentDescription(alignment, job.sourceTrack);
        response.warnings = alignment.warnings;
    }

    response.projectID = manifest.id.string();
    response.cueCount = static_cast<std::int64_t>(document.cues.size());
    for (const CaptionCue& cue : document.cues) {
        response.wordTimingCount += static_cast<std::int64_t>(cue.words.size());
        response.highlightCount += static_cast<std::int64_t>(cue.highlights.size());
        response.highlightedCueCount += cue.highlights.empty() ? 0 : 1;
    }
    response.timelineDigest = project.timelineDigest;
    response.captionsDigest = present.digest;

    if (!request.appliesChanges) {
        std::vector<std::string> arguments{"captions-import", response.projectID, "--job",
                                           request.jobID.string()};
        if (request.alignsAudio) {
            arguments.push_back("--align-audio");
        }
        arguments.insert(arguments.end(), {"--apply", "--expect-timeline", project.timelineDigest,
                                           "--expect-captions", present.digest});
        response.confirmationArguments = std::move(arguments);
        return response;
    }
    if (!request.expectedTimelineDigest || !request.expectedCaptionsDigest) {
        throw CLIArgumentError::missingValue("--expect-timeline/--expect-captions");
    }
    throwIfCancelled();
    response.resultingDigest = store_.commitCaptions(document, *request.expectedCaptionsDigest,
                                                     *request.expectedTimelineDigest, project.package);
    response.applied = true;
    return response;
}

} // namespace rilo::cli

namespace rilo::json {

Json Codec<cli::CLICaptionImportResponse>::encode(const cli::CLICaptionImportResponse& response) {
    return ObjectBuilder()
        .set("protocolVersion", cli::cliProtocolVersion)
        .set("applied", response.applied)
        .set("projectID", response.projectID)
        .set("cueCount", response.cueCount)
        .set("wordTimingCount", response.wordTimingCount)
        .set("highlightedCueCount", response.highlightedCueCount)
        .set("highlightCount", response.highlightCount)
        .set("timelineDigest", response.timelineDigest)
        .set("captionsDigest", response.captionsDigest)
        .setIfPresent("resultingDigest", response.resultingDigest)
        .setIfPresent("audioAlignment", response.audioAlignment)
        .set("warnings", response.warnings)
        .setIfPresent("confirmationArguments", response.confirmationArguments)
        .build();
}

} // namespace rilo::json

#pragma once

#include "cli/CLICommand.h"
#include "cli/CLIMutationResponse.h"
#include "cli/CLIReadResponses.h"
#include "cli/CLIResponses.h"
#include "cli/exchange/CLICaptionExchangeResponses.h"
#include "cli/exchange/EditPlanExchange.h"
#include "media/TimelineTrackResolver.h"
#include "project/store/ProjectSnapshot.h"
#include "project/store/ProjectStore.h"
#include "shared/AppDirectories.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace rilo::cli {

// A project as every command that describes or changes it sees it: the
// snapshot, whose timeline was decoded from exactly the bytes whose digest is
// `timelineDigest`, and the media tracks that its manifest promises, found in
// the media file.
struct LoadedProject {
    ProjectPackage package;
    ProjectSnapshot snapshot;
    std::string timelineDigest;
    ResolvedTimelineTracks tracks;
};

// Runs the project commands of the command line over one project store.
// Every operation takes the project's id prefix as typed. Reads take no
// commit lock and change nothing on disk: writes are atomic, so a read sees
// whole documents. Long operations test the stop token at their own points
// and then throw CancellationError.
class ProjectCommandService {
public:
    ProjectCommandService(ProjectStore& store, std::stop_token stopToken)
        : store_(store)
        , stopToken_(std::move(stopToken)) {}

    // The finished projects of the library, in the library's order. A project
    // whose manifest no longer reads is left out.
    std::vector<CLIProjectSummary> list() const;

    // The shared load step: the snapshot (ProjectStore::loadSnapshot) with the
    // timeline of the digest, then the media file opened and its tracks
    // resolved. Throws what the store throws (a timeline that fails
    // validation included), MediaProbeError for media that cannot be read and
    // TimelineTrackResolverError for a promised track that is not there.
    LoadedProject load(const ProjectPackage& package) const;
    // Resolves the prefix, then load.
    LoadedProject snapshot(const std::string& projectID) const;

    // The project with both time axes, its zooms, tracks, clicks, caption
    // count and the digest that a change must present.
    CLIProjectDescription describe(const std::string& projectID) const;
    // The kept timelines, newest first, numbered from 0.
    CLIHistoryResponse history(const std::string& projectID) const;
    // The caption document in source time, each cue with where it still
    // shows after the cuts; without captions a hint and no cues.
    CLICaptionReadResponse readCaptions(const std::string& projectID) const;

    // Hands an agent a caption job: a new job directory under the exchange
    // directory with the track as "source.wav" and "job.json", bound to the
    // audio's digest and the present timeline digest. Writes nothing into
    // the project. Throws CaptionAudioExporterError (missingTrack for a
    // project without the track) and CaptionExchangeError.
    CLICaptionPreparationResponse prepareCaptions(const std::string& projectID, MediaTrackKind track) const;
    // Turns the job's "captions.json" into a caption document: checked
    // against the job (CaptionValidationError::staleTimeline once the
    // timeline changed, staleAudio for another audio), normalised,
    // validated, checked to lie within the kept segments, and with
    // `alignsAudio` tightened against the job's audio. A preview writes
    // nothing; applied, it is committed with history against both expected
    // digests (missing ones are missingValue("--expect-timeline/--expect-captions")).
    CLICaptionImportResponse importCaptions(const CLICaptionImportRequest& request) const;

    // The idle analysis of one audio track: the spans without mouse activity,
    // without sound, and without either, and the cuts that the quiet spans
    // suggest within the kept material. Without `track` the microphone is
    // analysed if there is one, else the system audio. Throws CLIIdleError
    // when the project lacks the track, before any waveform work, and passes
    // waveform and timeline errors through. Changes nothing but the
    // package's waveform cache.
    CLIIdleResponse idle(const std::string& projectID, std::int64_t minimumMilliseconds,
                         double silenceDecibels, std::optional<MediaTrackKind> track,
                         std::int64_t keepTailMilliseconds, std::int64_t minimumRemovalMilliseconds) const;

    // A single timeline change (cut, speed-set, zoom-add, zoom-rm, set,
    // restore, zoom-regen): computed and validated in memory; previewed with
    // the arguments that confirm it, or, when the request applies it,
    // committed with history against the expected digest (a missing one is
    // missingValue("--expect"), checked only after the edit itself passed).
    CLIMutationResponse mutate(const CLIMutationRequest& request) const;
    // The command words that apply a previewed change: the command with the
    // project's full id, then "--apply", "--expect" and the digest.
    static std::vector<std::string> confirmationArguments(const CLIMutation& mutation,
                                                          const std::string& projectID,
                                                          const std::string& digest);

    // Prepares an edit plan job: a new job directory under the exchange
    // directory with "job.json", recording the digests of the timeline and
    // the captions as they are now. Writes nothing into the project.
    CLIEditPlanPreparationResponse prepareEditPlan(const std::string& projectID) const;
    // Validates the job's plan file against the job and the project, computes
    // the whole plan in memory and answers with its effect; a preview writes
    // nothing. Applied, the same result is committed with history in one
    // timeline write, against the timeline and caption digests the preview
    // showed, and only if the plan file is still the one previewed. Throws
    // EditPlanValidationError, the plan engine's errors and the store's.
    CLIEditPlanResponse executeEditPlan(const CLIEditPlanRequest& request) const;

    // Checks an output path of `frame`, `preview` or `export` before the
    // project is opened: it must be absolute (else invalidValue("--out")),
    // must not exist unless `replace` (else CLIOutputError::outputExists),
    // and its directory must exist (else CLIOutputError::parentMissing),
    // except that the default export directory is created on demand. Nothing
    // is removed: the writer of the output replaces an existing file.
    static void prepareOutput(const std::filesystem::path& outputURL, bool replace,
                              const std::filesystem::path& exportsDirectory = defaultExportsDirectory());

private:
    void throwIfCancelled() const;

    ProjectStore& store_;
    std::stop_token stopToken_;
};

} // namespace rilo::cli

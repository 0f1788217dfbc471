#pragma once

// The library of project packages. A ProjectStore owns one library directory;
// it alone names, moves and deletes packages. Its operations are meant to be
// called from one thread at a time (one store per command-line process, one
// store worker in the application).

#include "project/caption/CaptionDocument.h"
#include "project/document/CaptureSamples.h"
#include "project/document/DiagnosticReport.h"
#include "project/document/EditTimeline.h"
#include "project/document/ProjectManifest.h"
#include "project/document/ProjectPackage.h"
#include "project/document/TimelineValidator.h"
#include "project/store/MediaAssetInspector.h"
#include "project/store/ProjectSnapshot.h"
#include "project/store/ProjectStoreError.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace rilo {

// One row of the library list.
struct RecentProject {
    std::filesystem::path packageURL; // also its identity
    IsoDate createdAt;
    IsoDate updatedAt;
    ProjectState state = ProjectState::completed;
    CaptureSourceKind sourceKind = CaptureSourceKind::display;
    std::string sourceTitle;
    ProjectTime duration;
    bool hasWebcam = false;

    friend bool operator==(const RecentProject&, const RecentProject&) = default;
};

// A timeline and the digest of the very bytes it was decoded from.
struct TimelineState {
    EditTimeline timeline;
    std::string digest;

    friend bool operator==(const TimelineState&, const TimelineState&) = default;
};

// What a guarded commit with history reports: the digest of the file now on
// disk, and warnings about work that failed without failing the commit.
struct TimelineCommitResult {
    std::vector<std::string> warnings;
    std::string digest;

    friend bool operator==(const TimelineCommitResult&, const TimelineCommitResult&) = default;
};

// One kept copy of an earlier timeline.
struct TimelineHistoryEntry {
    std::filesystem::path fileURL;
    std::string digest;

    friend bool operator==(const TimelineHistoryEntry&, const TimelineHistoryEntry&) = default;
};

// The caption document, when there is one, and the digest of its bytes (of
// no bytes when there is no caption file).
struct CaptionsState {
    std::optional<CaptionDocument> document;
    std::string digest;

    friend bool operator==(const CaptionsState&, const CaptionsState&) = default;
};

class ProjectStore {
public:
    // Uses the given library directory as it stands, or the default library
    // under the application data directory. Creates the directory with its
    // parents; throws FileError when it cannot.
    //
    //
    // The device frame catalog is asked when a device recording is created
    // and whenever a timeline with a device frame is validated: on loading and
    // on every commit.
    ProjectStore(std::optional<std::filesystem::path> rootDirectory,
                 TimelineValidator::DeviceFrameCatalogProvider deviceFrameCatalog);

    const std::filesystem::path& projectsDirectoryURL() const noexcept { return projectsDirectory_; }
    const TimelineValidator::DeviceFrameCatalogProvider& deviceFrameCatalog() const noexcept {
        return deviceFrameCatalog_;
    }

    // Decodes manifest.json of the package; throws FileError or json::DecodingError.
    ProjectManifest readManifest(const ProjectPackage& package) const;

    // Finished packages (.rilo, state completed or recovered, with media),
    // newest first; packages that cannot be read are skipped silently.
    std::vector<RecentProject> recentProjects() const;

    // The listed project whose id starts with the prefix, in any case.
    // Throws ProjectStoreError projectNotFound or ambiguousProjectPrefix.
    ProjectPackage project(const std::string& matchingIDPrefix) const;

    // The life of a package.
    //
    // A new recording: <UUID>.rilo.tmp with its directories, a manifest in
    // state "recording" and an empty timeline (with the default device frame
    // of the size for a device source, when the catalog has one).
    struct CreatedProject {
        ProjectPackage package;
        ProjectManifest manifest;
    };
    CreatedProject create(const CaptureSourceDescriptor& source, const RecordingOptions& options,
                          PixelSize encodedPixelSize,
                          const std::optional<MicrophoneDeviceDescriptor>& microphoneConfiguration,
                          const std::optional<WebcamCaptureConfiguration>& webcamConfiguration);
    // Writes manifest.json atomically.
    void updateManifest(const ProjectManifest& manifest, const ProjectPackage& package);
    // Stores a canvas background image under its content id; anything but
    // assets/backgrounds/<sha-256 of the bytes>.jpg is invalidProjectLocation.
    void writeCanvasBackgroundAsset(const CanvasBackgroundAssetPayload& payload,
                                    const ProjectPackage& package);
    void writeReport(const DiagnosticReport& report, const ProjectPackage& package);
    // State completed, then the package moves to <UUID>.rilo (replacing
    // whatever is there). Returns the moved package.
    ProjectPackage finish(const ProjectPackage& package, ProjectManifest manifest);
    // State failed with the reason; the package keeps its .rilo.tmp name.
    void markFailed(const ProjectPackage& package, ProjectManifest manifest, const std::string& reason);
    // Removes a finished package of this library; anything else is
    // invalidProjectLocation and nothing is removed.
    void deleteProject(const ProjectPackage& project);
    // Removes an unfinished recording in two steps (rename to
    // .rilo.discarding, then remove). Only <UUID>.rilo.tmp directly in the
    // library, not a symbolic link; anything else is invalidProjectLocation.
    void discardRecording(const ProjectPackage& package);
    // Removes the .rilo.discarding leftovers of an interrupted discard; entries
    // that fail the name and location rules are left alone.
    void cleanupDiscardedRecordings();
    // The .rilo.tmp packages with a manifest whose media has a duration above
    // 0 and a video track, whatever their state.
    std::vector<ProjectPackage> recoverableProjects(const MediaAssetInspector& inspector) const;
    // State recovered, counters from the chunks, cursor assets from the store,
    // then moved as by finish. Returns the moved package.
    ProjectPackage markRecovered(const ProjectPackage& package, ProjectTime duration);
    // Manifest, samples, cursor assets, normalised (and, with a known
    // duration, validated) timeline, captions and canvas background.
    ProjectSnapshot loadSnapshot(const ProjectPackage& package) const;

    // Timeline and caption commits.
    //
    // A digest is the SHA-256 of a document's bytes as they lie on disk, in
    // lower-case hexadecimal; any change of the file, even of white space,
    // changes it. A guarded write states the digest it was prepared against
    // and takes an advisory lock on edits/.timeline.lock (and, where captions
    // are involved, then on edits/.captions.lock) for the check and the write,
    // waiting as long as it takes; the locks are what keeps the command line,
    // the editor and other processes from overwriting one another. Every file
    // is written atomically, and a guarded write that fails before the new
    // document is in place leaves it as it was. The commit forms keep the
    // replaced document in a history of at most 20 entries; the oldest by
    // name are removed first.
    //
    // Before any timeline write, the first time a document of an older schema
    // is replaced by one of schema 3 to 8, its bytes are kept once in
    // edits/timeline.pre-schema<N>.json for each schema N it crosses.

    // Digest of edits/timeline.json, that of no bytes when there is no such
    // file; throws FileError when it cannot be read.
    std::string timelineDigest(const ProjectPackage& package) const;

    // Decodes edits/timeline.json (the empty timeline when there is no such
    // file), normalises it, and validates it when the source duration is
    // above 0. Throws FileError, json::DecodingError,
    // TimelineValidationError or TimelineEffectError.
    EditTimeline readTimeline(const ProjectPackage& package, ProjectTime sourceDuration,
                              bool hasWebcam) const;

    // As readTimeline, with the digest of the same bytes: a later commit
    // against that digest compares with exactly what was decoded.
    TimelineState readTimelineState(const ProjectPackage& package, ProjectTime sourceDuration,
                                    bool hasWebcam) const;

    // Unguarded write, used right after a recording: migration backups, then
    // an atomic write. No lock, no digest, no validation.
    void writeTimeline(const EditTimeline& timeline, const ProjectPackage& package);

    // Guarded write without history, for the editor (which has its own undo).
    // Under the timeline lock: the file's digest must equal expectedDigest
    // (else ProjectStoreError::timelineDigestConflict), the timeline must pass
    // validation against the manifest's duration when that is above 0, then
    // migration backups and the write. Returns the new digest. Throws
    // ProjectStoreError::timelineLockUnavailable when the lock cannot be taken.
    std::string writeTimeline(const EditTimeline& timeline, const std::string& expectedDigest,
                              const ProjectPackage& package);

    // Guarded write with history, for the command line. As the guarded
    // writeTimeline, and also: when expectedCaptionsDigest is given, the
    // caption lock is taken after the timeline lock and the caption file
    // (digest of no bytes when it is missing) must match it, else
    // ProjectStoreError::captionsDigestConflict; the replaced bytes go to a new
    // entry of edits/history; the history is trimmed to 20, and a failure to
    // trim becomes a warning instead of failing the commit.
    TimelineCommitResult commitTimeline(const EditTimeline& timeline, const std::string& expectedDigest,
                                        const std::optional<std::string>& expectedCaptionsDigest,
                                        const ProjectPackage& package);

    // The entries of edits/history with the digests of their bytes, newest
    // first, so index 0 is the state before the last commit. Empty when there
    // is no history; throws FileError when an entry cannot be read.
    std::vector<TimelineHistoryEntry> timelineHistory(const ProjectPackage& package) const;

    // The history entry at the index, decoded, normalised, and validated when
    // the source duration is above 0. Throws ProjectStoreError::historyNotFound
    // for an index outside the history.
    EditTimeline historyTimeline(std::int64_t index, const ProjectPackage& package,
                                 ProjectTime sourceDuration, bool hasWebcam) const;

    // Commits the history entry at the index as a new timeline, guarded by
    // the digest of the current file, so that a restore is itself kept in the
    // history and can be undone the same way.
    TimelineCommitResult restoreTimeline(std::int64_t index, const std::string& expectedDigest,
                                         const ProjectPackage& package, ProjectTime sourceDuration,
                                         bool hasWebcam);

    // Digest of edits/captions.json, or of no bytes when there is no such
    // file. Throws FileError when it exists but cannot be read.
    std::string captionsDigest(const ProjectPackage& package) const;

    // The decoded caption document (not validated) and the digest of its
    // bytes. Throws FileError or json::DecodingError.
    CaptionsState captionsState(const ProjectPackage& package) const;

    // Guarded caption write with history, for the command line. Under the
    // timeline lock and then the caption lock: the timeline file must match
    // expectedTimelineDigest (else timelineDigestConflict) and the caption
    // file expectedCaptionsDigest (else captionsDigestConflict); the document
    // is validated against the manifest's duration (CaptionValidationError);
    // the replaced caption file, if any, goes to edits/caption-history, the
    // validated document is written, and the history is trimmed to 20 (a
    // failure to trim is thrown). Returns the new digest.
    std::string commitCaptions(const CaptionDocument& document, const std::string& expectedCaptionsDigest,
                               const std::string& expectedTimelineDigest, const ProjectPackage& package);

    // Guarded caption write without history, for the editor: as
    // commitCaptions under the caption lock alone, without the timeline check
    // and the history.
    std::string writeCaptions(const CaptionDocument& document, const std::string& expectedDigest,
                              const ProjectPackage& package);

private:
    std::filesystem::path projectsDirectory_;
    TimelineValidator::DeviceFrameCatalogProvider deviceFrameCatalog_;
};

} // namespace rilo

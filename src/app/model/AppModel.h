#pragma once

// The single state object of the desktop application: the library, the
// project open in the editor with its editing sessions, player and media,
// the export, and the start-up work (removing discarded recordings,
// recovering interrupted ones). A project is open at most once. The views
// show its state and call its operations; they hold no logic of their own.
//
// Recording: the model owns the recording flow (src/app/recording) and
// publishes the recording setup (source, options, devices, countdown, sound)
// with the flow's message and live status. The flow's phases are the model's
// (validating, countingDown(n), preparing, recording, finalizing, failed); a
// finished recording stays finalizing until showResult has opened it (ready).
// The setup's choices are read from the user defaults at bootstrap and
// written back on every change. The desktop connection and the flow are made
// at the first start, so a model that never records needs no display.
// Recording and the editor exclude each other: a recording starts only from
// idle (anywhere else startRecording answers with the setup's "not ready"
// message and changes nothing), and while one is under way (validating to
// finalizing) bootstrap, openProject, dismissResult and leaving the editor
// do nothing; a failed recording is left with dismissResult.
//
// Threads: the model lives on the main thread, the thread that turns the
// MainRunLoop it is given; every call is made there and the observer is
// called there after published state changed. Work of its own runs elsewhere:
// every operation on the project store runs on one serial store thread (so
// writes to a document never overlap), media loading, exports and player
// builds on threads of their own. Their results are posted back to the run
// loop; a result that arrives after the model has gone, or after newer work
// of the same kind started, is dropped.
//
// Failures never leave the model: every background failure becomes the
// published message of its group (projectLibraryMessage, timelineMediaMessage,
// exportMessage, canvasBackgroundMessage) and the rest keeps working. Only
// a failing recording changes the phase to failed.

#include "app/editing/CaptionEditingSession.h"
#include "app/editing/ProjectTimelineWatcher.h"
#include "app/editing/TimelineEditingSession.h"
#include "app/model/AppModelPhase.h"
#include "app/model/BackgroundThreads.h"
#include "app/recording/RecordingFlow.h"
#include "app/settings/UserDefaults.h"
#include "app/updates/AppUpdateController.h"
#include "app/updates/AppUpdateModels.h"
#include "export/ExportConfiguration.h"
#include "export/ExportProgress.h"
#include "media/FFmpegMediaAssetInspector.h"
#include "media/analysis/WaveformEnvelope.h"
#include "media/pictures/CanvasBackgroundService.h"
#include "media/pictures/ProjectCoverService.h"
#include "media/pictures/TimelineThumbnailService.h"
#include "playback/ProjectPlayer.h"
#include "project/store/ProjectStore.h"
#include "shared/MainRunLoop.h"
#include "shared/SerialQueue.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace rilo {

// What the model is given by the program that makes it.
struct AppModelEnvironment {
    // Makes a player for a snapshot (its timeline and captions are the ones to
    // play). Called on a player-building thread; the player's own tasks must
    // go to the model's run loop. The desktop gives it sound and a preview;
    // tests and headless programs can make one without sound.
    using PlayerFactory = std::function<std::unique_ptr<ProjectPlayer>(const ProjectSnapshot&)>;
    // The facts of this machine that a diagnostic report names.
    using MachineFactsProvider = std::function<DiagnosticReport::MachineFacts()>;

    // The library directory; none for the default one of the user.
    std::optional<std::filesystem::path> libraryDirectory;
    TimelineValidator::DeviceFrameCatalogProvider deviceFrameCatalog;
    // Where device frame pictures are read when an export draws one.
    std::filesystem::path deviceFrameResourceDirectory;
    // Where project covers are kept between runs.
    std::filesystem::path coverCacheDirectory;
    PlayerFactory makePlayer;
    MachineFactsProvider machineFacts;

    // The desktop that is recorded: this connection, or else the display of
    // that name, connected to when the first recording starts (an empty name
    // is $DISPLAY, as for X11Connection).
    std::shared_ptr<x11::X11Connection> desktop;
    std::string desktopDisplayName;
    // Where the countdown's cue sounds lie.
    std::filesystem::path soundsDirectory;
    // Where the recording choices are kept; none: they last as long as the model.
    std::shared_ptr<UserDefaults> userDefaults;

    // Where the canvas background picker looks for wallpapers.
    std::vector<std::filesystem::path> systemWallpaperDirectories;
    DesktopWallpaperSettings desktopWallpaperSettings;

    // The running program's version, for the update check and the release
    // notes shown after an update.
    std::string applicationVersion;
    // The update endpoint; empty: no update checks. Checks need the user
    // defaults as well (they remember when the last one ran).
    std::string updateFeedURL;
    app::AppUpdateTransportLimits updateTransportLimits;
    // Opens a download in the browser (throws AppUpdateError::cannotOpenBrowser).
    app::AppUpdateController::URLOpener openURL;
    // The notes that came with this build, shown once after an update.
    app::ReleaseNotesCatalog releaseNotes;
};

// What the picker shows in place of a wallpaper list: while it loads, or
// when it found nothing.
struct CanvasBackgroundListingStatus {
    std::string title;
    std::optional<std::string> detail;

    friend bool operator==(const CanvasBackgroundListingStatus&,
                           const CanvasBackgroundListingStatus&) = default;
};

class AppModel {
public:
    using Phase = AppModelPhase;
    // Answers whether the editor was left (false: nothing changed).
    using LeaveCompletion = std::function<void(bool left)>;

    static constexpr double initialThumbnailPixelsPerSecond = 60.0;

    // Sets up the project store; a store that cannot be set up leaves the
    // model without a library and says so in projectLibraryMessage. With
    // bootstrapsAutomatically, bootstrap() is posted to the run loop.
    AppModel(MainRunLoop& mainRunLoop, AppModelEnvironment environment, bool startsInRecordingWorkspace,
             bool bootstrapsAutomatically);
    // Cancels the background work; writes already handed to the store thread
    // are finished first.
    ~AppModel();
    AppModel(const AppModel&) = delete;
    AppModel& operator=(const AppModel&) = delete;

    void setObserver(std::function<void()> observer) { observer_ = std::move(observer); }

    // ---- Start-up ----
    // Removes discarded recordings, recovers the interrupted ones (the first
    // timeline with the zooms of their clicks, a report marked recovered),
    // refreshes the library, then shows the latest recovered project, or
    // the setup (phase idle).
    void bootstrap();

    // ---- Library ----
    void refreshRecentProjects();
    void showRecentProjects();
    void showRecordingSetup();
    void openProject(const RecentProject& project);
    // Deletes a project of the list; the completion (may be empty) hears
    // whether it went.
    void deleteProject(const RecentProject& project, LeaveCompletion completion);
    // Waits for the pending writes, closes the editor and deletes its project.
    void deleteCurrentProjectAndReturnToRecentProjects(LeaveCompletion completion);
    // Waits for the pending writes; when the last write of either document
    // failed the editor stays open (false), so that leaving loses no edit.
    // Otherwise closes the editor and shows the recent projects.
    void finishEditingAndReturnToRecentProjects(LeaveCompletion completion);
    // Closes the editor (or the failure shown, a failed recording's included)
    // at once and goes to idle.
    void dismissResult();

    // ---- Open project ----
    // Opens the editor for a finished recording, a recovered or an opened
    // project. The phase becomes ready once the digests have been read.
    void showResult(ProjectSnapshot snapshot, std::optional<DiagnosticReport> report);
    // Called for every committed edit that is to be persisted: writes run
    // one at a time, and only the newest waiting edit is written next.
    void scheduleTimelinePersistence(const EditTimeline& timeline, const ProjectPackage& package);
    void scheduleCaptionPersistence(const CaptionDocument& document, const ProjectPackage& package);
    // Reads the package's documents; what another writer committed becomes
    // one more undoable step of the sessions, and our own writes are
    // recognised by their digests and left alone.
    void reloadExternalTimeline(const ProjectPackage& package);
    // Makes a new player for the timeline, keeping the playhead on the same
    // source instant; an older build still running is dropped.
    void rebuildPlayer(const EditTimeline& timeline);
    // Thumbnails of the visible stretch (none: the whole sequence).
    void loadTimelineThumbnails(double pixelsPerSecond, std::optional<ProjectTimeRange> visibleRange);
    // Exports the open project as it is edited now; a newer export replaces
    // one in progress.
    void startExport(const std::filesystem::path& target, const ExportConfiguration& configuration);
    void cancelExport();
    // Writes currentReport as JSON (nothing without one); throws FileError.
    void exportDiagnosticReport(const std::filesystem::path& target) const;

    // ---- Canvas backgrounds ----
    // List the wallpapers for the picker on a thread of their own; a newer
    // listing replaces one under way.
    void loadSystemCanvasBackgrounds();
    void loadDesktopWallpapers();
    // Makes the picture the open project's canvas background: the import
    // runs on a thread of its own, the asset is written into the package,
    // and the canvas is set through the timeline session (one undoable,
    // persisted edit). A newer import wins over one under way; a failure
    // is canvasBackgroundMessage. Nothing happens without an open project.
    void importCanvasBackground(const std::filesystem::path& file);
    void importCanvasBackground(const SystemCanvasBackgroundCandidate& wallpaper);
    void importCanvasBackground(const DesktopWallpaperCandidate& wallpaper);

    // ---- Recording setup ----
    // Each choice is published at once; all but the source and the preview's
    // state are written to the user defaults, and a write that fails says so
    // in recordingSetupMessage.
    void selectRecordingSource(std::optional<CaptureSourceDescriptor> source);
    void setRecordingOptions(const RecordingOptions& options);
    void selectMicrophone(std::optional<std::string> deviceID);
    void setWebcamEnabled(bool enabled);
    void selectWebcam(std::optional<std::string> deviceID);
    void setRecordingWebcamOverlay(const WebcamOverlay& overlay);
    void setRecordingWebcamPanelCenter(std::optional<PointValue> center);
    // 0, 3 or 5; any other number counts as 3.
    void setCountdownSeconds(std::int64_t seconds);
    void setPlaysCountdownSound(bool playsSound);
    // The setup's webcam preview says whether it runs (a webcam records only then).
    void setWebcamPreviewIsRunning(bool running);
    // Asks the sound server for its microphones and lists the webcams
    // (blocks for at most a few seconds when the sound server is silent).
    void refreshRecordingDevices();

    // ---- Recording ----
    void startRecording();
    void cancelRecordingCountdown();
    void stopRecording();
    void toggleRecordingPause();
    void discardRecording();
    // The interface could not arrange its windows for the recording.
    void handleRecordingPresentationFailure(const std::string& description);

    // ---- Published state ----
    const Phase& phase() const noexcept { return phase_; }

    // Open project.
    const std::optional<CanvasState>& canvas() const noexcept { return canvas_; }
    const std::optional<WebcamOverlay>& webcamOverlay() const noexcept { return webcamOverlay_; }
    const std::optional<ProjectSnapshot>& currentSnapshot() const noexcept { return currentSnapshot_; }
    const std::optional<DiagnosticReport>& currentReport() const noexcept { return currentReport_; }
    ProjectPlayer* player() const noexcept { return player_.get(); }
    TimelineEditingSession* timelineSession() const noexcept { return timelineSession_.get(); }
    CaptionEditingSession* captionSession() const noexcept { return captionSession_.get(); }
    bool isRebuildingTimeline() const noexcept { return isRebuildingTimeline_; }
    const std::vector<WaveformEnvelope>& timelineWaveforms() const noexcept { return timelineWaveforms_; }
    const std::vector<TimelineThumbnail>& timelineThumbnails() const noexcept { return timelineThumbnails_; }
    const std::optional<std::vector<ProjectTimeRange>>& webcamAvailability() const noexcept {
        return webcamAvailability_;
    }
    const std::optional<std::string>& timelineMediaMessage() const noexcept { return timelineMediaMessage_; }
    // From 0 to 1 while waveforms load; none otherwise.
    const std::optional<double>& waveformProgress() const noexcept { return waveformProgress_; }
    const std::optional<std::string>& canvasBackgroundMessage() const noexcept {
        return canvasBackgroundMessage_;
    }

    // Canvas background choices.
    const std::vector<SystemCanvasBackgroundCandidate>& systemCanvasBackgrounds() const noexcept {
        return systemCanvasBackgrounds_;
    }
    const std::vector<DesktopWallpaperCandidate>& desktopWallpapers() const noexcept {
        return desktopWallpapers_;
    }
    bool isLoadingSystemCanvasBackgrounds() const noexcept { return isLoadingSystemCanvasBackgrounds_; }
    bool isLoadingDesktopWallpapers() const noexcept { return isLoadingDesktopWallpapers_; }
    bool isImportingCanvasBackground() const noexcept { return isImportingCanvasBackground_; }
    // None while the list has something to show (or was never asked for).
    std::optional<CanvasBackgroundListingStatus> systemCanvasBackgroundStatus() const;
    std::optional<CanvasBackgroundListingStatus> desktopWallpaperStatus() const;

    // Updates: the controller when this build looks for updates (none
    // otherwise), and the notes to show once after an update.
    app::AppUpdateController* updateController() const noexcept { return updateController_.get(); }
    const std::optional<app::ReleaseNote>& releaseNoteToPresent() const noexcept {
        return releaseNoteToPresent_;
    }
    void dismissReleaseNote();

    // Recording setup. On X11 every permission is granted.
    const PermissionSnapshot& permissions() const noexcept { return permissions_; }
    const std::optional<CaptureSourceDescriptor>& selectedSource() const noexcept { return selectedSource_; }
    const RecordingOptions& options() const noexcept { return recordingSetup_.options; }
    const std::optional<std::string>& selectedMicrophoneID() const noexcept {
        return recordingSetup_.options.microphoneDeviceID;
    }
    const std::optional<std::string>& selectedWebcamID() const noexcept {
        return recordingSetup_.options.webcamDeviceID;
    }
    const WebcamOverlay& recordingWebcamOverlay() const noexcept { return recordingSetup_.webcamOverlay; }
    const std::optional<PointValue>& recordingWebcamPanelCenter() const noexcept {
        return recordingSetup_.webcamPanelCenter;
    }
    const std::vector<MicrophoneDeviceDescriptor>& microphoneDevices() const noexcept {
        return microphoneDevices_;
    }
    const std::vector<WebcamDeviceDescriptor>& webcamDevices() const noexcept { return webcamDevices_; }
    bool webcamPreviewIsRunning() const noexcept { return webcamPreviewIsRunning_; }
    std::int64_t countdownSeconds() const noexcept { return recordingLaunch_.countdownSeconds; }
    bool playsCountdownSound() const noexcept { return recordingLaunch_.playsCountdownSound; }
    const std::optional<std::string>& recordingSetupMessage() const noexcept {
        return recordingSetupMessage_;
    }
    const RecordingLiveStatus& recordingLiveStatus() const noexcept { return recordingLiveStatus_; }
    // Notes about launches that didn't stop them (a cue sound that couldn't play).
    const std::vector<std::string>& recordingDiagnostics() const noexcept { return recordingDiagnostics_; }

    // Library.
    bool showsRecentProjects() const noexcept { return showsRecentProjects_; }
    const std::vector<RecentProject>& recentProjects() const noexcept { return recentProjects_; }
    // By package URL.
    const std::map<std::filesystem::path, RgbaImage>& recentProjectCovers() const noexcept {
        return recentProjectCovers_;
    }
    const std::optional<std::string>& projectLibraryMessage() const noexcept {
        return projectLibraryMessage_;
    }
    std::int64_t recoverableProjectCount() const noexcept { return recoverableProjectCount_; }

    // Export.
    double exportProgress() const noexcept { return exportProgress_; }
    const std::optional<ExportPhase>& exportPhase() const noexcept { return exportPhase_; }
    const std::optional<std::chrono::steady_clock::time_point>& exportStartedAt() const noexcept {
        return exportStartedAt_;
    }
    const std::optional<double>& exportEstimatedRemainingSeconds() const noexcept {
        return exportEstimatedRemainingSeconds_;
    }
    bool isExporting() const noexcept { return isExporting_; }
    const std::optional<ExportConfiguration>& activeExportConfiguration() const noexcept {
        return activeExportConfiguration_;
    }
    const std::optional<std::string>& exportMessage() const noexcept { return exportMessage_; }

    // Digests of the documents as this model last wrote or read them.
    const std::string& lastPersistedTimelineDigest() const noexcept {
        return timelineWrites_.lastPersistedDigest;
    }
    const std::string& lastPersistedCaptionsDigest() const noexcept {
        return captionWrites_.lastPersistedDigest;
    }

private:
    // The writes of one document: at most one on the store thread, and the
    // newest edit waiting behind it.
    template <class Document>
    struct DocumentWrites {
        std::optional<Document> lastCommitted;
        std::string lastPersistedDigest;
        bool isWriting = false;
        std::optional<std::pair<Document, ProjectPackage>> waiting;
        bool lastWriteFailed = false;

        bool isIdle() const noexcept { return !isWriting && !waiting; }
    };

    // Runs `work` with the store on the store thread, then `done` with its
    // result (or the exception it threw) on the main thread, unless the model
    // has gone by then.
    template <class Result>
    void onStore(std::function<Result(ProjectStore&)> work,
                 std::function<void(std::optional<Result>, std::exception_ptr)> done);
    // Posts a task that runs only while the model lives.
    void postToModel(std::function<void()> task);
    void changed();

    // Start-up and library.
    struct BootstrapOutcome;
    static BootstrapOutcome runBootstrap(ProjectStore& store, const MediaAssetInspector& inspector,
                                         const AppModelEnvironment::MachineFactsProvider& machineFacts);
    void finishBootstrap(BootstrapOutcome outcome);
    void loadCovers();
    void removeFromLibrary(const RecentProject& project, LeaveCompletion completion);

    // The editor.
    struct OpenedProject;
    void present(OpenedProject opened);
    void resetEditorState();
    void whenWritesFinished(std::function<void()> then);
    void timelineChanged(const EditTimeline& timeline, bool committed, bool shouldPersist);
    void captionsChanged(const CaptionDocument& document, bool committed, bool shouldPersist);
    void startTimelineWatcher(const ProjectPackage& package);
    // Commits a document on the store thread and answers its new digest.
    template <class Document>
    using DocumentWriter = std::string (*)(ProjectStore&, const Document&, const std::string& expectedDigest,
                                           const ProjectPackage&);
    // Starts the newest waiting write of one document unless one is running;
    // a digest conflict of the given case reloads the documents from disk.
    template <class Document>
    void startNextWrite(DocumentWrites<Document> AppModel::*documentWrites, DocumentWriter<Document> write,
                        ProjectStoreErrorCase conflict);
    void startNextTimelineWrite();
    void startNextCaptionWrite();
    void writesSettled();
    void playerBuilt(std::uint64_t generation, std::unique_ptr<ProjectPlayer> player,
                     std::exception_ptr failure, std::optional<ProjectTime> keptSourceTime);
    // The snapshot as edited now: the sessions' timeline and captions.
    ProjectSnapshot editedSnapshot() const;
    void loadWaveforms();
    void loadWebcamAvailability();
    void exportProgressed(std::uint64_t generation, const ExportProgressUpdate& update);
    void exportEnded(std::uint64_t generation, std::exception_ptr failure);

    // Canvas backgrounds.
    using CanvasBackgroundImport =
        std::function<CanvasBackgroundAssetPayload(const CanvasBackgroundService&)>;
    void startCanvasBackgroundImport(CanvasBackgroundImport import);
    void storeCanvasBackground(std::uint64_t generation, CanvasBackgroundAssetPayload payload);
    void applyCanvasBackground(const CanvasBackgroundAssetPayload& payload);
    void canvasBackgroundFailed(std::uint64_t generation, const std::string& message);

    // Updates, once per model, after the first bootstrap.
    void startUpdateChecks();

    // Recording.
    bool isRecordingUnderWay() const noexcept;
    // Makes the flow (and the desktop connection) on first use; false, with
    // the message, when it can't be had.
    bool ensureRecordingFlow();
    void recordingFlowChanged();
    void recordingFinished(const ProjectSnapshot& snapshot, const DiagnosticReport& report);
    void loadRecordingPreferences();
    void saveRecordingPreferences();

    MainRunLoop& mainRunLoop_;
    AppModelEnvironment environment_;
    std::function<void()> observer_;
    // Posted tasks hold it weakly and do nothing once it has expired.
    std::shared_ptr<AppModel*> alive_ = std::make_shared<AppModel*>(this);

    Phase phase_;

    // Open project.
    std::optional<CanvasState> canvas_;
    std::optional<WebcamOverlay> webcamOverlay_;
    std::optional<ProjectSnapshot> currentSnapshot_;
    std::optional<DiagnosticReport> currentReport_;
    std::unique_ptr<ProjectPlayer> player_;
    std::unique_ptr<TimelineEditingSession> timelineSession_;
    std::unique_ptr<CaptionEditingSession> captionSession_;
    bool isRebuildingTimeline_ = false;
    std::vector<WaveformEnvelope> timelineWaveforms_;
    std::vector<TimelineThumbnail> timelineThumbnails_;
    std::optional<std::vector<ProjectTimeRange>> webcamAvailability_;
    std::optional<std::string> timelineMediaMessage_;
    std::optional<double> waveformProgress_;
    std::optional<std::string> canvasBackgroundMessage_;

    // Canvas background choices.
    std::vector<SystemCanvasBackgroundCandidate> systemCanvasBackgrounds_;
    std::vector<DesktopWallpaperCandidate> desktopWallpapers_;
    bool isLoadingSystemCanvasBackgrounds_ = false;
    bool isLoadingDesktopWallpapers_ = false;
    bool isImportingCanvasBackground_ = false;
    bool hasListedSystemCanvasBackgrounds_ = false;
    bool hasListedDesktopWallpapers_ = false;

    // Updates.
    std::optional<app::ReleaseNote> releaseNoteToPresent_;
    bool hasStartedUpdateChecks_ = false;

    // Library.
    bool showsRecentProjects_ = false;
    std::vector<RecentProject> recentProjects_;
    std::map<std::filesystem::path, RgbaImage> recentProjectCovers_;
    std::optional<std::string> projectLibraryMessage_;
    std::int64_t recoverableProjectCount_ = 0;

    // Recording setup.
    PermissionSnapshot permissions_ = PermissionSnapshot::granted();
    std::optional<CaptureSourceDescriptor> selectedSource_;
    RecordingSetupPreferences recordingSetup_;
    RecordingLaunchPreferences recordingLaunch_;
    std::vector<MicrophoneDeviceDescriptor> microphoneDevices_;
    std::vector<WebcamDeviceDescriptor> webcamDevices_;
    bool webcamPreviewIsRunning_ = false;
    std::optional<std::string> recordingSetupMessage_;
    // The flow's message as last taken over, to tell its new ones.
    std::optional<std::string> lastFlowSetupMessage_;
    RecordingLiveStatus recordingLiveStatus_;
    std::vector<std::string> recordingDiagnostics_;
    // A finished recording is being opened: the phase stays finalizing.
    bool opensRecordingResult_ = false;

    // Export.
    double exportProgress_ = 0;
    std::optional<ExportPhase> exportPhase_;
    std::optional<std::chrono::steady_clock::time_point> exportStartedAt_;
    std::optional<double> exportEstimatedRemainingSeconds_;
    bool isExporting_ = false;
    std::optional<ExportConfiguration> activeExportConfiguration_;
    std::optional<std::string> exportMessage_;
    ExportTimeEstimator exportEstimator_;

    // Guards of work that can go stale: the newest start wins.
    std::uint64_t editorGeneration_ = 0;
    std::uint64_t playerRebuildGeneration_ = 0;
    std::uint64_t activeExportGeneration_ = 0;
    std::uint64_t coverGeneration_ = 0;
    std::uint64_t systemCanvasBackgroundGeneration_ = 0;
    std::uint64_t desktopWallpaperGeneration_ = 0;
    std::uint64_t canvasBackgroundImportGeneration_ = 0;
    std::optional<std::string> thumbnailRequestKey_;
    std::stop_source waveformTask_;
    std::stop_source thumbnailTask_;
    std::stop_source webcamAvailabilityTask_;
    std::stop_source exportTask_;
    std::stop_source coverTask_;
    std::stop_source systemCanvasBackgroundTask_;
    std::stop_source desktopWallpaperTask_;
    std::stop_source canvasBackgroundImportTask_;
    DocumentWrites<EditTimeline> timelineWrites_;
    DocumentWrites<CaptionDocument> captionWrites_;
    // Run once neither document has a write running or waiting.
    std::vector<std::function<void()>> writeWaiters_;
    // The timeline of the newest player build, to tell which edits need one.
    std::optional<EditTimeline> playerTimeline_;
    // The newest player build, for the building thread to skip overtaken ones.
    std::shared_ptr<std::atomic<std::uint64_t>> playerBuildLatest_ =
        std::make_shared<std::atomic<std::uint64_t>>(0);
    struct ThumbnailRequest {
        double pixelsPerSecond = initialThumbnailPixelsPerSecond;
        std::optional<ProjectTimeRange> visibleRange;
    };
    std::optional<ThumbnailRequest> lastThumbnailRequest_;

    // Services. The store is shared with the store thread's tasks.
    std::shared_ptr<ProjectStore> projectStore_;
    FFmpegMediaAssetInspector mediaInspector_;
    std::shared_ptr<TimelineThumbnailService> thumbnailService_;
    std::shared_ptr<ProjectCoverService> projectCoverService_;
    std::shared_ptr<const CanvasBackgroundService> canvasBackgroundService_;
    // Made with the model when the environment names an update feed.
    std::unique_ptr<app::AppUpdateController> updateController_;
    ProjectTimelineWatcher timelineWatcher_;
    PulseAudioDeviceService sound_;
    // Made at the first start; destroyed first, before the store it writes to.
    std::unique_ptr<RecordingFlow> recordingFlow_;
    // Last among the members that tasks reach: the threads end (and the
    // store thread finishes its writes) before anything they use goes.
    BackgroundThreads backgroundThreads_;
    SerialQueue storeQueue_{"Rilo.ProjectStore"};
    SerialQueue playerBuildQueue_{"Rilo.PlayerBuild"};
};

} // namespace rilo

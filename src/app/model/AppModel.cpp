// The model's life, its start-up work and the library.

#include "app/model/AppModel.h"

#include "app/model/AppModelTasks.h"
#include "app/updates/ReleaseNotesPresentation.h"
#include "capture/ScreenRecordingSession.h"
#include "shared/Files.h"
#include "shared/Json.h"

#include <algorithm>

namespace rilo {

namespace {

constexpr std::size_t thumbnailCacheCapacityBytes = 64 * 1024 * 1024;
constexpr std::size_t coverCacheCapacityBytes = 32 * 1024 * 1024;

} // namespace

AppModel::AppModel(MainRunLoop& mainRunLoop, AppModelEnvironment environment, bool startsInRecordingWorkspace,
                   bool bootstrapsAutomatically)
    : mainRunLoop_(mainRunLoop)
    , environment_(std::move(environment))
    , showsRecentProjects_(!startsInRecordingWorkspace)
    , thumbnailService_(std::make_shared<TimelineThumbnailService>(thumbnailCacheCapacityBytes))
    , projectCoverService_(
          std::make_shared<ProjectCoverService>(environment_.coverCacheDirectory, coverCacheCapacityBytes))
    , canvasBackgroundService_(std::make_shared<const CanvasBackgroundService>(
          environment_.systemWallpaperDirectories, environment_.desktopWallpaperSettings))
    , timelineWatcher_(mainRunLoop.poster()) {
    try {
        projectStore_ =
            std::make_shared<ProjectStore>(environment_.libraryDirectory, environment_.deviceFrameCatalog);
    } catch (...) {
        projectLibraryMessage_ = "无法初始化项目：" + describeFailure(std::current_exception());
    }
    if (!environment_.updateFeedURL.empty() && environment_.userDefaults) {
        updateController_ = std::make_unique<app::AppUpdateController>(
            *environment_.userDefaults, environment_.updateFeedURL, environment_.applicationVersion,
            environment_.updateTransportLimits, mainRunLoop_.poster(), environment_.openURL);
        updateController_->setObserver([this] { changed(); });
    }
    if (bootstrapsAutomatically) {
        postToModel([this] { bootstrap(); });
    }
}

AppModel::~AppModel() {
    // The flow first: it waits for a stop in progress, which writes to the store.
    recordingFlow_.reset();
    // From here on no posted task reaches the model; the store thread still
    // finishes the writes handed to it (its queue is drained as it goes).
    alive_.reset();
    playerBuildLatest_->store(0);
    timelineWatcher_.stop();
    waveformTask_.request_stop();
    thumbnailTask_.request_stop();
    webcamAvailabilityTask_.request_stop();
    exportTask_.request_stop();
    coverTask_.request_stop();
    systemCanvasBackgroundTask_.request_stop();
    desktopWallpaperTask_.request_stop();
    canvasBackgroundImportTask_.request_stop();
}

void AppModel::postToModel(std::function<void()> task) {
    std::weak_ptr<AppModel*> weak = alive_;
    mainRunLoop_.post([weak, task = std::move(task)] {
        if (weak.lock()) {
            task();
        }
    });
}

void AppModel::changed() {
    if (observer_) {
        observer_();
    }
}

// ---- Start-up ----

void AppModel::bootstrap() {
    if (isRecordingUnderWay()) {
        return;
    }
    phase_ = Phase::of(Phase::Kind::loading);
    loadRecordingPreferences();
    changed();
    if (!projectStore_) {
        phase_ = Phase::of(Phase::Kind::idle);
        startUpdateChecks();
        changed();
        return;
    }
    onStore<BootstrapOutcome>([&inspector = mediaInspector_, facts = environment_.machineFacts](
                                  ProjectStore& store) { return runBootstrap(store, inspector, facts); },
                              [this](std::optional<BootstrapOutcome> outcome, std::exception_ptr failure) {
                                  if (!outcome) {
                                      outcome.emplace();
                                      outcome->cleanupFailure = describeFailure(failure);
                                  }
                                  finishBootstrap(std::move(*outcome));
                              });
}

AppModel::BootstrapOutcome
AppModel::runBootstrap(ProjectStore& store, const MediaAssetInspector& inspector,
                       const AppModelEnvironment::MachineFactsProvider& machineFacts) {
    BootstrapOutcome outcome;
    try {
        store.cleanupDiscardedRecordings();
    } catch (...) {
        outcome.cleanupFailure = describeFailure(std::current_exception());
    }

    // Oldest first, so that the last one recovered is the latest recording.
    struct Candidate {
        ProjectPackage package;
        std::optional<IsoDate> createdAt;
    };
    std::vector<Candidate> candidates;
    for (const ProjectPackage& package : store.recoverableProjects(inspector)) {
        std::optional<IsoDate> createdAt;
        try {
            createdAt = store.readManifest(package).createdAt;
        } catch (const std::exception&) {
            // Its recovery below says what is wrong with it.
        }
        candidates.push_back({package, createdAt});
    }
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const Candidate& a, const Candidate& b) { return a.createdAt < b.createdAt; });
    outcome.recoverableCount = static_cast<std::int64_t>(candidates.size());

    for (const Candidate& candidate : candidates) {
        try {
            const MediaAssetSummary media = inspector.inspect(candidate.package.mediaURL());
            if (media.duration <= ProjectTime::zero()) {
                continue;
            }
            const ProjectPackage recovered = store.markRecovered(candidate.package, media.duration);
            ProjectSnapshot snapshot = store.loadSnapshot(recovered);
            const ProjectManifest& manifest = snapshot.manifest;
            const std::optional<WebcamOverlay> overlay =
                manifest.webcam ? std::optional(WebcamOverlay::newRecording()) : std::nullopt;
            store.writeTimeline(
                ScreenRecordingSession::makeInitialTimeline(manifest.duration, overlay, snapshot.mouseEvents),
                recovered);
            const DiagnosticReport report =
                DiagnosticReport::make(manifest, true, {}, machineFacts(), std::nullopt);
            store.writeReport(report, recovered);

            OpenedProject opened;
            opened.timelineDigest = store.timelineDigest(recovered);
            opened.captionsDigest = store.captionsDigest(recovered);
            opened.snapshot = store.loadSnapshot(recovered);
            opened.report = report;
            outcome.latestRecovered = std::move(opened);
        } catch (...) {
            outcome.recoveryFailures.push_back("项目恢复失败：" + describeFailure(std::current_exception()));
        }
    }

    try {
        outcome.recentProjects = store.recentProjects();
    } catch (...) {
        // The list stays empty; a later refresh tries again.
    }
    return outcome;
}

void AppModel::finishBootstrap(BootstrapOutcome outcome) {
    if (outcome.cleanupFailure) {
        projectLibraryMessage_ = outcome.cleanupFailure;
    }
    if (!outcome.recoveryFailures.empty()) {
        projectLibraryMessage_ = outcome.recoveryFailures.back();
    }
    recoverableProjectCount_ = outcome.recoverableCount;
    recentProjects_ = std::move(outcome.recentProjects);
    loadCovers();
    if (outcome.latestRecovered) {
        resetEditorState();
        present(std::move(*outcome.latestRecovered));
    } else {
        phase_ = Phase::of(Phase::Kind::idle);
    }
    startUpdateChecks();
    changed();
}

// ---- Updates ----

void AppModel::startUpdateChecks() {
    if (hasStartedUpdateChecks_) {
        return;
    }
    hasStartedUpdateChecks_ = true;
    if (environment_.userDefaults) {
        try {
            releaseNoteToPresent_ = app::ReleaseNotesPresentation::noteToPresentAtLaunch(
                *environment_.userDefaults, environment_.applicationVersion, environment_.releaseNotes);
        } catch (const std::exception&) {
            // Nothing could be recorded: the notes wait for a launch that can
            // remember having shown them.
        }
    }
    if (updateController_) {
        updateController_->checkAutomatically(IsoDate::now());
    }
}

void AppModel::dismissReleaseNote() {
    releaseNoteToPresent_.reset();
    changed();
}

// ---- Library ----

void AppModel::refreshRecentProjects() {
    onStore<std::vector<RecentProject>>(
        [](ProjectStore& store) { return store.recentProjects(); },
        [this](std::optional<std::vector<RecentProject>> projects, std::exception_ptr failure) {
            if (!projects) {
                projectLibraryMessage_ = describeFailure(failure);
                changed();
                return;
            }
            recentProjects_ = std::move(*projects);
            std::erase_if(recentProjectCovers_, [this](const auto& entry) {
                return std::none_of(
                    recentProjects_.begin(), recentProjects_.end(),
                    [&](const RecentProject& project) { return project.packageURL == entry.first; });
            });
            loadCovers();
            changed();
        });
}

void AppModel::loadCovers() {
    std::vector<std::filesystem::path> missing;
    for (const RecentProject& project : recentProjects_) {
        if (!recentProjectCovers_.contains(project.packageURL)) {
            missing.push_back(project.packageURL);
        }
    }
    coverTask_.request_stop();
    if (missing.empty()) {
        return;
    }
    const std::uint64_t generation = ++coverGeneration_;
    std::weak_ptr<AppModel*> weak = alive_;
    coverTask_ = backgroundThreads_.start([service = projectCoverService_, missing, generation, weak,
                                           &loop = mainRunLoop_](std::stop_token stop) {
        auto covers = std::make_shared<std::map<std::filesystem::path, RgbaImage>>();
        for (const std::filesystem::path& packageURL : missing) {
            if (stop.stop_requested()) {
                return;
            }
            try {
                // The package's name is its id, which never changes with its media.
                (*covers)[packageURL] =
                    service->cover(ProjectPackage{packageURL}.mediaURL(), packageURL.stem().string());
            } catch (const std::exception&) {
                // A project without a cover is listed with a placeholder.
            }
        }
        loop.post([weak, covers, generation] {
            if (const auto model = weak.lock(); model && (*model)->coverGeneration_ == generation) {
                (*model)->recentProjectCovers_.merge(*covers);
                (*model)->changed();
            }
        });
    });
}

void AppModel::showRecentProjects() {
    showsRecentProjects_ = true;
    changed();
    refreshRecentProjects();
}

void AppModel::showRecordingSetup() {
    showsRecentProjects_ = false;
    changed();
}

void AppModel::openProject(const RecentProject& project) {
    if (isRecordingUnderWay()) {
        return;
    }
    resetEditorState();
    phase_ = Phase::of(Phase::Kind::openingProject);
    projectLibraryMessage_.reset();
    changed();
    const std::uint64_t generation = editorGeneration_;
    const ProjectPackage package{project.packageURL};
    onStore<OpenedProject>(
        [package](ProjectStore& store) {
            OpenedProject opened;
            // The digests first: a commit in between makes the first write
            // conflict and reload, never overwrite what it did not see.
            opened.timelineDigest = store.timelineDigest(package);
            opened.captionsDigest = store.captionsDigest(package);
            opened.snapshot = store.loadSnapshot(package);
            try {
                opened.report = json::decodeDocument<DiagnosticReport>(readFileBytes(package.reportURL()));
            } catch (const std::exception&) {
                // A project without a readable report opens without one.
            }
            return opened;
        },
        [this, generation](std::optional<OpenedProject> opened, std::exception_ptr failure) {
            if (generation != editorGeneration_) {
                return;
            }
            if (!opened) {
                projectLibraryMessage_ = "无法打开项目：" + describeFailure(failure);
                phase_ = Phase::of(Phase::Kind::idle);
                changed();
                refreshRecentProjects();
                return;
            }
            present(std::move(*opened));
            changed();
        });
}

void AppModel::deleteProject(const RecentProject& project, LeaveCompletion completion) {
    if (currentSnapshot_ && currentSnapshot_->packageURL == project.packageURL) {
        deleteCurrentProjectAndReturnToRecentProjects(std::move(completion));
        return;
    }
    removeFromLibrary(project, std::move(completion));
}

void AppModel::removeFromLibrary(const RecentProject& project, LeaveCompletion completion) {
    const ProjectPackage package{project.packageURL};
    onStore<bool>(
        [package](ProjectStore& store) {
            store.deleteProject(package);
            return true;
        },
        [this, url = project.packageURL, completion](std::optional<bool> deleted,
                                                     std::exception_ptr failure) {
            if (deleted) {
                std::erase_if(recentProjects_,
                              [&](const RecentProject& listed) { return listed.packageURL == url; });
                recentProjectCovers_.erase(url);
            } else {
                projectLibraryMessage_ = "无法删除项目：" + describeFailure(failure);
            }
            changed();
            if (completion) {
                completion(deleted.has_value());
            }
        });
}

void AppModel::deleteCurrentProjectAndReturnToRecentProjects(LeaveCompletion completion) {
    if (!currentSnapshot_ || isRecordingUnderWay()) {
        if (completion) {
            completion(false);
        }
        return;
    }
    const std::uint64_t generation = editorGeneration_;
    whenWritesFinished([this, generation, completion] {
        if (generation != editorGeneration_ || !currentSnapshot_) {
            if (completion) {
                completion(false);
            }
            return;
        }
        RecentProject project;
        project.packageURL = currentSnapshot_->packageURL;
        resetEditorState();
        phase_ = Phase::of(Phase::Kind::idle);
        showsRecentProjects_ = true;
        changed();
        removeFromLibrary(project, completion);
    });
}

void AppModel::finishEditingAndReturnToRecentProjects(LeaveCompletion completion) {
    if (isRecordingUnderWay()) {
        if (completion) {
            completion(false);
        }
        return;
    }
    const std::uint64_t generation = editorGeneration_;
    whenWritesFinished([this, generation, completion] {
        const bool stays = generation != editorGeneration_ || timelineWrites_.lastWriteFailed ||
                           captionWrites_.lastWriteFailed;
        if (!stays) {
            resetEditorState();
            phase_ = Phase::of(Phase::Kind::idle);
            showsRecentProjects_ = true;
            changed();
            refreshRecentProjects();
        }
        if (completion) {
            completion(!stays);
        }
    });
}

void AppModel::dismissResult() {
    if (isRecordingUnderWay()) {
        return;
    }
    if (recordingFlow_) {
        recordingFlow_->dismissFailure();
    }
    resetEditorState();
    phase_ = Phase::of(Phase::Kind::idle);
    changed();
    refreshRecentProjects();
}

void AppModel::exportDiagnosticReport(const std::filesystem::path& target) const {
    if (!currentReport_) {
        return;
    }
    writeFileAtomically(target, json::encodeDocument(*currentReport_));
}

} // namespace rilo

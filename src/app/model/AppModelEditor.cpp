// The open project: presenting it, persisting its documents one write at a
// time, taking in what other writers committed, and the player.

#include "app/model/AppModel.h"
#include "app/model/AppModelTasks.h"
#include "project/engine/TimelineMapper.h"

#include <algorithm>

namespace rilo {

void AppModel::showResult(ProjectSnapshot snapshot, std::optional<DiagnosticReport> report) {
    resetEditorState();
    const std::uint64_t generation = editorGeneration_;
    const ProjectPackage package{snapshot.packageURL};
    auto opened = std::make_shared<OpenedProject>();
    opened->snapshot = std::move(snapshot);
    opened->report = std::move(report);
    onStore<bool>(
        [package, opened](ProjectStore& store) {
            opened->timelineDigest = store.timelineDigest(package);
            opened->captionsDigest = store.captionsDigest(package);
            return true;
        },
        [this, generation, opened](std::optional<bool> read, std::exception_ptr failure) {
            if (generation != editorGeneration_) {
                return;
            }
            opensRecordingResult_ = false;
            if (!read) {
                projectLibraryMessage_ = "无法打开项目：" + describeFailure(failure);
                phase_ = Phase::of(Phase::Kind::idle);
                changed();
                return;
            }
            present(std::move(*opened));
            changed();
        });
}

void AppModel::present(OpenedProject opened) {
    const ProjectSnapshot& snapshot = opened.snapshot;
    const ProjectPackage package{snapshot.packageURL};
    const ProjectTime duration = snapshot.manifest.duration;

    if (const auto& image = snapshot.timeline.canvas.image) {
        const bool loaded = std::any_of(
            snapshot.canvasBackgroundAssets.begin(), snapshot.canvasBackgroundAssets.end(),
            [&](const CanvasBackgroundAssetPayload& payload) { return payload.descriptor.id == image->id; });
        if (!loaded) {
            canvasBackgroundMessage_ = "项目壁纸资源缺失，请重新选择图片。";
        }
    }

    timelineSession_ = std::make_unique<TimelineEditingSession>(
        snapshot.timeline, duration, snapshot.manifest.encodedPixelSize,
        [this](const EditTimeline& timeline, bool committed, bool shouldPersist) {
            timelineChanged(timeline, committed, shouldPersist);
        },
        [this] { changed(); });
    const CaptionDocument captions = snapshot.captions.value_or(CaptionDocument{});
    captionSession_ = std::make_unique<CaptionEditingSession>(
        captions, duration,
        [this](const CaptionDocument& document, bool committed, bool shouldPersist) {
            captionsChanged(document, committed, shouldPersist);
        },
        [this] { changed(); });

    timelineWrites_.lastCommitted = snapshot.timeline;
    timelineWrites_.lastPersistedDigest = std::move(opened.timelineDigest);
    captionWrites_.lastCommitted = captions;
    captionWrites_.lastPersistedDigest = std::move(opened.captionsDigest);
    canvas_ = CanvasState(snapshot.timeline.canvas);
    webcamOverlay_ = snapshot.timeline.webcamOverlay;
    currentReport_ = std::move(opened.report);
    currentSnapshot_ = std::move(opened.snapshot);

    rebuildPlayer(currentSnapshot_->timeline);
    loadWaveforms();
    loadWebcamAvailability();
    loadTimelineThumbnails(initialThumbnailPixelsPerSecond, std::nullopt);
    startTimelineWatcher(package);
    phase_ = Phase::of(Phase::Kind::ready);
}

void AppModel::resetEditorState() {
    ++editorGeneration_;
    ++playerRebuildGeneration_;
    playerBuildLatest_->store(playerRebuildGeneration_);
    waveformTask_.request_stop();
    thumbnailTask_.request_stop();
    webcamAvailabilityTask_.request_stop();
    // Writes already on the store thread finish there; their results are
    // dropped, and what waited is not written.
    timelineWrites_ = {};
    captionWrites_ = {};
    writeWaiters_.clear();
    timelineWatcher_.stop();

    player_.reset();
    timelineSession_.reset();
    captionSession_.reset();
    canvas_.reset();
    webcamOverlay_.reset();
    currentSnapshot_.reset();
    currentReport_.reset();
    isRebuildingTimeline_ = false;
    timelineWaveforms_.clear();
    timelineThumbnails_.clear();
    webcamAvailability_.reset();
    timelineMediaMessage_.reset();
    waveformProgress_.reset();
    canvasBackgroundMessage_.reset();
    ++canvasBackgroundImportGeneration_;
    canvasBackgroundImportTask_.request_stop();
    isImportingCanvasBackground_ = false;
    thumbnailRequestKey_.reset();
    lastThumbnailRequest_.reset();
    playerTimeline_.reset();
    opensRecordingResult_ = false;
}

ProjectSnapshot AppModel::editedSnapshot() const {
    ProjectSnapshot snapshot = *currentSnapshot_;
    if (timelineSession_) {
        snapshot.timeline = timelineSession_->timeline();
    }
    if (captionSession_ && (snapshot.captions || !captionSession_->document().cues.empty())) {
        snapshot.captions = captionSession_->document();
    }
    return snapshot;
}

void AppModel::timelineChanged(const EditTimeline& timeline, bool committed, bool shouldPersist) {
    canvas_ = CanvasState(timeline.canvas);
    webcamOverlay_ = timeline.webcamOverlay;
    if (player_ || playerTimeline_) {
        // Cuts and speeds live in the player's composition; the rest is drawn
        // over it. A drag previews over the old composition until it ends.
        if (committed && playerTimeline_ && ProjectPlayer::requiresRebuild(*playerTimeline_, timeline)) {
            rebuildPlayer(timeline);
            if (lastThumbnailRequest_) {
                // The cuts changed, and with them which frame lies where.
                thumbnailRequestKey_.reset();
                loadTimelineThumbnails(lastThumbnailRequest_->pixelsPerSecond,
                                       lastThumbnailRequest_->visibleRange);
            }
        } else if (player_) {
            player_->setVisualEdits(TimelineVisualEdits(timeline));
        }
    }
    if (committed && shouldPersist && currentSnapshot_) {
        scheduleTimelinePersistence(timeline, ProjectPackage{currentSnapshot_->packageURL});
    }
    changed();
}

void AppModel::captionsChanged(const CaptionDocument& document, bool committed, bool shouldPersist) {
    if (player_) {
        player_->setCaptionDocument(document);
    }
    if (committed && shouldPersist && currentSnapshot_) {
        scheduleCaptionPersistence(document, ProjectPackage{currentSnapshot_->packageURL});
    }
    changed();
}

// ---- Persistence ----

void AppModel::scheduleTimelinePersistence(const EditTimeline& timeline, const ProjectPackage& package) {
    timelineWrites_.waiting.emplace(timeline, package);
    startNextTimelineWrite();
}

void AppModel::scheduleCaptionPersistence(const CaptionDocument& document, const ProjectPackage& package) {
    captionWrites_.waiting.emplace(document, package);
    startNextCaptionWrite();
}

template <class Document>
void AppModel::startNextWrite(DocumentWrites<Document> AppModel::*documentWrites,
                              DocumentWriter<Document> write, ProjectStoreErrorCase conflict) {
    DocumentWrites<Document>& writes = this->*documentWrites;
    while (!writes.isWriting && writes.waiting) {
        auto [document, package] = std::move(*writes.waiting);
        writes.waiting.reset();
        if (writes.lastCommitted == document) {
            continue;
        }
        writes.isWriting = true;
        const std::uint64_t generation = editorGeneration_;
        onStore<std::string>([write, document, package, expected = writes.lastPersistedDigest](
                                 ProjectStore& store) { return write(store, document, expected, package); },
                             [this, documentWrites, write, conflict, generation, document,
                              package](std::optional<std::string> digest, std::exception_ptr failure) {
                                 if (generation != editorGeneration_) {
                                     return;
                                 }
                                 DocumentWrites<Document>& writes = this->*documentWrites;
                                 writes.isWriting = false;
                                 if (digest) {
                                     writes.lastCommitted = document;
                                     writes.lastPersistedDigest = std::move(*digest);
                                     writes.lastWriteFailed = false;
                                 } else if (isDigestConflict(failure, conflict)) {
                                     // Another writer got there first: what waited was made
                                     // on the old document, and its edit stays undoable in
                                     // the session under the newer one.
                                     writes.waiting.reset();
                                     writes.lastWriteFailed = false;
                                     reloadExternalTimeline(package);
                                 } else {
                                     writes.lastWriteFailed = true;
                                     timelineMediaMessage_ = "编辑保存失败：" + describeFailure(failure);
                                 }
                                 startNextWrite(documentWrites, write, conflict);
                                 changed();
                             });
    }
    writesSettled();
}

void AppModel::startNextTimelineWrite() {
    startNextWrite<EditTimeline>(
        &AppModel::timelineWrites_,
        [](ProjectStore& store, const EditTimeline& timeline, const std::string& expected,
           const ProjectPackage& package) { return store.writeTimeline(timeline, expected, package); },
        ProjectStoreErrorCase::timelineDigestConflict);
}

void AppModel::startNextCaptionWrite() {
    startNextWrite<CaptionDocument>(
        &AppModel::captionWrites_,
        [](ProjectStore& store, const CaptionDocument& document, const std::string& expected,
           const ProjectPackage& package) { return store.writeCaptions(document, expected, package); },
        ProjectStoreErrorCase::captionsDigestConflict);
}

void AppModel::whenWritesFinished(std::function<void()> then) {
    writeWaiters_.push_back(std::move(then));
    writesSettled();
}

void AppModel::writesSettled() {
    if (!timelineWrites_.isIdle() || !captionWrites_.isIdle() || writeWaiters_.empty()) {
        return;
    }
    std::vector<std::function<void()>> waiters = std::move(writeWaiters_);
    writeWaiters_.clear();
    for (auto& waiter : waiters) {
        waiter();
    }
}

// ---- Changes from outside ----

namespace {

struct ExternalDocuments {
    std::optional<TimelineState> timeline;
    std::exception_ptr timelineFailure;
    std::optional<CaptionDocument> captions;
    std::string captionsDigest;
    std::exception_ptr captionsFailure;
};

} // namespace

void AppModel::startTimelineWatcher(const ProjectPackage& package) {
    try {
        timelineWatcher_.start(package.editsDirectory(),
                               [this, package] { reloadExternalTimeline(package); });
    } catch (const ProjectTimelineWatcherError& error) {
        timelineMediaMessage_ = error.message();
    }
}

void AppModel::reloadExternalTimeline(const ProjectPackage& package) {
    if (!currentSnapshot_ || currentSnapshot_->packageURL != package.rootURL) {
        return;
    }
    const std::uint64_t generation = editorGeneration_;
    const ProjectTime duration = currentSnapshot_->manifest.duration;
    const bool hasWebcam = currentSnapshot_->manifest.webcam.has_value();
    onStore<ExternalDocuments>(
        [package, duration, hasWebcam](ProjectStore& store) {
            ExternalDocuments documents;
            try {
                documents.timeline = store.readTimelineState(package, duration, hasWebcam);
            } catch (...) {
                documents.timelineFailure = std::current_exception();
            }
            try {
                CaptionsState state = store.captionsState(package);
                documents.captions = state.document ? state.document->validated(duration) : CaptionDocument{};
                documents.captionsDigest = std::move(state.digest);
            } catch (...) {
                documents.captionsFailure = std::current_exception();
            }
            return documents;
        },
        [this, generation](std::optional<ExternalDocuments> documents, std::exception_ptr) {
            if (generation != editorGeneration_ || !documents || !timelineSession_ || !captionSession_) {
                return;
            }
            if (documents->timelineFailure) {
                // The session shows why the file could not be taken.
                timelineSession_->reloadExternalTimeline(
                    [&]() -> EditTimeline { std::rethrow_exception(documents->timelineFailure); });
            } else if (documents->timeline->digest != timelineWrites_.lastPersistedDigest) {
                timelineWrites_.lastPersistedDigest = documents->timeline->digest;
                timelineWrites_.lastCommitted = documents->timeline->timeline;
                timelineSession_->applyExternalTimeline(documents->timeline->timeline);
            }
            if (documents->captionsFailure) {
                timelineMediaMessage_ = describeFailure(documents->captionsFailure);
                changed();
            } else if (documents->captionsDigest != captionWrites_.lastPersistedDigest) {
                captionWrites_.lastPersistedDigest = documents->captionsDigest;
                captionWrites_.lastCommitted = documents->captions;
                captionSession_->applyExternalDocument(*documents->captions);
            }
        });
}

// ---- Player ----

void AppModel::rebuildPlayer(const EditTimeline& timeline) {
    if (!currentSnapshot_ || !environment_.makePlayer) {
        return;
    }
    const std::uint64_t generation = ++playerRebuildGeneration_;
    playerBuildLatest_->store(generation);
    isRebuildingTimeline_ = true;
    std::optional<ProjectTime> keptSourceTime;
    if (player_) {
        player_->pause();
        keptSourceTime = player_->sourceTime(player_->currentTime());
    }
    ProjectSnapshot snapshot = editedSnapshot();
    snapshot.timeline = timeline;
    playerTimeline_ = timeline;

    std::weak_ptr<AppModel*> weak = alive_;
    playerBuildQueue_.async([snapshot = std::move(snapshot), factory = environment_.makePlayer,
                             latest = playerBuildLatest_, generation, keptSourceTime, weak,
                             &loop = mainRunLoop_] {
        if (latest->load() != generation) {
            return; // overtaken before it began
        }
        auto player = std::make_shared<std::unique_ptr<ProjectPlayer>>();
        std::exception_ptr failure;
        try {
            *player = factory(snapshot);
        } catch (...) {
            failure = std::current_exception();
        }
        loop.post([weak, player, failure, generation, keptSourceTime] {
            if (const auto model = weak.lock()) {
                (*model)->playerBuilt(generation, std::move(*player), failure, keptSourceTime);
            }
        });
    });
}

void AppModel::playerBuilt(std::uint64_t generation, std::unique_ptr<ProjectPlayer> player,
                           std::exception_ptr failure, std::optional<ProjectTime> keptSourceTime) {
    if (generation != playerRebuildGeneration_) {
        return; // a newer build is on its way: this player is never shown
    }
    isRebuildingTimeline_ = false;
    if (failure || !player) {
        player_.reset();
        if (failure) {
            timelineMediaMessage_ = describeFailure(failure);
        }
        changed();
        return;
    }
    player_ = std::move(player);
    player_->setObserver([this] { changed(); });
    // Edits made while it was built are drawn over its composition.
    if (timelineSession_) {
        player_->setVisualEdits(TimelineVisualEdits(timelineSession_->timeline()));
    }
    if (captionSession_) {
        player_->setCaptionDocument(editedSnapshot().captions);
    }
    if (keptSourceTime && playerTimeline_) {
        try {
            const TimelineMapper mapper(*playerTimeline_, currentSnapshot_->manifest.duration);
            const auto mapped = mapper.mappedTimeForSourceTime(*keptSourceTime);
            player_->seek(mapped ? mapped->sequenceTime
                                 : mapper.nearestSequenceBoundaryToDeletedSourceTime(*keptSourceTime));
        } catch (const std::exception&) {
            // A timeline the mapper refuses leaves the playhead at the start.
        }
    }
    changed();
}

} // namespace rilo

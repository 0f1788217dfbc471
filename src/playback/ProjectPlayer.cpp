#include "playback/ProjectPlayer.h"

#include "media/TimelineCompositionPlan.h"

#include <algorithm>
#include <atomic>
#include <cmath>

namespace rilo {

std::unique_ptr<ProjectPlayer> ProjectPlayer::make(const ProjectSnapshot& snapshot,
                                                   std::optional<CanvasState> canvas,
                                                   std::optional<WebcamOverlay> webcam,
                                                   ProjectPlayerEnvironment environment) {
    return std::unique_ptr<ProjectPlayer>(
        new ProjectPlayer(snapshot, std::move(canvas), std::move(webcam), std::move(environment)));
}

ProjectPlayer::ProjectPlayer(const ProjectSnapshot& snapshot, std::optional<CanvasState> canvas,
                             std::optional<WebcamOverlay> webcam, ProjectPlayerEnvironment environment)
    : visualEdits_(snapshot.timeline, canvas, webcam)
    , captionDocument_(snapshot.captions)
    , environment_(std::move(environment))
    , mediaPath_(snapshot.mediaURL())
    , alive_(std::make_shared<ProjectPlayer*>(this)) {
    std::stop_source never;
    plan_ = std::make_shared<const TimelineCompositionPlan>(
        TimelineCompositionBuilder::build(snapshot, never.get_token()));
    duration_ = plan_->duration();
    clock_ = std::make_shared<PlaybackClock>(duration_);
    clock_->stop(ProjectTime{0});
    screenPlayer_ = std::make_shared<CompositionVideoPlayer>(mediaPath_, plan_->screen.source.index,
                                                             plan_->mapper, clock_);
    if (plan_->webcam) {
        webcamPlayer_ = std::make_shared<CompositionVideoPlayer>(mediaPath_, plan_->webcam->source.index,
                                                                 plan_->mapper, clock_);
    }
    frameProvider_ = std::make_shared<PreviewFrameProvider>(
        screenPlayer_, webcamPlayer_, std::make_shared<const SceneEvaluator>(snapshot, canvas), plan_->mapper,
        PreviewEditState{visualEdits_, captionDocument_, false});
    std::weak_ptr<ProjectPlayer*> weak = alive_;
    frameProvider_->setTimeHandler([weak, poster = environment_.postToMain](ProjectTime t) {
        poster([weak, t] {
            if (const auto player = weak.lock()) {
                (*player)->timeReported(t);
            }
        });
    });
    // The first picture, so that a new editor shows the start at once.
    seek(ProjectTime{0});
}

ProjectPlayer::~ProjectPlayer() {
    alive_.reset();
    frameProvider_->setTimeHandler({});
    if (environment_.audioOutput) {
        environment_.audioOutput->stop();
    }
}

bool ProjectPlayer::requiresRebuild(const EditTimeline& shown, const EditTimeline& next) {
    return shown.segments != next.segments;
}

void ProjectPlayer::post(std::function<void()> task) const {
    std::weak_ptr<ProjectPlayer*> weak = alive_;
    environment_.postToMain([weak, task = std::move(task)] {
        if (weak.lock()) {
            task();
        }
    });
}

void ProjectPlayer::changed() const {
    if (observer_) {
        observer_();
    }
}

void ProjectPlayer::invalidatePreview() {
    ++previewRevision_;
}

void ProjectPlayer::play() {
    if (isPlaying_) {
        return;
    }
    if (isSkimming_) {
        isSkimming_ = false;
        seek(playheadTime_, true);
        return;
    }
    if (currentTime_ < duration_) {
        playSynchronized();
    } else {
        seek(ProjectTime{0}, true);
    }
}

void ProjectPlayer::playSynchronized() {
    const std::int64_t hostStart = PlaybackClock::hostNow() + synchronizedStartDelayNanoseconds;
    isPlaying_ = true;
    const bool hasSound = environment_.audioOutput && !plan_->audio.empty();
    clock_->start(currentTime_, hostStart, hasSound);
    if (hasSound) {
        bool started = false;
        try {
            started = environment_.audioOutput->start(
                std::make_unique<CompositionAudioReader>(*plan_, mediaPath_, currentTime_), currentTime_,
                *clock_);
        } catch (const LocalizedError&) {
            // Sound that cannot be read leaves the pictures playing on host time.
        }
        if (!started) {
            clock_->stopWaitingForSound();
        }
    }
    screenPlayer_->clockChanged();
    if (webcamPlayer_) {
        webcamPlayer_->clockChanged();
    }
    changed();
}

void ProjectPlayer::stopPlayers(ProjectTime at) {
    if (environment_.audioOutput) {
        environment_.audioOutput->stop();
    }
    clock_->stop(at);
    screenPlayer_->cancelPendingSeeks();
    if (webcamPlayer_) {
        webcamPlayer_->cancelPendingSeeks();
    }
}

void ProjectPlayer::pause() {
    if (!isPlaying_) {
        return;
    }
    const ProjectTime at = clock_->now();
    stopPlayers(at);
    isPlaying_ = false;
    currentTime_ = at;
    playheadTime_ = at;
    invalidatePreview();
    changed();
}

void ProjectPlayer::togglePlayback() {
    if (isPlaying_) {
        pause();
    } else {
        play();
    }
}

void ProjectPlayer::seekPlayers(ProjectTime to, ProjectTime tolerance, std::function<void()> done) {
    struct Group {
        std::atomic<int> remaining;
        std::function<void()> done;
    };
    auto group = std::make_shared<Group>();
    group->remaining = webcamPlayer_ ? 2 : 1;
    std::weak_ptr<ProjectPlayer*> weak = alive_;
    group->done = [weak, poster = environment_.postToMain, done = std::move(done)] {
        poster([weak, done] {
            if (weak.lock()) {
                done();
            }
        });
    };
    const auto completion = [group](bool) {
        if (--group->remaining == 0) {
            group->done();
        }
    };
    screenPlayer_->seek(to, tolerance, completion);
    if (webcamPlayer_) {
        webcamPlayer_->seek(to, tolerance, completion);
    }
}

void ProjectPlayer::seek(ProjectTime to, bool resumeAfterSeek) {
    cancelSkimming();
    const ProjectTime t = std::clamp(to, ProjectTime{0}, duration_);
    stopPlayers(t);
    isPlaying_ = false;
    currentTime_ = t;
    playheadTime_ = t;
    const std::uint64_t generation = ++seekGeneration_;
    seekPlayers(t, ProjectTime{0}, [this, generation, resumeAfterSeek] {
        if (generation != seekGeneration_) {
            return; // A newer seek has started.
        }
        invalidatePreview();
        if (resumeAfterSeek) {
            playSynchronized();
        } else {
            changed();
        }
    });
    changed();
}

void ProjectPlayer::step(std::int64_t byFrames) {
    const std::int64_t frame =
        std::llround(static_cast<double>(currentTime_.nanoseconds) / 1e9 * 60.0) + byFrames;
    seek(ProjectTime{frame * 1'000'000'000 / 60});
}

bool ProjectPlayer::beginSkimming() {
    if (isPlaying_) {
        return false;
    }
    if (!isSkimming_) {
        isSkimming_ = true;
        skimQueue_.cancel();
    }
    return true;
}

void ProjectPlayer::cancelSkimming() {
    skimQueue_.cancel();
}

void ProjectPlayer::skim(ProjectTime to) {
    if (!beginSkimming()) {
        return;
    }
    const ProjectTime t = std::clamp(to, ProjectTime{0}, duration_);
    playheadTime_ = t;
    if (const std::optional<ProjectTime> now = skimQueue_.enqueue(t)) {
        performSkimSeek(*now);
    }
    changed();
}

void ProjectPlayer::performSkimSeek(ProjectTime to) {
    const std::uint64_t generation = ++seekGeneration_;
    clock_->stop(to);
    seekPlayers(to, ProjectTime{skimToleranceNanoseconds}, [this, generation, to] {
        if (generation != seekGeneration_) {
            return;
        }
        currentTime_ = to;
        invalidatePreview();
        if (const std::optional<ProjectTime> next = skimQueue_.complete()) {
            performSkimSeek(*next);
        }
        changed();
    });
}

void ProjectPlayer::endSkimming() {
    if (!isSkimming_) {
        return;
    }
    isSkimming_ = false;
    cancelSkimming();
    seek(playheadTime_, false);
}

void ProjectPlayer::setZoomRegionEditing(bool editing) {
    if (editing) {
        pause();
    }
    frameProvider_->setSuppressesZooms(editing);
    invalidatePreview();
    changed();
}

std::optional<ProjectTime> ProjectPlayer::sourceTime(ProjectTime at) const {
    const std::optional<TimelineMappedTime> mapped = plan_->mapper.mappedTimeForSequenceTime(at);
    if (!mapped) {
        return std::nullopt;
    }
    return mapped->sourceTime;
}

void ProjectPlayer::setVisualEdits(TimelineVisualEdits edits) {
    visualEdits_ = edits;
    frameProvider_->setVisualEdits(std::move(edits));
    invalidatePreview();
    changed();
}

void ProjectPlayer::setCaptionDocument(std::optional<CaptionDocument> document) {
    captionDocument_ = document;
    frameProvider_->setCaptionDocument(std::move(document));
    invalidatePreview();
    changed();
}

void ProjectPlayer::timeReported(ProjectTime t) {
    if (!isPlaying_ || isSkimming_) {
        return;
    }
    currentTime_ = t;
    playheadTime_ = t;
    if (t >= duration_) {
        pause();
        return;
    }
    changed();
}

} // namespace rilo

#pragma once

// Plays the edited project in the editor, with sound. The composition plan
// carries only the cuts and speeds; every other edit is applied when a frame
// is drawn, so edits show at once and only a change of cuts or speed needs a
// new player (requiresRebuild).
//
// Two players decode in lockstep on one clock: the screen, whose sound is
// the composition's whole mix, and the webcam when the project has one. The
// sound output moves the clock to what has been heard, and the pictures
// follow it. The preview draws through the frame provider (see
// PreviewRendering.h) on its own thread.
//
// Threads: a ProjectPlayer lives on the main thread, and every call is made
// there. Seek completions and the drawing thread's time reports come back
// through the main-thread poster given at construction; each seek carries a
// generation, so completions may arrive in any order and only the newest
// seek's takes effect. Tasks posted after the player has gone do nothing.
//
// Observable state is read through the accessors; the observer set with
// setObserver() is called on the main thread after any of it changes.

#include "playback/CompositionVideoPlayer.h"
#include "playback/PlaybackAudioOutput.h"
#include "playback/PlaybackClock.h"
#include "playback/PreviewFrameProvider.h"
#include "playback/ProjectPlayerSkimQueue.h"
#include "project/store/ProjectSnapshot.h"
#include "shared/MainThreadPoster.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace rilo {

struct ProjectPlayerEnvironment {
    MainThreadPoster postToMain;
    // Where the sound goes; none plays silently on host time.
    std::shared_ptr<PlaybackAudioOutput> audioOutput;
};

class ProjectPlayer {
public:
    // The lead with which both players are started together.
    static constexpr std::int64_t synchronizedStartDelayNanoseconds = 50'000'000;
    // The tolerance of a skim's seek on each side: one 60 fps frame.
    static constexpr std::int64_t skimToleranceNanoseconds = 1'000'000'000 / 60;

    // Builds the composition plan and opens the players. Throws what
    // TimelineCompositionBuilder::build throws (MediaProbeError,
    // TimelineTrackResolverError, ...) and VideoTrackDecoderError when a
    // track cannot be decoded.
    static std::unique_ptr<ProjectPlayer> make(const ProjectSnapshot& snapshot,
                                               std::optional<CanvasState> canvas,
                                               std::optional<WebcamOverlay> webcam,
                                               ProjectPlayerEnvironment environment);
    ~ProjectPlayer();
    ProjectPlayer(const ProjectPlayer&) = delete;
    ProjectPlayer& operator=(const ProjectPlayer&) = delete;

    // Whether the player shown for `shown` must be made anew for `next`:
    // only when the cuts or speeds differ.
    static bool requiresRebuild(const EditTimeline& shown, const EditTimeline& next);

    ProjectTime currentTime() const noexcept { return currentTime_; }
    ProjectTime playheadTime() const noexcept { return playheadTime_; }
    bool isPlaying() const noexcept { return isPlaying_; }
    bool isSkimming() const noexcept { return isSkimming_; }
    std::uint64_t previewRevision() const noexcept { return previewRevision_; }
    const TimelineVisualEdits& visualEdits() const noexcept { return visualEdits_; }
    const std::optional<CaptionDocument>& captionDocument() const noexcept { return captionDocument_; }
    ProjectTime duration() const noexcept { return duration_; }
    bool hasWebcam() const noexcept { return webcamPlayer_ != nullptr; }
    // The sequence position of the newest seek given to the players; for
    // watching skims.
    std::uint64_t seekGeneration() const noexcept { return seekGeneration_; }

    void setObserver(std::function<void()> observer) { observer_ = std::move(observer); }

    void play();
    void pause();
    void togglePlayback();
    void seek(ProjectTime to) { seek(to, false); }
    void seek(ProjectTime to, bool resumeAfterSeek);
    // Moves by whole sixtieths of a second, whatever the recording's rate.
    void step(std::int64_t byFrames);

    // Dragging on the timeline with the picture following: the playhead moves
    // at once and the picture catches up with tolerant seeks. Ignored while
    // playing.
    void skim(ProjectTime to);
    void endSkimming();

    // While a zoom's region is edited the preview pauses and shows the whole frame.
    void setZoomRegionEditing(bool editing);

    std::optional<ProjectTime> sourceTime(ProjectTime at) const;

    void setVisualEdits(TimelineVisualEdits edits);
    void setCaptionDocument(std::optional<CaptionDocument> document);

    // What the preview draws from, on its drawing thread.
    std::shared_ptr<PreviewFrameProvider> frameProvider() const { return frameProvider_; }

private:
    ProjectPlayer(const ProjectSnapshot& snapshot, std::optional<CanvasState> canvas,
                  std::optional<WebcamOverlay> webcam, ProjectPlayerEnvironment environment);

    // Seeks every player; `done` runs on the main thread once all have finished,
    // unless the player has gone by then.
    void seekPlayers(ProjectTime to, ProjectTime tolerance, std::function<void()> done);
    void playSynchronized();
    void stopPlayers(ProjectTime at);
    bool beginSkimming();
    void cancelSkimming();
    void performSkimSeek(ProjectTime to);
    void invalidatePreview();
    void timeReported(ProjectTime t);
    void post(std::function<void()> task) const;
    void changed() const;

    ProjectTime currentTime_;
    ProjectTime playheadTime_;
    bool isPlaying_ = false;
    bool isSkimming_ = false;
    std::uint64_t previewRevision_ = 0;
    TimelineVisualEdits visualEdits_;
    std::optional<CaptionDocument> captionDocument_;
    ProjectTime duration_;
    std::uint64_t seekGeneration_ = 0;
    ProjectPlayerSkimQueue skimQueue_;

    ProjectPlayerEnvironment environment_;
    std::function<void()> observer_;
    std::shared_ptr<const TimelineCompositionPlan> plan_;
    std::filesystem::path mediaPath_;
    std::shared_ptr<PlaybackClock> clock_;
    std::shared_ptr<CompositionVideoPlayer> screenPlayer_;
    std::shared_ptr<CompositionVideoPlayer> webcamPlayer_;
    std::shared_ptr<PreviewFrameProvider> frameProvider_;
    // Posted tasks hold a weak reference and do nothing once it has expired.
    std::shared_ptr<ProjectPlayer*> alive_;
};

} // namespace rilo

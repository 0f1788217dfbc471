#include "playback/CompositionVideoPlayer.h"

#include <chrono>
#include <cstdlib>

namespace rilo {

namespace {

// How often a running clock is looked at: a quarter of a 60 fps frame.
constexpr std::chrono::milliseconds followInterval{4};
// How far ahead of the clock the picture after a cut is prepared.
constexpr std::int64_t cutLookaheadNanoseconds = 400'000'000;

} // namespace

CompositionVideoPlayer::CompositionVideoPlayer(const std::filesystem::path& mediaPath,
                                               std::int64_t streamIndex, TimelineMapper mapper,
                                               std::shared_ptr<const PlaybackClock> clock)
    : decoder_(std::make_unique<VideoTrackDecoder>(mediaPath, streamIndex))
    , lookahead_(std::make_unique<VideoTrackDecoder>(mediaPath, streamIndex))
    , mapper_(std::move(mapper))
    , clock_(std::move(clock)) {
    thread_ = std::jthread([this](const std::stop_token& stop) { run(stop); });
}

CompositionVideoPlayer::~CompositionVideoPlayer() {
    thread_.request_stop();
    wake_.notify_all();
    thread_ = {};
    if (pendingSeek_ && pendingSeek_->completion) {
        pendingSeek_->completion(false);
    }
}

void CompositionVideoPlayer::seek(ProjectTime sequenceTime, ProjectTime tolerance,
                                  SeekCompletion completion) {
    std::optional<SeekRequest> replaced;
    {
        const std::scoped_lock lock(mutex_);
        replaced = std::move(pendingSeek_);
        pendingSeek_ = SeekRequest{sequenceTime, tolerance, std::move(completion)};
    }
    wake_.notify_all();
    if (replaced && replaced->completion) {
        replaced->completion(false);
    }
}

void CompositionVideoPlayer::cancelPendingSeeks() {
    std::optional<SeekRequest> cancelled;
    {
        const std::scoped_lock lock(mutex_);
        cancelled = std::move(pendingSeek_);
        pendingSeek_.reset();
    }
    if (cancelled && cancelled->completion) {
        cancelled->completion(false);
    }
}

void CompositionVideoPlayer::clockChanged() {
    {
        const std::scoped_lock lock(mutex_);
        clockChanged_ = true;
    }
    wake_.notify_all();
}

std::optional<PlayerPicture> CompositionVideoPlayer::copyFrame(std::uint64_t lastSerial) const {
    const std::scoped_lock lock(mutex_);
    if (newest_.serial == 0 || newest_.serial <= lastSerial) {
        return std::nullopt;
    }
    return newest_;
}

void CompositionVideoPlayer::show(ProjectTime sequenceTime, ProjectTime tolerance) {
    std::optional<TimelineMappedTime> mapped = mapper_.mappedTimeForSequenceTime(sequenceTime);
    if (!mapped) {
        // The very end of the sequence shows its last frame.
        const std::optional<ProjectTime> end = mapper_.sourceTimeForSequenceBoundary(sequenceTime);
        if (!end) {
            return;
        }
        mapped = TimelineMappedTime{Uuid{}, ProjectTime{std::max<std::int64_t>(end->nanoseconds - 1, 0)},
                                    sequenceTime};
    }
    if (newestPresentation_ && tolerance > ProjectTime{0} &&
        std::abs((*newestPresentation_ - mapped->sourceTime).nanoseconds) <= tolerance.nanoseconds) {
        return;
    }
    const DecodedVideoFrame* frame = decoder_->frameAt(mapped->sourceTime);
    if (newestPresentation_ && *newestPresentation_ == frame->presentationTime()) {
        return;
    }
    publish(*frame, mapped->segmentID);
}

void CompositionVideoPlayer::publish(const DecodedVideoFrame& frame, const Uuid& segmentID) {
    newestPresentation_ = frame.presentationTime();
    std::shared_ptr<const DecodedVideoFrame> shared = frame.share();
    const std::scoped_lock lock(mutex_);
    newest_ = PlayerPicture{std::move(shared), newest_.serial + 1, segmentID};
}

std::shared_ptr<const DecodedVideoFrame> CompositionVideoPlayer::preparedFrame(const Uuid& segmentID) const {
    const std::scoped_lock lock(mutex_);
    if (preparedCut_ && preparedCut_->segmentID == segmentID) {
        return preparedCut_->frame;
    }
    return nullptr;
}

void CompositionVideoPlayer::follow() {
    const ProjectTime now = clock_->now();
    std::optional<PreparedCut> reached;
    {
        const std::scoped_lock lock(mutex_);
        if (preparedCut_ && now >= preparedCut_->sequenceStart) {
            reached = std::move(preparedCut_);
            preparedCut_.reset();
        }
    }
    if (reached && now.nanoseconds - reached->sequenceStart.nanoseconds < cutLookaheadNanoseconds) {
        std::swap(decoder_, lookahead_);
        publish(*reached->frame, reached->segmentID);
    }
    show(now, ProjectTime{0});
    prepareNextCut(now);
}

void CompositionVideoPlayer::prepareNextCut(ProjectTime now) {
    const std::vector<TimelineSegmentProjection>& projections = mapper_.projections();
    for (std::size_t index = 1; index < projections.size(); ++index) {
        const TimelineSegmentProjection& next = projections[index];
        const ProjectTime start = next.sequenceRange.start;
        if (start <= now) {
            continue;
        }
        const bool isCut = projections[index - 1].segment.sourceRange.end() != next.segment.sourceRange.start;
        if (!isCut || start.nanoseconds - now.nanoseconds > cutLookaheadNanoseconds) {
            return;
        }
        {
            const std::scoped_lock lock(mutex_);
            if (preparedCut_ && preparedCut_->sequenceStart == start) {
                return;
            }
        }
        const DecodedVideoFrame* frame = lookahead_->frameAt(next.segment.sourceRange.start);
        std::shared_ptr<const DecodedVideoFrame> shared = frame->share();
        const std::scoped_lock lock(mutex_);
        preparedCut_ = PreparedCut{start, next.segment.id, std::move(shared)};
        return;
    }
}

void CompositionVideoPlayer::run(const std::stop_token& stop) {
    while (!stop.stop_requested()) {
        std::optional<SeekRequest> seek;
        {
            std::unique_lock lock(mutex_);
            const bool following = clock_->isRunning();
            const auto woken = [&] { return pendingSeek_.has_value() || clockChanged_; };
            if (following) {
                wake_.wait_for(lock, stop, followInterval, woken);
            } else {
                wake_.wait(lock, stop, woken);
            }
            if (stop.stop_requested()) {
                return;
            }
            clockChanged_ = false;
            seek = std::move(pendingSeek_);
            pendingSeek_.reset();
        }
        if (seek) {
            show(seek->sequenceTime, seek->tolerance);
            if (seek->completion) {
                seek->completion(true);
            }
        } else if (clock_->isRunning()) {
            follow();
        }
    }
}

} // namespace rilo

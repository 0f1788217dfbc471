#include "playback/PreviewFrameProvider.h"

#include <algorithm>

namespace rilo {

TimelineVisualEdits PreviewVisualEditPolicy::applying(TimelineVisualEdits edits, bool suppressesZooms) {
    if (suppressesZooms) {
        edits.zooms.clear();
    }
    return edits;
}

PreviewEditState PreviewEditBox::get() const {
    const std::scoped_lock lock(mutex_);
    return state_;
}

void PreviewEditBox::set(PreviewEditState state) {
    const std::scoped_lock lock(mutex_);
    state_ = std::move(state);
}

void PreviewEditBox::update(const std::function<void(PreviewEditState&)>& change) {
    const std::scoped_lock lock(mutex_);
    change(state_);
}

TimeHandlerBox::Handler TimeHandlerBox::get() const {
    const std::scoped_lock lock(mutex_);
    return handler_;
}

void TimeHandlerBox::set(Handler handler) {
    const std::scoped_lock lock(mutex_);
    handler_ = std::move(handler);
}

PreviewFrameProvider::PreviewFrameProvider(std::shared_ptr<CompositionVideoPlayer> screenPlayer,
                                           std::shared_ptr<CompositionVideoPlayer> webcamPlayer,
                                           std::shared_ptr<const SceneEvaluator> evaluator,
                                           TimelineMapper mapper, PreviewEditState edits)
    : screenPlayer_(std::move(screenPlayer))
    , webcamPlayer_(std::move(webcamPlayer))
    , evaluator_(std::move(evaluator))
    , mapper_(std::move(mapper))
    , editBox_(std::move(edits)) {}

std::optional<PreviewFrame> PreviewFrameProvider::frame() {
    const ProjectTime t =
        std::clamp(screenPlayer_->currentTime(), ProjectTime{0}, mapper_.sequenceDuration());
    // The time is reported first, so that the player also learns of the
    // sequence's end, where there is no frame to show.
    if (const TimeHandlerBox::Handler handler = handlerBox_.get()) {
        handler(t);
    }
    const std::optional<TimelineMappedTime> mapped = mapper_.mappedTimeForSequenceTime(t);
    if (!mapped) {
        return std::nullopt;
    }
    if (!lastSegmentID_ || *lastSegmentID_ != mapped->segmentID) {
        // No webcam picture from before a cut is carried over it.
        lastSegmentID_ = mapped->segmentID;
        lastWebcamPixelBuffer_.reset();
        lastWebcamDisplayTime_.reset();
    }
    if (std::optional<PlayerPicture> picture = screenPlayer_->copyFrame(lastScreenSerial_)) {
        lastScreenPixelBuffer_ = std::move(picture->frame);
        lastScreenSerial_ = picture->serial;
        lastScreenSegmentID_ = picture->segmentID;
    }
    if (lastScreenSegmentID_ != mapped->segmentID) {
        // The clock has crossed a cut that the decoding thread has not yet:
        // the stretch's first picture is ready, the newest is from before it.
        if (auto prepared = screenPlayer_->preparedFrame(mapped->segmentID)) {
            lastScreenPixelBuffer_ = std::move(prepared);
            lastScreenSegmentID_ = mapped->segmentID;
        }
    }
    if (!lastScreenPixelBuffer_) {
        return std::nullopt;
    }
    std::shared_ptr<const DecodedVideoFrame> webcam = currentWebcamBuffer();
    const PreviewEditState edits = editBox_.get();
    SceneState scene = evaluator_->evaluate(
        mapped->sourceTime, PreviewVisualEditPolicy::applying(edits.visualEdits, edits.suppressesZooms),
        edits.captionDocument);
    return PreviewFrame{lastScreenPixelBuffer_, std::move(webcam), std::move(scene), t};
}

std::shared_ptr<const DecodedVideoFrame> PreviewFrameProvider::currentWebcamBuffer() {
    if (webcamPlayer_ == nullptr) {
        return nullptr;
    }
    const std::int64_t now = PlaybackClock::hostNow();
    if (std::optional<PlayerPicture> picture = webcamPlayer_->copyFrame(lastWebcamSerial_)) {
        lastWebcamSerial_ = picture->serial;
        lastWebcamPixelBuffer_ = std::move(picture->frame);
        lastWebcamDisplayTime_ = now;
        return lastWebcamPixelBuffer_;
    }
    if (lastWebcamPixelBuffer_ && lastWebcamDisplayTime_ &&
        now - *lastWebcamDisplayTime_ <= webcamPictureLifetimeNanoseconds) {
        return lastWebcamPixelBuffer_;
    }
    return nullptr;
}

void PreviewFrameProvider::setVisualEdits(TimelineVisualEdits edits) {
    editBox_.update([&](PreviewEditState& state) { state.visualEdits = std::move(edits); });
}

void PreviewFrameProvider::setCaptionDocument(std::optional<CaptionDocument> document) {
    editBox_.update([&](PreviewEditState& state) { state.captionDocument = std::move(document); });
}

void PreviewFrameProvider::setSuppressesZooms(bool suppresses) {
    editBox_.update([&](PreviewEditState& state) { state.suppressesZooms = suppresses; });
}

void PreviewFrameProvider::setTimeHandler(TimeHandlerBox::Handler handler) {
    handlerBox_.set(std::move(handler));
}

} // namespace rilo

#include "app/editing/TimelineEditingSession.h"

#include "project/document/TimelineEffectRules.h"
#include "project/document/TimelineValidator.h"
#include "project/engine/TimelineEditEngine.h"
#include "project/engine/TimelineMapper.h"
#include "project/engine/TimelineSettingsEngine.h"
#include "project/engine/TimelineSpeedEngine.h"
#include "shared/Errors.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace rilo {

namespace {

template <class Element>
bool containsID(const std::vector<Element>& elements, const Uuid& id) {
    return std::any_of(elements.begin(), elements.end(),
                       [&](const Element& element) { return element.id == id; });
}

} // namespace

TimelineEditingSession::TimelineEditingSession(EditTimeline timeline, ProjectTime sourceDuration,
                                               PixelSize sourceSize, ChangeHandler onChange,
                                               PublishedChangeHandler onPublishedChange)
    : timeline_(std::move(timeline))
    , sourceDuration_(sourceDuration)
    , sourceSize_(sourceSize)
    , onChange_(std::move(onChange))
    , onPublishedChange_(std::move(onPublishedChange)) {}

double TimelineEditingSession::outputAspectRatio() const noexcept {
    return TimelineSettingsEngine::outputAspectRatio(timeline_.canvas.aspectRatio, sourceSize_);
}

// ---- Segments ----

void TimelineEditingSession::select(ProjectTime sequenceTime) {
    perform([&] {
        const TimelineMapper mapper(timeline_, sourceDuration_);
        const std::optional<TimelineMappedTime> mapped = mapper.mappedTimeForSequenceTime(sequenceTime);
        setSelection(selectedSegmentID_, mapped ? std::optional(mapped->segmentID) : std::nullopt);
    });
}

void TimelineEditingSession::selectSegment(std::optional<Uuid> segmentID) {
    perform([&] { setSelection(selectedSegmentID_, segmentID); });
}

void TimelineEditingSession::clearSelection() {
    perform([&] {
        setSelection(selectedSegmentID_, std::nullopt);
        setSelection(selectedZoomID_, std::nullopt);
        setSelection(selectedWebcamFullscreenID_, std::nullopt);
        setSelection(selectedWebcamKeyframeID_, std::nullopt);
        setSelection(selectedAnnotationID_, std::nullopt);
    });
}

void TimelineEditingSession::split(ProjectTime sequenceTime) {
    perform(
        [&] { applyMutationResult(TimelineEditEngine::split(timeline_, sequenceTime, sourceDuration_)); });
}

void TimelineEditingSession::trimStart(const Uuid& segmentID, ProjectTime sourceTime) {
    perform([&] {
        applyMutationResult(TimelineEditEngine::trimStart(timeline_, segmentID, sourceTime, sourceDuration_));
    });
}

void TimelineEditingSession::trimEnd(const Uuid& segmentID, ProjectTime sourceTime) {
    perform([&] {
        applyMutationResult(TimelineEditEngine::trimEnd(timeline_, segmentID, sourceTime, sourceDuration_));
    });
}

void TimelineEditingSession::rippleDeleteSelection() {
    perform([&] {
        if (!selectedSegmentID_) {
            return;
        }
        applyMutationResult(
            TimelineEditEngine::rippleDelete(timeline_, *selectedSegmentID_, sourceDuration_));
    });
}

void TimelineEditingSession::updatePlaybackRate(const Uuid& segmentID, double multiplier) {
    perform([&] {
        const auto segment =
            std::find_if(timeline_.segments.begin(), timeline_.segments.end(),
                         [&](const TimelineSegment& candidate) { return candidate.id == segmentID; });
        if (segment == timeline_.segments.end()) {
            throw TimelineEditError(TimelineEditError::Case::segmentNotFound);
        }
        const std::optional<TimelinePlaybackRate> rate = TimelinePlaybackRate::fromMultiplier(multiplier);
        if (!rate || !rate->isValid()) {
            throw TimelineSpeedError(TimelineSpeedError::Case::invalidRate);
        }
        applyMutationResult(
            TimelineSpeedEngine::settingRate(*rate, segment->sourceRange, timeline_, sourceDuration_));
    });
}

// ---- Appearance ----

void TimelineEditingSession::updateCanvas(const CanvasEdit& canvas) {
    perform([&] {
        EditTimeline next = timeline_;
        next.canvas = canvas;
        applyMutationResult(std::move(next));
    });
}

void TimelineEditingSession::updateDeviceFrame(const std::optional<DeviceFrameEdit>& deviceFrame) {
    perform([&] {
        EditTimeline next = timeline_;
        next.deviceFrame = deviceFrame;
        applyMutationResult(std::move(next));
    });
}

void TimelineEditingSession::updateCursor(const CursorEdit& cursor) {
    perform([&] {
        EditTimeline next = timeline_;
        next.cursor = cursor;
        applyMutationResult(std::move(next));
    });
}

void TimelineEditingSession::updateWebcam(const WebcamOverlay& overlay) {
    perform([&] {
        EditTimeline next = timeline_;
        next.webcamOverlay = overlay;
        applyMutationResult(std::move(next));
    });
}

void TimelineEditingSession::updateAudio(MediaTrackKind kind, std::optional<bool> isMuted,
                                         std::optional<double> gainDecibels) {
    perform([&] {
        EditTimeline next = timeline_;
        AudioTrackEdit* track = nullptr;
        switch (kind) {
        case MediaTrackKind::screen:
            return;
        case MediaTrackKind::systemAudio:
            track = &next.audioMix.systemAudio;
            break;
        case MediaTrackKind::microphone:
            track = &next.audioMix.microphone;
            break;
        }
        if (isMuted) {
            track->isMuted = *isMuted;
        }
        if (gainDecibels) {
            track->gainDecibels = AudioTrackEdit::gainDecibelLimits.clamped(*gainDecibels);
        }
        applyMutationResult(std::move(next));
    });
}

// ---- Editing frame ----

void TimelineEditingSession::beginCoalescedEdit() {
    perform([&] {
        if (!gestureBaseline_) {
            gestureBaseline_ = timeline_;
        }
    });
}

void TimelineEditingSession::endCoalescedEdit() {
    perform([&] {
        if (!gestureBaseline_) {
            return;
        }
        EditTimeline baseline = std::move(*gestureBaseline_);
        gestureBaseline_.reset();
        if (timeline_ != baseline) {
            redoStack_.clear();
            pushUndo(std::move(baseline));
            setMessage(std::nullopt);
            updateFlags();
            onChange_(timeline_, true, true);
        }
        if (pendingExternalTimeline_) {
            const EditTimeline pending = std::move(*pendingExternalTimeline_);
            pendingExternalTimeline_.reset();
            takeExternalTimeline(pending);
        }
    });
}

void TimelineEditingSession::applyExternalTimeline(const EditTimeline& timeline) {
    perform([&] { takeExternalTimeline(timeline); });
}

void TimelineEditingSession::reloadExternalTimeline(const ExternalTimelineReader& reader) {
    perform([&] { takeExternalTimeline(reader()); });
}

void TimelineEditingSession::takeExternalTimeline(const EditTimeline& timeline) {
    if (timeline == timeline_) {
        pendingExternalTimeline_.reset();
        return;
    }
    if (gestureBaseline_) {
        pendingExternalTimeline_ = timeline;
        return;
    }
    // The store validated it against its device frame catalog when it read
    // the file; here it must at least be a timeline of this source.
    if (sourceDuration_ > ProjectTime::zero()) {
        TimelineValidator::validateContent(timeline, sourceDuration_);
        TimelineEffectEngine::validate(timeline, sourceDuration_);
    }
    pushUndo(timeline_);
    redoStack_.clear();
    install(timeline);
    updateFlags();
    onChange_(timeline_, true, false);
}

void TimelineEditingSession::undo() {
    perform([&] {
        if (undoStack_.empty() || gestureBaseline_) {
            return;
        }
        EditTimeline previous = std::move(undoStack_.back());
        undoStack_.pop_back();
        redoStack_.push_back(timeline_);
        install(std::move(previous));
        updateFlags();
        onChange_(timeline_, true, true);
    });
}

void TimelineEditingSession::redo() {
    perform([&] {
        if (redoStack_.empty() || gestureBaseline_) {
            return;
        }
        EditTimeline next = std::move(redoStack_.back());
        redoStack_.pop_back();
        pushUndo(timeline_);
        install(std::move(next));
        updateFlags();
        onChange_(timeline_, true, true);
    });
}

void TimelineEditingSession::clearMessage() {
    perform([&] { setMessage(std::nullopt); });
}

// ---- Private ----

void TimelineEditingSession::perform(const std::function<void()>& body) {
    const std::uint64_t revision = publishedRevision_;
    try {
        body();
    } catch (const LocalizedError& error) {
        setMessage(error.message());
    }
    if (publishedRevision_ != revision && onPublishedChange_) {
        onPublishedChange_();
    }
}

void TimelineEditingSession::applyMutationResult(EditTimeline timeline) {
    if (!gestureBaseline_) {
        commit(std::move(timeline));
        return;
    }
    if (timeline == timeline_) {
        return;
    }
    install(std::move(timeline));
    onChange_(timeline_, false, false);
}

void TimelineEditingSession::commit(EditTimeline timeline) {
    if (timeline == timeline_) {
        return;
    }
    pushUndo(timeline_);
    redoStack_.clear();
    install(std::move(timeline));
    setMessage(std::nullopt);
    updateFlags();
    onChange_(timeline_, true, true);
}

void TimelineEditingSession::pushUndo(EditTimeline timeline) {
    undoStack_.push_back(std::move(timeline));
    if (undoStack_.size() > undoLimit) {
        undoStack_.erase(undoStack_.begin(), undoStack_.end() - static_cast<std::ptrdiff_t>(undoLimit));
    }
}

void TimelineEditingSession::install(EditTimeline timeline) {
    timeline_ = std::move(timeline);
    ++publishedRevision_;
    restoreSelections();
}

void TimelineEditingSession::restoreSelections() {
    const auto keep = [this](std::optional<Uuid>& field, bool exists) {
        if (field && !exists) {
            setSelection(field, std::nullopt);
        }
    };
    keep(selectedSegmentID_, selectedSegmentID_ && containsID(timeline_.segments, *selectedSegmentID_));
    keep(selectedZoomID_, selectedZoomID_ && containsID(timeline_.zooms, *selectedZoomID_));
    keep(selectedWebcamFullscreenID_,
         selectedWebcamFullscreenID_ &&
             containsID(timeline_.webcamFullscreenSegments, *selectedWebcamFullscreenID_));
    keep(selectedWebcamKeyframeID_,
         selectedWebcamKeyframeID_ && containsID(timeline_.webcamKeyframes, *selectedWebcamKeyframeID_));
    keep(selectedAnnotationID_,
         selectedAnnotationID_ && containsID(timeline_.annotations, *selectedAnnotationID_));
}

void TimelineEditingSession::updateFlags() {
    const bool canUndo = !undoStack_.empty();
    const bool canRedo = !redoStack_.empty();
    if (canUndo != canUndo_ || canRedo != canRedo_) {
        canUndo_ = canUndo;
        canRedo_ = canRedo;
        ++publishedRevision_;
    }
}

void TimelineEditingSession::setMessage(std::optional<std::string> message) {
    if (message != message_) {
        message_ = std::move(message);
        ++publishedRevision_;
    }
}

void TimelineEditingSession::setSelection(std::optional<Uuid>& field, std::optional<Uuid> value) {
    if (field != value) {
        field = value;
        ++publishedRevision_;
    }
}

} // namespace rilo

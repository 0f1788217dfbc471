#pragma once

// What the preview draws at each display refresh: the newest screen and
// webcam pictures of the two players and the scene evaluated at the mapped
// source time with the present visual edits and captions.
//
// frame() runs on the drawing thread. The edits and the time handler are
// set from the main thread; each sits behind a lock of its own (PreviewEditBox,
// TimeHandlerBox) held only while the value is copied. Everything else is the
// drawing thread's.

#include "playback/CompositionVideoPlayer.h"
#include "project/caption/CaptionDocument.h"
#include "scene/SceneEvaluator.h"
#include "scene/SceneState.h"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace rilo {

struct PreviewFrame {
    std::shared_ptr<const DecodedVideoFrame> screenPixelBuffer;
    std::shared_ptr<const DecodedVideoFrame> webcamPixelBuffer;
    SceneState scene;
    // The sequence time the frame was made for.
    ProjectTime sequenceTime;
};

struct PreviewEditState {
    TimelineVisualEdits visualEdits;
    std::optional<CaptionDocument> captionDocument;
    bool suppressesZooms = false;
};

// While a zoom's region is edited the preview shows the whole frame.
namespace PreviewVisualEditPolicy {
TimelineVisualEdits applying(TimelineVisualEdits edits, bool suppressesZooms);
} // namespace PreviewVisualEditPolicy

class PreviewEditBox {
public:
    explicit PreviewEditBox(PreviewEditState state)
        : state_(std::move(state)) {}
    PreviewEditState get() const;
    void set(PreviewEditState state);
    void update(const std::function<void(PreviewEditState&)>& change);

private:
    mutable std::mutex mutex_;
    PreviewEditState state_;
};

class TimeHandlerBox {
public:
    using Handler = std::function<void(ProjectTime)>;
    Handler get() const;
    void set(Handler handler);

private:
    mutable std::mutex mutex_;
    Handler handler_;
};

class PreviewFrameProvider {
public:
    // A webcam picture this much older than now is not shown when no newer
    // one came.
    static constexpr std::int64_t webcamPictureLifetimeNanoseconds = 500'000'000;

    PreviewFrameProvider(std::shared_ptr<CompositionVideoPlayer> screenPlayer,
                         std::shared_ptr<CompositionVideoPlayer> webcamPlayer,
                         std::shared_ptr<const SceneEvaluator> evaluator, TimelineMapper mapper,
                         PreviewEditState edits);

    // None when there is nothing to show for the moment.
    std::optional<PreviewFrame> frame();

    void setVisualEdits(TimelineVisualEdits edits);
    void setCaptionDocument(std::optional<CaptionDocument> document);
    void setSuppressesZooms(bool suppresses);
    void setTimeHandler(TimeHandlerBox::Handler handler);

private:
    std::shared_ptr<const DecodedVideoFrame> currentWebcamBuffer();

    const std::shared_ptr<CompositionVideoPlayer> screenPlayer_;
    const std::shared_ptr<CompositionVideoPlayer> webcamPlayer_;
    std::shared_ptr<const SceneEvaluator> evaluator_;
    const TimelineMapper mapper_;
    TimeHandlerBox handlerBox_;
    PreviewEditBox editBox_;

    std::shared_ptr<const DecodedVideoFrame> lastScreenPixelBuffer_;
    std::uint64_t lastScreenSerial_ = 0;
    std::optional<Uuid> lastScreenSegmentID_;
    std::shared_ptr<const DecodedVideoFrame> lastWebcamPixelBuffer_;
    std::uint64_t lastWebcamSerial_ = 0;
    std::optional<std::int64_t> lastWebcamDisplayTime_;
    std::optional<Uuid> lastSegmentID_;
};

} // namespace rilo

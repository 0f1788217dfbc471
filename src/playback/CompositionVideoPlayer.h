#pragma once

// One video track of the composition, decoded on a thread of its own for the
// preview. It follows the shared playback clock: while the clock runs, the
// thread keeps the picture for the clock's sequence time decoded (frames the
// clock has passed are dropped, and a frame stays while the clock has not
// reached the next); while it stands, the thread only serves seeks.
//
// A cut would stall the picture while the decoder seeks to the next kept
// stretch, so a second decoder prepares the first picture after a cut a
// little before the clock reaches it; at the cut the two decoders change
// roles, and the one now in front is already where the new stretch begins.
//
// A seek decodes the picture for a sequence time and then calls its
// completion on the decoding thread: exactly the frame presented at the
// mapped source time, or, with a tolerance, whatever decoded picture already
// lies within it. A newer seek or cancelPendingSeeks() cancels a waiting
// one, whose completion gets false.
//
// The newest picture is taken by copyFrame() from any thread (the preview's
// drawing thread): it answers a picture only when a newer one has been
// decoded since the caller's last, like a video output that yields each
// frame once.
//
// Construction opens the track and throws VideoTrackDecoderError when it
// cannot be decoded. The destructor ends the thread.

#include "media/VideoTrackDecoder.h"
#include "playback/PlaybackClock.h"
#include "project/engine/TimelineMapper.h"

#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace rilo {

struct PlayerPicture {
    std::shared_ptr<const DecodedVideoFrame> frame;
    // Counts up with every new picture; 0 is none.
    std::uint64_t serial = 0;
    // The kept stretch the picture was decoded for.
    Uuid segmentID;
};

class CompositionVideoPlayer {
public:
    using SeekCompletion = std::function<void(bool finished)>;

    CompositionVideoPlayer(const std::filesystem::path& mediaPath, std::int64_t streamIndex,
                           TimelineMapper mapper, std::shared_ptr<const PlaybackClock> clock);
    ~CompositionVideoPlayer();
    CompositionVideoPlayer(const CompositionVideoPlayer&) = delete;
    CompositionVideoPlayer& operator=(const CompositionVideoPlayer&) = delete;

    void seek(ProjectTime sequenceTime, ProjectTime tolerance, SeekCompletion completion);
    void cancelPendingSeeks();

    // The clock's sequence time.
    ProjectTime currentTime() const noexcept { return clock_->now(); }
    // Wakes the thread after the clock was started, so that it follows at once.
    void clockChanged();

    // The newest picture when its serial is above `lastSerial`; none otherwise.
    std::optional<PlayerPicture> copyFrame(std::uint64_t lastSerial) const;
    // The first picture of the stretch after the coming cut, when it is
    // prepared: for a caller whose clock has crossed the cut a moment before
    // the decoding thread has.
    std::shared_ptr<const DecodedVideoFrame> preparedFrame(const Uuid& segmentID) const;

private:
    struct SeekRequest {
        ProjectTime sequenceTime;
        ProjectTime tolerance;
        SeekCompletion completion;
    };

    struct PreparedCut {
        ProjectTime sequenceStart;
        Uuid segmentID;
        std::shared_ptr<const DecodedVideoFrame> frame;
    };

    void run(const std::stop_token& stop);
    void follow();
    void prepareNextCut(ProjectTime now);
    void publish(const DecodedVideoFrame& frame, const Uuid& segmentID);
    // Decodes the picture for a sequence time and publishes it when it is
    // another frame than the newest.
    void show(ProjectTime sequenceTime, ProjectTime tolerance);

    std::unique_ptr<VideoTrackDecoder> decoder_;
    std::unique_ptr<VideoTrackDecoder> lookahead_;
    const TimelineMapper mapper_;
    const std::shared_ptr<const PlaybackClock> clock_;

    mutable std::mutex mutex_;
    std::condition_variable_any wake_;
    std::optional<SeekRequest> pendingSeek_;
    bool clockChanged_ = false;
    PlayerPicture newest_;
    // Written by the decoding thread, read by the drawing thread.
    std::optional<PreparedCut> preparedCut_;
    // The source time of the newest picture's presentation; decoding thread only.
    std::optional<ProjectTime> newestPresentation_;

    std::jthread thread_;
};

} // namespace rilo

#pragma once

// The samples that capture backends hand to a recording session. A sample
// is a small value that shares its payload: retiming one makes a new time
// stamp around the same pixels or sound.

#include "capture/MediaTime.h"
#include "shared/Geometry.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace rilo {

// Pixels of one picture, kept alive by `owner` (a shared memory segment, a
// decoded frame, a plain buffer). `pixelFormat` is an FFmpeg AVPixelFormat.
struct CapturedImage {
    int width = 0;
    int height = 0;
    int pixelFormat = -1;
    std::array<const std::uint8_t*, 4> planes{};
    std::array<int, 4> bytesPerRow{};
    std::shared_ptr<const void> owner;
};

// What the screen stream tells about one frame besides its pixels.
struct ScreenFrameAttachments {
    // 0 for a complete frame; anything else (idle, blank, suspended) is no
    // frame to record.
    std::optional<std::int64_t> status;
    // When the frame was shown, in host clock units.
    std::optional<std::uint64_t> displayTimeHostUnits;
    std::optional<RectValue> screenRect;  // global points
    std::optional<RectValue> contentRect; // points, inside the frame
    std::optional<double> scaleFactor;
};

// A screen or webcam picture at its presentation time. A sample without an
// image stands for a frame the source could not deliver.
struct VideoSampleBuffer {
    MediaTime presentationTime;
    std::shared_ptr<const CapturedImage> image;
    ScreenFrameAttachments attachments;

    bool isValid() const noexcept { return presentationTime.isNumeric; }
};

// Interleaved float sound at its presentation time (that of its first frame).
struct AudioSampleBuffer {
    MediaTime presentationTime;
    int sampleRate = 48'000;
    int channelCount = 2;
    std::int64_t frameCount = 0;
    std::shared_ptr<const std::vector<float>> samples; // frameCount * channelCount values
};

// Moves samples onto another time line without copying their payload.
namespace SampleBufferRetimer {

// The sample with offset added to its presentation time; nothing when either is not numeric.
std::optional<VideoSampleBuffer> shifted(const VideoSampleBuffer& sample, MediaTime offset);
std::optional<AudioSampleBuffer> shifted(const AudioSampleBuffer& sample, MediaTime offset);
// The sample presented at `time` instead; nothing when either time is not numeric.
std::optional<VideoSampleBuffer> retimed(const VideoSampleBuffer& sample, MediaTime time);

} // namespace SampleBufferRetimer

} // namespace rilo

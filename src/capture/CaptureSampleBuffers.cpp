#include "capture/CaptureSampleBuffers.h"

namespace rilo {

std::optional<VideoSampleBuffer> SampleBufferRetimer::shifted(const VideoSampleBuffer& sample,
                                                              MediaTime offset) {
    const MediaTime time = sample.presentationTime + offset;
    if (!time.isNumeric) {
        return std::nullopt;
    }
    VideoSampleBuffer copy = sample;
    copy.presentationTime = time;
    return copy;
}

std::optional<AudioSampleBuffer> SampleBufferRetimer::shifted(const AudioSampleBuffer& sample,
                                                              MediaTime offset) {
    const MediaTime time = sample.presentationTime + offset;
    if (!time.isNumeric) {
        return std::nullopt;
    }
    AudioSampleBuffer copy = sample;
    copy.presentationTime = time;
    return copy;
}

std::optional<VideoSampleBuffer> SampleBufferRetimer::retimed(const VideoSampleBuffer& sample,
                                                              MediaTime time) {
    if (!time.isNumeric || !sample.presentationTime.isNumeric) {
        return std::nullopt;
    }
    return shifted(sample, time - sample.presentationTime);
}

} // namespace rilo

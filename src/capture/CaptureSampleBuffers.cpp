#include "capture/CaptureSampleBuffers.h"

namespace rilo {
namespace {

template <class Sample>
std::optional<Sample> shiftedSample(const Sample& sample, MediaTime offset) {
    const MediaTime time = sample.presentationTime + offset;
    if (!time.isNumeric) {
        return std::nullopt;
    }
    Sample copy = sample;
    copy.presentationTime = time;
    return copy;
}

} // namespace

std::optional<VideoSampleBuffer> SampleBufferRetimer::shifted(const VideoSampleBuffer& sample,
                                                              MediaTime offset) {
    return shiftedSample(sample, offset);
}

std::optional<AudioSampleBuffer> SampleBufferRetimer::shifted(const AudioSampleBuffer& sample,
                                                              MediaTime offset) {
    return shiftedSample(sample, offset);
}

std::optional<VideoSampleBuffer> SampleBufferRetimer::retimed(const VideoSampleBuffer& sample,
                                                              MediaTime time) {
    if (!time.isNumeric || !sample.presentationTime.isNumeric) {
        return std::nullopt;
    }
    return shifted(sample, time - sample.presentationTime);
}

} // namespace rilo

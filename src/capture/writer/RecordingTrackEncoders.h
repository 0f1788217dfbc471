#pragma once

// The encoders of the recording writer's tracks: H.264 pictures converted from
// whatever the capture gives, and AAC sound laid on a sample-exact time line.
// Used only by RecordingMediaWriter, on its writer thread; every failure is a
// RecordingMediaWriterError.

#include "capture/CaptureSampleBuffers.h"
#include "media/FFmpegHandles.h"
#include "shared/Geometry.h"

extern "C" {
#include <libavutil/audio_fifo.h>
}

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace rilo::recording {

inline constexpr std::int64_t webcamBitRate = 4'000'000;

struct AudioFifoDeleter {
    void operator()(AVAudioFifo* fifo) const noexcept { av_audio_fifo_free(fifo); }
};
using AudioFifo = std::unique_ptr<AVAudioFifo, AudioFifoDeleter>;

struct VideoTrack {
    ffmpeg::CodecContext codec;
    AVStream* stream = nullptr;
    ffmpeg::Scaler scaler;
    ffmpeg::Frame frame;
    std::int64_t lastPresentationMicroseconds = -1;
};

struct AudioTrack {
    ffmpeg::CodecContext codec;
    AVStream* stream = nullptr;
    AudioFifo fifo;
    ffmpeg::Frame frame;
    std::int64_t fifoStartFrame = 0;          // sample index of the fifo's first frame
    std::optional<std::int64_t> nextFrame;    // sample index where the next sound belongs
    std::array<std::vector<float>, 2> planes; // scratch for de-interleaving
};

// A track of the muxer with its encoder; throws cannotAddInput with the track's name.
VideoTrack makeVideoTrack(AVFormatContext* output, PixelSize size, std::int64_t framesPerSecond,
                          std::int64_t bitRate, const std::string& trackName);
AudioTrack makeAudioTrack(AVFormatContext* output, const std::string& trackName);

// Converts the picture into the track's frame (fitted with its aspect kept)
// and encodes it at its time, in nanoseconds since the start of the file.
void encodePicture(AVFormatContext* output, VideoTrack& track, const CapturedImage& image,
                   std::int64_t presentationNanoseconds);
// Places the sound at its time, filling a gap with silence or cutting an
// overlap, and encodes every whole encoder frame.
void encodeSound(AVFormatContext* output, AudioTrack& track, const AudioSampleBuffer& sound,
                 std::int64_t presentationNanoseconds);
// Encodes whole encoder frames from the fifo, and with `final` the rest.
void drainSound(AVFormatContext* output, AudioTrack& track, bool final);
// Sends a frame (nothing: the end) and writes every packet that comes out.
void send(AVFormatContext* output, AVCodecContext* codec, AVStream* stream, const AVFrame* frame);

} // namespace rilo::recording

#include "capture/writer/RecordingTrackEncoders.h"

#include "capture/writer/RecordingMediaWriter.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

#include <algorithm>

namespace rilo::recording {
namespace {

constexpr int audioSampleRate = 48'000;
constexpr std::int64_t audioBitRate = 192'000;
constexpr int keyframeIntervalSeconds = 2;
// Sound that arrives further than this from where the track stands is placed
// where its time says: the gap is filled with silence, an overlap cut off.
constexpr std::int64_t audioRealignFrames = audioSampleRate / 50;
constexpr AVRational microseconds{1, 1'000'000};

[[noreturn]] void failWith(int code) {
    throw RecordingMediaWriterError::appendFailed(ffmpeg::errorText(code));
}

void check(int code) {
    if (code < 0) {
        failWith(code);
    }
}

ffmpeg::CodecContext openVideoEncoder(AVFormatContext* output, PixelSize size, std::int64_t framesPerSecond,
                                      std::int64_t bitRate, const std::string& trackName, AVStream*& stream) {
    const AVCodec* encoder = avcodec_find_encoder_by_name("libx264");
    stream = avformat_new_stream(output, nullptr);
    ffmpeg::CodecContext codec(encoder != nullptr ? avcodec_alloc_context3(encoder) : nullptr);
    if (encoder == nullptr || stream == nullptr || !codec) {
        throw RecordingMediaWriterError::cannotAddInput(trackName);
    }
    const int fps = static_cast<int>(std::max<std::int64_t>(framesPerSecond, 1));
    codec->width = static_cast<int>(size.width);
    codec->height = static_cast<int>(size.height);
    codec->pix_fmt = AV_PIX_FMT_YUV420P;
    codec->time_base = microseconds;
    codec->framerate = {fps, 1};
    codec->bit_rate = bitRate;
    codec->gop_size = fps * keyframeIntervalSeconds;
    codec->max_b_frames = 0;
    codec->color_primaries = AVCOL_PRI_BT709;
    codec->color_trc = AVCOL_TRC_BT709;
    codec->colorspace = AVCOL_SPC_BT709;
    codec->color_range = AVCOL_RANGE_MPEG;
    if ((output->oformat->flags & AVFMT_GLOBALHEADER) != 0) {
        codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    // Live capture has to keep up with the screen on a small machine: the
    // fastest preset, without look-ahead or frame delay, with the two High
    // profile tools that cost little (CABAC and the 8x8 transform), which at
    // 1080p60 measured no more processor time than the preset alone.
    ffmpeg::Options settings;
    settings.set("preset", "ultrafast");
    settings.set("tune", "zerolatency");
    settings.set("x264-params", "cabac=1:8x8dct=1");
    if (avcodec_open2(codec.get(), encoder, settings.get()) < 0 ||
        avcodec_parameters_from_context(stream->codecpar, codec.get()) < 0) {
        throw RecordingMediaWriterError::cannotAddInput(trackName);
    }
    stream->time_base = codec->time_base;
    stream->avg_frame_rate = codec->framerate;
    return codec;
}

// Where a picture of the source size lies in the frame when fitted with its
// aspect ratio kept, on even pixels for the halved chroma planes.
struct FittedRect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

FittedRect fitted(int sourceWidth, int sourceHeight, int width, int height) {
    if (sourceWidth == width && sourceHeight == height) {
        return {0, 0, width, height};
    }
    const double scale = std::min(double(width) / sourceWidth, double(height) / sourceHeight);
    const int fittedWidth = std::max(2, static_cast<int>(sourceWidth * scale) & ~1);
    const int fittedHeight = std::max(2, static_cast<int>(sourceHeight * scale) & ~1);
    return {((width - fittedWidth) / 2) & ~1, ((height - fittedHeight) / 2) & ~1, fittedWidth, fittedHeight};
}

void fillBlack(AVFrame* frame) {
    for (int plane = 0; plane < 3; ++plane) {
        const int rows = plane == 0 ? frame->height : (frame->height + 1) / 2;
        std::fill_n(frame->data[plane], static_cast<std::size_t>(frame->linesize[plane]) * rows,
                    static_cast<std::uint8_t>(plane == 0 ? 16 : 128));
    }
}

void writeSilence(AudioTrack& track, std::int64_t frames) {
    for (auto& plane : track.planes) {
        plane.assign(static_cast<std::size_t>(frames), 0.0F);
    }
    std::array<void*, 2> planes{track.planes[0].data(), track.planes[1].data()};
    check(av_audio_fifo_write(track.fifo.get(), planes.data(), static_cast<int>(frames)));
    *track.nextFrame += frames;
}

} // namespace

VideoTrack makeVideoTrack(AVFormatContext* output, PixelSize size, std::int64_t framesPerSecond,
                          std::int64_t bitRate, const std::string& trackName) {
    VideoTrack track;
    track.codec = openVideoEncoder(output, size, framesPerSecond, bitRate, trackName, track.stream);
    track.frame.reset(av_frame_alloc());
    if (!track.frame) {
        throw RecordingMediaWriterError::cannotAddInput(trackName);
    }
    track.frame->format = AV_PIX_FMT_YUV420P;
    track.frame->width = track.codec->width;
    track.frame->height = track.codec->height;
    if (av_frame_get_buffer(track.frame.get(), 0) < 0) {
        throw RecordingMediaWriterError::cannotAddInput(trackName);
    }
    return track;
}

AudioTrack makeAudioTrack(AVFormatContext* output, const std::string& trackName) {
    AudioTrack track;
    const AVCodec* encoder = avcodec_find_encoder_by_name("aac");
    track.stream = avformat_new_stream(output, nullptr);
    track.codec.reset(encoder != nullptr ? avcodec_alloc_context3(encoder) : nullptr);
    if (encoder == nullptr || track.stream == nullptr || !track.codec) {
        throw RecordingMediaWriterError::cannotAddInput(trackName);
    }
    track.codec->sample_rate = audioSampleRate;
    track.codec->sample_fmt = AV_SAMPLE_FMT_FLTP;
    track.codec->bit_rate = audioBitRate;
    track.codec->time_base = {1, audioSampleRate};
    av_channel_layout_default(&track.codec->ch_layout, 2);
    if ((output->oformat->flags & AVFMT_GLOBALHEADER) != 0) {
        track.codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    if (avcodec_open2(track.codec.get(), encoder, nullptr) < 0 ||
        avcodec_parameters_from_context(track.stream->codecpar, track.codec.get()) < 0) {
        throw RecordingMediaWriterError::cannotAddInput(trackName);
    }
    track.stream->time_base = track.codec->time_base;
    track.fifo.reset(av_audio_fifo_alloc(AV_SAMPLE_FMT_FLTP, 2, audioSampleRate));
    track.frame.reset(av_frame_alloc());
    if (!track.fifo || !track.frame) {
        throw RecordingMediaWriterError::cannotAddInput(trackName);
    }
    return track;
}

void encodePicture(AVFormatContext* output, VideoTrack& track, const CapturedImage& image,
                   std::int64_t presentationNanoseconds) {
    AVFrame* frame = track.frame.get();
    check(av_frame_make_writable(frame));
    const FittedRect rect = fitted(image.width, image.height, frame->width, frame->height);
    if (rect.width != frame->width || rect.height != frame->height) {
        fillBlack(frame);
    }
    track.scaler.reset(sws_getCachedContext(
        track.scaler.release(), image.width, image.height, static_cast<AVPixelFormat>(image.pixelFormat),
        rect.width, rect.height, AV_PIX_FMT_YUV420P, SWS_BILINEAR, nullptr, nullptr, nullptr));
    if (!track.scaler) {
        throw RecordingMediaWriterError::appendFailed("无法转换画面格式");
    }
    const int* table = sws_getCoefficients(SWS_CS_ITU709);
    sws_setColorspaceDetails(track.scaler.get(), table, 1, table, 0, 0, 1 << 16, 1 << 16);
    std::array<std::uint8_t*, 4> destination{
        frame->data[0] + rect.y * frame->linesize[0] + rect.x,
        frame->data[1] + (rect.y / 2) * frame->linesize[1] + rect.x / 2,
        frame->data[2] + (rect.y / 2) * frame->linesize[2] + rect.x / 2,
        nullptr,
    };
    sws_scale(track.scaler.get(), image.planes.data(), image.bytesPerRow.data(), 0, image.height,
              destination.data(), frame->linesize);
    std::int64_t pts = presentationNanoseconds / 1000;
    if (pts <= track.lastPresentationMicroseconds) {
        pts = track.lastPresentationMicroseconds + 1;
    }
    track.lastPresentationMicroseconds = pts;
    frame->pts = pts;
    send(output, track.codec.get(), track.stream, frame);
}

void encodeSound(AVFormatContext* output, AudioTrack& track, const AudioSampleBuffer& sound,
                 std::int64_t presentationNanoseconds) {
    const std::int64_t channels = std::max(sound.channelCount, 1);
    std::int64_t frames = std::min<std::int64_t>(sound.frameCount, sound.samples->size() / channels);
    std::int64_t skip = 0;
    const std::int64_t at = presentationNanoseconds * audioSampleRate / 1'000'000'000;
    if (!track.nextFrame) {
        skip = std::max<std::int64_t>(0, -at);
        track.nextFrame = std::max<std::int64_t>(0, at);
        track.fifoStartFrame = *track.nextFrame;
    } else if (at > *track.nextFrame + audioRealignFrames) {
        writeSilence(track, at - *track.nextFrame);
    } else if (at < *track.nextFrame - audioRealignFrames) {
        skip = *track.nextFrame - at;
    }
    if (skip >= frames) {
        return;
    }
    frames -= skip;
    for (auto& plane : track.planes) {
        plane.resize(static_cast<std::size_t>(frames));
    }
    const float* source = sound.samples->data() + skip * channels;
    for (std::int64_t i = 0; i < frames; ++i) {
        track.planes[0][i] = source[i * channels];
        track.planes[1][i] = source[i * channels + (channels > 1 ? 1 : 0)];
    }
    std::array<void*, 2> planes{track.planes[0].data(), track.planes[1].data()};
    check(av_audio_fifo_write(track.fifo.get(), planes.data(), static_cast<int>(frames)));
    *track.nextFrame += frames;
    drainSound(output, track, false);
}

void drainSound(AVFormatContext* output, AudioTrack& track, bool final) {
    const int frameSize = track.codec->frame_size > 0 ? track.codec->frame_size : 1024;
    while (av_audio_fifo_size(track.fifo.get()) >= frameSize ||
           (final && av_audio_fifo_size(track.fifo.get()) > 0)) {
        const int count = std::min(frameSize, av_audio_fifo_size(track.fifo.get()));
        AVFrame* frame = track.frame.get();
        av_frame_unref(frame);
        frame->format = AV_SAMPLE_FMT_FLTP;
        frame->sample_rate = audioSampleRate;
        frame->nb_samples = count;
        check(av_channel_layout_copy(&frame->ch_layout, &track.codec->ch_layout));
        check(av_frame_get_buffer(frame, 0));
        if (av_audio_fifo_read(track.fifo.get(), reinterpret_cast<void**>(frame->data), count) != count) {
            throw RecordingMediaWriterError::appendFailed("音频缓冲读取失败");
        }
        frame->pts = track.fifoStartFrame;
        track.fifoStartFrame += count;
        send(output, track.codec.get(), track.stream, frame);
    }
}

void send(AVFormatContext* output, AVCodecContext* codec, AVStream* stream, const AVFrame* frame) {
    check(avcodec_send_frame(codec, frame));
    ffmpeg::Packet packet(av_packet_alloc());
    if (!packet) {
        throw RecordingMediaWriterError::appendFailed("内存不足");
    }
    for (;;) {
        const int code = avcodec_receive_packet(codec, packet.get());
        if (code == AVERROR(EAGAIN) || code == AVERROR_EOF) {
            return;
        }
        check(code);
        av_packet_rescale_ts(packet.get(), codec->time_base, stream->time_base);
        packet->stream_index = stream->index;
        check(av_interleaved_write_frame(output, packet.get()));
    }
}

} // namespace rilo::recording

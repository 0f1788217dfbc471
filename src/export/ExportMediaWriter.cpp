#include "export/ExportMediaWriter.h"

#include "media/FFmpegHandles.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/error.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

namespace rilo {

namespace {

constexpr int audioSampleRate = 48'000;
constexpr std::int64_t audioBitRate = 192'000;
constexpr int keyframeIntervalSeconds = 2;
constexpr const char* movieTimeScale = "600";

using Failure = ProjectExporterErrorCase;

using ffmpeg::errorText;
using ffmpeg::Options;
using ffmpeg::OutputContext;
using ffmpeg::Scaler;

[[noreturn]] void fail(Failure failure) {
    throw ProjectExporterError(failure);
}

void checkAppend(int code) {
    if (code < 0) {
        throw ProjectExporterError::appendFailed(errorText(code));
    }
}

// The file being written: deleted when the writer goes away before it is
// complete. Declared before the output context, so that the file is
// closed before it is deleted.
class PartialFile {
public:
    explicit PartialFile(std::filesystem::path path)
        : path_(std::move(path)) {
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
    }
    PartialFile(const PartialFile&) = delete;
    PartialFile& operator=(const PartialFile&) = delete;
    ~PartialFile() {
        if (!complete_) {
            std::error_code ignored;
            std::filesystem::remove(path_, ignored);
        }
    }

    const std::filesystem::path& path() const noexcept { return path_; }
    void markComplete() noexcept { complete_ = true; }

private:
    std::filesystem::path path_;
    bool complete_ = false;
};

// One encoder and the track it feeds.
struct TrackEncoder {
    ffmpeg::CodecContext codec;
    AVStream* stream = nullptr;
};

AVPixelFormat pixelFormatOf(VideoPixelLayout layout) {
    switch (layout) {
    case VideoPixelLayout::yuv420p:
        return AV_PIX_FMT_YUV420P;
    case VideoPixelLayout::nv12:
        return AV_PIX_FMT_NV12;
    case VideoPixelLayout::rgba:
        return AV_PIX_FMT_RGBA;
    }
    return AV_PIX_FMT_RGBA;
}

} // namespace

class ExportMediaWriter::State {
public:
    State(std::filesystem::path path, const ResolvedExportConfiguration& configuration, bool hasAudio)
        : file_(std::move(path)) {
        if (!packet_ || !videoFrame_ || !audioFrame_ || !sourceView_) {
            throw std::bad_alloc();
        }
        AVFormatContext* rawOutput = nullptr;
        if (avformat_alloc_output_context2(&rawOutput, nullptr, "mp4", file_.path().c_str()) < 0) {
            fail(Failure::cannotStart);
        }
        output_.reset(rawOutput);
        addVideo(configuration);
        if (hasAudio) {
            addAudio();
        }
        if (avio_open(&output_->pb, file_.path().c_str(), AVIO_FLAG_WRITE) < 0) {
            fail(Failure::cannotStart);
        }
        Options settings;
        settings.set("movie_timescale", movieTimeScale);
        if (avformat_write_header(output_.get(), settings.get()) < 0) {
            fail(Failure::cannotStart);
        }
    }

    void appendVideo(const VideoFramePlanes& picture, std::int64_t frameIndex) {
        requireOpen();
        AVCodecContext& codec = *video_.codec;
        if (picture.width != codec.width || picture.height != codec.height) {
            throw ProjectExporterError::appendFailed(ProjectExporterError::videoFrameRejected);
        }
        checkAppend(av_frame_make_writable(videoFrame_.get()));
        if (picture.layout == VideoPixelLayout::yuv420p) {
            std::array<const std::uint8_t*, 4> planes{picture.data[0], picture.data[1], picture.data[2],
                                                      nullptr};
            std::array<int, 4> strides{picture.strides[0], picture.strides[1], picture.strides[2], 0};
            av_image_copy(videoFrame_->data, videoFrame_->linesize, planes.data(), strides.data(),
                          AV_PIX_FMT_YUV420P, picture.width, picture.height);
        } else {
            convert(picture);
        }
        videoFrame_->pts = frameIndex;
        send(video_, videoFrame_.get());
    }

    void appendAudio(const float* interleavedStereo, std::size_t frameCount) {
        requireOpen();
        if (!audio_) {
            throw ProjectExporterError::appendFailed(ProjectExporterError::audioFrameRejected);
        }
        const int frameSize = audio_->codec->frame_size;
        std::size_t consumed = 0;
        while (consumed < frameCount) {
            if (audioFilled_ == 0) {
                checkAppend(av_frame_make_writable(audioFrame_.get()));
            }
            const auto count = std::min<std::size_t>(frameCount - consumed,
                                                     static_cast<std::size_t>(frameSize - audioFilled_));
            auto* left = reinterpret_cast<float*>(audioFrame_->data[0]) + audioFilled_;
            auto* right = reinterpret_cast<float*>(audioFrame_->data[1]) + audioFilled_;
            const float* source = interleavedStereo + 2 * consumed;
            for (std::size_t index = 0; index < count; ++index) {
                left[index] = source[2 * index];
                right[index] = source[2 * index + 1];
            }
            consumed += count;
            audioFilled_ += static_cast<int>(count);
            if (audioFilled_ == frameSize) {
                sendAudioFrame();
            }
        }
    }

    void finish() {
        requireOpen();
        closed_ = true;
        if (audio_ && audioFilled_ > 0) {
            // The encoder takes a shorter last frame.
            audioFrame_->nb_samples = audioFilled_;
            sendAudioFrame();
        }
        send(video_, nullptr);
        if (audio_) {
            send(*audio_, nullptr);
        }
        checkAppend(av_write_trailer(output_.get()));
        checkAppend(avio_closep(&output_->pb));
        file_.markComplete();
    }

private:
    void requireOpen() const {
        if (closed_) {
            throw ProjectExporterError::appendFailed(ProjectExporterError::writerStopped);
        }
    }

    void addVideo(const ResolvedExportConfiguration& configuration) {
        // Both codecs crop 4:2:0 pictures in steps of two pixels only, so an
        // odd measure cannot be stored.
        if (configuration.outputSize.width % 2 != 0 || configuration.outputSize.height % 2 != 0) {
            fail(Failure::unsupportedVideoSettings);
        }
        const bool hevc = configuration.codec == ExportCodec::hevc;
        const AVCodec* encoder = avcodec_find_encoder_by_name(hevc ? "libx265" : "libx264");
        if (encoder == nullptr) {
            fail(Failure::unsupportedVideoSettings);
        }
        video_.stream = avformat_new_stream(output_.get(), nullptr);
        video_.codec.reset(avcodec_alloc_context3(encoder));
        if (video_.stream == nullptr || !video_.codec) {
            fail(Failure::cannotAddWriterInput);
        }
        AVCodecContext& codec = *video_.codec;
        const int fps = configuration.framesPerSecond;
        const int keyframeInterval = keyframeIntervalSeconds * fps;
        codec.width = static_cast<int>(configuration.outputSize.width);
        codec.height = static_cast<int>(configuration.outputSize.height);
        codec.pix_fmt = AV_PIX_FMT_YUV420P;
        codec.time_base = AVRational{1, fps};
        codec.framerate = AVRational{fps, 1};
        codec.bit_rate = configuration.bitRate;
        codec.gop_size = keyframeInterval;
        codec.max_b_frames = 0;
        codec.color_primaries = AVCOL_PRI_BT709;
        codec.color_trc = AVCOL_TRC_BT709;
        codec.colorspace = AVCOL_SPC_BT709;
        codec.color_range = AVCOL_RANGE_MPEG;
        codec.thread_count = 0;
        if ((output_->oformat->flags & AVFMT_GLOBALHEADER) != 0) {
            codec.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        }
        Options settings;
        settings.set("preset", "veryfast");
        if (hevc) {
            settings.set("profile", "main");
            settings.set("x265-params",
                         "keyint=" + std::to_string(keyframeInterval) + ":bframes=0:log-level=none");
        } else {
            settings.set("profile", "high");
            // Frame threads (1.5 a core) already hold that many pictures; a
            // threaded lookahead would buffer as many again before the first
            // packet. Run it on the encoding threads instead: on 2 cores the
            // speed is the same, and on many cores a 4K export keeps hundreds
            // of megabytes less in flight.
            settings.set("x264-params", "sync-lookahead=0");
        }
        if (avcodec_open2(&codec, encoder, settings.get()) < 0) {
            fail(Failure::unsupportedVideoSettings);
        }
        AVStream& stream = *video_.stream;
        if (avcodec_parameters_from_context(stream.codecpar, &codec) < 0) {
            fail(Failure::cannotAddWriterInput);
        }
        if (hevc) {
            // The tag that players expect of HEVC in MP4: parameter sets in
            // the sample description only.
            stream.codecpar->codec_tag = MKTAG('h', 'v', 'c', '1');
        }
        stream.time_base = codec.time_base;
        stream.avg_frame_rate = codec.framerate;

        videoFrame_->format = codec.pix_fmt;
        videoFrame_->width = codec.width;
        videoFrame_->height = codec.height;
        videoFrame_->color_primaries = codec.color_primaries;
        videoFrame_->color_trc = codec.color_trc;
        videoFrame_->colorspace = codec.colorspace;
        videoFrame_->color_range = codec.color_range;
        if (av_frame_get_buffer(videoFrame_.get(), 0) < 0) {
            throw std::bad_alloc();
        }
    }

    void addAudio() {
        const AVCodec* encoder = avcodec_find_encoder_by_name("aac");
        if (encoder == nullptr) {
            fail(Failure::cannotAddWriterInput);
        }
        TrackEncoder& audio = audio_.emplace();
        audio.stream = avformat_new_stream(output_.get(), nullptr);
        audio.codec.reset(avcodec_alloc_context3(encoder));
        if (audio.stream == nullptr || !audio.codec) {
            fail(Failure::cannotAddWriterInput);
        }
        AVCodecContext& codec = *audio.codec;
        codec.sample_fmt = AV_SAMPLE_FMT_FLTP;
        codec.sample_rate = audioSampleRate;
        const AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
        if (av_channel_layout_copy(&codec.ch_layout, &stereo) < 0) {
            fail(Failure::cannotAddWriterInput);
        }
        codec.bit_rate = audioBitRate;
        codec.time_base = AVRational{1, audioSampleRate};
        if ((output_->oformat->flags & AVFMT_GLOBALHEADER) != 0) {
            codec.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        }
        if (avcodec_open2(&codec, encoder, nullptr) < 0 ||
            avcodec_parameters_from_context(audio.stream->codecpar, &codec) < 0) {
            fail(Failure::cannotAddWriterInput);
        }
        audio.stream->time_base = codec.time_base;

        audioFrame_->format = codec.sample_fmt;
        audioFrame_->sample_rate = codec.sample_rate;
        audioFrame_->nb_samples = codec.frame_size;
        if (av_channel_layout_copy(&audioFrame_->ch_layout, &codec.ch_layout) < 0 ||
            av_frame_get_buffer(audioFrame_.get(), 0) < 0) {
            throw std::bad_alloc();
        }
    }

    // RGBA (and NV12) to the encoder's yuv420p, on several threads for large
    // pictures. RGBA is full range in, BT.709 limited range out, as tagged.
    void convert(const VideoFramePlanes& picture) {
        const AVPixelFormat sourceFormat = pixelFormatOf(picture.layout);
        if (!scaler_ || scalerFormat_ != sourceFormat) {
            scaler_.reset(sws_alloc_context());
            if (!scaler_) {
                throw std::bad_alloc();
            }
            SwsContext* scaler = scaler_.get();
            av_opt_set_int(scaler, "srcw", picture.width, 0);
            av_opt_set_int(scaler, "srch", picture.height, 0);
            av_opt_set_int(scaler, "src_format", sourceFormat, 0);
            av_opt_set_int(scaler, "dstw", picture.width, 0);
            av_opt_set_int(scaler, "dsth", picture.height, 0);
            av_opt_set_int(scaler, "dst_format", AV_PIX_FMT_YUV420P, 0);
            av_opt_set_int(scaler, "sws_flags", SWS_BILINEAR, 0);
            av_opt_set_int(scaler, "threads", 0, 0);
            if (sws_init_context(scaler, nullptr, nullptr) < 0) {
                scaler_.reset();
                throw ProjectExporterError::appendFailed(ProjectExporterError::videoFrameRejected);
            }
            scalerFormat_ = sourceFormat;
        }
        const bool sourceFullRange = picture.layout == VideoPixelLayout::rgba || picture.fullRange;
        const int* bt709 = sws_getCoefficients(SWS_CS_ITU709);
        sws_setColorspaceDetails(scaler_.get(), bt709, sourceFullRange ? 1 : 0, bt709, 0, 0, 1 << 16,
                                 1 << 16);

        AVFrame& source = *sourceView_;
        source.format = sourceFormat;
        source.width = picture.width;
        source.height = picture.height;
        for (std::size_t plane = 0; plane < picture.data.size(); ++plane) {
            source.data[plane] = const_cast<std::uint8_t*>(picture.data[plane]);
            source.linesize[plane] = picture.strides[plane];
        }
        // A reference that frees nothing lets the scaler take the caller's
        // pixels as they are instead of copying them first.
        source.buf[0] = av_buffer_create(
            source.data[0], static_cast<std::size_t>(picture.strides[0]) * picture.height,
            [](void*, std::uint8_t*) {}, nullptr, AV_BUFFER_FLAG_READONLY);
        if (source.buf[0] == nullptr) {
            throw std::bad_alloc();
        }
        const int scaled = sws_scale_frame(scaler_.get(), videoFrame_.get(), &source);
        av_buffer_unref(&source.buf[0]);
        checkAppend(scaled);
    }

    void sendAudioFrame() {
        audioFrame_->pts = audioNextSample_;
        audioNextSample_ += audioFrame_->nb_samples;
        send(*audio_, audioFrame_.get());
        audioFilled_ = 0;
        audioFrame_->nb_samples = audio_->codec->frame_size;
    }

    // Sends a frame (none flushes) and writes every packet it yields.
    void send(TrackEncoder& track, const AVFrame* frame) {
        checkAppend(avcodec_send_frame(track.codec.get(), frame));
        for (;;) {
            const int received = avcodec_receive_packet(track.codec.get(), packet_.get());
            if (received == AVERROR(EAGAIN) || received == AVERROR_EOF) {
                return;
            }
            checkAppend(received);
            av_packet_rescale_ts(packet_.get(), track.codec->time_base, track.stream->time_base);
            packet_->stream_index = track.stream->index;
            checkAppend(av_interleaved_write_frame(output_.get(), packet_.get()));
        }
    }

    PartialFile file_;
    OutputContext output_;
    TrackEncoder video_;
    std::optional<TrackEncoder> audio_;
    ffmpeg::Packet packet_{av_packet_alloc()};
    // Reused for every picture and every piece of sound.
    ffmpeg::Frame videoFrame_{av_frame_alloc()};
    ffmpeg::Frame audioFrame_{av_frame_alloc()};
    // Points at the caller's planes while they are converted.
    ffmpeg::Frame sourceView_{av_frame_alloc()};
    Scaler scaler_;
    AVPixelFormat scalerFormat_ = AV_PIX_FMT_NONE;
    int audioFilled_ = 0;
    std::int64_t audioNextSample_ = 0;
    bool closed_ = false;
};

ExportMediaWriter::ExportMediaWriter(std::filesystem::path path,
                                     const ResolvedExportConfiguration& configuration, bool hasAudio)
    : state_(std::make_unique<State>(std::move(path), configuration, hasAudio)) {}

ExportMediaWriter::~ExportMediaWriter() = default;

void ExportMediaWriter::appendVideo(const VideoFramePlanes& picture, std::int64_t frameIndex) {
    state_->appendVideo(picture, frameIndex);
}

void ExportMediaWriter::appendAudio(const float* interleavedStereo, std::size_t frameCount) {
    state_->appendAudio(interleavedStereo, frameCount);
}

void ExportMediaWriter::finish() {
    state_->finish();
}

} // namespace rilo

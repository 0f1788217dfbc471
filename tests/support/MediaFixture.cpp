#include "support/MediaFixture.h"

#include "media/FFmpegHandles.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/log.h>
}

#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>
#include <system_error>
#include <vector>

namespace rilo::testing {

namespace {

constexpr int audioSampleRate = 48'000;
constexpr double toneAmplitude = 0.3;

struct OutputContextDeleter {
    void operator()(AVFormatContext* context) const noexcept {
        if (context->pb != nullptr && (context->oformat->flags & AVFMT_NOFILE) == 0) {
            avio_closep(&context->pb);
        }
        avformat_free_context(context);
    }
};
using OutputContext = std::unique_ptr<AVFormatContext, OutputContextDeleter>;
using ffmpeg::CodecContext;
using ffmpeg::Frame;
using ffmpeg::Packet;

// Options handed to FFmpeg, which takes out what it uses.
class FFmpegOptions {
public:
    FFmpegOptions() = default;
    FFmpegOptions(const FFmpegOptions&) = delete;
    FFmpegOptions& operator=(const FFmpegOptions&) = delete;
    ~FFmpegOptions() { av_dict_free(&dictionary_); }

    void set(const char* key, const char* value) { av_dict_set(&dictionary_, key, value, 0); }
    AVDictionary** get() noexcept { return &dictionary_; }

private:
    AVDictionary* dictionary_ = nullptr;
};

[[noreturn]] void fail(const std::string& what) {
    throw MediaFixtureError("media fixture: " + what);
}

// FFmpeg's error codes are negative.
void check(int code, const std::string& what) {
    if (code < 0) {
        fail(what + " (error " + std::to_string(code) + ")");
    }
}

const AVCodec* videoEncoder() {
    if (const AVCodec* x264 = avcodec_find_encoder_by_name("libx264")) {
        return x264;
    }
    if (const AVCodec* mpeg4 = avcodec_find_encoder(AV_CODEC_ID_MPEG4)) {
        return mpeg4;
    }
    fail("no H.264 or MPEG-4 video encoder");
}

// Draws frame `number`: a luma ramp that moves 4 pixels a frame, sideways on
// the screen and downwards on the webcam, so that no two frames are alike.
void drawRamp(AVFrame& frame, std::int64_t number, bool movesDown) {
    const int extent = movesDown ? frame.height : frame.width;
    const auto offset = static_cast<int>((number * 4) % extent);
    for (int y = 0; y < frame.height; ++y) {
        std::uint8_t* row = frame.data[0] + static_cast<std::ptrdiff_t>(y) * frame.linesize[0];
        for (int x = 0; x < frame.width; ++x) {
            const int along = ((movesDown ? y : x) + extent - offset) % extent;
            row[x] = static_cast<std::uint8_t>(16 + along * 219 / extent);
        }
    }
    for (int plane = 1; plane <= 2; ++plane) {
        for (int y = 0; y < frame.height / 2; ++y) {
            std::uint8_t* row = frame.data[plane] + static_cast<std::ptrdiff_t>(y) * frame.linesize[plane];
            std::fill_n(row, frame.width / 2, std::uint8_t{128});
        }
    }
}

struct YuvColor {
    std::uint8_t y, u, v;
};

void fill(AVFrame& frame, double x, double y, double width, double height, YuvColor color);

// Draws frame `number` as bars: bit i of the number is bar i from the left,
// white when set and black when clear.
void drawFrameNumber(AVFrame& frame, std::int64_t number) {
    for (int bit = 0; bit < frameNumberBarCount; ++bit) {
        const bool set = ((number >> bit) & 1) != 0;
        const std::uint8_t luma = set ? 235 : 16;
        fill(frame, static_cast<double>(bit) / frameNumberBarCount, 0, 1.0 / frameNumberBarCount + 0.01, 1,
             YuvColor{luma, 128, 128});
    }
}

// BT.709 limited range, from 8-bit RGB.
YuvColor yuv(int r, int g, int b) {
    const double y = 16 + (0.2126 * r + 0.7152 * g + 0.0722 * b) * 219.0 / 255.0;
    const double u = 128 + (-0.1146 * r - 0.3854 * g + 0.5 * b) * 224.0 / 255.0;
    const double v = 128 + (0.5 * r - 0.4542 * g - 0.0458 * b) * 224.0 / 255.0;
    return {static_cast<std::uint8_t>(std::lround(y)), static_cast<std::uint8_t>(std::lround(u)),
            static_cast<std::uint8_t>(std::lround(v))};
}

// Fills a rectangle given in fractions of the frame, clipped to it.
void fill(AVFrame& frame, double x, double y, double width, double height, YuvColor color) {
    const int x0 = std::clamp(static_cast<int>(x * frame.width) & ~1, 0, frame.width);
    const int y0 = std::clamp(static_cast<int>(y * frame.height) & ~1, 0, frame.height);
    const int x1 = std::clamp(static_cast<int>((x + width) * frame.width) & ~1, 0, frame.width);
    const int y1 = std::clamp(static_cast<int>((y + height) * frame.height) & ~1, 0, frame.height);
    for (int row = y0; row < y1; ++row) {
        std::fill(frame.data[0] + static_cast<std::ptrdiff_t>(row) * frame.linesize[0] + x0,
                  frame.data[0] + static_cast<std::ptrdiff_t>(row) * frame.linesize[0] + x1, color.y);
    }
    for (int row = y0 / 2; row < y1 / 2; ++row) {
        std::fill(frame.data[1] + static_cast<std::ptrdiff_t>(row) * frame.linesize[1] + x0 / 2,
                  frame.data[1] + static_cast<std::ptrdiff_t>(row) * frame.linesize[1] + x1 / 2, color.u);
        std::fill(frame.data[2] + static_cast<std::ptrdiff_t>(row) * frame.linesize[2] + x0 / 2,
                  frame.data[2] + static_cast<std::ptrdiff_t>(row) * frame.linesize[2] + x1 / 2, color.v);
    }
}

// A desktop: a teal wallpaper, a menu bar, a dock, and an editor window whose
// lines of "text" scroll by a line every half second, with a caret blinking.
void drawDesktop(AVFrame& frame, std::int64_t number, std::int64_t framesPerSecond) {
    for (int band = 0; band < 16; ++band) {
        const double t = band / 15.0;
        fill(frame, 0, band / 16.0, 1, 1.0 / 16 + 0.01,
             yuv(static_cast<int>(24 + 30 * t), static_cast<int>(92 + 40 * t),
                 static_cast<int>(110 + 50 * t)));
    }
    fill(frame, 0, 0, 1, 0.035, yuv(236, 236, 240));
    for (int item = 0; item < 4; ++item) {
        fill(frame, 0.015 + item * 0.05, 0.012, 0.035, 0.012, yuv(90, 90, 100));
    }
    fill(frame, 0.3, 0.92, 0.4, 0.06, yuv(230, 232, 238));
    const YuvColor icons[] = {yuv(230, 80, 70), yuv(250, 180, 50), yuv(80, 190, 110), yuv(70, 140, 230),
                              yuv(160, 100, 220)};
    for (int icon = 0; icon < 5; ++icon) {
        fill(frame, 0.32 + icon * 0.075, 0.93, 0.04, 0.04, icons[icon]);
    }

    const double wx = 0.12, wy = 0.1, ww = 0.76, wh = 0.74;
    fill(frame, wx + 0.006, wy + 0.01, ww, wh, yuv(20, 60, 70)); // shadow
    fill(frame, wx, wy, ww, wh, yuv(250, 250, 252));
    fill(frame, wx, wy, ww, 0.05, yuv(222, 224, 230));
    const YuvColor lights[] = {yuv(240, 90, 80), yuv(245, 190, 60), yuv(90, 200, 90)};
    for (int light = 0; light < 3; ++light) {
        fill(frame, wx + 0.012 + light * 0.022, wy + 0.017, 0.012, 0.018, lights[light]);
    }
    fill(frame, wx, wy + 0.05, 0.16, wh - 0.05, yuv(238, 240, 245)); // sidebar
    for (int item = 0; item < 8; ++item) {
        fill(frame, wx + 0.015, wy + 0.08 + item * 0.05, 0.11, 0.018,
             item == 2 ? yuv(70, 140, 230) : yuv(190, 194, 204));
    }
    const std::int64_t scroll = number * 2 / std::max<std::int64_t>(framesPerSecond, 1);
    const YuvColor ink[] = {yuv(60, 64, 76), yuv(170, 60, 150), yuv(40, 120, 200), yuv(200, 110, 40)};
    for (int line = 0; line < 14; ++line) {
        const std::int64_t n = line + scroll;
        const double indent = static_cast<double>((n * 7) % 4) * 0.02;
        const double length = 0.12 + static_cast<double>((n * 37) % 23) * 0.012;
        const double y = wy + 0.08 + line * 0.045;
        fill(frame, wx + 0.19 + indent, y, 0.04, 0.018, ink[(n + 1) % 4]);
        fill(frame, wx + 0.24 + indent, y, length, 0.018, ink[n % 4]);
    }
    if ((number * 2 / std::max<std::int64_t>(framesPerSecond, 1)) % 2 == 0) {
        fill(frame, wx + 0.19, wy + 0.08 + 13 * 0.045, 0.004, 0.024, yuv(20, 20, 20));
    }
}

// One track being written: its encoder and where it has got to.
class TrackWriter {
public:
    virtual ~TrackWriter() = default;

    // Presentation time of the next frame to encode, in seconds; infinity
    // once everything is encoded.
    virtual double nextSeconds() const = 0;
    // Encodes the next frame, or flushes the encoder after the last.
    virtual void encodeNext(AVFormatContext& output) = 0;

protected:
    void send(AVFormatContext& output, const AVFrame* frame) {
        check(avcodec_send_frame(codec.get(), frame), "cannot encode");
        for (;;) {
            const int received = avcodec_receive_packet(codec.get(), packet.get());
            if (received == AVERROR(EAGAIN) || received == AVERROR_EOF) {
                return;
            }
            check(received, "cannot encode");
            stamp(*packet);
            packet->stream_index = stream->index;
            check(av_interleaved_write_frame(&output, packet.get()), "cannot write a packet");
        }
    }

    // Puts an encoded packet on the track's time line.
    virtual void stamp(AVPacket& encoded) {
        if (encoded.duration == 0) {
            encoded.duration = packetDuration;
        }
        av_packet_rescale_ts(&encoded, codec->time_base, stream->time_base);
    }

    // Adds the track and its encoder, one thread, headers where the container wants them.
    void add(AVFormatContext& output, const AVCodec* encoder, const std::string& what) {
        stream = avformat_new_stream(&output, nullptr);
        codec.reset(avcodec_alloc_context3(encoder));
        if (stream == nullptr || !codec) {
            fail("cannot add " + what);
        }
        codec->thread_count = 1;
        if ((output.oformat->flags & AVFMT_GLOBALHEADER) != 0) {
            codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        }
    }

    void open(const AVCodec* encoder, AVDictionary** options) {
        check(avcodec_open2(codec.get(), encoder, options), "cannot open the encoder");
        check(avcodec_parameters_from_context(stream->codecpar, codec.get()), "cannot describe a track");
        stream->time_base = codec->time_base;
    }

    CodecContext codec;
    // In the codec's time base, for packets that the encoder leaves without one.
    std::int64_t packetDuration = 1;
    AVStream* stream = nullptr;
    Packet packet{av_packet_alloc()};
    Frame frame{av_frame_alloc()};
};

class VideoTrackWriter final : public TrackWriter {
public:
    VideoTrackWriter(AVFormatContext& output, const VideoTrackOptions& options, ProjectTime duration,
                     bool barsMoveDown)
        : framesPerSecond_(options.framesPerSecond)
        , picture_(options.picture)
        , barsMoveDown_(barsMoveDown)
        , frameTimes_(options.frameTimes)
        , duration_(duration) {
        frameCount_ =
            std::max<std::int64_t>(1, duration.nanoseconds * options.framesPerSecond / 1'000'000'000);
        if (!frameTimes_.empty()) {
            frameCount_ = static_cast<std::int64_t>(frameTimes_.size());
        }
        const AVCodec* encoder = videoEncoder();
        add(output, encoder, "a video track");
        const auto fps = static_cast<int>(options.framesPerSecond);
        codec->width = static_cast<int>(options.pixelSize.width);
        codec->height = static_cast<int>(options.pixelSize.height);
        codec->time_base = AVRational{1, fps};
        codec->framerate = AVRational{fps, 1};
        codec->pix_fmt = AV_PIX_FMT_YUV420P;
        // One keyframe, and so one fragment, a second.
        codec->gop_size = fps;
        codec->keyint_min = codec->gop_size;
        codec->max_b_frames = 0;
        FFmpegOptions settings;
        if (encoder->id == AV_CODEC_ID_H264) {
            settings.set("preset", "ultrafast");
            settings.set("crf", "20");
            settings.set("x264-params", "scenecut=0");
        } else {
            codec->flags |= AV_CODEC_FLAG_QSCALE;
            codec->global_quality = FF_QP2LAMBDA * 3;
        }
        open(encoder, settings.get());
        if (!frameTimes_.empty()) {
            stream->time_base = AVRational{1, 1'000'000'000};
        }

        frame->format = AV_PIX_FMT_YUV420P;
        frame->width = codec->width;
        frame->height = codec->height;
        check(av_frame_get_buffer(frame.get(), 0), "cannot allocate a picture");
    }

    double nextSeconds() const override {
        if (!flushed_ && !frameTimes_.empty()) {
            return frameTimes_[static_cast<std::size_t>(std::min(next_, frameCount_ - 1))].seconds();
        }
        return flushed_ ? INFINITY : static_cast<double>(next_) / static_cast<double>(framesPerSecond_);
    }

    void encodeNext(AVFormatContext& output) override {
        if (next_ == frameCount_) {
            send(output, nullptr);
            flushed_ = true;
            return;
        }
        check(av_frame_make_writable(frame.get()), "cannot write a picture");
        if (picture_ == MoviePicture::desktop) {
            drawDesktop(*frame, next_, framesPerSecond_);
        } else if (picture_ == MoviePicture::frameNumber) {
            drawFrameNumber(*frame, next_);
        } else {
            drawRamp(*frame, next_, barsMoveDown_);
        }
        frame->pts = next_;
        send(output, frame.get());
        ++next_;
    }

protected:
    // The encoder counts frames; with frame times given, frame i lands at
    // the i-th time (there are no B-frames, so decoding and presentation
    // order agree).
    void stamp(AVPacket& encoded) override {
        if (frameTimes_.empty()) {
            TrackWriter::stamp(encoded);
            return;
        }
        const auto index = static_cast<std::size_t>(encoded.pts);
        const ProjectTime start = frameTimes_.at(index);
        const ProjectTime end = index + 1 < frameTimes_.size() ? frameTimes_[index + 1]
                                                               : std::max(duration_, start + ProjectTime{1});
        encoded.pts = start.nanoseconds;
        encoded.dts = frameTimes_.at(static_cast<std::size_t>(encoded.dts)).nanoseconds;
        encoded.duration = (end - start).nanoseconds;
    }

private:
    std::int64_t framesPerSecond_;
    MoviePicture picture_;
    bool barsMoveDown_;
    std::vector<ProjectTime> frameTimes_;
    ProjectTime duration_;
    std::int64_t frameCount_ = 0;
    std::int64_t next_ = 0;
    bool flushed_ = false;
};

class AudioTrackWriter final : public TrackWriter {
public:
    AudioTrackWriter(AVFormatContext& output, const AudioTrackOptions& options, ProjectTime duration)
        : options_(options) {
        sampleCount_ = duration.nanoseconds * audioSampleRate / 1'000'000'000;
        const AVCodec* encoder = avcodec_find_encoder(AV_CODEC_ID_AAC);
        if (encoder == nullptr) {
            fail("no AAC encoder");
        }
        add(output, encoder, "an audio track");
        codec->sample_fmt = AV_SAMPLE_FMT_FLTP;
        codec->sample_rate = audioSampleRate;
        const AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
        check(av_channel_layout_copy(&codec->ch_layout, &stereo), "cannot set the channel layout");
        codec->bit_rate = 96'000;
        codec->time_base = AVRational{1, audioSampleRate};
        FFmpegOptions settings;
        // The fast coder without the optional coding tools keeps a few seconds of
        // audio to a few tens of milliseconds; tests need the signal, not the
        // last bit of quality.
        settings.set("aac_coder", "fast");
        for (const char* tool : {"aac_pns", "aac_is", "aac_ms", "aac_tns"}) {
            settings.set(tool, "0");
        }
        open(encoder, settings.get());
        packetDuration = codec->frame_size;

        frame->format = codec->sample_fmt;
        frame->sample_rate = audioSampleRate;
        check(av_channel_layout_copy(&frame->ch_layout, &codec->ch_layout), "cannot set the channel layout");
        frame->nb_samples = codec->frame_size;
        check(av_frame_get_buffer(frame.get(), 0), "cannot allocate audio samples");
    }

    double nextSeconds() const override {
        return flushed_ ? INFINITY : static_cast<double>(next_) / audioSampleRate;
    }

    void encodeNext(AVFormatContext& output) override {
        if (next_ >= sampleCount_) {
            send(output, nullptr);
            flushed_ = true;
            return;
        }
        check(av_frame_make_writable(frame.get()), "cannot write audio samples");
        const auto count = static_cast<int>(std::min<std::int64_t>(codec->frame_size, sampleCount_ - next_));
        frame->nb_samples = count;
        auto* left = reinterpret_cast<float*>(frame->data[0]);
        auto* right = reinterpret_cast<float*>(frame->data[1]);
        for (int i = 0; i < count; ++i) {
            const float value = sampleAt(next_ + i);
            left[i] = value;
            right[i] = value;
        }
        frame->pts = next_;
        send(output, frame.get());
        next_ += count;
    }

private:
    float sampleAt(std::int64_t index) const {
        const double seconds = static_cast<double>(index) / audioSampleRate;
        const ProjectTime time{index * 1'000'000'000 / audioSampleRate};
        for (const ProjectTimeRange& silent : options_.silentRanges) {
            if (silent.contains(time)) {
                return 0;
            }
        }
        return static_cast<float>(toneAmplitude *
                                  std::sin(2 * std::numbers::pi * options_.frequencyHertz * seconds));
    }

    AudioTrackOptions options_;
    std::int64_t sampleCount_ = 0;
    std::int64_t next_ = 0;
    bool flushed_ = false;
};

} // namespace

void RecordingMovieLayout::applyTo(ProjectManifest& manifest) const {
    manifest.media.tracks = tracks;
    manifest.webcam = webcam;
    manifest.duration = duration;
    manifest.encodedPixelSize = screenPixelSize;
    manifest.source.initialPixelSize = screenPixelSize;
    manifest.options.framesPerSecond = screenFramesPerSecond;
    manifest.options.capturesWebcam = webcam.has_value();
    const auto hasKind = [&](MediaTrackKind kind) {
        return std::any_of(tracks.begin(), tracks.end(),
                           [&](const MediaTrack& track) { return track.kind == kind; });
    };
    manifest.options.capturesSystemAudio = hasKind(MediaTrackKind::systemAudio);
    manifest.options.capturesMicrophone = hasKind(MediaTrackKind::microphone);
    if (manifest.options.capturesMicrophone) {
        if (!manifest.microphone) {
            manifest.microphone = MicrophoneMediaInfo{"fixture-microphone", "Fixture Microphone"};
        }
    } else {
        manifest.microphone.reset();
    }
}

RecordingMovieLayout writeRecordingMovie(const std::filesystem::path& path,
                                         const RecordingMovieOptions& options) {
    // The encoders report their settings and statistics at the informational
    // level; test output keeps only FFmpeg's errors.
    if (av_log_get_level() > AV_LOG_ERROR) {
        av_log_set_level(AV_LOG_ERROR);
    }
    std::error_code ignored;
    std::filesystem::remove(path, ignored);

    AVFormatContext* rawOutput = nullptr;
    check(avformat_alloc_output_context2(&rawOutput, nullptr, "mov", path.c_str()),
          "cannot create the movie");
    OutputContext output(rawOutput);
    output->flags |= AVFMT_FLAG_BITEXACT;

    RecordingMovieLayout layout;
    layout.duration = options.duration;
    layout.screenPixelSize = options.screen.pixelSize;
    layout.screenFramesPerSecond = options.screen.framesPerSecond;
    std::vector<std::unique_ptr<TrackWriter>> writers;
    writers.push_back(std::make_unique<VideoTrackWriter>(*output, options.screen, options.duration, false));
    layout.tracks.push_back({MediaTrackKind::screen, 0});
    if (options.webcam) {
        writers.push_back(
            std::make_unique<VideoTrackWriter>(*output, *options.webcam, options.duration, true));
        layout.webcam = WebcamMediaInfo{1, "fixture-webcam", "Fixture Webcam", options.webcam->pixelSize,
                                        options.webcam->framesPerSecond};
    }
    if (options.systemAudio) {
        writers.push_back(
            std::make_unique<AudioTrackWriter>(*output, *options.systemAudio, options.duration));
        layout.tracks.push_back({MediaTrackKind::systemAudio, static_cast<std::int64_t>(writers.size() - 1)});
    }
    if (options.microphone) {
        writers.push_back(std::make_unique<AudioTrackWriter>(*output, *options.microphone, options.duration));
        layout.tracks.push_back({MediaTrackKind::microphone, static_cast<std::int64_t>(writers.size() - 1)});
    }
    layout.videoCodecName = avcodec_get_name(videoEncoder()->id);

    check(avio_open(&output->pb, path.c_str(), AVIO_FLAG_WRITE), "cannot create the movie");
    FFmpegOptions settings;
    settings.set("movie_timescale", "600");
    if (options.fragmented) {
        // The header waits for the first fragment so that it can carry the edit
        // list that moves the audio encoder's priming before time 0.
        settings.set("movflags", "frag_keyframe+empty_moov+delay_moov");
    }
    check(avformat_write_header(output.get(), settings.get()), "cannot write the movie header");

    // Encode in time order across tracks so that the muxer interleaves them as
    // a live recording would.
    for (;;) {
        const auto next = std::min_element(writers.begin(), writers.end(), [](const auto& a, const auto& b) {
            return a->nextSeconds() < b->nextSeconds();
        });
        if (std::isinf((*next)->nextSeconds())) {
            break;
        }
        (*next)->encodeNext(*output);
    }
    check(av_write_trailer(output.get()), "cannot finish the movie");
    return layout;
}

} // namespace rilo::testing

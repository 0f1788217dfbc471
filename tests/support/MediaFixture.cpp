#include "support/MediaFixture.h"

#include "media/FFmpegHandles.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/log.h>
}

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <numbers>
#include <system_error>
#include <vector>

namespace rilo::testing {

namespace {

constexpr int audioSampleRate = 48'000;
constexpr int frameNumberBits = 16;
constexpr std::uint8_t lightLuma = 235;
constexpr std::uint8_t darkLuma = 16;

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
using ffmpeg::InputContext;
using ffmpeg::Packet;

// Options handed to FFmpeg, which takes out what it uses.
class Options {
public:
    Options() = default;
    Options(const Options&) = delete;
    Options& operator=(const Options&) = delete;
    ~Options() { av_dict_free(&dictionary_); }

    void set(const char* key, const char* value) { av_dict_set(&dictionary_, key, value, 0); }
    AVDictionary** get() noexcept { return &dictionary_; }

private:
    AVDictionary* dictionary_ = nullptr;
};

[[noreturn]] void fail(const std::string& what, int code = 0) {
    std::string text = "media fixture: " + what;
    if (code < 0) {
        std::array<char, AV_ERROR_MAX_STRING_SIZE> buffer{};
        av_strerror(code, buffer.data(), buffer.size());
        text += " (" + std::string(buffer.data()) + ")";
    }
    throw MediaFixtureError(text);
}

void check(int code, const std::string& what) {
    if (code < 0) {
        fail(what, code);
    }
}

Frame allocateFrame() {
    Frame frame(av_frame_alloc());
    if (!frame) {
        fail("cannot allocate a frame");
    }
    return frame;
}

Packet allocatePacket() {
    Packet packet(av_packet_alloc());
    if (!packet) {
        fail("cannot allocate a packet");
    }
    return packet;
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

// Luma and chroma of eight colour bars at 75 % (white, yellow, cyan, green,
// magenta, red, blue, black) in limited-range BT.709.
struct BarColour {
    std::uint8_t y, u, v;
};
constexpr std::array<BarColour, 8> barColours{{
    {180, 128, 128},
    {168, 44, 136},
    {145, 147, 44},
    {133, 63, 52},
    {63, 193, 204},
    {51, 109, 212},
    {28, 212, 120},
    {16, 128, 128},
}};

int stripHeight(int height) {
    return std::max(8, (height / 8) & ~1);
}

// Draws frame `number` of the pattern: the number strip, then bars that move
// 4 pixels a frame, sideways on the screen and downwards on the webcam.
void drawPattern(AVFrame& frame, std::int64_t number, bool barsMoveDown) {
    const int width = frame.width;
    const int height = frame.height;
    const int strip = stripHeight(height);
    const int blockWidth = width / frameNumberBits;
    const int extent = barsMoveDown ? height : width;
    const auto offset = static_cast<int>((number * 4) % extent);
    // The bar under a position along the direction of motion.
    const auto barAt = [&](int along) -> const BarColour& {
        const int shifted = barsMoveDown ? (along - offset + extent) % extent : (along + offset) % extent;
        return barColours[static_cast<std::size_t>(shifted * 8 / extent)];
    };

    std::vector<std::uint8_t> stripRow(static_cast<std::size_t>(width), darkLuma);
    for (int x = 0; x < width; ++x) {
        const int bit = x / blockWidth;
        if (bit < frameNumberBits && ((number >> (frameNumberBits - 1 - bit)) & 1) != 0) {
            stripRow[static_cast<std::size_t>(x)] = lightLuma;
        }
    }
    std::vector<std::uint8_t> barRow(static_cast<std::size_t>(width));
    for (int x = 0; x < width; ++x) {
        barRow[static_cast<std::size_t>(x)] = barAt(x).y;
    }
    for (int y = 0; y < height; ++y) {
        std::uint8_t* row = frame.data[0] + static_cast<std::ptrdiff_t>(y) * frame.linesize[0];
        if (y < strip) {
            std::copy(stripRow.begin(), stripRow.end(), row);
        } else if (barsMoveDown) {
            std::fill_n(row, width, barAt(y).y);
        } else {
            std::copy(barRow.begin(), barRow.end(), row);
        }
    }
    for (int y = 0; y < height / 2; ++y) {
        std::uint8_t* uRow = frame.data[1] + static_cast<std::ptrdiff_t>(y) * frame.linesize[1];
        std::uint8_t* vRow = frame.data[2] + static_cast<std::ptrdiff_t>(y) * frame.linesize[2];
        for (int x = 0; x < width / 2; ++x) {
            const bool inStrip = y * 2 < strip;
            const BarColour& colour = barAt(barsMoveDown ? y * 2 : x * 2);
            uRow[x] = inStrip ? 128 : colour.u;
            vRow[x] = inStrip ? 128 : colour.v;
        }
    }
}

bool isAudible(const AudioTrackSpec& spec, double seconds) {
    if (!spec.audibleRanges) {
        return true;
    }
    return std::any_of(spec.audibleRanges->begin(), spec.audibleRanges->end(),
                       [&](const ProjectTimeRange& range) {
                           return seconds >= range.start.seconds() && seconds < range.end().seconds();
                       });
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
            if (packet->duration == 0) {
                packet->duration = packetDuration;
            }
            av_packet_rescale_ts(packet.get(), codec->time_base, stream->time_base);
            packet->stream_index = stream->index;
            check(av_interleaved_write_frame(&output, packet.get()), "cannot write a packet");
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
    Packet packet = allocatePacket();
    Frame frame = allocateFrame();
};

class VideoTrackWriter final : public TrackWriter {
public:
    VideoTrackWriter(AVFormatContext& output, const VideoTrackSpec& spec, ProjectTime duration,
                     ProjectTime keyframeInterval, bool barsMoveDown)
        : framesPerSecond_(spec.framesPerSecond)
        , barsMoveDown_(barsMoveDown) {
        if (spec.framesPerSecond < 1 || spec.framesPerSecond > 240 ||
            spec.pixelSize.width < 2 * frameNumberBits || spec.pixelSize.height < 16 ||
            spec.pixelSize.width > 4096 || spec.pixelSize.height > 4096) {
            fail("video size or frame rate out of range");
        }
        frameCount_ = std::max<std::int64_t>(1, duration.nanoseconds * spec.framesPerSecond / 1'000'000'000);
        const AVCodec* encoder = videoEncoder();
        stream = avformat_new_stream(&output, nullptr);
        codec.reset(avcodec_alloc_context3(encoder));
        if (stream == nullptr || !codec) {
            fail("cannot add a video track");
        }
        const auto fps = static_cast<int>(spec.framesPerSecond);
        codec->width = static_cast<int>(spec.pixelSize.width);
        codec->height = static_cast<int>(spec.pixelSize.height);
        codec->time_base = AVRational{1, fps};
        codec->framerate = AVRational{fps, 1};
        codec->pix_fmt = AV_PIX_FMT_YUV420P;
        codec->gop_size =
            static_cast<int>(std::max<std::int64_t>(1, keyframeInterval.nanoseconds * fps / 1'000'000'000));
        codec->keyint_min = codec->gop_size;
        codec->max_b_frames = 0;
        codec->thread_count = 1;
        codec->color_primaries = AVCOL_PRI_BT709;
        codec->color_trc = AVCOL_TRC_BT709;
        codec->colorspace = AVCOL_SPC_BT709;
        codec->color_range = AVCOL_RANGE_MPEG;
        if ((output.oformat->flags & AVFMT_GLOBALHEADER) != 0) {
            codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        }
        Options options;
        if (encoder->id == AV_CODEC_ID_H264) {
            options.set("preset", "ultrafast");
            options.set("crf", "20");
            options.set("x264-params", "scenecut=0");
        } else {
            codec->flags |= AV_CODEC_FLAG_QSCALE;
            codec->global_quality = FF_QP2LAMBDA * 3;
        }
        open(encoder, options.get());

        frame->format = AV_PIX_FMT_YUV420P;
        frame->width = codec->width;
        frame->height = codec->height;
        check(av_frame_get_buffer(frame.get(), 0), "cannot allocate a picture");
    }

    double nextSeconds() const override {
        return flushed_ ? INFINITY : static_cast<double>(next_) / static_cast<double>(framesPerSecond_);
    }

    void encodeNext(AVFormatContext& output) override {
        if (next_ == frameCount_) {
            send(output, nullptr);
            flushed_ = true;
            return;
        }
        check(av_frame_make_writable(frame.get()), "cannot write a picture");
        drawPattern(*frame, next_, barsMoveDown_);
        frame->pts = next_;
        send(output, frame.get());
        ++next_;
    }

private:
    std::int64_t framesPerSecond_;
    bool barsMoveDown_;
    std::int64_t frameCount_ = 0;
    std::int64_t next_ = 0;
    bool flushed_ = false;
};

class AudioTrackWriter final : public TrackWriter {
public:
    AudioTrackWriter(AVFormatContext& output, const AudioTrackSpec& spec, ProjectTime duration,
                     std::uint32_t noiseSeed)
        : spec_(spec)
        , noiseState_(noiseSeed) {
        if (spec.frequencyHertz <= 0 || spec.frequencyHertz >= audioSampleRate / 2.0 || spec.amplitude < 0 ||
            spec.amplitude > 1 || spec.noiseAmplitude < 0 || spec.noiseAmplitude > 1) {
            fail("audio tone out of range");
        }
        sampleCount_ = duration.nanoseconds * audioSampleRate / 1'000'000'000;
        const AVCodec* encoder = avcodec_find_encoder(AV_CODEC_ID_AAC);
        if (encoder == nullptr) {
            fail("no AAC encoder");
        }
        stream = avformat_new_stream(&output, nullptr);
        codec.reset(avcodec_alloc_context3(encoder));
        if (stream == nullptr || !codec) {
            fail("cannot add an audio track");
        }
        codec->sample_fmt = AV_SAMPLE_FMT_FLTP;
        codec->sample_rate = audioSampleRate;
        const AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
        check(av_channel_layout_copy(&codec->ch_layout, &stereo), "cannot set the channel layout");
        codec->bit_rate = 96'000;
        codec->time_base = AVRational{1, audioSampleRate};
        codec->thread_count = 1;
        if ((output.oformat->flags & AVFMT_GLOBALHEADER) != 0) {
            codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        }
        Options options;
        // The fast coder without the optional coding tools keeps a few seconds of
        // audio to a few tens of milliseconds; tests need the signal, not the
        // last bit of quality.
        options.set("aac_coder", "fast");
        for (const char* tool : {"aac_pns", "aac_is", "aac_ms", "aac_tns"}) {
            options.set(tool, "0");
        }
        open(encoder, options.get());
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
    float sampleAt(std::int64_t index) {
        const double seconds = static_cast<double>(index) / audioSampleRate;
        double value = 0;
        if (isAudible(spec_, seconds)) {
            const double phase = 2 * std::numbers::pi * spec_.frequencyHertz * seconds;
            if (spec_.speechLike) {
                const double swell = 0.5 - 0.5 * std::cos(2 * std::numbers::pi * 3.5 * seconds);
                value = spec_.amplitude * (0.35 + 0.65 * swell) *
                        (std::sin(phase) + 0.5 * std::sin(2 * phase)) / 1.3;
            } else {
                value = spec_.amplitude * std::sin(phase);
            }
        }
        if (spec_.noiseAmplitude > 0) {
            noiseState_ = noiseState_ * 1'664'525u + 1'013'904'223u;
            value += spec_.noiseAmplitude * (static_cast<double>(noiseState_) / 2'147'483'647.5 - 1.0);
        }
        return static_cast<float>(std::clamp(value, -1.0, 1.0));
    }

    AudioTrackSpec spec_;
    std::uint32_t noiseState_;
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

RecordingMovieLayout writeRecordingMovie(const std::filesystem::path& path, const RecordingMovieSpec& spec) {
    if (spec.duration <= ProjectTime::zero() || spec.keyframeInterval <= ProjectTime::zero()) {
        fail("duration and keyframe interval must be positive");
    }
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
    layout.duration = spec.duration;
    layout.screenPixelSize = spec.screen.pixelSize;
    layout.screenFramesPerSecond = spec.screen.framesPerSecond;
    std::vector<std::unique_ptr<TrackWriter>> writers;
    writers.push_back(std::make_unique<VideoTrackWriter>(*output, spec.screen, spec.duration,
                                                         spec.keyframeInterval, false));
    layout.tracks.push_back({MediaTrackKind::screen, 0});
    if (spec.webcam) {
        writers.push_back(std::make_unique<VideoTrackWriter>(*output, *spec.webcam, spec.duration,
                                                             spec.keyframeInterval, true));
        layout.webcam = WebcamMediaInfo{1, "fixture-webcam", "Fixture Webcam", spec.webcam->pixelSize,
                                        spec.webcam->framesPerSecond};
    }
    if (spec.systemAudio) {
        writers.push_back(std::make_unique<AudioTrackWriter>(*output, *spec.systemAudio, spec.duration, 17u));
        layout.tracks.push_back({MediaTrackKind::systemAudio, static_cast<std::int64_t>(writers.size() - 1)});
    }
    if (spec.microphone) {
        writers.push_back(std::make_unique<AudioTrackWriter>(*output, *spec.microphone, spec.duration, 29u));
        layout.tracks.push_back({MediaTrackKind::microphone, static_cast<std::int64_t>(writers.size() - 1)});
    }
    layout.videoCodecName = avcodec_get_name(videoEncoder()->id);

    check(avio_open(&output->pb, path.c_str(), AVIO_FLAG_WRITE), "cannot create the movie");
    Options options;
    options.set("movie_timescale", "600");
    if (spec.fragmented) {
        // The header waits for the first fragment so that it can carry the edit
        // list that moves the audio encoder's priming before time 0.
        options.set("movflags", "frag_keyframe+empty_moov+delay_moov");
    }
    check(avformat_write_header(output.get(), options.get()), "cannot write the movie header");

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

std::optional<std::int64_t> frameNumberInPicture(const std::uint8_t* luma, int lineSize, int width,
                                                 int height) {
    if (luma == nullptr || width < 2 * frameNumberBits || height < 16) {
        return std::nullopt;
    }
    const int strip = stripHeight(height);
    const int blockWidth = width / frameNumberBits;
    const int centreY = strip / 2;
    std::int64_t number = 0;
    for (int bit = 0; bit < frameNumberBits; ++bit) {
        const int centreX = bit * blockWidth + blockWidth / 2;
        int sum = 0;
        for (int dy = -1; dy <= 1; ++dy) {
            for (int dx = -1; dx <= 1; ++dx) {
                sum += luma[static_cast<std::ptrdiff_t>(centreY + dy) * lineSize + centreX + dx];
            }
        }
        const int level = sum / 9;
        if (level > 176) {
            number = number * 2 + 1;
        } else if (level < 80) {
            number = number * 2;
        } else {
            return std::nullopt;
        }
    }
    return number;
}

namespace {

// Decodes one track of a file from the start, handing every frame to `use`.
// Frames come with their presentation time in the track's time base.
template <class Use>
void decodeTrack(const std::filesystem::path& path, int trackIndex, AVMediaType type, Use use) {
    AVFormatContext* rawInput = nullptr;
    check(avformat_open_input(&rawInput, path.c_str(), nullptr, nullptr), "cannot open " + path.string());
    InputContext input(rawInput);
    check(avformat_find_stream_info(input.get(), nullptr), "cannot read the tracks of " + path.string());
    if (trackIndex < 0 || static_cast<unsigned>(trackIndex) >= input->nb_streams ||
        input->streams[trackIndex]->codecpar->codec_type != type) {
        fail("no track of that type at that position");
    }
    const AVStream* stream = input->streams[trackIndex];
    const AVCodec* decoder = avcodec_find_decoder(stream->codecpar->codec_id);
    if (decoder == nullptr) {
        fail("no decoder for the track");
    }
    CodecContext codec(avcodec_alloc_context3(decoder));
    if (!codec) {
        fail("cannot allocate a decoder");
    }
    check(avcodec_parameters_to_context(codec.get(), stream->codecpar), "cannot set up the decoder");
    codec->thread_count = 1;
    codec->pkt_timebase = stream->time_base;
    check(avcodec_open2(codec.get(), decoder, nullptr), "cannot open the decoder");

    const auto frame = allocateFrame();
    const auto packet = allocatePacket();
    const auto drain = [&] {
        for (;;) {
            const int received = avcodec_receive_frame(codec.get(), frame.get());
            if (received == AVERROR(EAGAIN) || received == AVERROR_EOF) {
                return;
            }
            check(received, "cannot decode");
            use(*frame, stream->time_base);
            av_frame_unref(frame.get());
        }
    };
    while (av_read_frame(input.get(), packet.get()) >= 0) {
        if (packet->stream_index == trackIndex) {
            check(avcodec_send_packet(codec.get(), packet.get()), "cannot decode");
            drain();
        }
        av_packet_unref(packet.get());
    }
    check(avcodec_send_packet(codec.get(), nullptr), "cannot decode");
    drain();
}

} // namespace

std::vector<std::int64_t> readFrameNumbers(const std::filesystem::path& path, int trackIndex) {
    std::vector<std::int64_t> numbers;
    decodeTrack(path, trackIndex, AVMEDIA_TYPE_VIDEO, [&](const AVFrame& frame, AVRational) {
        numbers.push_back(
            frameNumberInPicture(frame.data[0], frame.linesize[0], frame.width, frame.height).value_or(-1));
    });
    return numbers;
}

std::vector<float> readAudioSamples(const std::filesystem::path& path, int trackIndex) {
    std::vector<float> samples;
    decodeTrack(path, trackIndex, AVMEDIA_TYPE_AUDIO, [&](const AVFrame& frame, AVRational timeBase) {
        const auto format = static_cast<AVSampleFormat>(frame.format);
        if (format != AV_SAMPLE_FMT_FLTP && format != AV_SAMPLE_FMT_FLT) {
            fail("audio samples are not floating point");
        }
        // Encoder priming that an edit list moves before time 0 still reaches
        // the decoder in a fragmented movie; it is dropped here.
        std::int64_t first = 0;
        if (frame.best_effort_timestamp != AV_NOPTS_VALUE) {
            const std::int64_t start =
                av_rescale_q(frame.best_effort_timestamp, timeBase, AVRational{1, frame.sample_rate});
            first = std::clamp<std::int64_t>(-start, 0, frame.nb_samples);
        }
        // Planar or not, the first channel's samples start the first plane;
        // interleaved ones come every channel count.
        const auto* data = reinterpret_cast<const float*>(frame.extended_data[0]);
        const int step = format == AV_SAMPLE_FMT_FLT ? frame.ch_layout.nb_channels : 1;
        for (auto i = static_cast<int>(first); i < frame.nb_samples; ++i) {
            samples.push_back(data[static_cast<std::ptrdiff_t>(i) * step]);
        }
    });
    return samples;
}

} // namespace rilo::testing

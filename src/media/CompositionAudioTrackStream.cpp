#include "media/CompositionAudioTrackStream.h"

#include "media/FFmpegHandles.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libavutil/mathematics.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace rilo {

namespace {

using ffmpeg::CodecContext;
using ffmpeg::Frame;
using ffmpeg::InputContext;
using ffmpeg::Packet;

struct FilterGraphDeleter {
    void operator()(AVFilterGraph* graph) const noexcept { avfilter_graph_free(&graph); }
};
struct FilterInOutDeleter {
    void operator()(AVFilterInOut* inOut) const noexcept { avfilter_inout_free(&inOut); }
};
struct AudioFifoDeleter {
    void operator()(AVAudioFifo* fifo) const noexcept { av_audio_fifo_free(fifo); }
};
using FilterGraph = std::unique_ptr<AVFilterGraph, FilterGraphDeleter>;
using FilterInOut = std::unique_ptr<AVFilterInOut, FilterInOutDeleter>;
using AudioFifo = std::unique_ptr<AVAudioFifo, AudioFifoDeleter>;

constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;
constexpr AVRational nanosecondTimeBase{1, nanosecondsPerSecond};
constexpr AVRational outputTimeBase{1, CompositionAudioTrackStream::sampleRate};
// Decoding starts this far before an insert so that the decoder has settled
// (overlapping transforms need the packet before) when the insert begins.
constexpr std::int64_t prerollNanoseconds = 100'000'000;
// One stage of pitch-keeping stretch blends samples up to this factor;
// faster rates are split over two stages.
constexpr double largestBlendingTempo = 2.0;

std::int64_t toOutputFrames(std::int64_t nanoseconds) {
    return av_rescale_rnd(nanoseconds, CompositionAudioTrackStream::sampleRate, nanosecondsPerSecond,
                          AV_ROUND_NEAR_INF);
}

std::string describeLayout(const AVChannelLayout& layout) {
    AVChannelLayout known{};
    if (layout.order == AV_CHANNEL_ORDER_UNSPEC || av_channel_layout_check(&layout) == 0) {
        av_channel_layout_default(&known, std::max(layout.nb_channels, 1));
    } else {
        av_channel_layout_copy(&known, &layout);
    }
    char text[128] = {};
    av_channel_layout_describe(&known, text, sizeof text);
    av_channel_layout_uninit(&known);
    return text;
}

std::string tempoFilters(TimelinePlaybackRate rate) {
    if (rate == TimelinePlaybackRate::normal()) {
        return "";
    }
    const double tempo = rate.multiplier();
    const int stages = tempo > largestBlendingTempo ? 2 : 1;
    const double stageTempo = stages == 2 ? std::sqrt(tempo) : tempo;
    std::string filters;
    for (int stage = 0; stage < stages; ++stage) {
        char text[64];
        std::snprintf(text, sizeof text, ",atempo=%.9f", stageTempo);
        filters += text;
    }
    return filters;
}

// An insert and the 48 kHz frames it fills on the sequence axis.
struct InsertFrames {
    std::int64_t sequenceStart = 0;
    std::int64_t sequenceEnd = 0;
    TimelineCompositionInsert insert;
};

} // namespace

namespace CompositionAudioFrames {

std::int64_t frameAt(ProjectTime sequenceTime) noexcept {
    return toOutputFrames(sequenceTime.nanoseconds);
}

} // namespace CompositionAudioFrames

class CompositionAudioTrackStream::Implementation {
public:
    Implementation(const std::filesystem::path& mediaPath, const TimelineCompositionTrack& track) {
        AVFormatContext* rawContext = nullptr;
        if (avformat_open_input(&rawContext, mediaPath.c_str(), nullptr, nullptr) < 0) {
            throw MediaProbeError::cannotOpen(mediaPath);
        }
        input_.reset(rawContext);
        if (avformat_find_stream_info(input_.get(), nullptr) < 0 || track.source.index < 0 ||
            static_cast<std::uint64_t>(track.source.index) >= input_->nb_streams) {
            throw MediaProbeError::cannotReadTracks(mediaPath);
        }
        streamIndex_ = static_cast<int>(track.source.index);
        for (unsigned index = 0; index < input_->nb_streams; ++index) {
            input_->streams[index]->discard =
                static_cast<int>(index) == streamIndex_ ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
        }
        const AVStream& stream = *input_->streams[streamIndex_];
        const AVCodec* decoder = avcodec_find_decoder(stream.codecpar->codec_id);
        decoder_.reset(decoder != nullptr ? avcodec_alloc_context3(decoder) : nullptr);
        if (!decoder_ || avcodec_parameters_to_context(decoder_.get(), stream.codecpar) < 0) {
            throw MediaProbeError::cannotReadTracks(mediaPath);
        }
        decoder_->thread_count = 1;
        decoder_->pkt_timebase = stream.time_base;
        if (avcodec_open2(decoder_.get(), decoder, nullptr) < 0) {
            throw MediaProbeError::cannotReadTracks(mediaPath);
        }
        packet_.reset(av_packet_alloc());
        decoded_.reset(av_frame_alloc());
        filtered_.reset(av_frame_alloc());
        fifo_.reset(av_audio_fifo_alloc(AV_SAMPLE_FMT_FLT, channelCount, 4096));
        if (!packet_ || !decoded_ || !filtered_ || !fifo_) {
            throw std::bad_alloc();
        }
        for (const auto& insert : track.inserts) {
            const std::int64_t start = toOutputFrames(insert.sequenceRange.start.nanoseconds);
            const std::int64_t end = toOutputFrames(insert.sequenceRange.end().nanoseconds);
            if (end > start) {
                inserts_.push_back({start, end, insert});
            }
        }
    }

    void render(float* out, std::int64_t frameCount) {
        while (frameCount > 0) {
            while (next_ < inserts_.size() && inserts_[next_].sequenceEnd <= position_) {
                closeInsert();
                ++next_;
            }
            std::int64_t count = frameCount;
            if (next_ == inserts_.size() || position_ < inserts_[next_].sequenceStart) {
                if (next_ < inserts_.size()) {
                    count = std::min(count, inserts_[next_].sequenceStart - position_);
                }
                std::fill_n(out, count * channelCount, 0.0F);
            } else {
                const InsertFrames& current = inserts_[next_];
                count = std::min(count, current.sequenceEnd - position_);
                if (!isOpen_) {
                    openInsert(current);
                }
                produce(current, out, count);
            }
            position_ += count;
            out += count * channelCount;
            frameCount -= count;
        }
    }

private:
    // Starts decoding a little before the insert. The graph is made with the
    // first decoded frame, whose format it must take.
    void openInsert(const InsertFrames& current) {
        isOpen_ = true;
        graph_.reset();
        source_ = nullptr;
        sink_ = nullptr;
        inputEnded_ = false;
        streamEnded_ = false;
        leadFrames_.reset();
        nextPts_ = AV_NOPTS_VALUE;
        firstPts_ = AV_NOPTS_VALUE;
        av_audio_fifo_reset(fifo_.get());

        const AVStream& stream = *input_->streams[streamIndex_];
        const std::int64_t seekNanoseconds =
            std::max<std::int64_t>(0, current.insert.sourceRange.start.nanoseconds - prerollNanoseconds);
        const std::int64_t target = av_rescale_q(seekNanoseconds, nanosecondTimeBase, stream.time_base);
        avcodec_flush_buffers(decoder_.get());
        if (av_seek_frame(input_.get(), streamIndex_, target, AVSEEK_FLAG_BACKWARD) < 0) {
            streamEnded_ = true;
        }
    }

    void closeInsert() {
        isOpen_ = false;
        graph_.reset();
        source_ = nullptr;
        sink_ = nullptr;
        av_audio_fifo_reset(fifo_.get());
    }

    // Fills count frames of the current insert: silence before the track's
    // first sample, then the stretched samples, then silence if they run out.
    // What the stretch gives beyond the insert's end is dropped with the
    // insert.
    void produce(const InsertFrames& current, float* out, std::int64_t count) {
        if (!leadFrames_) {
            while (firstPts_ == AV_NOPTS_VALUE && pull()) {
            }
            leadFrames_ = firstPts_ == AV_NOPTS_VALUE ? std::numeric_limits<std::int64_t>::max()
                                                      : leadFramesBefore(firstPts_, current.insert);
        }
        const std::int64_t silent = std::min(count, *leadFrames_);
        std::fill_n(out, silent * channelCount, 0.0F);
        *leadFrames_ -= silent;
        out += silent * channelCount;
        std::int64_t wanted = count - silent;
        while (wanted > 0) {
            if (av_audio_fifo_size(fifo_.get()) == 0 && !pull()) {
                std::fill_n(out, wanted * channelCount, 0.0F);
                return;
            }
            const int taken = av_audio_fifo_read(
                fifo_.get(), reinterpret_cast<void**>(&out),
                static_cast<int>(std::min<std::int64_t>(wanted, av_audio_fifo_size(fifo_.get()))));
            if (taken <= 0) {
                std::fill_n(out, wanted * channelCount, 0.0F);
                return;
            }
            out += static_cast<std::int64_t>(taken) * channelCount;
            wanted -= taken;
        }
    }

    // Where on the sequence axis the track's first sample of this insert
    // plays, when the track starts after the insert's source start.
    static std::int64_t leadFramesBefore(std::int64_t firstOutputPts,
                                         const TimelineCompositionInsert& insert) {
        const std::int64_t sourceLead = firstOutputPts - toOutputFrames(insert.sourceRange.start.nanoseconds);
        if (sourceLead <= 0) {
            return 0;
        }
        return av_rescale_rnd(sourceLead, 1000, insert.playbackRate.permille, AV_ROUND_NEAR_INF);
    }

    // Moves one filtered frame into the queue. False when this insert's
    // samples have ended (or the track's data did).
    bool pull() {
        while (true) {
            if (sink_ != nullptr) {
                const int status = av_buffersink_get_frame(sink_, filtered_.get());
                if (status >= 0) {
                    queue(*filtered_);
                    av_frame_unref(filtered_.get());
                    return true;
                }
                if (status != AVERROR(EAGAIN) || inputEnded_) {
                    return false;
                }
            } else if (inputEnded_) {
                return false;
            }
            if (!feed()) {
                return false;
            }
        }
    }

    void queue(AVFrame& frame) {
        if (firstPts_ == AV_NOPTS_VALUE && frame.pts != AV_NOPTS_VALUE) {
            firstPts_ = av_rescale_q(frame.pts, av_buffersink_get_time_base(sink_), outputTimeBase);
        }
        if (av_audio_fifo_write(fifo_.get(), reinterpret_cast<void**>(frame.extended_data),
                                frame.nb_samples) < frame.nb_samples) {
            throw std::bad_alloc();
        }
    }

    // Gives the graph one more decoded frame, or its end. False when nothing
    // more can be given.
    bool feed() {
        const InsertFrames& current = inserts_[next_];
        while (true) {
            const int status = avcodec_receive_frame(decoder_.get(), decoded_.get());
            if (status >= 0) {
                return accept(current);
            }
            if (status == AVERROR(EAGAIN) && !streamEnded_) {
                readPacket();
                continue;
            }
            // Drained, or the decoder gave up on damaged data: what was
            // decoded so far is all this insert gets.
            return endInput();
        }
    }

    void readPacket() {
        while (true) {
            if (av_read_frame(input_.get(), packet_.get()) < 0) {
                streamEnded_ = true;
                avcodec_send_packet(decoder_.get(), nullptr);
                return;
            }
            const bool ours = packet_->stream_index == streamIndex_;
            if (ours) {
                // A packet the decoder refuses is skipped like a damaged one.
                avcodec_send_packet(decoder_.get(), packet_.get());
            }
            av_packet_unref(packet_.get());
            if (ours) {
                return;
            }
        }
    }

    bool accept(const InsertFrames& current) {
        AVFrame& frame = *decoded_;
        const AVRational timeBase = input_->streams[streamIndex_]->time_base;
        std::int64_t pts =
            frame.best_effort_timestamp != AV_NOPTS_VALUE ? frame.best_effort_timestamp : nextPts_;
        if (pts == AV_NOPTS_VALUE) {
            pts = 0;
        }
        frame.pts = pts;
        if (frame.sample_rate > 0) {
            nextPts_ = pts + av_rescale_q(frame.nb_samples, AVRational{1, frame.sample_rate}, timeBase);
        }
        const std::int64_t startNanoseconds = av_rescale_q(pts, timeBase, nanosecondTimeBase);
        if (startNanoseconds >= current.insert.sourceRange.end().nanoseconds) {
            av_frame_unref(&frame);
            return endInput();
        }
        if (!graph_ && !makeGraph(frame, current.insert)) {
            // A format the filters cannot take: this insert stays silent.
            av_frame_unref(&frame);
            graph_.reset();
            source_ = nullptr;
            sink_ = nullptr;
            streamEnded_ = true;
            return endInput();
        }
        const int status = av_buffersrc_add_frame(source_, &frame);
        av_frame_unref(&frame);
        return status >= 0 || endInput();
    }

    bool endInput() {
        if (inputEnded_) {
            return false;
        }
        inputEnded_ = true;
        if (source_ == nullptr) {
            return false;
        }
        return av_buffersrc_add_frame(source_, nullptr) >= 0;
    }

    // decoded samples -> 48 kHz float stereo -> the insert's source range ->
    // the pitch-keeping stretch of its rate.
    bool makeGraph(const AVFrame& frame, const TimelineCompositionInsert& insert) {
        graph_.reset(avfilter_graph_alloc());
        if (!graph_) {
            return false;
        }
        graph_->nb_threads = 1;
        const AVRational timeBase = input_->streams[streamIndex_]->time_base;
        const char* formatName = av_get_sample_fmt_name(static_cast<AVSampleFormat>(frame.format));
        if (formatName == nullptr || frame.sample_rate <= 0) {
            return false;
        }
        const std::string sourceArguments =
            "time_base=" + std::to_string(timeBase.num) + "/" + std::to_string(timeBase.den) +
            ":sample_rate=" + std::to_string(frame.sample_rate) + ":sample_fmt=" + formatName +
            ":channel_layout=" + describeLayout(frame.ch_layout);
        if (avfilter_graph_create_filter(&source_, avfilter_get_by_name("abuffer"), "in",
                                         sourceArguments.c_str(), nullptr, graph_.get()) < 0 ||
            avfilter_graph_create_filter(&sink_, avfilter_get_by_name("abuffersink"), "out", nullptr, nullptr,
                                         graph_.get()) < 0) {
            return false;
        }
        const std::string chain =
            "aresample=" + std::to_string(sampleRate) +
            ",aformat=sample_fmts=flt:sample_rates=" + std::to_string(sampleRate) +
            ":channel_layouts=stereo,atrim=start_pts=" +
            std::to_string(toOutputFrames(insert.sourceRange.start.nanoseconds)) +
            ":end_pts=" + std::to_string(toOutputFrames(insert.sourceRange.end().nanoseconds)) +
            tempoFilters(insert.playbackRate);

        FilterInOut outputs(avfilter_inout_alloc());
        FilterInOut inputs(avfilter_inout_alloc());
        if (!outputs || !inputs) {
            return false;
        }
        outputs->name = av_strdup("in");
        outputs->filter_ctx = source_;
        inputs->name = av_strdup("out");
        inputs->filter_ctx = sink_;
        AVFilterInOut* rawInputs = inputs.release();
        AVFilterInOut* rawOutputs = outputs.release();
        const int parsed =
            avfilter_graph_parse_ptr(graph_.get(), chain.c_str(), &rawInputs, &rawOutputs, nullptr);
        avfilter_inout_free(&rawInputs);
        avfilter_inout_free(&rawOutputs);
        return parsed >= 0 && avfilter_graph_config(graph_.get(), nullptr) >= 0;
    }

    InputContext input_;
    CodecContext decoder_;
    Packet packet_;
    Frame decoded_;
    Frame filtered_;
    AudioFifo fifo_;
    int streamIndex_ = 0;
    std::vector<InsertFrames> inserts_;

    std::int64_t position_ = 0;
    std::size_t next_ = 0;

    // The insert being played.
    bool isOpen_ = false;
    FilterGraph graph_;
    AVFilterContext* source_ = nullptr;
    AVFilterContext* sink_ = nullptr;
    bool inputEnded_ = false;
    bool streamEnded_ = false;
    std::int64_t nextPts_ = AV_NOPTS_VALUE;
    std::int64_t firstPts_ = AV_NOPTS_VALUE;
    std::optional<std::int64_t> leadFrames_;
};

CompositionAudioTrackStream::CompositionAudioTrackStream(const std::filesystem::path& mediaPath,
                                                         const TimelineCompositionTrack& track)
    : implementation_(std::make_unique<Implementation>(mediaPath, track)) {}

CompositionAudioTrackStream::~CompositionAudioTrackStream() = default;
CompositionAudioTrackStream::CompositionAudioTrackStream(CompositionAudioTrackStream&&) noexcept = default;
CompositionAudioTrackStream&
CompositionAudioTrackStream::operator=(CompositionAudioTrackStream&&) noexcept = default;

void CompositionAudioTrackStream::render(float* out, std::int64_t frameCount) {
    implementation_->render(out, frameCount);
}

} // namespace rilo

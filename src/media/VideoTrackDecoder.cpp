#include "media/VideoTrackDecoder.h"

#include "media/FFmpegHandles.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <limits>
#include <utility>

namespace rilo {

namespace {

constexpr AVRational nanosecondTimeBase{1, 1'000'000'000};
// A request further ahead than this seeks rather than decoding through.
constexpr std::int64_t forwardDecodeLimitNanoseconds = 1'000'000'000;

struct ScalerDeleter {
    void operator()(SwsContext* context) const noexcept { sws_freeContext(context); }
};
using Scaler = std::unique_ptr<SwsContext, ScalerDeleter>;

// Frame times round down: a frame at i/fps then never lies after the
// whole-nanosecond time i * 1e9 / fps (truncated) that asks for it.
ProjectTime toProjectTime(std::int64_t timestamp, AVRational timeBase) {
    return ProjectTime{av_rescale_q_rnd(timestamp, timeBase, nanosecondTimeBase,
                                        static_cast<AVRounding>(AV_ROUND_DOWN | AV_ROUND_PASS_MINMAX))};
}

std::int64_t toTimestamp(ProjectTime time, AVRational timeBase) {
    return av_rescale_q_rnd(time.nanoseconds, nanosecondTimeBase, timeBase,
                            static_cast<AVRounding>(AV_ROUND_DOWN | AV_ROUND_PASS_MINMAX));
}

bool keepsDecodedLayout(int format) {
    return format == AV_PIX_FMT_YUV420P || format == AV_PIX_FMT_YUVJ420P || format == AV_PIX_FMT_NV12;
}

bool isBt709(const AVFrame& frame) {
    switch (frame.colorspace) {
    case AVCOL_SPC_BT709:
        return true;
    case AVCOL_SPC_BT470BG:
    case AVCOL_SPC_SMPTE170M:
    case AVCOL_SPC_SMPTE240M:
    case AVCOL_SPC_FCC:
        return false;
    default:
        // Untagged pictures follow the usual convention: HD sizes are BT.709.
        return frame.height >= 720;
    }
}

bool isFullRange(const AVFrame& frame) {
    return frame.color_range == AVCOL_RANGE_JPEG || frame.format == AV_PIX_FMT_YUVJ420P;
}

[[noreturn]] void fail(VideoTrackDecoderErrorCase errorCase) {
    throw VideoTrackDecoderError(errorCase);
}

} // namespace

void DecodedVideoFrame::FrameDeleter::operator()(AVFrame* frame) const noexcept {
    av_frame_free(&frame);
}

DecodedVideoFrame::DecodedVideoFrame()
    : frame_(av_frame_alloc()) {
    if (!frame_) {
        throw std::bad_alloc();
    }
}

DecodedVideoFrame::~DecodedVideoFrame() = default;

std::shared_ptr<const DecodedVideoFrame> DecodedVideoFrame::share() const {
    auto copy = std::make_shared<DecodedVideoFrame>();
    if (av_frame_ref(copy->frame_.get(), frame_.get()) < 0) {
        throw std::bad_alloc();
    }
    copy->presentationTime_ = presentationTime_;
    return copy;
}

VideoFramePlanes DecodedVideoFrame::planes() const noexcept {
    const AVFrame& frame = *frame_;
    VideoFramePlanes planes;
    planes.layout = frame.format == AV_PIX_FMT_NV12 ? VideoPixelLayout::nv12 : VideoPixelLayout::yuv420p;
    planes.matrix = isBt709(frame) ? VideoColorMatrix::bt709 : VideoColorMatrix::bt601;
    planes.fullRange = isFullRange(frame);
    planes.width = frame.width;
    planes.height = frame.height;
    const int planeCount = planes.layout == VideoPixelLayout::nv12 ? 2 : 3;
    for (int plane = 0; plane < planeCount; ++plane) {
        planes.data[plane] = frame.data[plane];
        planes.strides[plane] = frame.linesize[plane];
    }
    return planes;
}

class VideoTrackDecoder::State {
public:
    State(std::filesystem::path path, std::int64_t streamIndex)
        : path_(std::move(path))
        , streamIndex_(streamIndex) {
        if (!packet_ || !received_) {
            throw std::bad_alloc();
        }
        open();
        advance(ProjectTime{std::numeric_limits<std::int64_t>::min()});
        if (!hasCurrent_) {
            fail(VideoTrackDecoderErrorCase::noDecodableFrame);
        }
    }

    const DecodedVideoFrame* frameAt(ProjectTime time) {
        if (!hasCurrent_) {
            // An earlier call failed part way.
            open();
        } else if (time < current_.presentationTime_) {
            if (currentIsFirst_) {
                return &current_;
            }
            reposition(time);
        } else if (hasPending_ && time < pending_.presentationTime_) {
            return &current_;
        } else if (ended_) {
            return &current_;
        } else {
            const ProjectTime position =
                hasPending_ ? pending_.presentationTime_ : current_.presentationTime_;
            if (time.nanoseconds - position.nanoseconds > forwardDecodeLimitNanoseconds &&
                keyframeLiesAfter(position, time)) {
                reposition(time);
            }
        }
        advance(time);
        if (!hasCurrent_) {
            // Nothing decodes after the seek (a damaged stretch the index
            // still lists): read from the start and keep what decodes.
            open();
            advance(time);
            if (!hasCurrent_) {
                fail(VideoTrackDecoderErrorCase::noDecodableFrame);
            }
        }
        return &current_;
    }

private:
    // Opens the file afresh, positioned at its start.
    void open() {
        codec_.reset();
        input_.reset();
        dropFrames();
        AVFormatContext* rawInput = nullptr;
        if (avformat_open_input(&rawInput, path_.c_str(), nullptr, nullptr) < 0) {
            fail(VideoTrackDecoderErrorCase::cannotOpenTrack);
        }
        input_.reset(rawInput);
        if (streamIndex_ < 0 || streamIndex_ >= static_cast<std::int64_t>(input_->nb_streams)) {
            fail(VideoTrackDecoderErrorCase::cannotOpenTrack);
        }
        stream_ = input_->streams[streamIndex_];
        if (stream_->codecpar->codec_type != AVMEDIA_TYPE_VIDEO) {
            fail(VideoTrackDecoderErrorCase::cannotOpenTrack);
        }
        if (stream_->codecpar->width <= 0 && avformat_find_stream_info(input_.get(), nullptr) < 0) {
            fail(VideoTrackDecoderErrorCase::cannotOpenTrack);
        }
        // The demuxer skips the packets of every other track.
        for (unsigned index = 0; index < input_->nb_streams; ++index) {
            input_->streams[index]->discard =
                static_cast<std::int64_t>(index) == streamIndex_ ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
        }

        const AVCodec* decoder = avcodec_find_decoder(stream_->codecpar->codec_id);
        if (decoder == nullptr) {
            fail(VideoTrackDecoderErrorCase::cannotOpenTrack);
        }
        codec_.reset(avcodec_alloc_context3(decoder));
        if (!codec_ || avcodec_parameters_to_context(codec_.get(), stream_->codecpar) < 0) {
            fail(VideoTrackDecoderErrorCase::cannotOpenTrack);
        }
        codec_->pkt_timebase = stream_->time_base;
        codec_->thread_count = 0;
        codec_->thread_type = FF_THREAD_FRAME | FF_THREAD_SLICE;
        if (avcodec_open2(codec_.get(), decoder, nullptr) < 0) {
            fail(VideoTrackDecoderErrorCase::cannotOpenTrack);
        }
    }

    void dropFrames() {
        hasCurrent_ = false;
        hasPending_ = false;
        currentIsFirst_ = false;
        ended_ = false;
        inputEnded_ = false;
    }

    // Whether seeking towards `time` gets past `position`: true when the
    // keyframe at or before `time` comes later, or the index does not tell.
    bool keyframeLiesAfter(ProjectTime position, ProjectTime time) const {
        const int entry =
            av_index_search_timestamp(stream_, toTimestamp(time, stream_->time_base), AVSEEK_FLAG_BACKWARD);
        const AVIndexEntry* keyframe = entry < 0 ? nullptr : avformat_index_get_entry(stream_, entry);
        return keyframe == nullptr || toProjectTime(keyframe->timestamp, stream_->time_base) > position;
    }

    // Moves to the keyframe at or before `time`, or to the start of the file
    // when the demuxer cannot seek there.
    void reposition(ProjectTime time) {
        dropFrames();
        const std::int64_t timestamp = toTimestamp(time, stream_->time_base);
        if (av_seek_frame(input_.get(), static_cast<int>(streamIndex_), timestamp, AVSEEK_FLAG_BACKWARD) <
            0) {
            open();
            return;
        }
        avcodec_flush_buffers(codec_.get());
    }

    // Decodes until the next frame lies after `time`. The first frame
    // decoded after an open or a seek answers even when it lies after
    // `time`: no keyframe comes before it.
    void advance(ProjectTime time) {
        for (;;) {
            if (!hasPending_) {
                if (ended_ || !decodeInto(pending_)) {
                    ended_ = true;
                    return;
                }
                hasPending_ = true;
            }
            if (pending_.presentationTime_ > time && hasCurrent_) {
                return;
            }
            std::swap(current_.frame_, pending_.frame_);
            std::swap(current_.presentationTime_, pending_.presentationTime_);
            currentIsFirst_ = !hasCurrent_ && current_.presentationTime_ > time;
            hasCurrent_ = true;
            hasPending_ = false;
            if (currentIsFirst_) {
                return;
            }
        }
    }

    // The next frame in presentation order; false at the end of the stream,
    // or at a packet the decoder refuses.
    bool decodeInto(DecodedVideoFrame& target) {
        for (;;) {
            const int received = avcodec_receive_frame(codec_.get(), received_.get());
            if (received == 0) {
                store(target);
                return true;
            }
            if (received != AVERROR(EAGAIN) || inputEnded_) {
                return false;
            }
            if (av_read_frame(input_.get(), packet_.get()) < 0) {
                // End of file, or a file cut short: drain what is decoded.
                inputEnded_ = true;
                avcodec_send_packet(codec_.get(), nullptr);
                continue;
            }
            if (packet_->stream_index != streamIndex_) {
                av_packet_unref(packet_.get());
                continue;
            }
            const int sent = avcodec_send_packet(codec_.get(), packet_.get());
            av_packet_unref(packet_.get());
            if (sent < 0 && sent != AVERROR(EAGAIN)) {
                return false;
            }
        }
    }

    void store(DecodedVideoFrame& target) {
        AVFrame& source = *received_;
        const std::int64_t timestamp = source.best_effort_timestamp;
        const ProjectTime time = timestamp == AV_NOPTS_VALUE
                                     ? (hasCurrent_ ? current_.presentationTime_ : ProjectTime::zero())
                                     : toProjectTime(timestamp, stream_->time_base);
        if (keepsDecodedLayout(source.format)) {
            av_frame_unref(target.frame_.get());
            av_frame_move_ref(target.frame_.get(), &source);
        } else {
            convert(source, *target.frame_);
            av_frame_unref(&source);
        }
        target.presentationTime_ = time;
    }

    // Any other layout (4:2:2, 4:4:4, 10-bit, RGB) becomes 8-bit yuv420p.
    // YUV keeps its matrix and range; RGB becomes limited-range BT.709.
    void convert(const AVFrame& source, AVFrame& target) {
        if (target.format != AV_PIX_FMT_YUV420P || target.width != source.width ||
            target.height != source.height || av_frame_is_writable(&target) == 0) {
            av_frame_unref(&target);
            target.format = AV_PIX_FMT_YUV420P;
            target.width = source.width;
            target.height = source.height;
            if (av_frame_get_buffer(&target, 0) < 0) {
                throw std::bad_alloc();
            }
        }
        const auto sourceFormat = static_cast<AVPixelFormat>(source.format);
        scaler_.reset(sws_getCachedContext(scaler_.release(), source.width, source.height, sourceFormat,
                                           source.width, source.height, AV_PIX_FMT_YUV420P, SWS_BILINEAR,
                                           nullptr, nullptr, nullptr));
        if (!scaler_) {
            fail(VideoTrackDecoderErrorCase::cannotOpenTrack);
        }
        const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(sourceFormat);
        const bool sourceIsRgb = descriptor != nullptr && (descriptor->flags & AV_PIX_FMT_FLAG_RGB) != 0;
        const bool bt709 = sourceIsRgb || isBt709(source);
        const bool fullRange = !sourceIsRgb && isFullRange(source);
        const int* coefficients = sws_getCoefficients(bt709 ? SWS_CS_ITU709 : SWS_CS_ITU601);
        sws_setColorspaceDetails(scaler_.get(), coefficients, sourceIsRgb ? 1 : (fullRange ? 1 : 0),
                                 coefficients, fullRange ? 1 : 0, 0, 1 << 16, 1 << 16);
        sws_scale(scaler_.get(), source.data, source.linesize, 0, source.height, target.data,
                  target.linesize);
        av_frame_copy_props(&target, &source);
        target.colorspace = bt709 ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M;
        target.color_range = fullRange ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    }

    std::filesystem::path path_;
    std::int64_t streamIndex_;
    ffmpeg::InputContext input_;
    ffmpeg::CodecContext codec_;
    AVStream* stream_ = nullptr;
    ffmpeg::Packet packet_{av_packet_alloc()};
    ffmpeg::Frame received_{av_frame_alloc()};
    Scaler scaler_;
    // The answer so far, and the frame decoded after it (when there is one).
    DecodedVideoFrame current_;
    DecodedVideoFrame pending_;
    bool hasCurrent_ = false;
    bool hasPending_ = false;
    // The current frame is the track's first: it answers every earlier time.
    bool currentIsFirst_ = false;
    // The decoder has given its last frame.
    bool ended_ = false;
    // The demuxer has no more packets; the decoder is being drained.
    bool inputEnded_ = false;
};

VideoTrackDecoder::VideoTrackDecoder(const std::filesystem::path& path, std::int64_t streamIndex)
    : state_(std::make_unique<State>(path, streamIndex)) {}

VideoTrackDecoder::~VideoTrackDecoder() = default;

const DecodedVideoFrame* VideoTrackDecoder::frameAt(ProjectTime sourceTime) {
    return state_->frameAt(sourceTime);
}

} // namespace rilo

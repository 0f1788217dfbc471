#include "capture/webcam/WebcamInput.h"

extern "C" {
#include <libavdevice/avdevice.h>
#include <libavutil/dict.h>
#include <libavutil/error.h>
#include <libavutil/mathematics.h>
}

#include <cstdint>
#include <mutex>

namespace rilo::webcam {
namespace {

// Device inputs (video4linux2, lavfi) are known to libavformat only after
// this has run once in the process.
void registerDeviceInputs() {
    static std::once_flag registered;
    std::call_once(registered, [] { avdevice_register_all(); });
}

std::string errorText(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

[[noreturn]] void fail(int code, const std::string& what) {
    throw WebcamInputError(code, what + ": " + errorText(code));
}

// The options handed to avformat_open_input, which leaves in it what it did not use.
struct OptionDictionary {
    AVDictionary* entries = nullptr;

    OptionDictionary() = default;
    OptionDictionary(const OptionDictionary&) = delete;
    OptionDictionary& operator=(const OptionDictionary&) = delete;
    ~OptionDictionary() { av_dict_free(&entries); }
};

struct PacketReference {
    AVPacket* packet;
    ~PacketReference() { av_packet_unref(packet); }
};

} // namespace

WebcamInputError::WebcamInputError(int code, const std::string& what)
    : std::runtime_error(what)
    , code_(code) {}

WebcamInput::WebcamInput(const WebcamInputRequest& request) {
    registerDeviceInputs();

    const AVInputFormat* inputFormat = nullptr;
    if (!request.formatName.empty()) {
        inputFormat = av_find_input_format(request.formatName.c_str());
        if (inputFormat == nullptr) {
            fail(AVERROR_DEMUXER_NOT_FOUND, request.formatName);
        }
    }
    OptionDictionary options;
    for (const auto& [key, value] : request.options) {
        av_dict_set(&options.entries, key.c_str(), value.c_str(), 0);
    }
    AVFormatContext* context = avformat_alloc_context();
    if (context == nullptr) {
        fail(AVERROR(ENOMEM), request.url);
    }
    if (request.nonBlocking) {
        context->flags |= AVFMT_FLAG_NONBLOCK;
    }
    // On failure avformat_open_input frees the context itself.
    if (const int result = avformat_open_input(&context, request.url.c_str(), inputFormat, &options.entries);
        result < 0) {
        fail(result, request.url);
    }
    format_.reset(context);
    if (request.probesStreams) {
        if (const int result = avformat_find_stream_info(format_.get(), nullptr); result < 0) {
            fail(result, request.url);
        }
    }

    const AVCodec* codec = nullptr;
    streamIndex_ = av_find_best_stream(format_.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    if (streamIndex_ < 0) {
        fail(streamIndex_, request.url);
    }
    decoder_.reset(avcodec_alloc_context3(codec));
    if (!decoder_) {
        fail(AVERROR(ENOMEM), request.url);
    }
    const AVStream* stream = format_->streams[streamIndex_];
    if (const int result = avcodec_parameters_to_context(decoder_.get(), stream->codecpar); result < 0) {
        fail(result, request.url);
    }
    decoder_->pkt_timebase = stream->time_base;
    // Slice threads add no delay; frame threads would hold pictures back.
    decoder_->thread_type = FF_THREAD_SLICE;
    decoder_->thread_count = 0;
    if (const int result = avcodec_open2(decoder_.get(), codec, nullptr); result < 0) {
        fail(result, request.url);
    }
    packet_.reset(av_packet_alloc());
    if (!packet_) {
        fail(AVERROR(ENOMEM), request.url);
    }
}

int WebcamInput::width() const noexcept {
    return format_->streams[streamIndex_]->codecpar->width;
}

int WebcamInput::height() const noexcept {
    return format_->streams[streamIndex_]->codecpar->height;
}

std::optional<double> WebcamInput::framesPerSecond() const noexcept {
    const AVRational rate = av_guess_frame_rate(format_.get(), format_->streams[streamIndex_], nullptr);
    if (rate.num <= 0 || rate.den <= 0) {
        return std::nullopt;
    }
    return av_q2d(rate);
}

WebcamInput::ReadResult WebcamInput::read(AVFrame& picture) {
    for (;;) {
        const int received = avcodec_receive_frame(decoder_.get(), &picture);
        if (received == 0) {
            return ReadResult::picture;
        }
        if (received == AVERROR_EOF) {
            return ReadResult::endOfStream;
        }
        if (received != AVERROR(EAGAIN) && received != AVERROR_INVALIDDATA) {
            fail(received, "decode");
        }
        if (demuxerEnded_) {
            // The decoder was told that the stream ended: it has nothing
            // more to give, or it skipped a damaged picture and has more.
            if (received == AVERROR(EAGAIN)) {
                return ReadResult::endOfStream;
            }
            continue;
        }

        const int result = av_read_frame(format_.get(), packet_.get());
        if (result == AVERROR(EAGAIN)) {
            return ReadResult::notYet;
        }
        if (result == AVERROR_EOF) {
            demuxerEnded_ = true;
            avcodec_send_packet(decoder_.get(), nullptr);
            continue;
        }
        if (result < 0) {
            fail(result, "read");
        }
        const PacketReference reference{packet_.get()};
        if (packet_->stream_index != streamIndex_) {
            continue;
        }
        // A damaged picture (a camera's broken JPEG, say) is skipped.
        if (const int sent = avcodec_send_packet(decoder_.get(), packet_.get());
            sent < 0 && sent != AVERROR_INVALIDDATA) {
            fail(sent, "decode");
        }
    }
}

std::optional<std::int64_t> WebcamInput::presentationNanoseconds(const AVFrame& picture) const noexcept {
    const std::int64_t timestamp =
        picture.best_effort_timestamp != AV_NOPTS_VALUE ? picture.best_effort_timestamp : picture.pts;
    if (timestamp == AV_NOPTS_VALUE) {
        return std::nullopt;
    }
    return av_rescale_q(timestamp, format_->streams[streamIndex_]->time_base, AVRational{1, 1'000'000'000});
}

void WebcamInput::rewind() {
    const std::int64_t start = format_->start_time != AV_NOPTS_VALUE ? format_->start_time : 0;
    if (const int result = avformat_seek_file(format_.get(), -1, INT64_MIN, start, start, 0); result < 0) {
        fail(result, "seek");
    }
    avcodec_flush_buffers(decoder_.get());
    demuxerEnded_ = false;
}

} // namespace rilo::webcam

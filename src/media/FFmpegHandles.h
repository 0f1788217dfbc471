#pragma once

// Owning handles for FFmpeg's C objects, so that every exit path frees them.

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/error.h>
#include <libavutil/frame.h>
#include <libswscale/swscale.h>
}

#include <memory>
#include <string>

namespace rilo::ffmpeg {

struct InputContextDeleter {
    void operator()(AVFormatContext* context) const noexcept { avformat_close_input(&context); }
};
struct CodecContextDeleter {
    void operator()(AVCodecContext* context) const noexcept { avcodec_free_context(&context); }
};
struct FrameDeleter {
    void operator()(AVFrame* frame) const noexcept { av_frame_free(&frame); }
};
struct PacketDeleter {
    void operator()(AVPacket* packet) const noexcept { av_packet_free(&packet); }
};

// A demuxer opened with avformat_open_input.
using InputContext = std::unique_ptr<AVFormatContext, InputContextDeleter>;
using CodecContext = std::unique_ptr<AVCodecContext, CodecContextDeleter>;
using Frame = std::unique_ptr<AVFrame, FrameDeleter>;
using Packet = std::unique_ptr<AVPacket, PacketDeleter>;

// A muxer made with avformat_alloc_output_context2, with its file closed.
struct OutputContextDeleter {
    void operator()(AVFormatContext* context) const noexcept {
        if (context->pb != nullptr) {
            avio_closep(&context->pb);
        }
        avformat_free_context(context);
    }
};
using OutputContext = std::unique_ptr<AVFormatContext, OutputContextDeleter>;

struct ScalerDeleter {
    void operator()(SwsContext* context) const noexcept { sws_freeContext(context); }
};
using Scaler = std::unique_ptr<SwsContext, ScalerDeleter>;

// Options handed to FFmpeg, which takes out what it uses.
class Options {
public:
    Options() = default;
    Options(const Options&) = delete;
    Options& operator=(const Options&) = delete;
    ~Options() { av_dict_free(&dictionary_); }

    void set(const char* key, const std::string& value) { av_dict_set(&dictionary_, key, value.c_str(), 0); }
    AVDictionary** get() noexcept { return &dictionary_; }

private:
    AVDictionary* dictionary_ = nullptr;
};

// FFmpeg's text for an error code.
inline std::string errorText(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

} // namespace rilo::ffmpeg

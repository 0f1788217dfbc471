#include "media/JpegCodec.h"

#include "media/FFmpegHandles.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cmath>
#include <memory>

namespace rilo {

namespace {

const std::string encodingFailure = "无法编码JPEG图像。";

struct ScaleContextDeleter {
    void operator()(SwsContext* context) const noexcept { sws_freeContext(context); }
};

} // namespace

std::string encodeJpeg(int width, int height, std::span<const std::uint8_t> rgba, double quality) {
    if (width <= 0 || height <= 0 ||
        rgba.size() != static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4) {
        throw JpegCodecError(encodingFailure);
    }
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
    ffmpeg::CodecContext context(codec != nullptr ? avcodec_alloc_context3(codec) : nullptr);
    ffmpeg::Frame frame(av_frame_alloc());
    ffmpeg::Packet packet(av_packet_alloc());
    if (!context || !frame || !packet) {
        throw JpegCodecError(encodingFailure);
    }
    context->width = width;
    context->height = height;
    context->time_base = AVRational{1, 1};
    // Full-range 4:2:0, the usual form of a JPEG file.
    context->pix_fmt = AV_PIX_FMT_YUVJ420P;
    context->color_range = AVCOL_RANGE_JPEG;
    context->thread_count = 1;
    // The encoder's scale runs from 1 (best) to 31; quality 1 maps to 1.
    const double clamped = std::clamp(std::isfinite(quality) ? quality : 0.9, 0.0, 1.0);
    const int scale = 1 + static_cast<int>(std::lround((1 - clamped) * 30));
    context->flags |= AV_CODEC_FLAG_QSCALE;
    context->global_quality = FF_QP2LAMBDA * scale;
    if (avcodec_open2(context.get(), codec, nullptr) < 0) {
        throw JpegCodecError(encodingFailure);
    }
    frame->format = AV_PIX_FMT_YUVJ420P;
    frame->width = width;
    frame->height = height;
    frame->quality = context->global_quality;
    if (av_frame_get_buffer(frame.get(), 0) < 0) {
        throw JpegCodecError(encodingFailure);
    }
    std::unique_ptr<SwsContext, ScaleContextDeleter> scaler(
        sws_getContext(width, height, AV_PIX_FMT_RGBA, width, height, AV_PIX_FMT_YUVJ420P, SWS_BICUBIC,
                       nullptr, nullptr, nullptr));
    if (!scaler) {
        throw JpegCodecError(encodingFailure);
    }
    const std::uint8_t* source[1] = {rgba.data()};
    const int sourceStride[1] = {width * 4};
    sws_scale(scaler.get(), source, sourceStride, 0, height, frame->data, frame->linesize);

    if (avcodec_send_frame(context.get(), frame.get()) < 0 ||
        avcodec_send_frame(context.get(), nullptr) < 0) {
        throw JpegCodecError(encodingFailure);
    }
    std::string bytes;
    for (;;) {
        const int received = avcodec_receive_packet(context.get(), packet.get());
        if (received == AVERROR_EOF) {
            break;
        }
        if (received < 0) {
            throw JpegCodecError(encodingFailure);
        }
        bytes.append(reinterpret_cast<const char*>(packet->data), static_cast<std::size_t>(packet->size));
        av_packet_unref(packet.get());
    }
    if (bytes.empty()) {
        throw JpegCodecError(encodingFailure);
    }
    return bytes;
}

} // namespace rilo

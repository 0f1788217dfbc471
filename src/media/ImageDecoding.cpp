#include "media/ImageDecoding.h"

#include "media/FFmpegHandles.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libswscale/swscale.h>
}

#include <climits>
#include <cstring>
#include <memory>

namespace rilo {

namespace {

struct ScaleContextDeleter {
    void operator()(SwsContext* context) const noexcept { sws_freeContext(context); }
};

bool startsWith(std::string_view bytes, std::string_view signature) {
    return bytes.size() >= signature.size() && bytes.substr(0, signature.size()) == signature;
}

RgbaImage decodeJpeg(std::string_view bytes) {
    if (bytes.size() > static_cast<std::size_t>(INT_MAX - AV_INPUT_BUFFER_PADDING_SIZE)) {
        throw ImageDecodingError();
    }
    const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_MJPEG);
    ffmpeg::CodecContext context(codec != nullptr ? avcodec_alloc_context3(codec) : nullptr);
    if (!context) {
        throw ImageDecodingError();
    }
    context->thread_count = 1;
    const ffmpeg::Packet packet(av_packet_alloc());
    const ffmpeg::Frame frame(av_frame_alloc());
    if (avcodec_open2(context.get(), codec, nullptr) < 0 || !packet || !frame ||
        av_new_packet(packet.get(), static_cast<int>(bytes.size())) < 0) {
        throw ImageDecodingError();
    }
    std::memcpy(packet->data, bytes.data(), bytes.size());
    if (avcodec_send_packet(context.get(), packet.get()) < 0 ||
        avcodec_send_packet(context.get(), nullptr) < 0 ||
        avcodec_receive_frame(context.get(), frame.get()) < 0 || frame->width <= 0 || frame->height <= 0) {
        throw ImageDecodingError();
    }
    const std::unique_ptr<SwsContext, ScaleContextDeleter> scaler(
        sws_getContext(frame->width, frame->height, static_cast<AVPixelFormat>(frame->format), frame->width,
                       frame->height, AV_PIX_FMT_RGBA, SWS_BICUBIC, nullptr, nullptr, nullptr));
    if (!scaler) {
        throw ImageDecodingError();
    }
    RgbaImage image{frame->width, frame->height, {}};
    image.pixels.resize(static_cast<std::size_t>(image.width) * static_cast<std::size_t>(image.height) * 4);
    std::uint8_t* destination[4] = {image.pixels.data(), nullptr, nullptr, nullptr};
    const int destinationStrides[4] = {image.width * 4, 0, 0, 0};
    if (sws_scale(scaler.get(), frame->data, frame->linesize, 0, frame->height, destination,
                  destinationStrides) != frame->height) {
        throw ImageDecodingError();
    }
    return image;
}

} // namespace

RgbaImage decodeImage(std::string_view bytes) {
    if (startsWith(bytes, "\x89PNG")) {
        try {
            return decodePng(bytes);
        } catch (const PngCodecError&) {
            throw ImageDecodingError();
        }
    }
    if (startsWith(bytes, "\xFF\xD8\xFF")) {
        return decodeJpeg(bytes);
    }
    throw ImageDecodingError();
}

} // namespace rilo

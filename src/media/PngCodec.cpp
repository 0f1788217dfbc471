#include "media/PngCodec.h"

#include "media/FFmpegHandles.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
}

#include <climits>
#include <cstring>
#include <memory>

namespace rilo {

namespace {

const std::string encodingFailure = "无法编码PNG图像。";
const std::string decodingFailure = "无法解码PNG图像。";

using ffmpeg::CodecContext;
using ffmpeg::Frame;
using ffmpeg::Packet;

// A context for the PNG encoder or decoder on one thread; `configure` sets
// what must be known before the codec opens.
template <class Configure>
CodecContext openCodec(const AVCodec* codec, const std::string& failure, Configure configure) {
    if (codec == nullptr) {
        throw PngCodecError(failure);
    }
    CodecContext context(avcodec_alloc_context3(codec));
    if (!context) {
        throw PngCodecError(failure);
    }
    context->thread_count = 1;
    configure(*context);
    if (avcodec_open2(context.get(), codec, nullptr) < 0) {
        throw PngCodecError(failure);
    }
    return context;
}

Frame allocateFrame(const std::string& failure) {
    Frame frame(av_frame_alloc());
    if (!frame) {
        throw PngCodecError(failure);
    }
    return frame;
}

Packet allocatePacket(const std::string& failure) {
    Packet packet(av_packet_alloc());
    if (!packet) {
        throw PngCodecError(failure);
    }
    return packet;
}

// Converts one decoded row of the formats the PNG decoder produces to RGBA.
// Sixteen-bit samples are big-endian; their high byte is kept.
bool convertRow(AVPixelFormat format, const AVFrame& frame, int row, std::uint8_t* out) {
    const std::uint8_t* in = frame.data[0] + static_cast<std::ptrdiff_t>(row) * frame.linesize[0];
    const int width = frame.width;
    const auto put = [&](int x, std::uint8_t r, std::uint8_t g, std::uint8_t b, std::uint8_t a) {
        std::uint8_t* pixel = out + static_cast<std::ptrdiff_t>(x) * 4;
        pixel[0] = r;
        pixel[1] = g;
        pixel[2] = b;
        pixel[3] = a;
    };
    switch (format) {
    case AV_PIX_FMT_RGBA:
        std::memcpy(out, in, static_cast<std::size_t>(width) * 4);
        return true;
    case AV_PIX_FMT_RGB24:
        for (int x = 0; x < width; ++x) {
            put(x, in[x * 3], in[x * 3 + 1], in[x * 3 + 2], 255);
        }
        return true;
    case AV_PIX_FMT_RGBA64BE:
        for (int x = 0; x < width; ++x) {
            put(x, in[x * 8], in[x * 8 + 2], in[x * 8 + 4], in[x * 8 + 6]);
        }
        return true;
    case AV_PIX_FMT_RGB48BE:
        for (int x = 0; x < width; ++x) {
            put(x, in[x * 6], in[x * 6 + 2], in[x * 6 + 4], 255);
        }
        return true;
    case AV_PIX_FMT_GRAY8:
        for (int x = 0; x < width; ++x) {
            put(x, in[x], in[x], in[x], 255);
        }
        return true;
    case AV_PIX_FMT_GRAY16BE:
        for (int x = 0; x < width; ++x) {
            put(x, in[x * 2], in[x * 2], in[x * 2], 255);
        }
        return true;
    case AV_PIX_FMT_YA8:
        for (int x = 0; x < width; ++x) {
            put(x, in[x * 2], in[x * 2], in[x * 2], in[x * 2 + 1]);
        }
        return true;
    case AV_PIX_FMT_YA16BE:
        for (int x = 0; x < width; ++x) {
            put(x, in[x * 4], in[x * 4], in[x * 4], in[x * 4 + 2]);
        }
        return true;
    case AV_PIX_FMT_MONOBLACK:
        for (int x = 0; x < width; ++x) {
            const std::uint8_t level = ((in[x / 8] >> (7 - x % 8)) & 1) != 0 ? 255 : 0;
            put(x, level, level, level, 255);
        }
        return true;
    case AV_PIX_FMT_PAL8: {
        // The palette holds native-endian 32-bit ARGB entries.
        const auto* palette = reinterpret_cast<const std::uint32_t*>(frame.data[1]);
        for (int x = 0; x < width; ++x) {
            const std::uint32_t entry = palette[in[x]];
            put(x, static_cast<std::uint8_t>(entry >> 16), static_cast<std::uint8_t>(entry >> 8),
                static_cast<std::uint8_t>(entry), static_cast<std::uint8_t>(entry >> 24));
        }
        return true;
    }
    default:
        return false;
    }
}

} // namespace

std::string encodePng(int width, int height, std::span<const std::uint8_t> rgba) {
    if (width <= 0 || height <= 0 ||
        rgba.size() != static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4) {
        throw PngCodecError(encodingFailure);
    }
    const auto context =
        openCodec(avcodec_find_encoder(AV_CODEC_ID_PNG), encodingFailure, [&](AVCodecContext& codec) {
            codec.width = width;
            codec.height = height;
            codec.pix_fmt = AV_PIX_FMT_RGBA;
            codec.time_base = AVRational{1, 1};
        });

    const auto frame = allocateFrame(encodingFailure);
    frame->format = AV_PIX_FMT_RGBA;
    frame->width = width;
    frame->height = height;
    if (av_frame_get_buffer(frame.get(), 0) < 0) {
        throw PngCodecError(encodingFailure);
    }
    const auto rowBytes = static_cast<std::size_t>(width) * 4;
    for (int row = 0; row < height; ++row) {
        std::memcpy(frame->data[0] + static_cast<std::ptrdiff_t>(row) * frame->linesize[0],
                    rgba.data() + static_cast<std::size_t>(row) * rowBytes, rowBytes);
    }

    const auto packet = allocatePacket(encodingFailure);
    if (avcodec_send_frame(context.get(), frame.get()) < 0 ||
        avcodec_send_frame(context.get(), nullptr) < 0 ||
        avcodec_receive_packet(context.get(), packet.get()) < 0) {
        throw PngCodecError(encodingFailure);
    }
    return std::string(reinterpret_cast<const char*>(packet->data), static_cast<std::size_t>(packet->size));
}

RgbaImage decodePng(std::string_view bytes) {
    if (bytes.empty() || bytes.size() > static_cast<std::size_t>(INT_MAX - AV_INPUT_BUFFER_PADDING_SIZE)) {
        throw PngCodecError(decodingFailure);
    }
    const auto context =
        openCodec(avcodec_find_decoder(AV_CODEC_ID_PNG), decodingFailure, [](AVCodecContext&) {});

    // av_new_packet adds the zeroed padding that the decoder may read past the end.
    const auto packet = allocatePacket(decodingFailure);
    if (av_new_packet(packet.get(), static_cast<int>(bytes.size())) < 0) {
        throw PngCodecError(decodingFailure);
    }
    std::memcpy(packet->data, bytes.data(), bytes.size());

    const auto frame = allocateFrame(decodingFailure);
    if (avcodec_send_packet(context.get(), packet.get()) < 0 ||
        avcodec_send_packet(context.get(), nullptr) < 0 ||
        avcodec_receive_frame(context.get(), frame.get()) < 0) {
        throw PngCodecError(decodingFailure);
    }
    if (frame->width <= 0 || frame->height <= 0) {
        throw PngCodecError(decodingFailure);
    }

    RgbaImage image{frame->width, frame->height, {}};
    image.pixels.resize(static_cast<std::size_t>(image.width) * static_cast<std::size_t>(image.height) * 4);
    const auto format = static_cast<AVPixelFormat>(frame->format);
    for (int row = 0; row < image.height; ++row) {
        std::uint8_t* out = image.pixels.data() + static_cast<std::size_t>(row) * image.width * 4;
        if (!convertRow(format, *frame, row, out)) {
            throw PngCodecError(decodingFailure);
        }
    }
    return image;
}

} // namespace rilo

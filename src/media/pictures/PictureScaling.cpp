#include "media/pictures/PictureScaling.h"

#include "media/FFmpegHandles.h"

extern "C" {
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cmath>
#include <cstring>

namespace rilo {

namespace {

// Full chroma on both sides keeps colour edges of RGB pictures where they
// are; accurate rounding keeps flat colours flat.
constexpr int exactRgbFlags = SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP;

int flagsFor(PictureScalingQuality quality) {
    return (quality == PictureScalingQuality::high ? SWS_LANCZOS : SWS_BICUBIC) | exactRgbFlags;
}

std::size_t byteCount(PictureSize size) {
    return static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height) * 4;
}

} // namespace

PictureSize fittedPictureSize(PictureSize source, PictureSize box) noexcept {
    if (source.width <= 0 || source.height <= 0) {
        return {1, 1};
    }
    const double factor = std::min({static_cast<double>(box.width) / source.width,
                                    static_cast<double>(box.height) / source.height, 1.0});
    const auto edge = [factor](int length) {
        return std::max(1, static_cast<int>(std::lround(length * factor)));
    };
    return {edge(source.width), edge(source.height)};
}

RgbaImage scaledImage(const RgbaImage& image, PictureSize target, PictureScalingQuality quality) {
    if (image.width <= 0 || image.height <= 0 || target.width <= 0 || target.height <= 0 ||
        image.pixels.size() != byteCount({image.width, image.height})) {
        throw PictureScalingError();
    }
    if (target == PictureSize{image.width, image.height}) {
        return image;
    }
    const ffmpeg::Scaler scaler(sws_getContext(image.width, image.height, AV_PIX_FMT_RGBA, target.width,
                                               target.height, AV_PIX_FMT_RGBA, flagsFor(quality), nullptr,
                                               nullptr, nullptr));
    if (!scaler) {
        throw PictureScalingError();
    }
    RgbaImage scaled{target.width, target.height, std::vector<std::uint8_t>(byteCount(target))};
    const std::uint8_t* source[4] = {image.pixels.data(), nullptr, nullptr, nullptr};
    const int sourceStrides[4] = {image.width * 4, 0, 0, 0};
    std::uint8_t* destination[4] = {scaled.pixels.data(), nullptr, nullptr, nullptr};
    const int destinationStrides[4] = {target.width * 4, 0, 0, 0};
    if (sws_scale(scaler.get(), source, sourceStrides, 0, image.height, destination, destinationStrides) !=
        target.height) {
        throw PictureScalingError();
    }
    return scaled;
}

RgbaImage rotatedImage(const RgbaImage& image, int quarterTurns) {
    const int turns = ((quarterTurns % 4) + 4) % 4;
    if (turns == 0) {
        return image;
    }
    const bool swapsEdges = turns % 2 == 1;
    RgbaImage rotated{swapsEdges ? image.height : image.width, swapsEdges ? image.width : image.height,
                      std::vector<std::uint8_t>(image.pixels.size())};
    for (int y = 0; y < image.height; ++y) {
        for (int x = 0; x < image.width; ++x) {
            int targetX = 0;
            int targetY = 0;
            switch (turns) {
            case 1:
                targetX = image.height - 1 - y;
                targetY = x;
                break;
            case 2:
                targetX = image.width - 1 - x;
                targetY = image.height - 1 - y;
                break;
            default:
                targetX = y;
                targetY = image.width - 1 - x;
                break;
            }
            std::memcpy(&rotated.pixels[(static_cast<std::size_t>(targetY) * rotated.width + targetX) * 4],
                        &image.pixels[(static_cast<std::size_t>(y) * image.width + x) * 4], 4);
        }
    }
    return rotated;
}

void VideoFrameScaler::ContextDeleter::operator()(SwsContext* context) const noexcept {
    sws_freeContext(context);
}

VideoFrameScaler::VideoFrameScaler() = default;
VideoFrameScaler::~VideoFrameScaler() = default;

RgbaImage VideoFrameScaler::scale(const VideoFramePlanes& planes, PictureSize target) {
    AVPixelFormat format = AV_PIX_FMT_YUV420P;
    switch (planes.layout) {
    case VideoPixelLayout::yuv420p:
        format = AV_PIX_FMT_YUV420P;
        break;
    case VideoPixelLayout::nv12:
        format = AV_PIX_FMT_NV12;
        break;
    case VideoPixelLayout::rgba:
        format = AV_PIX_FMT_RGBA;
        break;
    }
    if (planes.width <= 0 || planes.height <= 0 || target.width <= 0 || target.height <= 0) {
        throw PictureScalingError();
    }
    context_.reset(sws_getCachedContext(
        context_.release(), planes.width, planes.height, format, target.width, target.height, AV_PIX_FMT_RGBA,
        flagsFor(PictureScalingQuality::thumbnail), nullptr, nullptr, nullptr));
    if (!context_) {
        throw PictureScalingError();
    }
    if (planes.layout != VideoPixelLayout::rgba) {
        const int* coefficients =
            sws_getCoefficients(planes.matrix == VideoColorMatrix::bt709 ? SWS_CS_ITU709 : SWS_CS_ITU601);
        sws_setColorspaceDetails(context_.get(), coefficients, planes.fullRange ? 1 : 0, coefficients, 1, 0,
                                 1 << 16, 1 << 16);
    }
    RgbaImage image{target.width, target.height, std::vector<std::uint8_t>(byteCount(target))};
    const std::uint8_t* source[4] = {planes.data[0], planes.data[1], planes.data[2], nullptr};
    const int sourceStrides[4] = {planes.strides[0], planes.strides[1], planes.strides[2], 0};
    std::uint8_t* destination[4] = {image.pixels.data(), nullptr, nullptr, nullptr};
    const int destinationStrides[4] = {target.width * 4, 0, 0, 0};
    if (sws_scale(context_.get(), source, sourceStrides, 0, planes.height, destination, destinationStrides) !=
        target.height) {
        throw PictureScalingError();
    }
    return image;
}

} // namespace rilo

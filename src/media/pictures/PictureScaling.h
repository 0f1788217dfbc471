#pragma once

// Resizing pictures for the interface: background images, wallpaper
// thumbnails, timeline thumbnails and project covers all take this road
// (swscale), so that every picture is scaled the same way.
//
// Pure functions, except VideoFrameScaler, which keeps its scaling context
// between pictures of one size and belongs to one thread at a time.

#include "media/PngCodec.h"
#include "shared/Errors.h"
#include "shared/VideoFramePlanes.h"

#include <memory>

struct SwsContext;

namespace rilo {

// A scaler that could not be set up for the sizes and layout given.
class PictureScalingError : public LocalizedError {
public:
    PictureScalingError()
        : LocalizedError("无法缩放图像。") {}
};

struct PictureSize {
    int width = 0;
    int height = 0;

    friend bool operator==(const PictureSize&, const PictureSize&) = default;
};

enum class PictureScalingQuality {
    // Lanczos: background images that stay large.
    high,
    // Bicubic: small pictures (thumbnails, covers).
    thumbnail,
};

// The size that fits `source` inside `box` keeping its aspect: scaled down by
// the smaller of the two edge ratios and never enlarged, each edge rounded to
// the nearest pixel and at least 1.
PictureSize fittedPictureSize(PictureSize source, PictureSize box) noexcept;

// The picture resized to `target` (alpha kept). The same picture comes back
// unchanged when the size already matches. Throws PictureScalingError.
RgbaImage scaledImage(const RgbaImage& image, PictureSize target, PictureScalingQuality quality);

// The picture turned clockwise by `quarterTurns` quarter turns (any integer;
// negative turns go anticlockwise).
RgbaImage rotatedImage(const RgbaImage& image, int quarterTurns);

// Decoded video pictures (planar or semi-planar 4:2:0, with their matrix and
// range) to opaque RGBA of any size.
class VideoFrameScaler {
public:
    VideoFrameScaler();
    ~VideoFrameScaler();
    VideoFrameScaler(const VideoFrameScaler&) = delete;
    VideoFrameScaler& operator=(const VideoFrameScaler&) = delete;

    // Throws PictureScalingError for a layout swscale cannot read.
    RgbaImage scale(const VideoFramePlanes& planes, PictureSize target);

private:
    struct ContextDeleter {
        void operator()(SwsContext* context) const noexcept;
    };
    std::unique_ptr<SwsContext, ContextDeleter> context_;
};

} // namespace rilo

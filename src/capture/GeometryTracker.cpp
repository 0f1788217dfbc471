#include "capture/GeometryTracker.h"

#include <algorithm>
#include <cmath>

namespace rilo {
namespace {

bool isValid(const RectValue& rect) noexcept {
    return std::isfinite(rect.x) && std::isfinite(rect.y) && std::isfinite(rect.width) &&
           std::isfinite(rect.height) && rect.width > 0 && rect.height > 0;
}

} // namespace

GeometryTracker::GeometryTracker(PixelSize encodedPixelSize, RectValue fallbackGlobalFrame,
                                 std::optional<SizeValue> fallbackSourceContentSize)
    : encodedPixelSize_(encodedPixelSize)
    , fallbackGlobalFrame_(fallbackGlobalFrame)
    , fallbackSourceContentSize_(fallbackSourceContentSize.value_or(SizeValue{
          static_cast<double>(encodedPixelSize.width), static_cast<double>(encodedPixelSize.height)})) {}

std::optional<GeometrySample> GeometryTracker::current() const {
    const std::lock_guard guard(lock_);
    return currentValue_;
}

RectValue GeometryTracker::aspectFit(SizeValue sourceSize, PixelSize encoded) noexcept {
    const auto width = static_cast<double>(encoded.width);
    const auto height = static_cast<double>(encoded.height);
    if (!(sourceSize.width > 0) || !(sourceSize.height > 0)) {
        return {0, 0, width, height};
    }
    const double scale = std::min(width / sourceSize.width, height / sourceSize.height);
    const double fittedWidth = sourceSize.width * scale;
    const double fittedHeight = sourceSize.height * scale;
    return {(width - fittedWidth) * 0.5, (height - fittedHeight) * 0.5, fittedWidth, fittedHeight};
}

std::optional<GeometrySample> GeometryTracker::update(ProjectTime time,
                                                      const GeometryFrameMetadata& metadata) {
    const RectValue globalFrame = isValid(metadata.screenRect) ? metadata.screenRect : fallbackGlobalFrame_;
    const double scale = std::max(1.0, metadata.scaleFactor);
    const SizeValue sourceSize =
        isValid(metadata.contentRect)
            ? SizeValue{metadata.contentRect.width * scale, metadata.contentRect.height * scale}
            : fallbackSourceContentSize_;
    const RectValue contentRect = aspectFit(sourceSize, encodedPixelSize_);

    const std::lock_guard guard(lock_);
    if (currentValue_ && currentValue_->globalWindowFrame == globalFrame &&
        currentValue_->sourceContentSize == sourceSize &&
        currentValue_->contentRectInEncodedFrame == contentRect &&
        currentValue_->scaleFactor == metadata.scaleFactor) {
        return std::nullopt;
    }
    GeometrySample sample;
    sample.time = time;
    sample.revision = ++nextRevision_;
    sample.globalWindowFrame = globalFrame;
    sample.sourceContentSize = sourceSize;
    sample.encodedPixelSize = encodedPixelSize_;
    sample.contentRectInEncodedFrame = contentRect;
    sample.scaleFactor = metadata.scaleFactor;
    currentValue_ = sample;
    return sample;
}

} // namespace rilo

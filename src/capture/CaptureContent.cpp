#include "capture/CaptureContent.h"

#include <algorithm>
#include <cmath>

namespace rilo {

bool CaptureWindowEligibility::isEligible(std::int32_t currentProcessID) const noexcept {
    return processID != currentProcessID && windowLayer == 0 && std::isfinite(width) &&
           std::isfinite(height) && width >= 160 && height >= 100;
}

RectValue AreaCaptureGeometry::clamped(RectValue rect, RectValue bounds) noexcept {
    if (rect.width < 0) {
        rect.x += rect.width;
        rect.width = -rect.width;
    }
    if (rect.height < 0) {
        rect.y += rect.height;
        rect.height = -rect.height;
    }
    rect.width = std::min(rect.width, bounds.width);
    rect.height = std::min(rect.height, bounds.height);
    rect.x = std::clamp(rect.x, bounds.x, bounds.maxX() - rect.width);
    rect.y = std::clamp(rect.y, bounds.y, bounds.maxY() - rect.height);
    return rect;
}

PixelSize DisplayCaptureGeometry::initialPixelSize(SizeValue points, double pointPixelScale) noexcept {
    // 4:2:0 video stores whole chroma samples: both measures are made even.
    const PixelSize size = PixelSize::constrained(
        points.width * pointPixelScale, points.height * pointPixelScale, maximumRecordingLongestEdge);
    return PixelSize(std::max<std::int64_t>(2, size.width & ~std::int64_t{1}),
                     std::max<std::int64_t>(2, size.height & ~std::int64_t{1}));
}

CaptureSourceDescriptor DisplayCaptureGeometry::croppedSource(const CaptureSourceDescriptor& display,
                                                              RectValue area) {
    const double scale = display.pointPixelScale.value_or(1.0);
    const RectValue bounds{0, 0, display.globalFrame.width, display.globalFrame.height};
    RectValue rect = AreaCaptureGeometry::clamped(area, bounds);
    // Whole pixels, at least one.
    const double left = std::round(rect.x * scale);
    const double top = std::round(rect.y * scale);
    const double width = std::max(1.0, std::round(rect.width * scale));
    const double height = std::max(1.0, std::round(rect.height * scale));
    rect = {left / scale, top / scale, width / scale, height / scale};

    CaptureSourceDescriptor source = display;
    source.kind = CaptureSourceKind::area;
    source.title = display.title;
    source.areaSourceRect = rect;
    source.globalFrame = {display.globalFrame.x + rect.x, display.globalFrame.y + rect.y, rect.width,
                          rect.height};
    source.initialPixelSize = initialPixelSize({rect.width, rect.height}, scale);
    source.pointPixelScale = scale;
    return source;
}

} // namespace rilo

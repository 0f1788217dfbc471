#include "project/document/WebcamOverlay.h"

#include <algorithm>
#include <cmath>

namespace rilo {

double value(WebcamAspectRatio ratio) noexcept {
    return ratio == WebcamAspectRatio::source ? 16.0 / 9.0 : 1.0;
}

WebcamOverlay::WebcamOverlay(bool isVisible, PointValue center, double diameter, bool isMirrored,
                             WebcamAspectRatio aspectRatio, double cornerRadius, bool showsBorder,
                             double borderWidthAt1080p, bool showsShadow) noexcept
    : isVisible(isVisible)
    , center(center)
    , diameter(diameter)
    , isMirrored(isMirrored)
    , aspectRatio(aspectRatio)
    , cornerRadius(constrainedCornerRadius(cornerRadius))
    , showsBorder(showsBorder)
    , borderWidthAt1080p(constrainedBorderWidthAt1080p(borderWidthAt1080p))
    , showsShadow(showsShadow) {}

double WebcamOverlay::constrainedCornerRadius(double radius) noexcept {
    if (!std::isfinite(radius)) {
        return 0.6;
    }
    return std::clamp(radius, 0.0, 1.0);
}

double WebcamOverlay::constrainedBorderWidthAt1080p(double width) noexcept {
    if (!std::isfinite(width)) {
        return 10;
    }
    return borderWidthLimits.clamped(width);
}

WebcamOverlay WebcamOverlay::newRecording() {
    WebcamOverlay overlay;
    overlay.center = {0.14, 0.8};
    overlay.cornerRadius = 0.6;
    overlay.showsBorder = false;
    return overlay;
}

} // namespace rilo

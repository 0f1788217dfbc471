#include "ui/timeline/TimelineBlockLayout.h"

#include <algorithm>
#include <cstdio>

namespace rilo {

TimelineRect TimelineEditableBlockLayout::frame(double startX, double endX, const TimelineLaneFrame& lane,
                                                const TimelineViewMetrics& metrics) {
    const double left = std::min(startX, endX);
    const double right = std::max(startX, endX);
    const double inset = std::min(metrics.blockVerticalInset, lane.height / 2);
    return {left, lane.minY + inset, right - left, lane.height - 2 * inset};
}

double TimelineEditableBlockLayout::handleWidth(double blockWidth,
                                                const TimelineViewMetrics& metrics) noexcept {
    return std::clamp(blockWidth / 2, 0.0, metrics.handleWidth);
}

TimelineHandleFrames TimelineEditableBlockLayout::handleFrames(const TimelineRect& block,
                                                               const TimelineViewMetrics& metrics) {
    const double width = handleWidth(block.width, metrics);
    return {{block.x, block.y, width, block.height}, {block.maxX() - width, block.y, width, block.height}};
}

std::string TimelineRateBadgeLayout::text(TimelinePlaybackRate rate) {
    char digits[32];
    std::snprintf(digits, sizeof digits, "%.2f", rate.multiplier());
    return std::string(digits) + "×";
}

std::optional<TimelineRect> TimelineRateBadgeLayout::frame(TimelinePlaybackRate rate,
                                                           const TimelineRect& block, double viewportWidth,
                                                           const TimelineViewMetrics& metrics) {
    // "×" is one character on screen, though several bytes.
    const double characters = static_cast<double>(text(rate).size() - std::string("×").size() + 1);
    const double width = characters * metrics.badgeCharacterWidth + 2 * metrics.badgeHorizontalPadding;
    const double visibleLeft = std::max(block.x, 0.0) + metrics.badgeMargin;
    const double visibleRight = std::min(block.maxX(), viewportWidth) - metrics.badgeMargin;
    if (visibleRight - visibleLeft < width) {
        return std::nullopt;
    }
    return TimelineRect{visibleRight - width, block.y + metrics.badgeMargin, width, metrics.badgeHeight};
}

} // namespace rilo

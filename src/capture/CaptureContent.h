#pragma once

// What can be recorded, apart from the windowing system that lists it: which
// windows may be offered, how the sources' pixel sizes and rectangles are
// computed, and the failures of choosing a source.

#include "project/document/ProjectManifest.h"
#include "shared/Errors.h"
#include "shared/Geometry.h"

#include <cstdint>
#include <string>

namespace rilo {

enum class CaptureContentErrorCase { sourceUnavailable, ownApplicationUnavailable };

class CaptureContentError : public CaseError<CaptureContentErrorCase> {
public:
    static CaptureContentError sourceUnavailable() {
        return {Case::sourceUnavailable, "所选录制源已不可用，请刷新后重试。"};
    }
    static CaptureContentError ownApplicationUnavailable() {
        return {Case::ownApplicationUnavailable, "无法确认 Rilo 已从录制画面排除，已取消录制。"};
    }

private:
    using CaseError::CaseError;
};

// No recording is encoded larger than this on its longest edge.
inline constexpr double maximumRecordingLongestEdge = 3840;

// The facts that decide whether a window is offered as a source.
struct CaptureWindowEligibility {
    std::int32_t processID = 0;
    std::string applicationIdentifier; // the window's class
    // 0 for normal windows; panels, docks, desktops and notifications are above or below.
    std::int64_t windowLayer = 0;
    double width = 0;
    double height = 0;

    // Not this program's, a normal window, finite and at least 160 x 100.
    bool isEligible(std::int32_t currentProcessID) const noexcept;
};

namespace AreaCaptureGeometry {
// The rectangle with positive measures, no larger than the bounds, moved to lie inside them.
RectValue clamped(RectValue rect, RectValue bounds) noexcept;
} // namespace AreaCaptureGeometry

namespace DisplayCaptureGeometry {
// A display, window or area of the given size in points recorded at the
// pixel scale, within the longest edge, in even measures.
PixelSize initialPixelSize(SizeValue points, double pointPixelScale) noexcept;
// The source of an area of a display: the rectangle (in the display's
// points) clamped to it and rounded to whole pixels, never below one pixel.
CaptureSourceDescriptor croppedSource(const CaptureSourceDescriptor& display, RectValue area);
} // namespace DisplayCaptureGeometry

} // namespace rilo

#include "project/document/CaptureSamples.h"

namespace rilo {

PointValue GeometrySample::localPoint(PointValue globalPoint) const noexcept {
    return {globalPoint.x - globalWindowFrame.x, globalPoint.y - globalWindowFrame.y};
}

PointValue GeometrySample::normalizedPoint(PointValue globalPoint) const noexcept {
    const RectValue& frame = globalWindowFrame;
    if (!(frame.width > 0) || !(frame.height > 0)) {
        return {0, 0};
    }
    const PointValue unclamped{(globalPoint.x - frame.x) / frame.width,
                               (globalPoint.y - frame.y) / frame.height};
    return unclamped.clamped();
}

} // namespace rilo

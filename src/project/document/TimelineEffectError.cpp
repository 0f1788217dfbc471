#include "project/document/TimelineEffectError.h"

#include <string>

namespace rilo {

namespace {

std::string messageFor(TimelineEffectError::Case errorCase) {
    using Case = TimelineEffectError::Case;
    switch (errorCase) {
    case Case::zoomNotFound:
        return "找不到选中的自动镜头。";
    case Case::zoomRangeInvalid:
        return "自动镜头区间至少需要一帧，且必须位于原始媒体内。";
    case Case::zoomOverlap:
        return "自动镜头区间不能与相邻镜头重叠。";
    case Case::webcamFullscreenNotFound:
        return "找不到选中的摄像头全屏区间。";
    case Case::webcamFullscreenRangeInvalid:
        return "摄像头全屏区间至少需要两帧，且必须位于原始媒体内。";
    case Case::webcamFullscreenOverlap:
        return "摄像头全屏区间不能与相邻区间重叠。";
    case Case::keyframeOutsideSource:
        return "摄像头关键帧超出原始媒体范围。";
    case Case::keyframeInvalid:
        return "摄像头关键帧必须唯一，且位置和大小需要位于合法范围。";
    case Case::zoomIndexInvalid:
        return "自动镜头编号无效。";
    }
    return "自动镜头区间至少需要一帧，且必须位于原始媒体内。";
}

} // namespace

TimelineEffectError::TimelineEffectError(Case errorCase)
    : CaseError(errorCase, messageFor(errorCase)) {}

} // namespace rilo

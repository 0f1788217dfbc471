#include "project/document/TimelineValidationError.h"

#include <string>

namespace rilo {

namespace {

std::string messageFor(TimelineValidationError::Case errorCase, std::optional<std::int64_t> schemaVersion) {
    using Case = TimelineValidationError::Case;
    switch (errorCase) {
    case Case::unsupportedSchema:
        return "不支持 Timeline Schema " + std::to_string(schemaVersion.value_or(0)) + "。";
    case Case::rangeOutsideSource:
        return "时间轴片段超出原始媒体范围。";
    case Case::segmentTooShort:
        return "时间轴片段不能短于一帧。";
    case Case::invalidPlaybackRate:
        return "播放倍率必须位于0.50x至4.00x并以0.01x递增。";
    case Case::playbackRateRequiresSchema4:
        return "非原速片段必须使用Timeline Schema 4。";
    case Case::sequenceSegmentTooShort:
        return "变速后的片段不能短于一个60fps输出帧。";
    case Case::sequenceDurationOverflow:
        return "变速后的时间轴时长超出支持范围。";
    case Case::segmentsOutOfOrder:
        return "时间轴片段必须按源时间排序。";
    case Case::overlappingSegments:
        return "时间轴片段不能重叠。";
    case Case::invalidAnnotation:
        return "标注时间、几何或样式无效。";
    case Case::empty:
        return "时间轴至少需要一个片段。";
    case Case::invalidMotionBlurAmount:
        return "运动模糊必须位于0%至100%。";
    case Case::deviceFrameRequiresSchema8:
        return "设备边框必须使用Timeline Schema 8。";
    case Case::invalidDeviceFrame:
        return "设备边框资源不存在。";
    case Case::tooManyAnnotations:
        return "静态标注不能超过500个。";
    case Case::tooManySimultaneousAnnotations:
        return "同一时间最多显示16个静态标注。";
    case Case::annotationsRequireSchema7:
        return "静态标注必须使用Timeline Schema 7。";
    }
    return "时间轴片段超出原始媒体范围。";
}

} // namespace

TimelineValidationError::TimelineValidationError(Case errorCase, std::optional<Uuid> id,
                                                 std::optional<std::int64_t> schemaVersion)
    : CaseError(errorCase, messageFor(errorCase, schemaVersion))
    , id_(id)
    , schemaVersion_(schemaVersion) {}

TimelineValidationError TimelineValidationError::unsupportedSchema(std::int64_t version) {
    return {Case::unsupportedSchema, std::nullopt, version};
}

} // namespace rilo

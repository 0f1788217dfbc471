#pragma once

#include "shared/Errors.h"

#include <string>

namespace rilo {

// The cases of TimelineSpeedError.
enum class TimelineSpeedErrorCase {
    invalidRate,
    invalidRange,
    rangeOutsideRetainedContent,
    conflictingRanges,
    noChange,
};

// Failures of a playback rate change over a source range.
class TimelineSpeedError : public CaseError<TimelineSpeedErrorCase> {
public:
    explicit TimelineSpeedError(Case errorCase)
        : CaseError(errorCase, messageFor(errorCase)) {}

private:
    static std::string messageFor(Case errorCase) {
        switch (errorCase) {
        case Case::invalidRate:
            return "播放倍率必须位于0.50x至4.00x并以0.01x递增。";
        case Case::invalidRange:
            return "变速区间无效或短于一个源视频帧。";
        case Case::rangeOutsideRetainedContent:
            return "变速区间必须完整位于当前保留内容中。";
        case Case::conflictingRanges:
            return "重叠变速区间不能使用不同倍率。";
        case Case::noChange:
            return "所选内容已经使用该播放倍率。";
        }
        return "变速区间无效或短于一个源视频帧。";
    }
};

} // namespace rilo

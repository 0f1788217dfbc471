#pragma once

#include "shared/Errors.h"

#include <string>

namespace rilo {

// Failures of a playback rate change over a source range.
class TimelineSpeedError : public LocalizedError {
public:
    enum class Case {
        invalidRate,
        invalidRange,
        rangeOutsideRetainedContent,
        conflictingRanges,
        noChange,
    };

    static TimelineSpeedError invalidRate() { return TimelineSpeedError(Case::invalidRate); }
    static TimelineSpeedError invalidRange() { return TimelineSpeedError(Case::invalidRange); }
    static TimelineSpeedError rangeOutsideRetainedContent() {
        return TimelineSpeedError(Case::rangeOutsideRetainedContent);
    }
    static TimelineSpeedError conflictingRanges() { return TimelineSpeedError(Case::conflictingRanges); }
    static TimelineSpeedError noChange() { return TimelineSpeedError(Case::noChange); }

    Case errorCase() const noexcept { return case_; }

private:
    explicit TimelineSpeedError(Case errorCase)
        : LocalizedError(messageFor(errorCase))
        , case_(errorCase) {}

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

    Case case_;
};

} // namespace rilo

#pragma once

#include "shared/Errors.h"

#include <string>

namespace rilo {

// The cases of TimelineEditError.
enum class TimelineEditErrorCase {
    noSegmentAtPlayhead,
    splitAtBoundary,
    segmentNotFound,
    trimOutsideHandles,
    cannotDeleteLastSegment,
    invalidRange,
};

// Failures of the structural edits of the segment list: split, trim, delete,
// keeping a sequence range and removing source ranges.
class TimelineEditError : public CaseError<TimelineEditErrorCase> {
public:
    explicit TimelineEditError(Case errorCase)
        : CaseError(errorCase, messageFor(errorCase)) {}

private:
    static std::string messageFor(Case errorCase) {
        switch (errorCase) {
        case Case::noSegmentAtPlayhead:
            return "播放头不在可分割片段内。";
        case Case::splitAtBoundary:
            return "播放头已经位于片段边界。";
        case Case::segmentNotFound:
            return "找不到要编辑的片段。";
        case Case::trimOutsideHandles:
            return "裁剪位置超出该片段可用范围。";
        case Case::cannotDeleteLastSegment:
            return "至少保留一个时间轴片段。";
        case Case::invalidRange:
            return "剪辑区间无效或超出时间轴。";
        }
        return "剪辑区间无效或超出时间轴。";
    }
};

} // namespace rilo

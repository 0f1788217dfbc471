#pragma once

#include "shared/Errors.h"

#include <string>

namespace rilo {

// The cases of CaptionEditingError.
enum class CaptionEditingErrorCase {
    cueNotFound,
    invalidRange,
    overlapsNeighbor,
    emptyText,
    invalidHighlight,
};

// Failures of the editor's changes to a caption document: a cue that is gone,
// a time range outside the source or shorter than a frame, a cue that would
// run into its neighbour, an empty text, a keyword that is not a part of the
// cue text.
class CaptionEditingError : public CaseError<CaptionEditingErrorCase> {
public:
    explicit CaptionEditingError(Case errorCase)
        : CaseError(errorCase, messageFor(errorCase)) {}

private:
    static std::string messageFor(Case errorCase) {
        switch (errorCase) {
        case Case::cueNotFound:
            return "找不到所选字幕。";
        case Case::invalidRange:
            return "字幕时间必须位于源媒体内，并至少持续一帧。";
        case Case::overlapsNeighbor:
            return "字幕不能与相邻字幕重叠。";
        case Case::emptyText:
            return "字幕文字不能为空。";
        case Case::invalidHighlight:
            return "请选择字幕正文中的一段连续关键词。";
        }
        return "找不到所选字幕。";
    }
};

} // namespace rilo

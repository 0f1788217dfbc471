#pragma once

#include "shared/Errors.h"

namespace rilo {

// The cases of CaptionValidationError.
enum class CaptionValidationErrorCase {
    unsupportedSchema,
    invalidTrack,
    tooManyCues,
    invalidCue,
    invalidWord,
    invalidHighlight,
    cueCrossesRemovedContent,
    staleTimeline,
    staleAudio,
};

// Why a caption document may not be stored or used. The cases after
// invalidHighlight are raised by the commands that check captions against the
// present timeline and audio.
class CaptionValidationError : public CaseError<CaptionValidationErrorCase> {
public:
    static CaptionValidationError unsupportedSchema() {
        return {Case::unsupportedSchema, "不支持该字幕格式版本。"};
    }
    static CaptionValidationError invalidTrack() {
        return {Case::invalidTrack, "字幕来源必须是麦克风或系统声音。"};
    }
    static CaptionValidationError tooManyCues() { return {Case::tooManyCues, "字幕数量超过安全上限。"}; }
    static CaptionValidationError invalidCue() {
        return {Case::invalidCue, "字幕文本、顺序或时间范围无效。"};
    }
    static CaptionValidationError invalidWord() {
        return {Case::invalidWord, "逐词时间不在所属字幕范围内。"};
    }
    static CaptionValidationError invalidHighlight() {
        return {Case::invalidHighlight, "字幕高亮必须是正文中的非重叠关键词，且不能覆盖整句。"};
    }
    static CaptionValidationError cueCrossesRemovedContent() {
        return {Case::cueCrossesRemovedContent,
                "最终字幕不能包含已删除内容或跨越剪切边界，请按最新保留片段重新生成。"};
    }
    static CaptionValidationError staleTimeline() {
        return {Case::staleTimeline, "项目剪辑已变化，请重新生成字幕。"};
    }
    static CaptionValidationError staleAudio() {
        return {Case::staleAudio, "字幕对应的音频与当前任务不一致。"};
    }

private:
    CaptionValidationError(Case errorCase, const char* message)
        : CaseError(errorCase, message) {}
};

} // namespace rilo

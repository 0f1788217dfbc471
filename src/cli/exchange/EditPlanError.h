#pragma once

#include "shared/Errors.h"

#include <string>

namespace rilo::cli {

// The cases of EditPlanValidationError.
enum class EditPlanValidationErrorCase {
    invalidDocument,
    invalidOperation,
    staleJob,
    staleCaptions,
    stalePlan,
    documentTooLarge,
};

// Failures of an edit plan exchange: a job or plan file that cannot be read
// or decoded, an operation the plan may not hold, or a job, caption document
// or plan file that no longer matches what the agent was shown. The stale
// cases are conflicts of digests; the others are validation failures.
class EditPlanValidationError : public CaseError<EditPlanValidationErrorCase> {
public:
    explicit EditPlanValidationError(Case errorCase)
        : CaseError(errorCase, messageFor(errorCase)) {}

    bool isConflict() const noexcept {
        return errorCase() == Case::staleJob || errorCase() == Case::staleCaptions ||
               errorCase() == Case::stalePlan;
    }

private:
    static std::string messageFor(Case errorCase) {
        switch (errorCase) {
        case Case::invalidDocument:
            return "Edit Plan Schema 1/2/3文档无效。";
        case Case::invalidOperation:
            return "Edit Plan包含无效或互相冲突的操作。";
        case Case::staleJob:
            return "Edit Plan任务与当前项目或Timeline不一致，请重新准备。";
        case Case::staleCaptions:
            return "字幕内容已变化，请重新生成剪辑计划。";
        case Case::stalePlan:
            return "Edit Plan文件已变化，请重新预演。";
        case Case::documentTooLarge:
            return "Edit Plan文件超过1MB安全上限。";
        }
        return "Edit Plan Schema 1/2/3文档无效。";
    }
};

} // namespace rilo::cli

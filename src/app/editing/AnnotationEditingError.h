#pragma once

#include "shared/Errors.h"

#include <string>

namespace rilo {

// The cases of AnnotationEditingError.
enum class AnnotationEditingErrorCase {
    invalidRange,
    notFound,
};

// Failures of the editor's changes to the static annotations: a new one that
// would not fit in its segment, or an id that is gone.
class AnnotationEditingError : public CaseError<AnnotationEditingErrorCase> {
public:
    explicit AnnotationEditingError(Case errorCase)
        : CaseError(errorCase, messageFor(errorCase)) {}

private:
    static std::string messageFor(Case errorCase) {
        switch (errorCase) {
        case Case::invalidRange:
            return "标注区间无效或超出所在片段。";
        case Case::notFound:
            return "找不到选中的标注。";
        }
        return "找不到选中的标注。";
    }
};

} // namespace rilo

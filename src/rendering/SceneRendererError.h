#pragma once

#include "shared/Errors.h"

#include <string>

namespace rilo {

enum class SceneRendererErrorCase {
    encoderUnavailable,
    tooManyAnnotations,
};

class SceneRendererError : public CaseError<SceneRendererErrorCase> {
public:
    static SceneRendererError encoderUnavailable() {
        return {Case::encoderUnavailable, "无法创建渲染命令。"};
    }
    static SceneRendererError tooManyAnnotations() {
        return {Case::tooManyAnnotations, "同一时间最多渲染16个静态标注。"};
    }

private:
    SceneRendererError(Case errorCase, const std::string& message)
        : CaseError(errorCase, message) {}
};

} // namespace rilo

#pragma once

#include "shared/Errors.h"

#include <string>

namespace rilo {

enum class CanvasBackgroundServiceErrorCase {
    // The file cannot be opened, or it is not a picture that decodes.
    unreadableImage,
    // Scaling or encoding the picture failed.
    imageConversionFailed,
};

class CanvasBackgroundServiceError : public CaseError<CanvasBackgroundServiceErrorCase> {
public:
    explicit CanvasBackgroundServiceError(Case errorCase)
        : CaseError(errorCase, messageFor(errorCase)) {}

private:
    static std::string messageFor(Case errorCase) {
        switch (errorCase) {
        case Case::unreadableImage:
            return "无法读取这张图片，请选择JPEG、PNG或HEIC图片。";
        case Case::imageConversionFailed:
            return "无法将图片转换为项目背景。";
        }
        return "无法将图片转换为项目背景。";
    }
};

} // namespace rilo

#pragma once

#include "shared/Errors.h"

#include <cstdint>
#include <string>

namespace rilo {

// The cases of ProjectExporterError.
enum class ProjectExporterErrorCase {
    pixelBufferAllocation,
    appendFailed,
    missingVideoTrack,
    cannotAddReaderOutput,
    cannotAddWriterInput,
    cannotStart,
    unsupportedVideoSettings,
    pixelBufferPoolUnavailable,
    renderFailed,
};

// Why an export stopped. `appendFailed` carries the writer's own text, or
// one of the texts below when the writer gives none.
class ProjectExporterError : public CaseError<ProjectExporterErrorCase> {
public:
    static constexpr const char* videoFrameRejected = "视频帧被拒绝";
    static constexpr const char* audioFrameRejected = "音频帧被拒绝";
    static constexpr const char* writerNotCompleted = "Writer 未完成";
    static constexpr const char* writerStopped = "Writer 已停止";

    // Errors without a value.
    explicit ProjectExporterError(Case errorCase)
        : CaseError(errorCase, messageFor(errorCase)) {}

    static ProjectExporterError pixelBufferAllocation(std::int64_t status) {
        return {Case::pixelBufferAllocation,
                "无法分配导出 PixelBuffer，错误码 " + std::to_string(status) + "。"};
    }
    static ProjectExporterError appendFailed(const std::string& text) {
        return {Case::appendFailed, "导出帧写入失败：" + text};
    }

private:
    ProjectExporterError(Case errorCase, const std::string& message)
        : CaseError(errorCase, message) {}

    static std::string messageFor(Case errorCase) {
        switch (errorCase) {
        case Case::pixelBufferAllocation:
            return "无法分配导出 PixelBuffer，错误码 0。";
        case Case::appendFailed:
            return std::string("导出帧写入失败：") + writerStopped;
        case Case::missingVideoTrack:
            return "项目媒体中没有屏幕视频轨道。";
        case Case::cannotAddReaderOutput:
            return "无法读取项目媒体轨道。";
        case Case::cannotAddWriterInput:
            return "无法创建导出媒体轨道。";
        case Case::cannotStart:
            return "无法启动离线导出。";
        case Case::unsupportedVideoSettings:
            return "当前设备不支持所选导出参数。";
        case Case::pixelBufferPoolUnavailable:
            return "无法创建导出 PixelBuffer Pool。";
        case Case::renderFailed:
            return "Metal 离线渲染失败。";
        }
        return "无法启动离线导出。";
    }
};

} // namespace rilo

#pragma once

#include "shared/Errors.h"

#include <string>

namespace rilo {

// Why an envelope could not be made.
enum class WaveformServiceErrorCase {
    readerFailed,
    unsupportedTrack,
    cannotReadTrack,
    invalidCache,
};

class WaveformServiceError : public CaseError<WaveformServiceErrorCase> {
public:
    // Details the decoder gives when it has no text of its own.
    static constexpr const char* readerCannotStart = "Reader 无法启动";
    static constexpr const char* readerDidNotComplete = "Reader 未完成";
    static constexpr const char* bufferNotContiguous = "PCM Buffer 不连续";

    static WaveformServiceError readerFailed(const std::string& detail) {
        return {Case::readerFailed, "波形解码失败：" + detail};
    }
    static WaveformServiceError unsupportedTrack() {
        return {Case::unsupportedTrack, "所选轨道不是可生成波形的音频轨道。"};
    }
    static WaveformServiceError cannotReadTrack() { return {Case::cannotReadTrack, "无法读取音频轨道。"}; }
    static WaveformServiceError invalidCache() { return {Case::invalidCache, "波形缓存格式无效。"}; }

private:
    using CaseError::CaseError;
};

} // namespace rilo

#pragma once

#include "project/document/MediaTrackKind.h"
#include "shared/Errors.h"

#include <string>

namespace rilo::cli {

// The cases of CLIIdleError.
enum class CLIIdleErrorCase { audioTrackUnavailable, noAudioTrack };

// A project that has no audio track for the idle analysis. Raised before any
// waveform work; reported as "validation" (exit 4).
class CLIIdleError : public CaseError<CLIIdleErrorCase> {
public:
    static CLIIdleError audioTrackUnavailable(MediaTrackKind kind) {
        return {Case::audioTrackUnavailable,
                "项目不包含所选静默分析音轨：" + std::string(json::rawValue(kind))};
    }
    static CLIIdleError noAudioTrack() {
        return {Case::noAudioTrack, "项目没有可用于静默分析的麦克风或系统声音轨。"};
    }

private:
    CLIIdleError(Case errorCase, const std::string& message)
        : CaseError(errorCase, message) {}
};

} // namespace rilo::cli

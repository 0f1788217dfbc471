#pragma once

#include "project/document/MediaTrackKind.h"
#include "shared/Errors.h"

#include <string>

namespace rilo {

enum class CaptionAudioExporterErrorCase { missingTrack, cannotRead, cannotWrite, cannotStart };

// Why the audio for a transcriber could not be written.
class CaptionAudioExporterError : public CaseError<CaptionAudioExporterErrorCase> {
public:
    static CaptionAudioExporterError missingTrack(MediaTrackKind kind) {
        return {Case::missingTrack, "项目没有可用于字幕的" + std::string(json::rawValue(kind)) + "音频轨。"};
    }
    static CaptionAudioExporterError cannotRead() { return {Case::cannotRead, "无法读取字幕源音频。"}; }
    static CaptionAudioExporterError cannotWrite() { return {Case::cannotWrite, "无法生成字幕源WAV。"}; }
    static CaptionAudioExporterError cannotStart() { return {Case::cannotStart, "无法启动字幕音频导出。"}; }

private:
    using CaseError::CaseError;
};

} // namespace rilo

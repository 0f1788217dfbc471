#pragma once

// Failures of the webcam and the microphone, with the texts people see.

#include "shared/Errors.h"

#include <string>

namespace rilo {

enum class WebcamCaptureErrorCase {
    deviceUnavailable,
    noDevice,
    cannotAddInput,
    cannotAddOutput,
    cannotStart
};

class WebcamCaptureError : public CaseError<WebcamCaptureErrorCase> {
public:
    static WebcamCaptureError deviceUnavailable(const std::string& deviceName) {
        return {Case::deviceUnavailable, "摄像头“" + deviceName + "”当前不可用。"};
    }
    static WebcamCaptureError noDevice() { return {Case::noDevice, "没有找到可用摄像头。"}; }
    static WebcamCaptureError cannotAddInput() {
        return {Case::cannotAddInput, "无法把摄像头连接到捕获会话。"};
    }
    static WebcamCaptureError cannotAddOutput() {
        return {Case::cannotAddOutput, "无法创建摄像头视频输出。"};
    }
    static WebcamCaptureError cannotStart() {
        return {Case::cannotStart, "摄像头未能开始采集，请检查它是否被其他应用占用。"};
    }

private:
    using CaseError::CaseError;
};

enum class MicrophoneCaptureErrorCase {
    noDevice,
    deviceUnavailable,
    levelMonitorUnavailable,
    levelMonitorDidNotStart
};

class MicrophoneCaptureError : public CaseError<MicrophoneCaptureErrorCase> {
public:
    static MicrophoneCaptureError noDevice() { return {Case::noDevice, "没有找到可用麦克风。"}; }
    static MicrophoneCaptureError deviceUnavailable() {
        return {Case::deviceUnavailable, "所选麦克风已不可用，请重新选择。"};
    }
    static MicrophoneCaptureError levelMonitorUnavailable() {
        return {Case::levelMonitorUnavailable, "无法建立麦克风电平监看。"};
    }
    static MicrophoneCaptureError levelMonitorDidNotStart() {
        return {Case::levelMonitorDidNotStart, "麦克风电平监看未能启动。"};
    }

private:
    using CaseError::CaseError;
};

enum class SystemAudioCaptureErrorCase { unavailable };

// The system audio can't be had: no sound server, or no output to listen to.
class SystemAudioCaptureError : public CaseError<SystemAudioCaptureErrorCase> {
public:
    static SystemAudioCaptureError unavailable(const std::string& detail) {
        return {Case::unavailable, "系统音频当前不可用：" + detail};
    }

private:
    using CaseError::CaseError;
};

} // namespace rilo
